#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "../../fuzz/KernelRecordReader.h"
#include "LogCapture.h"

// The fuzzer's corpus, run without a fuzzer.
namespace kavaro {
namespace {

// In memory of exactly that size, where a sanitizer sees every byte too many that is read.
void run(const std::string& bytes) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    fuzz::readKernelRecords(exact);
}

TEST(KernelRecordCorpus, Replay) {
    LogCapture log;
    testing::internal::CaptureStdout();
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KAVARO_SOURCE_DIR "/fuzz/corpus/kernel_record")) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        for (std::size_t length = 0; length <= bytes.size(); ++length) run(bytes.substr(0, length));
        ++inputs;
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GE(inputs, 16);
}

}  // namespace
}  // namespace kavaro
