#include "client/ContentSample.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

class ContentSampleTest : public testing::Test {
  protected:
    std::optional<std::uint64_t> sampleOf(const std::string& content) {
        return contentSample(_folder.write("file", content), content.size());
    }

    TempFolder _folder;
};

TEST_F(ContentSampleTest, TellsWhatStandsAtTheBeginning) {
    EXPECT_EQ(sampleOf("abc"), sampleOf("abc"));
    EXPECT_NE(sampleOf("abc"), sampleOf("abd"));
    EXPECT_NE(sampleOf("1" + std::string(kSampleBytes, 'x')), sampleOf("2" + std::string(kSampleBytes, 'x')));
    EXPECT_EQ(sampleOf(std::string(kSampleBytes, 'x') + "1"), sampleOf(std::string(kSampleBytes, 'x') + "2"));
}

TEST_F(ContentSampleTest, AndOfALargeFileAtTheEnd) {
    std::string content(kLargeFileBytes + 1, 'x');
    const auto plain = sampleOf(content);
    ASSERT_TRUE(plain);
    content[content.size() / 2] = 'y';
    EXPECT_EQ(sampleOf(content), plain);
    content[content.size() - kSampleBytes] = 'y';
    EXPECT_NE(sampleOf(content), plain);
    content.pop_back();
    const auto small = sampleOf(content);
    content.back() = 'y';
    EXPECT_EQ(sampleOf(content), small) << "no large one any more";
}

TEST_F(ContentSampleTest, ThereIsNoneOfWhatIsNoSuchFile) {
    EXPECT_FALSE(contentSample(_folder.path("absent"), 3));
    EXPECT_FALSE(contentSample(_folder.path(), 3));
    EXPECT_FALSE(contentSample(_folder.write("file", "abcd"), 3)) << "it has grown";
    EXPECT_FALSE(contentSample(_folder.write("file", "ab"), 3)) << "it was cut";
    ASSERT_EQ(mkfifo(_folder.path("queue").c_str(), 0600), 0);
    EXPECT_FALSE(contentSample(_folder.path("queue"), 0)) << "and it is not waited for";
    EXPECT_TRUE(contentSample(_folder.write("empty", ""), 0));
}

}  // namespace
}  // namespace kavaro
