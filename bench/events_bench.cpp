// Waiting, coalescing, writing and replaying changes of the file system.
#include <benchmark/benchmark.h>

#include <unistd.h>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "fsevents/BatchResolver.h"
#include "fsevents/EventRecording.h"
#include "fsevents/EventReplay.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

class StandingClock final : public Clock {
  public:
    double monotonicSeconds() override { return 0; }
    double wallSeconds() override { return 0; }
    void sleep(double) override {}
};

// How the inodes of a burst come.
enum Order { ascending, streams, any };

std::vector<std::uint32_t> inodesOf(int count, Order order) {
    std::mt19937 random(1);
    std::vector<std::uint32_t> inodes;
    std::uint32_t next[64] = {};
    for (int i = 0; i < count; ++i) {
        if (order == streams) {
            const std::uint32_t stream = random() % 64;
            inodes.push_back(stream << 24 | next[stream]++);
        } else {
            inodes.push_back(order == ascending ? static_cast<std::uint32_t>(i) : random());
        }
    }
    return inodes;
}

std::string pathOf(std::uint32_t inode) {
    return "/home/someone/project/build/src/folder" + std::to_string(inode % 997) + "/object" + std::to_string(inode) +
           ".o";
}

TuvRef<TuvFSEvent> newEvent(const char* type, std::uint32_t inode) {
    auto event = make<TuvFSEvent>(TuvFSEvent::intType(type));
    event->setInode(inode);
    event->setDevice(TuvFSEvent::acceptedDevice());
    event->setFilePath(pathOf(inode));
    return event;
}

long residentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

// Of each file its creation and a modification, as a burst of new files is.
template <class Events>
void addBurst(Events* events, const std::vector<std::uint32_t>& inodes) {
    for (const std::uint32_t inode : inodes) {
        TuvFSEvent::addEvent(newEvent("CREATE_FILE", inode).leak(), events, nullptr);
        TuvFSEvent::addEvent(newEvent("MODIFIED", inode).leak(), events, nullptr);
    }
}

void BM_Arrive(benchmark::State& state) {
    const auto inodes = inodesOf(static_cast<int>(state.range(0)), static_cast<Order>(state.range(1)));
    for (auto _ : state) {
        WaitingEvents events;
        addBurst(&events, inodes);
        benchmark::DoNotOptimize(events.count());
    }
    state.counters["each"] =
        benchmark::Counter(static_cast<double>(2 * state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Arrive)->ArgsProduct({{100000, 1000000}, {ascending, streams, any}})->Unit(benchmark::kMillisecond);

// The same into one sorted array.
void BM_ArriveInArray(benchmark::State& state) {
    const auto inodes = inodesOf(static_cast<int>(state.range(0)), static_cast<Order>(state.range(1)));
    for (auto _ : state) {
        auto events = make<TuvObjectArray>();
        addBurst(events.get(), inodes);
        benchmark::DoNotOptimize(events->count());
    }
}
BENCHMARK(BM_ArriveInArray)->ArgsProduct({{100000}, {ascending, streams, any}})->Unit(benchmark::kMillisecond);

// A batch in which a tenth of the files goes with its folders.
void BM_Coalesce(benchmark::State& state) {
    const auto inodes = inodesOf(static_cast<int>(state.range(0)), streams);
    for (auto _ : state) {
        state.PauseTiming();
        WaitingEvents events;
        addBurst(&events, inodes);
        for (std::uint32_t folder = 0; folder < 100; ++folder) {
            auto event = newEvent("DELETE", 0x7f000000 + folder);
            event->setFilePath("/home/someone/project/build/src/folder" + std::to_string(folder) + "/");
            TuvFSEvent::addEvent(event.leak(), &events, nullptr);
        }
        auto batch = events.takeAll();
        state.ResumeTiming();
        BatchResolver::coalesce(*batch);
        benchmark::DoNotOptimize(batch->count());
        state.PauseTiming();
        batch = nullptr;
        state.ResumeTiming();
    }
    state.counters["each"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Coalesce)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

std::string recording(int events) {
    WaitingEvents waiting;
    addBurst(&waiting, inodesOf(events / 2, streams));
    std::string text;
    writeBatch(*waiting.takeAll(), [&](std::string_view piece) { text += piece; });
    return text + std::string(kRecordingEnd);
}

void BM_Write(benchmark::State& state) {
    WaitingEvents waiting;
    addBurst(&waiting, inodesOf(static_cast<int>(state.range(0)) / 2, streams));
    auto batch = waiting.takeAll();
    for (auto _ : state) {
        std::size_t bytes = 0;
        writeBatch(*batch, [&](std::string_view piece) { bytes += piece.size(); });
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(BM_Write)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_Replay(benchmark::State& state) {
    const std::string text = recording(static_cast<int>(state.range(0)));
    StandingClock clock;
    for (auto _ : state) {
        int count = 0;
        EventReplay replay(clock, [&](TuvRef<TuvObjectArray> batch) {
            BatchResolver::coalesce(*batch);
            count = batch->count();
        });
        replay.replayText(text);
        if (count != state.range(0) / 2) state.SkipWithError("events are missing");
    }
}
BENCHMARK(BM_Replay)->Arg(100000)->Unit(benchmark::kMillisecond);

// Once, and to be run alone: memory that was used before stays with the process.
void BM_Memory(benchmark::State& state) {
    const auto inodes = inodesOf(1000000, any);
    for (auto _ : state) {
        const long before = residentBytes();
        WaitingEvents events;
        for (const std::uint32_t inode : inodes)
            TuvFSEvent::addEvent(newEvent("MODIFIED", inode).leak(), &events, nullptr);
        state.counters["MiB"] = static_cast<double>(residentBytes() - before) / (1 << 20);
        state.counters["events"] = events.count();
    }
}
BENCHMARK(BM_Memory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::off);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
