// One million nodes by size and by name, beside a plain loop over the same data.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "filters/TuvNodeFilter.h"
#include "model/TuvDirNode.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr int kNodes = 1000000;

// What the plain loop goes over.
struct Plain {
    std::uint64_t size;
    std::string name;
};

struct Data {
    TuvRef<TuvObjectArray> nodes = make<TuvObjectArray>(kNodes);
    std::vector<Plain> plain;
};

// Names as they are on disks: 6 to 30 letters of either case and an ending, one in 50 a log. `special`: every name
// has a letter that is not ASCII.
Data makeData(bool special) {
    static const char* kEndings[] = {".txt", ".JPG", ".h", ".cpp", ".png", ".json", ".so"};
    std::mt19937 random(3);
    Data data;
    data.plain.reserve(kNodes);
    for (int i = 0; i < kNodes; ++i) {
        std::string name;
        for (auto length = 6 + random() % 25; length > 0; --length) {
            const char first = random() % 4 == 0 ? 'A' : 'a';
            name += static_cast<char>(first + random() % 26);
        }
        if (special) name += "\u00e9\u00c9";
        name += random() % 50 == 0 ? ".Log" : kEndings[random() % std::size(kEndings)];
        auto node = make<TuvNode>();
        node->setFileName(name);
        node->setPhysicalSize((random() % 4096) * 4096);
        data.plain.push_back({node->physicalSize(), std::move(name)});
        data.nodes->adoptObject(node.leak());
    }
    return data;
}

const Data& ascii() {
    static const Data& data = *new Data(makeData(false));
    return data;
}
const Data& special() {
    static const Data& data = *new Data(makeData(true));
    return data;
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Half of the nodes pass the size, so the name of every second is looked at.
TuvRef<TuvNodeFilter> filterBy(bool size, std::string_view name) {
    TuvNodeFilterItem item;
    item.setMin(8);
    item.setMax(0);
    return TuvNodeFilter::filterFrom({}, size ? &item : nullptr, nullptr, name);
}

void filterNodes(benchmark::State& state, const Data& data, bool size, std::string_view name) {
    const auto filter = filterBy(size, name);
    int found = 0;
    for (auto _ : state) found = data.nodes->filterUsing(filter.get())->count();
    state.counters["found"] = found;
    state.SetItemsProcessed(state.iterations() * kNodes);
}

// The same rules written out, letters of ASCII alone.
void plainLoop(benchmark::State& state, const Data& data, bool size, std::string_view name) {
    std::size_t found = 0;
    for (auto _ : state) {
        std::vector<const Plain*> passed;
        for (const Plain& one : data.plain) {
            if (size && one.size < 8 * Tuv_MB) continue;
            const auto same = [](char a, char b) { return lower(a) == b; };
            if (std::search(one.name.begin(), one.name.end(), name.begin(), name.end(), same) == one.name.end())
                continue;
            passed.push_back(&one);
        }
        found = passed.size();
        benchmark::DoNotOptimize(passed.data());
    }
    state.counters["found"] = static_cast<double>(found);
    state.SetItemsProcessed(state.iterations() * kNodes);
}

#define KAVARO_ROWS(title, ...)                                                        \
    BENCHMARK_CAPTURE(filterNodes, title, __VA_ARGS__)->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(plainLoop, title, __VA_ARGS__)->Unit(benchmark::kMillisecond)

KAVARO_ROWS(size_and_name, ascii(), true, ".log");
KAVARO_ROWS(name, ascii(), false, ".log");
KAVARO_ROWS(name_of_a_common_letter, ascii(), false, "eei");
KAVARO_ROWS(names_beyond_ascii, special(), false, ".log");

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::error);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
