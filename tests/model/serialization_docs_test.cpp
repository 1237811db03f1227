#include <fstream>
#include <map>
#include <sstream>

#include "cleanup/TuvNodeMD5Hash.h"
#include "model/serialization_twin.h"

// The examples in docs/byte-formats.md and docs/protocol.md are the real bytes.
namespace kavaro {
namespace {

using namespace twin;

// The digits of every block that begins with "```hex NAME".
void addExamples(const char* path, std::map<std::string, std::string>& blocks) {
    std::ifstream page(path);
    std::string name;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) == 0) {
            name = line.rfind("```hex ", 0) == 0 ? line.substr(7) : "";
            EXPECT_TRUE(name.empty() || !blocks.count(name)) << name << " stands twice";
        } else if (!name.empty()) {
            std::istringstream bytes(line.substr(0, line.find('#')));
            for (std::string byte; bytes >> byte;) blocks[name] += byte;
        }
    }
}

std::map<std::string, std::string> examples() {
    std::map<std::string, std::string> blocks;
    addExamples(KAVARO_SOURCE_DIR "/docs/byte-formats.md", blocks);
    addExamples(KAVARO_SOURCE_DIR "/docs/protocol.md", blocks);
    return blocks;
}

Plain dated(Plain plain, std::uint64_t logicalSize, std::uint64_t physicalSize) {
    plain.date = 3786912000.0;
    plain.logicalSize = logicalSize;
    plain.physicalSize = physicalSize;
    return plain;
}

std::map<std::string, std::string> realBytes() {
    const Plain text = dated(file(12, "a.txt"), 100, 4096);
    const Plain a = dated(file(8, "a"), 4, 4096);
    const Plain bc = dated(file(9, "bc"), 6, 4096);
    const Plain docs = dated(folder(7, "docs", {a, bc}), 10, 8192);
    const Plain sub = dated(folder(9, "bc"), 0, 0);
    const Plain tree = dated(folder(7, "docs", {a}, {sub}), 10, 8192);
    // As the signals of a job carry them: the listed root with a placeholder, then the folder that takes its place.
    Plain placeholder = sub;
    placeholder.flags = 0x02;
    Plain root = dated(folder(7, "/docs", {a}, {placeholder}), 0, 0);
    root.flags = 0x22;
    const Plain found = dated(folder(9, "bc", {dated(file(10, "x"), 6, 4096)}), 6, 4096);
    ByteBuffer alone, array, folders, index, nodes, data;
    nodeOf(docs)->serialize(alone, 1);
    arrayOf({a})->serialize(array, 0, TuvNode::kTypeFile);
    arrayOf({sub})->serialize(folders, 0, TuvNode::kTypeFolder);
    nodeOf(tree)->tuvNodeDatabase_serialize(&index, &nodes, &data);
    ByteBuffer record, compactRecord;
    const auto digest = make<TuvNodeMD5Hash>(nodeOf(dated(file(12, "/a.txt"), 3, 4096)).get());
    digest->setMD5Hash("900150983cd24fb0d6963f7d28e17f72");
    digest->serialize(record, 0);
    digest->serialize(compactRecord, 1);
    return {{"file-record", hexOf(nodeOf(text)->serialize())},
            {"folder-record", hexOf(nodeOf(docs)->serialize())},
            {"folder-record-alone", hexOf(alone)},
            {"files-array", hexOf(array)},
            {"folders-array", hexOf(folders)},
            {"started", hexOf(nodeOf(root)->serialize())},
            {"resolved", hexOf(arrayOf({found})->serialize())},
            {"batch", hexOf(arrayOf({text, dated(folder(3, "sub"), 0, 0)})->serialize())},
            {"index-stream", hexOf(index)},
            {"node-stream", hexOf(nodes)},
            {"data-stream", hexOf(data)},
            {"hash-record", hexOf(record)},
            {"hash-record-compact", hexOf(compactRecord)}};
}

TEST(SerializationDocs, EveryExampleIsWhatIsWritten) {
    const auto shown = examples();
    const auto real = realBytes();
    for (const auto& [name, bytes] : real) {
        const auto found = shown.find(name);
        EXPECT_EQ(found == shown.end() ? "no such example" : found->second, bytes) << name;
    }
    for (const auto& [name, bytes] : shown) EXPECT_TRUE(real.count(name)) << name << " is held by no test";
}

}  // namespace
}  // namespace kavaro
