#include <gmock/gmock.h>

#include "factory/EngineTest.h"
#include "platform/MD5.h"

namespace kavaro {
namespace {

class FileDuplicatesTest : public EngineTest {
  protected:
    // Puts records of these files, from ID 1 on, in their byte form.
    void ask(const std::vector<std::string>& paths) {
        auto records = make<TuvObjectArray>();
        std::uint32_t inode = 1;
        for (const std::string& path : paths) {
            auto node = make<TuvNode>();
            node->setInode(inode++);
            node->setFileName(path);
            node->setContentModDate(inode * 10);
            records->adoptObject(make<TuvNodeMD5Hash>(node.get()).leak());
        }
        TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, data);
    }
    MD5HashHeader header;
    ByteBuffer data;
};

std::string digestOf(std::string_view content) {
    return md5Text(md5Of(bytesOf(content)));
}

TEST_F(FileDuplicatesTest, GivesTheRecordsWithTheirDigests) {
    TempFolder folder;
    ask({folder.write("b", "bb"), folder.path("none"), folder.write("a", "aaa")});
    LogCapture log(LogLevel::debug);
    const TuvNodeFactory::FileDuplicates answer = engine()->fileDuplicatesHeader(data.view(), header);
    const auto records = TuvNodeMD5Hash::deserialize_TuvObjectArray(answer.headerData, answer.data.view());
    ASSERT_TRUE(records);
    ASSERT_EQ(records->count(), 3);
    const auto asked = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, data.view());
    const std::string digests[] = {digestOf("bb"), "", digestOf("aaa")};
    for (int i = 0; i < 3; ++i) {
        const auto* record = static_cast<TuvNodeMD5Hash*>(records->objectAtIndex(i));
        const auto* question = static_cast<TuvNodeMD5Hash*>(asked->objectAtIndex(i));
        EXPECT_EQ(record->md5Hash(), digests[i]);
        EXPECT_EQ(record->inode(), question->inode());
        EXPECT_EQ(record->filePath(), question->filePath());
        EXPECT_EQ(record->modified(), question->modified());
    }
    std::vector<std::string> own;
    for (const LogCapture::Line& line : log.lines())
        if (line.selector == "fileDuplicates:header:") own.push_back(line.text.substr(0, line.text.find(" in ")));
    EXPECT_THAT(own, testing::ElementsAre("3 files", "processed 3 nodes"));
}

TEST_F(FileDuplicatesTest, RecordsThatMakeNoSenseGiveNone) {
    TempFolder folder;
    ask({folder.write("a", "a")});
    LogCapture log;
    const auto expectNothing = [&](const MD5HashHeader& wrong, ByteView bytes) {
        const TuvNodeFactory::FileDuplicates answer = engine()->fileDuplicatesHeader(bytes, wrong);
        EXPECT_TRUE(answer.data.view().empty());
        EXPECT_TRUE(answer.headerData.empty());
    };
    expectNothing({}, {});
    expectNothing(header, data.view().first(data.size() - 1));
    expectNothing({{"instanceCount", "2"}, {"dataSize", std::to_string(data.size())}}, data.view());
    EXPECT_EQ(log.count("processed 0 nodes in "), 3);
    EXPECT_EQ(log.count("Can't serialze 0 objects"), 3);
}

// The worker stands in the middle of a folder, with its stack locked: nothing of it is needed here.
TEST_F(FileDuplicatesTest, MayRunWhileAJobDoes) {
    TempFolder folder;
    ask({folder.write("a", "a")});
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    catalog->gate("/r/a");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a");
    EXPECT_EQ(engine()->fileDuplicatesHeader(data.view(), header).data.size(), data.size());
    catalog->openAll();
    EXPECT_TRUE(runUntilPosted("Completed"));
}

}  // namespace
}  // namespace kavaro
