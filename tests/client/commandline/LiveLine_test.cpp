#include "client/commandline/LiveLine.h"

#include <gtest/gtest.h>

#include "client/commandline/CommandRun.h"
#include "platform/TextDisplay.h"

namespace kavaro {
namespace {

const std::string kErase = "\r\x1b[K";

MeasurementProgress progressOf(std::uint64_t folders, double seconds) {
    MeasurementProgress progress;
    progress.folders = folders;
    progress.physicalSize = 3 << 20;
    progress.seconds = seconds;
    progress.currentFolder = "/usr/share/doc";
    return progress;
}

struct Drawn {
    WrittenBytes bytes;
    FakeClock clock;
    int columns = 80;
    LiveLine line{bytes.fd(), [this] { return columns; }, clock};
};

TEST(LiveLine, showsWhatIsKnown) {
    Drawn drawn;
    drawn.line.show(progressOf(1000, 0.5));
    EXPECT_EQ(drawn.bytes.text(), kErase + "1,000 folders, 3.0 MB, 2,000 folders/s  /usr/share/doc");
}

TEST(LiveLine, oneFolder) {
    Drawn drawn;
    drawn.line.show(progressOf(1, 0.5));
    EXPECT_EQ(drawn.bytes.text(), kErase + "1 folder, 3.0 MB, 2 folders/s  /usr/share/doc");
}

TEST(LiveLine, waitsWhileTheTerminalIsNotOurs) {
    Drawn drawn;
    drawn.columns = -1;
    drawn.line.show(progressOf(1000, 0.5));
    drawn.line.erase();
    EXPECT_EQ(drawn.bytes.text(), "");
    drawn.columns = 80;
    drawn.line.show(progressOf(1000, 0.5));
    const std::string shown = drawn.bytes.text();
    EXPECT_NE(shown, "");
    drawn.columns = -1;
    drawn.line.erase();
    EXPECT_EQ(drawn.bytes.text(), shown);
}

TEST(LiveLine, drawsAtMostTenTimesASecond) {
    Drawn drawn;
    int draws = 0;
    std::size_t before = 0;
    for (int i = 0; i < 1000; ++i) {  // a second
        drawn.line.show(progressOf(10, 0.5));
        const std::size_t size = drawn.bytes.text().size();
        if (size != before) ++draws;
        before = size;
        drawn.clock.now += 0.001;
    }
    EXPECT_GE(draws, 9);
    EXPECT_LE(draws, 10);
}

TEST(LiveLine, rateIsThatOfTheLastSecond) {
    Drawn drawn;
    drawn.line.show(progressOf(1000, 1));  // 1,000 in the first second
    drawn.clock.now += 1;
    drawn.line.show(progressOf(6000, 2));
    EXPECT_NE(drawn.bytes.text().find("6,000 folders, 3.0 MB, 5,000 folders/s"), std::string::npos);
    drawn.clock.now += 0.5;
    drawn.line.show(progressOf(6100, 2.5));  // within the second the rate stands
    EXPECT_NE(drawn.bytes.text().find("6,100 folders, 3.0 MB, 5,000 folders/s"), std::string::npos);
}

TEST(LiveLine, eraseLeavesNothing) {
    Drawn drawn;
    drawn.line.erase();
    EXPECT_EQ(drawn.bytes.text(), "");
    drawn.line.show(progressOf(1, 1));
    drawn.line.erase();
    const std::string text = drawn.bytes.text();
    EXPECT_EQ(text.substr(text.size() - kErase.size()), kErase);
    drawn.line.erase();
    EXPECT_EQ(drawn.bytes.text(), text);
}

TEST(LiveLine, isNeverWiderThanTheTerminal) {
    for (int columns = 0; columns < 120; ++columns) {
        Drawn drawn;
        drawn.columns = columns;
        MeasurementProgress progress = progressOf(123456789, 3.5);
        progress.currentFolder = "/写真/" + std::string(300, 'x') + "/\n\xFF";
        drawn.line.show(progress);
        const std::string text = drawn.bytes.text().substr(kErase.size());
        EXPECT_LT(displayWidth(text), static_cast<std::size_t>(columns > 1 ? columns : 41)) << text;
    }
}

DigestProgress digestsOf(std::uint64_t bytes, std::uint64_t total, double seconds, double waited = 0) {
    DigestProgress progress;
    progress.bytes = bytes;
    progress.totalBytes = total;
    progress.seconds = seconds;
    progress.waited = waited;
    return progress;
}

TEST(LiveLine, tellsHowFarTheDigestsAre) {
    const std::uint64_t gigabyte = 1ull << 30;
    const std::pair<DigestProgress, const char*> cases[] = {
        {digestsOf(0, 3 * gigabyte, 0), "0 bytes of 3.0 GB compared"},
        {digestsOf(gigabyte, 3 * gigabyte, 0.5), "1.0 GB of 3.0 GB compared, 2.0 GB/s, 0:01 left"},
        {digestsOf(gigabyte, 3 * gigabyte, 150), "1.0 GB of 3.0 GB compared, 6.8 MB/s, 5:00 left"},
        {digestsOf(gigabyte, 2 * gigabyte, 7384), "1.0 GB of 2.0 GB compared, 142.0 KB/s, 2:03:04 left"},
        {digestsOf(0, 3 * gigabyte, 0, 0.9), "0 bytes of 3.0 GB compared"},
        {digestsOf(0, 3 * gigabyte, 0, 65), "0 bytes of 3.0 GB compared, 1:05 so far"},
        {digestsOf(gigabyte, 3 * gigabyte, 150, 60), "1.0 GB of 3.0 GB compared, 6.8 MB/s, 4:00 left"},
        {digestsOf(gigabyte, 3 * gigabyte, 150, 600), "1.0 GB of 3.0 GB compared, 6.8 MB/s, 0:00 left"},
        {digestsOf(1, 3 * gigabyte, 1), "1 byte of 3.0 GB compared, 1 byte/s"},
        {digestsOf(7, 7, 1), "7 bytes of 7 bytes compared, 7 bytes/s, 0:00 left"},
    };
    for (const auto& [progress, text] : cases) {
        Drawn drawn;
        drawn.line.show(progress);
        EXPECT_EQ(drawn.bytes.text(), kErase + text);
    }
    Drawn narrow;
    narrow.columns = 20;
    narrow.line.show(cases[1].first);
    EXPECT_LT(displayWidth(narrow.bytes.text().substr(kErase.size())), 20u);
}

}  // namespace
}  // namespace kavaro
