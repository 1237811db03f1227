#include "platform/Thread.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kavaro {

namespace {

constexpr std::size_t kLongestName = 15;
constexpr int kRaisedNice = -5;

struct Start {
    std::string name;
    std::function<void()> body;
};

void* run(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->body();
    return nullptr;
}

// Work that threads share: each takes the next index until none is left.
struct SharedWork {
    const std::size_t count;
    const std::function<void(std::size_t)>& work;
    std::atomic<std::size_t> next{0};

    static void* run(void* shared) {
        auto& self = *static_cast<SharedWork*>(shared);
        for (std::size_t i = self.next.fetch_add(1); i < self.count; i = self.next.fetch_add(1)) self.work(i);
        return nullptr;
    }
};

}  // namespace

bool detachThread(std::string_view name, std::function<void()> body) {
    auto start = std::make_unique<Start>(Start{std::string(name.substr(0, kLongestName)), std::move(body)});
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    bool started = pthread_create(&thread, &attributes, run, start.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (started) start.release();  // the thread's now
    return started;
}

int usableProcessors() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

void forEachIndex(std::size_t count, int threads, const std::function<void(std::size_t)>& work) {
    SharedWork shared{count, work};
    std::vector<pthread_t> helpers;
    while (static_cast<int>(helpers.size()) + 1 < threads && helpers.size() + 1 < count) {
        pthread_t helper;
        if (pthread_create(&helper, nullptr, SharedWork::run, &shared) != 0) break;
        helpers.push_back(helper);
    }
    SharedWork::run(&shared);
    for (const pthread_t helper : helpers) pthread_join(helper, nullptr);
}

bool raiseThreadPriority() {
    // On Linux a nice value belongs to the thread, and 0 is the calling one.
    errno = 0;
    int now = getpriority(PRIO_PROCESS, 0);
    if (errno == 0 && now <= kRaisedNice) return true;
    return setpriority(PRIO_PROCESS, 0, kRaisedNice) == 0;
}

}  // namespace kavaro
