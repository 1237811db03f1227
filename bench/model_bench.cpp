// The object array and the sort orders: front of a long list, sorting by each key beside std::sort on the same key.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "model/TuvDirNode.h"
#include "platform/Text.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr int kWaiting = 200000;
constexpr int kNodes = 1000000;

TuvRef<TuvObjectArray> waitingFolders(int count) {
    auto array = make<TuvObjectArray>();
    for (int i = 0; i < count; ++i) {
        auto folder = make<TuvDirNode>();
        folder->setInode(static_cast<std::uint32_t>(i));
        array->adoptObject(folder.leak());
    }
    return array;
}

// One insertion and one removal at the front of a list of 200,000; and of 200, to show that the length is no matter.
void frontOfAList(benchmark::State& state) {
    auto array = waitingFolders(static_cast<int>(state.range(0)));
    auto folder = make<TuvDirNode>();
    for (auto _ : state) {
        array->insertObjectAtIndex(folder.get(), 0);
        array->removeObjectAtIndex(0);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(frontOfAList)->Arg(200)->Arg(kWaiting);

// A list that grows at the front, from nothing.
void growAtTheFront(benchmark::State& state) {
    auto folder = make<TuvDirNode>();
    for (auto _ : state) {
        auto array = make<TuvObjectArray>();
        for (int i = 0; i < kWaiting; ++i) array->insertObjectAtIndex(folder.get(), 0);
    }
    state.SetItemsProcessed(state.iterations() * kWaiting);
}
BENCHMARK(growAtTheFront)->Unit(benchmark::kMillisecond);

void growAtTheEnd(benchmark::State& state) {
    auto folder = make<TuvDirNode>();
    for (auto _ : state) {
        auto array = make<TuvObjectArray>();
        for (int i = 0; i < kWaiting; ++i) array->addObject(folder.get());
    }
    state.SetItemsProcessed(state.iterations() * kWaiting);
}
BENCHMARK(growAtTheEnd)->Unit(benchmark::kMillisecond);

// A folder with 200,000 waiting subfolders is taken out of a list of 400,000.
void takeAFolderOut(benchmark::State& state) {
    auto waiting = waitingFolders(kWaiting);
    auto folder = make<TuvDirNode>();
    folder->setInode(5000000);
    folder->setHasLoadNodes();
    for (int i = 0; i < kWaiting; ++i) {
        auto subfolder = make<TuvDirNode>();
        subfolder->setInode(static_cast<std::uint32_t>(kWaiting + i));
        folder->folders()->adoptObject(subfolder.leak());
    }
    for (auto _ : state) {
        state.PauseTiming();
        waiting->insertUnResolvedNodes(folder.get());
        state.ResumeTiming();
        waiting->removeFoldersFromNodeRecursively(folder.get());
    }
    state.SetItemsProcessed(state.iterations() * kWaiting);
}
BENCHMARK(takeAFolderOut)->Unit(benchmark::kMillisecond);

void makeAndNameNodes(benchmark::State& state) {
    const std::string name = "a name of usual length.txt";
    for (auto _ : state) {
        auto array = make<TuvObjectArray>(kWaiting);
        for (int i = 0; i < kWaiting; ++i) {
            auto node = make<TuvNode>();
            node->setFileName(name);
            array->adoptObject(node.leak());
        }
    }
    state.SetItemsProcessed(state.iterations() * kWaiting);
}
BENCHMARK(makeAndNameNodes)->Unit(benchmark::kMillisecond);

// A million files in a thousand folders, in no order; made once.
class Pool {
  public:
    static Pool& shared() {
        static Pool pool;
        return pool;
    }
    const std::vector<TuvObject*>& shuffled() const { return _shuffled; }

  private:
    Pool() {
        std::mt19937 random(1);
        _root->setFileName("/bench");
        TuvDirNode* folder = nullptr;
        for (int i = 0; i < kNodes; ++i) {
            if (i % 1000 == 0) {
                auto next = make<TuvDirNode>();
                next->setFileName("folder" + std::to_string(random()));
                next->setParent(_root.get());
                folder = next.get();
                _root->folders()->adoptObject(next.leak());
            }
            auto node = make<TuvNode>();
            node->setInode(random() & 0x7fffffff);
            node->setFileName("Name " + std::to_string(random()) + ".txt");
            node->setLogicalSize(random() % 100000);
            node->setPhysicalSize(random() % 1000 * 4096);
            node->setContentModDate(3000000000.0 + random() % 100000000);
            node->setParent(folder);
            node->filePath();
            _shuffled.push_back(node.get());
            folder->files()->adoptObject(node.leak());
        }
        std::shuffle(_shuffled.begin(), _shuffled.end(), random);
    }

    TuvRef<TuvDirNode> _root = make<TuvDirNode>();
    std::vector<TuvObject*> _shuffled;
};

void sortArray(benchmark::State& state, TuvObjectArray::Comparison comparison) {
    const auto& nodes = Pool::shared().shuffled();
    for (auto _ : state) {
        state.PauseTiming();
        auto array = make<TuvObjectArray>();
        array->addObjectsFromArrayLength(nodes.data(), kNodes);
        state.ResumeTiming();
        array->sortByFunction(comparison);
        state.PauseTiming();
        array = nullptr;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kNodes);
}

template <class Less>
void sortVector(benchmark::State& state, Less less) {
    const auto& nodes = Pool::shared().shuffled();
    for (auto _ : state) {
        state.PauseTiming();
        auto copy = nodes;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end(), [&](const TuvObject* a, const TuvObject* b) {
            return less(*static_cast<const TuvNode*>(a), *static_cast<const TuvNode*>(b));
        });
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetItemsProcessed(state.iterations() * kNodes);
}

// One pair of rows for each key.
template <class Less>
void addPair(const char* key, TuvObjectArray::Comparison comparison, Less less) {
    const std::string name(key);
    benchmark::RegisterBenchmark(("sort/" + name + "/array").c_str(), sortArray, comparison)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("sort/" + name + "/std_sort").c_str(), [less](benchmark::State& state) {
        sortVector(state, less);
    })->Unit(benchmark::kMillisecond);
}

void addSorts() {
    using Node = const TuvNode&;
    addPair("physicalSize", TuvNode_sortByPhysicalSize,
            [](Node a, Node b) { return a.physicalSize() > b.physicalSize(); });
    addPair("logicalSize", TuvNode_sortByLogicalSize, [](Node a, Node b) { return a.logicalSize() > b.logicalSize(); });
    addPair("modDate", TuvNode_sortByModDate, [](Node a, Node b) { return a.contentModDate() > b.contentModDate(); });
    addPair("inode", TuvNode_sortByInode, [](Node a, Node b) { return a.inode() < b.inode(); });
    addPair("name", TuvNode_sortByName, [](Node a, Node b) { return compare(a.fileName(), b.fileName()) < 0; });
    addPair("nameInsensitive", TuvNode_sortByNameInsensitive,
            [](Node a, Node b) { return caseInsensitiveCompare(a.fileName(), b.fileName()) < 0; });
    addPair("path", TuvNode_sortByPath, [](Node a, Node b) { return compare(a.filePath(), b.filePath()) < 0; });
    addPair("pathInsensitive", TuvNode_sortByPathInsensitive,
            [](Node a, Node b) { return caseInsensitiveCompare(a.filePath(), b.filePath()) < 0; });
}

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::error);
    kavaro::addSorts();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
