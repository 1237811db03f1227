// What a log line costs: below its level, beside a loop that makes one comparison, and when it is written.

#include <benchmark/benchmark.h>

#include <atomic>
#include <string>

#include "support/TuvLog.h"

namespace kavaro {
namespace {

constinit LogComponent kComponent{"Benchmark"};
std::atomic<int> comparedWith{2};

std::string veryLongName() {
    return std::string(200, 'x');
}

struct Described {
    std::string description() const { return veryLongName(); }
};

void emptyLoopWithOneComparison(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) {
        if (comparedWith.load(std::memory_order_relaxed) <= 1) benchmark::DoNotOptimize(number);
        ++number;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(emptyLoopWithOneComparison);

void debugLineBelowTheLevel(benchmark::State& state) {
    int number = 0;
    const Described object;
    for (auto _ : state) {
        TuvLog::debug(kComponent, "debugLineBelowTheLevel", "%d %@ in %9.3f ms", number, object, 1.5);
        ++number;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(debugLineBelowTheLevel);

void switchBelowTheLevel(benchmark::State& state) {
    for (auto _ : state) {
        bool on = kComponent.traceOn();
        benchmark::DoNotOptimize(on);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(switchBelowTheLevel);

void formattedText(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) benchmark::DoNotOptimize(formatted("%d nodes of %@ in %9.3f ms", ++number, "/usr", 1.5));
}
BENCHMARK(formattedText);

void lineForTheObserverAlone(benchmark::State& state) {
    TuvLog::setDestinationEnabled(false);
    std::size_t bytes = 0;
    TuvLog::setObserver([&](const TuvLog::Line& line) { bytes += line.text.size(); });
    for (auto _ : state) TuvLog::info(kComponent, "lineForTheObserverAlone", "%d nodes", 3);
    TuvLog::setObserver({});
    TuvLog::setDestinationEnabled(true);
    benchmark::DoNotOptimize(bytes);
}
BENCHMARK(lineForTheObserverAlone);

}  // namespace
}  // namespace kavaro

BENCHMARK_MAIN();
