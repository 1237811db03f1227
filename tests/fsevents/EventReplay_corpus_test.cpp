#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "../../fuzz/RecordingReader.h"
#include "support/TuvLog.h"

// The fuzzer's corpus, run without a fuzzer.
namespace kavaro {
namespace {

std::vector<std::string> corpus() {
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(KAVARO_SOURCE_DIR "/fuzz/corpus/recording")) {
        std::ifstream stream(entry.path(), std::ios::binary);
        texts.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return texts;
}

TEST(EventReplayCorpus, Replay) {
    TuvLog::setDefaultLevel(LogLevel::off);
    const std::vector<std::string> texts = corpus();
    EXPECT_GE(texts.size(), 10u);
    std::size_t batches = 0;
    for (const std::string& text : texts) {
        fuzz::readRecording(text);
        batches += fuzz::batchesOf(text).size();
    }
    EXPECT_GE(batches, 8u);
}

TEST(EventReplayCorpus, RandomChanges) {
    TuvLog::setDefaultLevel(LogLevel::off);
    std::mt19937 random(1);
    const std::vector<std::string> texts = corpus();
    for (int round = 0; round < 3000; ++round) {
        std::string text = texts[random() % texts.size()];
        for (auto left = random() % 4; left > 0 && !text.empty(); --left) {
            const std::size_t at = random() % text.size();
            constexpr const char* kParts[] = {"index=", "\"", "\\", "{", ";", "\n", "\xff", "inode=1;", "/*", ""};
            if (random() % 2)
                text.replace(at, random() % 8, kParts[random() % std::size(kParts)]);
            else
                text[at] = static_cast<char>(random());
        }
        if (random() % 4 == 0) text.resize(random() % (text.size() + 1));
        fuzz::readRecording(text);
    }
}

}  // namespace
}  // namespace kavaro
