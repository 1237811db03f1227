// Changes of a real file system from the kernel to coalesced events, with the processor's time for each. As root.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "fsevents/BatchResolver.h"
#include "fsevents/KernelRecord.h"
#include "fsevents/TuvFSEvents.h"
#include "fsevents/VolumeEventDevice.h"
#include "support/TuvLog.h"

namespace kavaro {
namespace {

constexpr int kFolders = 100;
constexpr int kFilesInFolder = 1000;

double threadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::string folderPath(const std::string& root, int folder) {
    return root + "/folder" + std::to_string(folder);
}

// Before the burst: a folder that came with it would stand for what is in it.
bool makeFolders(const std::string& root) {
    for (int folder = 0; folder < kFolders; ++folder)
        if (mkdir(folderPath(root, folder).c_str(), 0755) != 0) return false;
    return true;
}

// Creates, writes and closes all files.
bool makeFiles(const std::string& root) {
    for (int folder = 0; folder < kFolders; ++folder) {
        const std::string path = folderPath(root, folder);
        for (int file = 0; file < kFilesInFolder; ++file) {
            const int fd = open((path + "/file" + std::to_string(file)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            if (fd < 0 || write(fd, "some text", 9) != 9 || close(fd) != 0) return false;
        }
    }
    return true;
}

// What a burst came to.
struct Result {
    std::uint64_t records = 0;
    int updated = 0;  // files that were created and written
    double seconds = 0;
};

// Reads while another process makes the files, or when it has ended.
bool watchBurst(const std::string& root, bool late, Result* result) {
    EventDevice::Problem problem;
    const std::unique_ptr<EventDevice> device = VolumeEventDevice::open(root, &problem);
    if (!device) {
        std::fprintf(stderr, "%s\n", problem.text.c_str());
        return false;
    }
    TuvFSEvent::setAcceptedDevice(device->device());
    const pid_t child = fork();
    if (child == 0) _exit(makeFiles(root) ? 0 : 1);
    int status = 1;
    bool hasEnded = late && waitpid(child, &status, 0) == child;
    const double begin = threadSeconds();
    TuvFSEvents listener;
    std::uint8_t buffer[record::kReadSize];
    for (;;) {
        const int length = device->read(buffer, sizeof buffer, 0.05);
        if (length > 0) {
            TuvFSEvents_print_event(&listener, buffer, length);
        } else if (hasEnded) {
            break;
        } else {
            hasEnded = waitpid(child, &status, WNOHANG) == child;
        }
    }
    const TuvRef<TuvObjectArray> batch = listener.events().takeAll();
    BatchResolver::coalesce(*batch);
    result->seconds = threadSeconds() - begin;
    result->records = listener.eventCount();
    for (const TuvObject* object : *batch) {
        const auto* event = static_cast<const TuvFSEvent*>(object);
        result->updated += event->type() == 100 && event->filePath().starts_with(root);
    }
    return status == 0 && device->overflows() == 0;
}

void burst(benchmark::State& state) {
    TuvLog::setDestinationEnabled(false);
    for (auto _ : state) {
        const char* place = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string root = std::string(place) + "/kavaro-bench-XXXXXX";
        Result result;
        if (!mkdtemp(root.data()) || !makeFolders(root) || !watchBurst(root, state.range(0) != 0, &result)) {
            state.SkipWithError("the burst was not seen whole");
        } else if (result.updated != kFolders * kFilesInFolder) {
            state.SkipWithError("changes are missing");
        }
        std::error_code error;
        std::filesystem::remove_all(root, error);
        state.SetIterationTime(result.seconds);
        state.counters["files"] = result.updated;
        state.counters["events"] = static_cast<double>(result.records);
        state.counters["us/event"] = result.seconds * 1e6 / static_cast<double>(result.records);
    }
}
BENCHMARK(burst)->ArgName("late")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
}  // namespace kavaro

BENCHMARK_MAIN();
