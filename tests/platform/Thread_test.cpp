#include "platform/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kavaro {
namespace {

std::string nameInThread(const std::string& name) {
    auto seen = std::make_shared<std::promise<std::string>>();
    std::future<std::string> result = seen->get_future();
    EXPECT_TRUE(detachThread(name, [seen] {
        char text[32] = "";
        pthread_getname_np(pthread_self(), text, sizeof text);
        seen->set_value(text);
    }));
    return result.get();
}

TEST(Thread, HasItsName) {
    EXPECT_EQ(nameInThread("worker"), "worker");
}

TEST(Thread, CutsALongName) {
    EXPECT_EQ(nameInThread("a name that is too long"), "a name that is ");
}

TEST(Thread, KeepsWhatTheBodyCaptured) {
    auto value = std::make_shared<int>(41);
    auto promise = std::make_shared<std::promise<int>>();
    std::future<int> result = promise->get_future();
    std::weak_ptr<int> watched = value;
    detachThread("captured", [value = std::move(value), promise] { promise->set_value(*value + 1); });
    EXPECT_EQ(result.get(), 42);
}

TEST(Thread, RaisesOnlyItsOwnPriority) {
    int before = getpriority(PRIO_PROCESS, 0);
    auto promise = std::make_shared<std::promise<std::pair<bool, int>>>();
    std::future<std::pair<bool, int>> result = promise->get_future();
    detachThread("raised", [promise] {
        bool raised = raiseThreadPriority();
        promise->set_value({raised, getpriority(PRIO_PROCESS, 0)});
    });
    auto [raised, nice] = result.get();
    if (raised) {
        EXPECT_LE(nice, -5);
    } else {
        EXPECT_EQ(nice, before);
    }
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before);
}

TEST(Thread, EachIndexIsWorkedOnOnce) {
    for (const int threads : {0, 1, 2, 7}) {
        std::vector<std::atomic<int>> calls(100);
        forEachIndex(calls.size(), threads, [&](std::size_t i) { ++calls[i]; });
        for (const std::atomic<int>& count : calls) EXPECT_EQ(count, 1) << threads;
    }
    forEachIndex(0, 4, [](std::size_t) { ADD_FAILURE(); });
}

TEST(Thread, WorksOnIndexesAtTheSameTime) {
    // Each waits for the other: one thread alone would never end.
    std::atomic<int> arrived = 0;
    forEachIndex(2, 2, [&](std::size_t) {
        ++arrived;
        while (arrived < 2) std::this_thread::yield();
    });
    EXPECT_EQ(arrived, 2);
    EXPECT_GE(usableProcessors(), 1);
}

}  // namespace
}  // namespace kavaro
