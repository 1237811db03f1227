#include "platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace kavaro {
namespace {

using Notification = NotificationCenter::Notification;

TEST(NotificationCenter, CallsTheObserversOfTheNameInOrder) {
    NotificationCenter center;
    std::string calls;
    center.addObserver("a", [&](const Notification&) { calls += "1"; });
    center.addObserver("b", [&](const Notification&) { calls += "2"; });
    center.addObserver("", [&](const Notification& n) { calls += "[" + std::string(n.name) + "]"; });
    center.addObserver("a", [&](const Notification&) { calls += "3"; });
    center.post("a");
    center.post("b");
    center.post("c");
    EXPECT_EQ(calls, "1[a]32[b][c]");
}

TEST(NotificationCenter, HandsObjectAndUserInfoOn) {
    NotificationCenter center;
    int object = 0;
    std::string info;
    bool absent = false;
    center.addObserver("full", [&](const Notification& n) {
        object = *std::any_cast<int>(&n.object);
        info = *std::any_cast<std::string>(&n.userInfo);
    });
    center.addObserver("empty",
                       [&](const Notification& n) { absent = !n.object.has_value() && !n.userInfo.has_value(); });
    center.post("full", 5, std::string("text"));
    center.post("empty");
    EXPECT_EQ(object, 5);
    EXPECT_EQ(info, "text");
    EXPECT_TRUE(absent);
}

TEST(NotificationCenter, ObserversMayAddAndRemove) {
    NotificationCenter center;
    std::string calls;
    NotificationCenter::ObserverID self = 0, later = 0;
    self = center.addObserver("n", [&](const Notification&) {
        calls += "s";
        center.removeObserver(self);
        center.removeObserver(later);
        center.addObserver("n", [&](const Notification&) { calls += "a"; });
        calls += ".";  // what it captured is still there
    });
    later = center.addObserver("n", [&](const Notification&) { calls += "l"; });
    center.post("n");
    EXPECT_EQ(calls, "s.");
    center.post("n");
    EXPECT_EQ(calls, "s.a");
    center.removeObserver(12345);  // nobody's
    center.removeObserver(later);  // gone already
}

TEST(NotificationCenter, ObserversMayPost) {
    NotificationCenter center;
    std::string calls;
    center.addObserver("outer", [&](const Notification&) {
        calls += "(";
        center.post("inner");
        calls += ")";
    });
    center.addObserver("inner", [&](const Notification&) { calls += "i"; });
    center.post("outer");
    EXPECT_EQ(calls, "(i)");
}

TEST(NotificationCenter, WhatAnObserverCapturedMayUseTheCentreWhenItGoes) {
    NotificationCenter center;
    int posts = 0;
    center.addObserver("gone", [&](const Notification&) { posts++; });
    struct Farewell {
        NotificationCenter& center;
        ~Farewell() { center.post("gone"); }
    };
    auto farewell = std::make_shared<Farewell>(Farewell{center});
    NotificationCenter::ObserverID id = center.addObserver("n", [farewell](const Notification&) {});
    farewell.reset();
    posts = 0;
    center.removeObserver(id);
    EXPECT_EQ(posts, 1);
}

TEST(NotificationCenter, IsSafeFromManyThreads) {
    NotificationCenter center;
    std::atomic<int> calls = 0;
    center.addObserver("n", [&](const Notification&) { calls++; });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; thread++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; round++) {
                NotificationCenter::ObserverID id = center.addObserver("other", [](const Notification&) {});
                center.post("n");
                center.post("other");
                center.removeObserver(id);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(calls, 2000);
}

TEST(NotificationCenter, TheDefaultCentreIsOne) {
    EXPECT_EQ(&NotificationCenter::defaultCenter(), &NotificationCenter::defaultCenter());
}

}  // namespace
}  // namespace kavaro
