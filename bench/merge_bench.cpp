// A listing of 100,000 files is merged into a folder of 100,000, beside sorting both by inode with std::sort.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "model/TuvDirNode.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr std::uint32_t kFiles = 100000;

// Files with the inodes from `first` on, in no order. Every hundredth has another size than its twin of the same inode.
TuvRef<TuvObjectArray> listing(std::uint32_t first, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<std::uint32_t> inodes(kFiles);
    for (std::uint32_t i = 0; i < kFiles; ++i) inodes[i] = first + i;
    std::shuffle(inodes.begin(), inodes.end(), random);
    auto files = make<TuvObjectArray>(static_cast<int>(kFiles));
    for (const std::uint32_t inode : inodes) {
        auto file = make<TuvNode>();
        file->setInode(inode);
        file->setFileName("Name " + std::to_string(inode) + ".txt");
        file->setLogicalSize(inode % 100 == 0 ? random() % 100000 : inode);
        file->setPhysicalSize(inode % 1000 * 4096);
        files->adoptObject(file.leak());
    }
    return files;
}

// A folder with the files from 1 on, a few levels below its root.
class Place {
  public:
    Place() {
        TuvDirNode* folder = _root.get();
        folder->setFileName("/bench");
        for (int level = 0; level < 8; ++level) {
            auto next = make<TuvDirNode>();
            next->setFileName("level");
            next->setParent(folder);
            TuvDirNode* below = next.get();
            folder->folders()->adoptObject(next.leak());
            folder = below;
        }
        folder->files()->addObjectsFromArray(listing(1, 1).get());
        folder->files()->setParent(folder);
        folder->setIsResolved(true, true);
        _folder = folder;
    }
    TuvDirNode& folder() { return *_folder; }

  private:
    TuvRef<TuvDirNode> _root = make<TuvDirNode>();
    TuvDirNode* _folder = nullptr;
};

// The listing begins at the file with this number: the files before it are gone, as many came.
void mergeFiles(benchmark::State& state) {
    const auto first = static_cast<std::uint32_t>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        {
            Place place;
            auto fresh = listing(first, 2);
            state.ResumeTiming();
            place.folder().mergeFiles(fresh.get());
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(mergeFiles)->Arg(1)->Arg(kFiles / 2)->Arg(kFiles + 1)->Unit(benchmark::kMillisecond);

void sortBothLists(benchmark::State& state) {
    auto own = listing(1, 1);
    auto fresh = listing(1, 2);
    for (auto _ : state) {
        for (const TuvObjectArray* array : {own.get(), fresh.get()}) {
            std::vector<TuvObject*> copy(array->begin(), array->end());
            std::sort(copy.begin(), copy.end(), [](const TuvObject* a, const TuvObject* b) {
                return static_cast<const TuvNode*>(a)->inode() < static_cast<const TuvNode*>(b)->inode();
            });
            benchmark::DoNotOptimize(copy.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(sortBothLists)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::off);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
