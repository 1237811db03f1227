#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "model/TuvDirNode.h"
#include "support/TuvLog.h"

// Batches as the server sends them: folders with their files, names of 15 bytes, written and read on one thread.
// Taking the trees down is not part of any time.
namespace kavaro {
namespace {

constexpr std::size_t kNameLength = 15;

std::string nameOf(int number) {
    char name[kNameLength + 1];
    std::snprintf(name, sizeof name, "file-%010d", number);
    return name;
}

TuvRef<TuvObjectArray> makeBatch(int folders, int files) {
    auto batch = make<TuvObjectArray>(folders);
    std::uint32_t inode = 0;
    for (int i = 0; i < folders; ++i) {
        auto folder = make<TuvDirNode>();
        folder->setInode(++inode);
        folder->setFileName(nameOf(i));
        const int end = static_cast<int>(std::int64_t{files} * (i + 1) / folders);
        for (int j = static_cast<int>(std::int64_t{files} * i / folders); j < end; ++j) {
            auto file = make<TuvNode>();
            file->setInode(++inode);
            file->setContentModDate(3.8e9 + j);
            file->setLogicalSize(static_cast<std::uint64_t>(j) * 37);
            file->setPhysicalSize(static_cast<std::uint64_t>(j / 100) * 4096);
            file->setFileName(nameOf(j));
            file->setParent(folder.get());
            folder->files()->adoptObject(file.leak());
        }
        batch->adoptObject(folder.leak());
    }
    return batch;
}

// Seconds that this thread has computed: the same on a busy machine.
double threadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void finish(benchmark::State& state, int nodes, std::size_t bytes) {
    state.counters["nodes"] = benchmark::Counter(static_cast<double>(nodes) * static_cast<double>(state.iterations()),
                                                 benchmark::Counter::kIsRate);
    state.counters["bytes"] = static_cast<double>(bytes);
}

// Arguments: folders and files of the batch.
void write(benchmark::State& state) {
    const auto batch = makeBatch(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    std::size_t bytes = 0;
    for (auto step : state) {
        const double start = threadSeconds();
        const ByteBuffer data = batch->serialize();
        state.SetIterationTime(threadSeconds() - start);
        bytes = data.size();
    }
    finish(state, static_cast<int>(state.range(0) + state.range(1)), bytes);
}

void read(benchmark::State& state) {
    const ByteBuffer data = makeBatch(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)))->serialize();
    for (auto step : state) {
        const double start = threadSeconds();
        const auto batch = TuvObjectArray::fromBytes(data.view());
        state.SetIterationTime(threadSeconds() - start);
        if (!batch) state.SkipWithError("not read");
    }
    finish(state, static_cast<int>(state.range(0) + state.range(1)), data.size());
}

std::size_t residentBytes() {
    long pages = 0;
    if (FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%*s %ld", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    return static_cast<std::size_t>(pages) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// A batch's bytes, made in a process of its own: this one's heap is as it was.
std::vector<std::uint8_t> bytesMadeElsewhere(int folders, int files) {
    std::vector<std::uint8_t> bytes;
    std::FILE* file = std::tmpfile();
    if (!file) return bytes;
    const pid_t child = fork();
    if (child == 0) {
        const ByteBuffer data = makeBatch(folders, files)->serialize();
        const bool written = std::fwrite(data.data(), 1, data.size(), file) == data.size() && std::fflush(file) == 0;
        _exit(written ? 0 : 1);
    }
    int status = 1;
    if (child > 0 && waitpid(child, &status, 0) == child && status == 0 && std::fseek(file, 0, SEEK_END) == 0) {
        bytes.resize(static_cast<std::size_t>(std::ftell(file)));
        std::rewind(file);
        if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) bytes.clear();
    }
    std::fclose(file);
    return bytes;
}

// Resident memory that a tree takes when it has been read, names included. Comes first and once, on a fresh heap.
void memory(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0) + state.range(1));
    const std::vector<std::uint8_t> bytes =
        bytesMadeElsewhere(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto step : state) {
        const std::size_t before = residentBytes();
        const auto batch = TuvObjectArray::fromBytes(bytes);
        const std::size_t after = residentBytes();
        if (!batch || batch->count() != state.range(0)) state.SkipWithError("not read");
        state.counters["bytesPerEntry"] = static_cast<double>(after - before) / entries;
    }
}

BENCHMARK(memory)->Args({24000, 1000000})->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(write)->Args({2400, 100000})->Args({24000, 1000000})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(read)->Args({2400, 100000})->Args({24000, 1000000})->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kavaro

int main(int argc, char** argv) {
    // Lines about large arrays would be measured too.
    kavaro::TuvLog::setDefaultLevel(kavaro::LogLevel::error);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
