#include "platform/Thread.h"

#include <pthread.h>
#include <sys/resource.h>

#include <cerrno>
#include <memory>
#include <string>

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

bool raiseThreadPriority() {
    // On Linux a nice value belongs to the thread, and 0 is the calling one.
    errno = 0;
    int now = getpriority(PRIO_PROCESS, 0);
    if (errno == 0 && now <= kRaisedNice) return true;
    return setpriority(PRIO_PROCESS, 0, kRaisedNice) == 0;
}

}  // namespace kavaro
