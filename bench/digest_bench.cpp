// Digests: every kernel of the processor on data in the cache, and candidates grouped by size.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "cleanup/TuvNodeMD5Hash.h"
#include "model/TuvDirNode.h"
#include "platform/MD5Lanes.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr std::size_t kLaneBytes = 8192;

void kernelOnEveryLane(benchmark::State& state, const MD5Kernel& kernel) {
    const auto lanes = static_cast<std::size_t>(kernel.lanes);
    const std::vector<std::uint8_t> bytes(lanes * kLaneBytes, 'x');
    std::vector<MD5State> streams(lanes);
    std::vector<MD5State*> states;
    std::vector<const std::uint8_t*> data;
    for (std::size_t i = 0; i < lanes; ++i) {
        states.push_back(&streams[i]);
        data.push_back(bytes.data() + i * kLaneBytes);
    }
    for (auto _ : state) kernel.run(states.data(), data.data(), kLaneBytes / kMD5BlockBytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

void libraryOnOneStream(benchmark::State& state) {
    const std::vector<std::uint8_t> bytes(1 << 20, 'x');
    for (auto _ : state) benchmark::DoNotOptimize(md5Of(bytes));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(libraryOnOneStream);

// A million files in folders of fifty, sizes as file systems have them: many small ones that meet, few large ones.
void groupsBySize(benchmark::State& state) {
    TuvLog::setDefaultLevel(LogLevel::off);
    std::mt19937_64 random(7);
    std::lognormal_distribution<double> size(8, 2.5);
    auto root = make<TuvDirNode>();
    root->setFileName("/r");
    for (std::uint32_t inode = 1; inode <= 1'000'000;) {
        auto folder = make<TuvDirNode>();
        folder->setFileName("folder" + std::to_string(inode));
        folder->setParent(root.get());
        for (int i = 0; i < 50; ++i, ++inode) {
            auto file = make<TuvNode>();
            file->setInode(inode);
            file->setFileName("file" + std::to_string(inode));
            file->setLogicalSize(static_cast<std::uint64_t>(size(random)));
            file->setParent(folder.get());
            folder->files()->adoptObject(file.leak());
        }
        root->folders()->adoptObject(folder.leak());
    }
    int groups = 0;
    for (auto _ : state) groups = root->potentialyDuplicateFiles()->count();
    state.counters["groups"] = groups;
}
BENCHMARK(groupsBySize)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    for (const kavaro::MD5Kernel& kernel : kavaro::md5KernelsOfProcessor())
        benchmark::RegisterBenchmark(kernel.name,
                                     [kernel](benchmark::State& state) { kavaro::kernelOnEveryLane(state, kernel); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
