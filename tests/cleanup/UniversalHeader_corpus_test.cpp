#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "../../fuzz/UniversalReader.h"
#include "cleanup/UniversalFile.h"

// The fuzzer's corpus, run without a fuzzer.
namespace kavaro {
namespace {

// In memory of exactly that size, where a sanitizer sees every byte too many that is read.
void run(const std::string& bytes) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    fuzz::readUniversalFile(exact);
}

TEST(UniversalHeaderCorpus, Replay) {
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KAVARO_SOURCE_DIR "/fuzz/corpus/universal_header")) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        run(bytes);
        for (std::size_t length = 0; length < bytes.size(); ++length) run(bytes.substr(0, length));
        ++inputs;
    }
    EXPECT_GE(inputs, 20);
}

TEST(UniversalHeaderCorpus, RandomChanges) {
    std::mt19937 random(1);
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const std::string files[] = {universalFile({{18, 0, "p", 3}, {7, 3, "iii", 2}, {99, 1, "?", 0}}),
                                 universalFile({{18, 0, "p", 3}, {7, 3, "iii", 2}, {99, 1, "?", 0}}, true)};
    for (int round = 0; round < 20'000; ++round) {
        std::string bytes = files[below(2)];
        for (auto left = below(5); left > 0; --left) {
            // Small numbers make sense more often.
            const std::size_t at = below(bytes.size());
            bytes[at] = static_cast<char>(below(2) ? below(8) : below(256));
        }
        bytes.resize(below(4) ? bytes.size() : below(bytes.size()));
        run(bytes);
    }
}

}  // namespace
}  // namespace kavaro
