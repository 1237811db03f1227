#include "client/commandline/NcduOutput.h"

#include <unordered_map>
#include <vector>

#include "client/commandline/JsonStream.h"
#include "platform/Catalog.h"
#include "support/Version.h"

namespace kavaro {

namespace {

// Of a path, continued name by name, so that finding a folder among the unread ones costs its name and not its path.
struct PathHash {
    std::uint64_t value = 0xcbf29ce484222325;

    PathHash with(std::string_view bytes) const {
        PathHash next = *this;
        for (const char byte : bytes) next.value = (next.value ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
        return next;
    }
};

class NcduWriter {
  public:
    NcduWriter(Output& output, const Measurement& measurement) : _output(output), _measurement(measurement) {
        for (const UnreadFolder& folder : measurement.unread) {
            _unread.emplace(PathHash().with(folder.path).value, &folder);
        }
    }

    void header(double timestamp) {
        _writer.StartArray();
        _writer.Int(1);
        _writer.Int(2);
        _writer.StartObject();
        writeKey(_writer, "progname");
        writeString(_writer, "kavaro");
        writeKey(_writer, "progver");
        writeString(_writer, KAVARO_VERSION);
        writeKey(_writer, "timestamp");
        _writer.Int64(static_cast<std::int64_t>(timestamp));
        _writer.EndObject();
    }

    void tree() {
        const PathHash root = PathHash().with(_measurement.path);
        enter(*_measurement.root, _measurement.path, root);
        // Names below "/" are not put after a second slash.
        if (!_levels.empty() && _measurement.path == "/") _levels.back().hash = PathHash();
        while (!_levels.empty() && !_output.failed()) {
            Level& level = _levels.back();
            if (level.nextFolder < level.folder->folderCount()) {
                const TuvDirNode* next = level.folder->folders()->folderAtIndex(level.nextFolder++);
                enter(*next, next->fileName(), level.hash.with("/").with(next->fileName()));
            } else {
                _writer.EndArray();
                _levels.pop_back();
            }
        }
    }

    void end() {
        if (!_output.failed()) _writer.EndArray();
    }

  private:
    struct Level {
        const TuvDirNode* folder;
        PathHash hash;
        int nextFolder = 0;
    };

    // Writes the folder and its files. A folder that was left out and holds nothing is no array.
    void enter(const TuvDirNode& folder, std::string_view name, PathHash hash) {
        const auto found = _unread.empty() ? _unread.end() : _unread.find(hash.value);
        const char* excluded = found == _unread.end() ? nullptr : exclusionOf(found->second->reason);
        const bool isLeaf = excluded && folder.childrenCount() == 0 && !_levels.empty();
        if (!isLeaf) _writer.StartArray();
        _writer.StartObject();
        writeKey(_writer, "name");
        writeString(_writer, name);
        writeInode(folder);
        if (excluded) {
            writeKey(_writer, "excluded");
            writeString(_writer, excluded);
        } else if (found != _unread.end()) {
            writeKey(_writer, "read_error");
            _writer.Bool(true);
        }
        _writer.EndObject();
        if (isLeaf) return;
        for (int i = 0; i < folder.fileCount(); ++i) writeFile(*folder.files()->nodeAtIndex(i));
        _levels.push_back({&folder, hash, 0});
    }

    void writeFile(const TuvNode& file) {
        _writer.StartObject();
        writeKey(_writer, "name");
        writeString(_writer, file.fileName());
        writeSize("asize", file.logicalSize());
        writeSize("dsize", file.physicalSize());
        writeInode(file);
        _writer.EndObject();
    }
    void writeSize(std::string_view key, std::uint64_t size) {
        if (size == 0) return;
        writeKey(_writer, key);
        _writer.Uint64(size);
    }
    void writeInode(const TuvNode& node) {
        if (node.inode() == 0 || node.inode() >= NodeIdentity::kFirstDerived) return;
        writeKey(_writer, "ino");
        _writer.Uint64(node.inode());
    }

    static const char* exclusionOf(std::string_view reason) {
        if (reason == kReasonOtherFileSystem) return "otherfs";
        if (reason == kReasonPseudoFileSystem) return "kernfs";
        return reason == kReasonBackupFolder ? "pattern" : nullptr;
    }

    Output& _output;
    const Measurement& _measurement;
    JsonStream _stream{_output};
    JsonWriter _writer{_stream};
    std::unordered_map<std::uint64_t, const UnreadFolder*> _unread;  // by the hash of their paths
    std::vector<Level> _levels;
};

}  // namespace

void writeNcdu(Output& output, const Measurement& measurement, double timestamp) {
    NcduWriter writer(output, measurement);
    writer.header(timestamp);
    writer.tree();
    writer.end();
    output.put('\n');
}

}  // namespace kavaro
