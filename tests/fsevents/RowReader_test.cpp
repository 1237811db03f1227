#include "fsevents/RowReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> rowsOf(std::string_view text, std::size_t pieceSize) {
    std::vector<std::string> rows;
    RowReader reader([&](std::string_view row) { rows.emplace_back(row); },
                     [&](std::uint64_t bytes) { rows.push_back("long " + std::to_string(bytes)); });
    for (std::size_t position = 0; position < text.size(); position += pieceSize)
        reader.read(text.substr(position, pieceSize));
    EXPECT_EQ(reader.bytesRead(), text.size());
    return rows;
}

TEST(RowReaderTest, RowsEndBeforeTheNextOne) {
    EXPECT_THAT(rowsOf("index=a\nindex=b;\n\nindex=c", 100), ElementsAre("index=a", "index=b;\n"));
    EXPECT_THAT(rowsOf("\n  index=a\n  index=b\n  index=", 100), ElementsAre("\n  index=a\n ", "index=b\n "));
    EXPECT_THAT(rowsOf("", 100), IsEmpty());
    EXPECT_THAT(rowsOf("index=a", 100), IsEmpty());
}

TEST(RowReaderTest, TheFirstRowIsLookedForBehindItsOwnBeginning) {
    EXPECT_THAT(rowsOf("12345index=a\nindex=", 100), ElementsAre("12345index=a"));
    EXPECT_THAT(rowsOf("123456index=a\nindex=", 100), ElementsAre("12345", "index=a"));
    EXPECT_THAT(rowsOf("index=index=index=", 100), ElementsAre("index", "index"));
}

// The rule as it is said: search from the sixth byte on, and go on five bytes behind each find.
std::vector<std::string> plainly(std::string_view text) {
    std::vector<std::string> rows;
    std::size_t start = 0;
    for (std::size_t found = text.find("index=", 6); found != std::string_view::npos;
         found = text.find("index=", found + 5)) {
        rows.emplace_back(text.substr(start, found - 1 - start));
        start = found;
    }
    return rows;
}

TEST(RowReaderTest, PiecesOfAnySize) {
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (std::size_t parts = random() % 30; parts > 0; --parts) {
            constexpr const char* kParts[] = {"index=", "index=", "inde", "x=", "\n", "i", "=", "index", "some text; "};
            text += kParts[random() % std::size(kParts)];
        }
        const auto expected = plainly(text);
        for (std::size_t size : {1, 2, 3, 5, 6, 7, 64, 100000}) ASSERT_EQ(rowsOf(text, size), expected) << text;
    }
}

TEST(RowReaderTest, LongRowsAreCounted) {
    const std::string most = "index=" + std::string(RowReader::kLongestRow - 7, 'x') + "\n";
    const std::string text = most + "index=" + std::string(RowReader::kLongestRow - 6, 'y') + "\n" +
                             "index=" + std::string(5 * RowReader::kLongestRow, 'z') + "\nindex=b\nindex=";
    for (std::size_t size : {std::size_t{1000}, std::size_t{65536}, text.size()})
        EXPECT_THAT(rowsOf(text, size),
                    ElementsAre(most.substr(0, most.size() - 1), "long 1048577", "long 5242887", "index=b"));
}

}  // namespace
}  // namespace kavaro
