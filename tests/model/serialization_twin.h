#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "model/serialization/TuvNodeSerializer.h"

// A tree as plain values, and writers and readers of its byte forms that are as simple as they can be: recursive, field
// by field, without checks. What they say is held against the real ones.
namespace kavaro::twin {

struct Plain {
    bool isFolder = false;
    std::uint32_t inode = 0;
    double date = 0;
    std::uint64_t logicalSize = 0;
    std::uint64_t physicalSize = 0;
    bool hasName = true;
    std::string name;
    std::uint16_t flags = 0x11;
    std::vector<Plain> files;
    std::vector<Plain> folders;
};

inline Plain file(std::uint32_t inode, std::string name, std::uint64_t logicalSize = 0,
                  std::uint64_t physicalSize = 0) {
    Plain plain;
    plain.inode = inode;
    plain.name = std::move(name);
    plain.logicalSize = logicalSize;
    plain.physicalSize = physicalSize;
    return plain;
}

inline Plain folder(std::uint32_t inode, std::string name, std::vector<Plain> files = {},
                    std::vector<Plain> folders = {}) {
    Plain plain;
    plain.isFolder = true;
    plain.inode = inode;
    plain.name = std::move(name);
    plain.flags = 0x32;
    plain.files = std::move(files);
    plain.folders = std::move(folders);
    return plain;
}

// Everything that is stored, one line a node, as text: what differs shows.
inline void describe(const Plain& plain, int level, std::string& out) {
    char numbers[160];
    std::snprintf(numbers, sizeof numbers, "%*s%s %u date %a sizes %llu %llu flags %x name ", level * 2, "",
                  plain.isFolder ? "folder" : "file", plain.inode, plain.date,
                  static_cast<unsigned long long>(plain.logicalSize),
                  static_cast<unsigned long long>(plain.physicalSize), plain.flags);
    out += numbers + (plain.hasName ? "[" + plain.name + "]\n" : "absent\n");
    for (const Plain& each : plain.files) describe(each, level + 1, out);
    for (const Plain& each : plain.folders) describe(each, level + 1, out);
}
inline std::string describe(const Plain& plain) {
    std::string out;
    describe(plain, 0, out);
    return out;
}

// --- between plain values and nodes

inline void setFields(TuvNode& node, const Plain& plain) {
    node.setInode(plain.inode);
    node.setContentModDate(plain.date);
    node.setLogicalSize(plain.logicalSize);
    node.setPhysicalSize(plain.physicalSize);
    node.setFlags(plain.flags);
    if (plain.hasName) node.setFileName(plain.name);
}

inline TuvRef<TuvNode> nodeOf(const Plain& plain) {
    if (!plain.isFolder) {
        auto node = make<TuvNode>();
        setFields(*node, plain);
        return node;
    }
    auto node = make<TuvDirNode>();
    setFields(*node, plain);
    for (const auto* children : {&plain.files, &plain.folders}) {
        for (const Plain& each : *children) {
            auto child = nodeOf(each);
            child->setParent(node.get());
            (each.isFolder ? node->folders() : node->files())->addObject(child.get());
        }
    }
    return node;
}

inline TuvRef<TuvDirNode> folderOf(const Plain& plain) {
    return TuvRef<TuvDirNode>::adopt(static_cast<TuvDirNode*>(nodeOf(plain).leak()));
}

inline TuvRef<TuvObjectArray> arrayOf(const std::vector<Plain>& plains) {
    auto array = make<TuvObjectArray>();
    for (const Plain& each : plains) array->addObject(nodeOf(each).get());
    return array;
}

// Also checks that every child points at its parent.
inline Plain plainOf(const TuvNode& node, bool isFolder) {
    Plain plain;
    plain.isFolder = isFolder;
    plain.inode = node.inode();
    plain.date = node.contentModDate();
    plain.logicalSize = node.logicalSize();
    plain.physicalSize = node.physicalSize();
    plain.flags = node.flags();
    plain.hasName = node.hasFileName();
    if (plain.hasName) plain.name = node.fileName();
    if (!isFolder) return plain;
    const auto& folder = static_cast<const TuvDirNode&>(node);
    for (int i = 0; i < folder.fileCount(); ++i) {
        EXPECT_EQ(folder.files()->nodeAtIndex(i)->parent(), &folder);
        plain.files.push_back(plainOf(*folder.files()->nodeAtIndex(i), false));
    }
    for (int i = 0; i < folder.folderCount(); ++i) {
        EXPECT_EQ(folder.folders()->nodeAtIndex(i)->parent(), &folder);
        plain.folders.push_back(plainOf(*folder.folders()->nodeAtIndex(i), true));
    }
    return plain;
}

// What is left of a tree after it went through the stream form with a depth.
inline Plain throughStream(const Plain& plain, int depth) {
    Plain read = plain;
    read.hasName = true;
    if (!plain.isFolder) read.flags = 0x11;
    if (!plain.isFolder || depth < 2) {
        read.files.clear();
        read.folders.clear();
        return read;
    }
    for (Plain& each : read.files) each = throughStream(each, 0);
    for (Plain& each : read.folders) each = throughStream(each, depth == 2 ? 0 : depth);
    return read;
}

inline Plain throughDatabase(Plain plain) {
    plain.hasName = true;
    for (Plain& each : plain.files) each = throughDatabase(each);
    for (Plain& each : plain.folders) each = throughDatabase(each);
    return plain;
}

// --- the stream form

template <class T>
void put(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

inline void write(std::string& out, const Plain& plain, int depth) {
    const std::string name = plain.hasName ? plain.name : "";
    put<std::uint32_t>(out, plain.inode);
    put<double>(out, plain.date);
    put<std::uint64_t>(out, plain.logicalSize);
    put<std::uint64_t>(out, plain.physicalSize);
    put<std::uint32_t>(out, static_cast<std::uint32_t>(name.size()));
    if (plain.isFolder) {
        put<std::uint16_t>(out, plain.flags);
        put<std::int16_t>(out, static_cast<std::int16_t>(depth));
    }
    out += name;
    if (!plain.isFolder || depth <= 1) return;
    const int childDepth = depth == 2 ? 0 : depth;
    for (const auto* children : {&plain.files, &plain.folders}) {
        put<std::int32_t>(out, static_cast<std::int32_t>(children->size()));
        for (const Plain& each : *children) write(out, each, childDepth);
    }
}

inline std::string writeBatch(const std::vector<Plain>& batch, int depth) {
    std::string out;
    put<std::int32_t>(out, static_cast<std::int32_t>(batch.size()));
    for (const Plain& each : batch) {
        put<std::uint32_t>(out, each.isFolder ? 2 : 1);
        write(out, each, depth);
    }
    return out;
}

template <class T>
T take(const std::string& in, std::size_t& at) {
    T value;
    std::memcpy(&value, in.data() + at, sizeof value);
    at += sizeof value;
    return value;
}

inline Plain read(const std::string& in, std::size_t& at, bool isFolder) {
    Plain plain;
    plain.isFolder = isFolder;
    plain.inode = take<std::uint32_t>(in, at);
    plain.date = take<double>(in, at);
    plain.logicalSize = take<std::uint64_t>(in, at);
    plain.physicalSize = take<std::uint64_t>(in, at);
    const auto length = take<std::uint32_t>(in, at);
    int depth = 0;
    if (isFolder) {
        plain.flags = take<std::uint16_t>(in, at);
        depth = take<std::int16_t>(in, at);
    }
    plain.name = in.substr(at, length);
    at += length;
    if (depth <= 1) return plain;
    for (auto count = take<std::int32_t>(in, at); count > 0; --count) plain.files.push_back(read(in, at, false));
    for (auto count = take<std::int32_t>(in, at); count > 0; --count) plain.folders.push_back(read(in, at, true));
    return plain;
}

// --- the three-stream form

struct Streams {
    std::string index, nodes, data;
};

inline void writeDatabase(Streams& out, const Plain& plain, std::uint32_t parentInode) {
    const std::string name = plain.hasName ? plain.name : "";
    put<std::uint32_t>(out.index, plain.inode);
    put<std::uint32_t>(out.index, parentInode);
    put<double>(out.nodes, plain.date);
    put<std::uint64_t>(out.nodes, plain.logicalSize);
    put<std::uint64_t>(out.nodes, plain.physicalSize);
    put<std::uint32_t>(out.nodes, static_cast<std::uint32_t>(out.data.size()));
    put<std::uint16_t>(out.nodes, static_cast<std::uint16_t>(name.size()));
    put<std::uint16_t>(out.nodes, plain.flags);
    out.data += name;
    for (const Plain& each : plain.files) writeDatabase(out, each, plain.inode);
    for (const Plain& each : plain.folders) writeDatabase(out, each, plain.inode);
}

// --- material

class Random {
  public:
    explicit Random(unsigned seed) : _engine(seed) {}
    std::uint64_t below(std::uint64_t limit) { return _engine() % limit; }
    std::string name() {
        static constexpr std::size_t kLengths[] = {0, 1, 2, 7, 15, 40, 511, 512, 513, 514, 2000};
        std::string name(below(4) ? below(30) : kLengths[below(std::size(kLengths))], 'x');
        const bool anyByte = below(2);
        for (char& c : name) c = static_cast<char>(anyByte ? below(256) : 'a' + below(26));
        return name;
    }
    // Inodes are different within a tree, as the three-stream form needs them to be.
    Plain tree(int levels, bool isFolder = true) {
        Plain plain;
        plain.isFolder = isFolder;
        plain.inode = ++_inode;
        plain.date = static_cast<double>(static_cast<std::int64_t>(_engine())) / 1024;
        plain.logicalSize = _engine();
        plain.physicalSize = _engine() >> below(60);
        plain.hasName = below(20) != 0;
        if (plain.hasName) plain.name = name();
        plain.flags = static_cast<std::uint16_t>(isFolder ? 2 + 16 * below(4) : 1 + 16 * below(2));
        if (!isFolder || levels == 0) return plain;
        for (auto left = below(5); left > 0; --left) plain.files.push_back(tree(0, false));
        for (auto left = below(4); left > 0; --left) plain.folders.push_back(tree(levels - 1));
        return plain;
    }

  private:
    std::mt19937_64 _engine;
    std::uint32_t _inode = 0;
};

inline std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (unsigned char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
    }
    return hex;
}
inline std::string hexOf(const ByteBuffer& bytes) {
    return hexOf(textOf(bytes.view()));
}

// A copy in a block of exactly its length, so that a checked build sees a read past its end. Never null.
class ExactBytes {
  public:
    explicit ExactBytes(std::string_view bytes) : _size(bytes.size()), _bytes(new std::uint8_t[bytes.size()]) {
        if (_size) std::memcpy(_bytes.get(), bytes.data(), _size);
    }
    ByteView view() const { return {_bytes.get(), _size}; }

  private:
    std::size_t _size;
    std::unique_ptr<std::uint8_t[]> _bytes;
};

// Makes the model's classes ask again for their level, before and after a test that changes it.
struct FreshLevels {
    FreshLevels() { forget(); }
    ~FreshLevels() { forget(); }
    static void forget() {
        for (const LogComponent* each : {&tuvNodeLog, &tuvDirNodeLog, &tuvObjectArrayLog}) each->forget();
    }
};

}  // namespace kavaro::twin
