#include "../../fuzz/HashRecordReaders.h"

#include <filesystem>
#include <fstream>
#include <random>

#include "cleanup/DuplicatesTest.h"

// The fuzzer's corpus, run without a fuzzer.
namespace kavaro {
namespace {

// Bytes on the heap, so that a sanitizer sees reads beyond them.
void run(const std::string& bytes) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    fuzz::readHashRecords(exact);
}

std::vector<std::string> corpus() {
    std::vector<std::string> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(KAVARO_SOURCE_DIR "/fuzz/corpus/hash_records")) {
        std::ifstream stream(entry.path(), std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return inputs;
}

TEST(HashRecordCorpus, EveryInput) {
    LogCapture log;
    const std::vector<std::string> inputs = corpus();
    EXPECT_GE(inputs.size(), 15u);
    for (const std::string& input : inputs) run(input);
}

// Not from the corpus: its inputs cut short everywhere, and with bits turned.
TEST(HashRecordCorpus, EveryInputCutAndAltered) {
    LogCapture log;
    for (const std::string& input : corpus()) {
        for (std::size_t length = 0; length < input.size(); ++length) run(input.substr(0, length));
        for (std::size_t bit = 0; bit < 8 * std::min<std::size_t>(input.size(), 200); ++bit) {
            std::string altered = input;
            altered[bit / 8] = static_cast<char>(altered[bit / 8] ^ (1 << bit % 8));
            run(altered);
        }
    }
}

TEST(HashRecordCorpus, RandomBytes) {
    LogCapture log;
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 300, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random() % 4 ? 0 : random());
        run(bytes);
    }
}

}  // namespace
}  // namespace kavaro
