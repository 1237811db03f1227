#include <memory>
#include <thread>

#include "EventTest.h"
#include "LogCapture.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What arriving events are added to: a sorted array or the events that wait.
struct ArrayTarget {
    TuvRef<TuvObjectArray> array = make<TuvObjectArray>();
    void add(TuvRef<TuvFSEvent> event, ConditionLock* lock = nullptr) {
        TuvFSEvent::addEvent(event.leak(), array.get(), lock);
    }
    std::vector<std::string> texts() { return textsOf(*array); }
};

struct WaitingTarget {
    WaitingEvents events;
    void add(TuvRef<TuvFSEvent> event, ConditionLock* lock = nullptr) {
        TuvFSEvent::addEvent(event.leak(), &events, lock);
    }
    std::vector<std::string> texts() {
        auto batch = events.takeAll();
        for (TuvObject* event : *batch) events.insert(static_cast<TuvFSEvent*>(event));
        return textsOf(*batch);
    }
};

template <class Target>
class ArrivalTest : public testing::Test {
  protected:
    Target target;
};
using Targets = testing::Types<ArrayTarget, WaitingTarget>;
TYPED_TEST_SUITE(ArrivalTest, Targets);

TYPED_TEST(ArrivalTest, EventsStandInTheOrderOfTheirInodes) {
    for (std::uint32_t inode : {5u, 0x80000000u, 1u, 0x7fffffffu, 9u, 0xffffffffu})
        this->target.add(newEvent("MODIFIED", inode, "/a"));
    EXPECT_THAT(this->target.texts(), ElementsAre("MODIFIED 2147483648 /a", "MODIFIED 4294967295 /a", "MODIFIED 1 /a",
                                                  "MODIFIED 5 /a", "MODIFIED 9 /a", "MODIFIED 2147483647 /a"));
}

TYPED_TEST(ArrivalTest, TheSameTypeOfTheSameInodeIsDropped) {
    this->target.add(newEvent("MODIFIED", 1, "/a"));
    auto second = newEvent("MODIFIED", 1, "/b");
    this->target.add(second.share());
    EXPECT_THAT(this->target.texts(), ElementsAre("MODIFIED 1 /a"));
    EXPECT_EQ(second->retainCount(), 1u);
}

TYPED_TEST(ArrivalTest, LaterEventsBecomeChildren) {
    this->target.add(newEvent("CREATE_FILE", 1, "/a"));
    auto second = newEvent("MODIFIED", 1, "/a");
    this->target.add(second.share());
    EXPECT_EQ(second->retainCount(), 2u);
    this->target.add(newEvent("MODIFIED", 1, "/a"));
    this->target.add(newEvent("CREATE_FILE", 1, "/a"));
    this->target.add(newRename(1, "/a", "/b"));
    EXPECT_THAT(this->target.texts(),
                ElementsAre("CREATE_FILE 1 /a [MODIFIED 1 /a, MODIFIED 1 /a, RENAME 1 /a -> /b]"));
}

TYPED_TEST(ArrivalTest, WhatComesAndGoesLeavesNothing) {
    for (const char* type : {"CREATE_FILE", "CREATE_DIR", "MODIFIED", "RENAME"}) {
        auto event = newEvent(type, 1, "/a");
        this->target.add(event.share());
        this->target.add(newEvent("CREATE_FILE", 2, "/b"));
        this->target.add(newEvent("DELETE", 1, "/a"));
        EXPECT_THAT(this->target.texts(), ElementsAre("CREATE_FILE 2 /b")) << type;
        EXPECT_EQ(event->retainCount(), 1u);
    }
}

TYPED_TEST(ArrivalTest, WhatGoesAndComesStays) {
    this->target.add(newEvent("DELETE", 1, "/a"));
    this->target.add(newEvent("CREATE_FILE", 1, "/b"));
    this->target.add(newEvent("DELETE", 1, "/b"));
    EXPECT_THAT(this->target.texts(), ElementsAre("DELETE 1 /a [CREATE_FILE 1 /b]"));
}

TYPED_TEST(ArrivalTest, ACollectorKeepsAll) {
    CollectorMode collector;
    this->target.add(newEvent("CREATE_FILE", 1, "/a"));
    this->target.add(newEvent("DELETE", 1, "/a"));
    EXPECT_THAT(this->target.texts(), ElementsAre("CREATE_FILE 1 /a [DELETE 1 /a]"));
}

TYPED_TEST(ArrivalTest, WhatDoesNotPassIsReleased) {
    ConditionLock lock(7);
    auto event = newEvent("CREATE_FILE", 1, "/.fseventsd/1");
    this->target.add(event.share(), &lock);
    this->target.add(nullptr, &lock);
    auto foreign = newEvent("CREATE_FILE", 1, "/a");
    foreign->setDevice(1);
    this->target.add(foreign.share(), &lock);
    EXPECT_EQ(event->retainCount(), 1u);
    EXPECT_EQ(foreign->retainCount(), 1u);
    EXPECT_EQ(lock.condition(), 7);
    EXPECT_THAT(this->target.texts(), IsEmpty());
}

TYPED_TEST(ArrivalTest, TheConditionSaysWhetherEventsWait) {
    ConditionLock lock(0);
    this->target.add(newEvent("CREATE_FILE", 1, "/a"), &lock);
    EXPECT_EQ(lock.condition(), 1);
    this->target.add(newEvent("DELETE", 1, "/a"), &lock);
    EXPECT_EQ(lock.condition(), 0);
}

TYPED_TEST(ArrivalTest, ReferencesAreHandedOver) {
    auto event = newEvent("CREATE_FILE", 1, "/a");
    this->target.add(event.share());
    EXPECT_EQ(event->retainCount(), 2u);
}

TEST(ArrivalTraceTest, CreatedAndDeletedIsTraced) {
    LogCapture capture(LogLevel::trace);
    ArrayTarget target;
    target.add(newEvent("CREATE_FILE", 1, "/a"));
    target.add(newEvent("DELETE", 1, "/a"));
    EXPECT_EQ(capture.count(LogLevel::trace, "\n    index=\"1\"; inode=\"00000001\"; type=\"DELETE\";"), 1);
}

}  // namespace
}  // namespace kavaro
