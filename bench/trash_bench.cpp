// 10,000 files to the Trash and 10,000 files of a tree removed, beside the bare system calls for the same.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "factory/TuvNodeFactory.h"
#include "platform/Removal.h"
#include "platform/Trash.h"
#include "support/TuvLog.h"

namespace {

using namespace kavaro;

constexpr int kFiles = 10'000;

// A folder below TMPDIR with files of 4 KiB, a home with the Trash beside them, on one volume.
class Files {
  public:
    Files() {
        const char* base = getenv("TMPDIR");
        _folder = std::string(base ? base : "/tmp") + "/kavaro-bench-XXXXXX";
        if (!mkdtemp(_folder.data())) abort();
        mkdir((_folder + "/home").c_str(), 0700);
        mkdir((_folder + "/tree").c_str(), 0700);
        setenv("HOME", (_folder + "/home").c_str(), 1);
        unsetenv("XDG_DATA_HOME");
        const std::string content(4096, 'x');
        for (int number = 0; number < kFiles; ++number) {
            paths.push_back(_folder + "/tree/file" + std::to_string(number));
            const int fd = open(paths.back().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
            if (write(fd, content.data(), content.size()) < 0) abort();
            close(fd);
        }
    }
    ~Files() { removeItem(_folder, RemovalKind::tree); }
    std::string tree() const { return _folder + "/tree"; }
    std::string home() const { return _folder + "/home"; }

    std::vector<std::string> paths;

  private:
    std::string _folder;
};

// They stay until the end: some file systems look long for a place where others have just been removed.
std::vector<std::unique_ptr<Files>>& allFiles() {
    static std::vector<std::unique_ptr<Files>>& all = *new std::vector<std::unique_ptr<Files>>;
    return all;
}

const Files& newFiles() {
    return *allFiles().emplace_back(std::make_unique<Files>());
}

void report(benchmark::State& state) {
    state.counters["files/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * kFiles), benchmark::Counter::kIsRate);
}

// Without any check: an info file and a rename each.
void plainMoves(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const Files& files = newFiles();
        state.ResumeTiming();
        for (const char* name : {"/files", "/info"}) mkdir((files.home() + name).c_str(), 0700);
        for (const std::string& path : files.paths) {
            const std::string name = path.substr(path.rfind('/'));
            const int fd = open((files.home() + "/info" + name).c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
            if (write(fd, path.data(), path.size()) < 0) abort();
            close(fd);
            if (rename(path.c_str(), (files.home() + "/files" + name).c_str()) != 0) abort();
        }
    }
    report(state);
}

void trashMoves(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const Files& files = newFiles();
        state.ResumeTiming();
        Trash trash;
        for (const std::string& path : files.paths)
            if (!trash.move(path).ok()) abort();
    }
    report(state);
}

class CountingCenter final : public DistributedCenter {
  public:
    bool post(std::string_view, std::string_view, const NotificationUserInfo& userInfo, std::string*) override {
        errors += userInfo.errors ? userInfo.errors->size() : 0;
        return true;
    }
    void waitUntilWritten() override {}
    std::size_t errors = 0;
};

// What the server does within the remote call, its log lines included (to standard error: redirect it to a file).
void engineMoves(benchmark::State& state) {
    static CountingCenter& center = *new CountingCenter;
    TuvNodeFactory::Surroundings surroundings;
    surroundings.durations.setUpPause = 0;
    surroundings.distributedCenter = &center;
    TuvNodeFactory::setSurroundings(surroundings);
    TuvNodeFactory* engine = TuvNodeFactory::sharedInstance();
    for (auto _ : state) {
        state.PauseTiming();
        const Files& files = newFiles();
        state.ResumeTiming();
        engine->moveToTrash(files.paths);
    }
    if (center.errors > 0) state.SkipWithError("some could not be moved");
    report(state);
}

void plainUnlinks(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const Files& files = newFiles();
        state.ResumeTiming();
        for (const std::string& path : files.paths) unlink(path.c_str());
    }
    report(state);
}

void treeRemoval(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        const Files& files = newFiles();
        state.ResumeTiming();
        if (!removeItem(files.tree(), RemovalKind::tree).ok()) abort();
    }
    report(state);
}

BENCHMARK(plainMoves)->Iterations(3)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(trashMoves)->Iterations(3)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(engineMoves)->Iterations(3)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(plainUnlinks)->Iterations(3)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(treeRemoval)->Iterations(3)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    allFiles().clear();
}
