#include "model/TuvRef.h"

#include "ModelTest.h"

namespace kavaro {
namespace {

struct Link : TuvObject {
    explicit Link(int number) : _number(number) { ++alive; }
    ~Link() override { --alive; }

    static inline int alive = 0;
    const int _number;
    TuvRef<Link> _next;
};

struct SpecialLink : Link {
    using Link::Link;
};

TEST(TuvRefTest, AdoptTakesTheReferenceAndShareAddsOne) {
    {
        auto first = TuvRef<Link>::adopt(new Link(1));
        EXPECT_EQ(first->retainCount(), 1u);
        auto second = first.share();
        EXPECT_EQ(first->retainCount(), 2u);
        EXPECT_EQ(second.get(), first.get());
        auto third = TuvRef<Link>::share(first.get());
        EXPECT_EQ((*first).retainCount(), 3u);
        EXPECT_EQ(Link::alive, 1);
    }
    EXPECT_EQ(Link::alive, 0);
}

TEST(TuvRefTest, EmptyHandles) {
    TuvRef<Link> none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_FALSE(none.share());
    EXPECT_FALSE(TuvRef<Link>::share(nullptr));
    TuvRef<Link> null = nullptr;
    none = std::move(null);
    EXPECT_FALSE(none);
}

TEST(TuvRefTest, MovesWithoutCounting) {
    auto first = make<Link>(1);
    Link* object = first.get();
    TuvRef<Link> second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second.get(), object);
    first = std::move(second);
    EXPECT_EQ(first.get(), object);
    EXPECT_EQ(object->retainCount(), 1u);
    first = nullptr;
    EXPECT_EQ(Link::alive, 0);
}

TEST(TuvRefTest, AssignmentReleasesTheOldObject) {
    auto ref = make<Link>(1);
    ref = make<Link>(2);
    EXPECT_EQ(Link::alive, 1);
    EXPECT_EQ(ref->_number, 2);
}

TEST(TuvRefTest, MovesToItself) {
    auto ref = make<Link>(1);
    TuvRef<Link>& same = ref;
    ref = std::move(same);
    ASSERT_TRUE(ref);
    EXPECT_EQ(ref->_number, 1);
    EXPECT_EQ(ref->retainCount(), 1u);
}

TEST(TuvRefTest, StepsAlongAChainThatItOwns) {
    auto ref = make<Link>(1);
    ref->_next = make<Link>(2);
    ref->_next->_next = make<Link>(3);
    EXPECT_EQ(Link::alive, 3);
    ref = std::move(ref->_next);
    EXPECT_EQ(ref->_number, 2);
    EXPECT_EQ(Link::alive, 2);
    ref = std::move(ref->_next);
    EXPECT_EQ(ref->_number, 3);
    EXPECT_EQ(Link::alive, 1);
    ref = std::move(ref->_next);
    EXPECT_FALSE(ref);
    EXPECT_EQ(Link::alive, 0);
}

TEST(TuvRefTest, ConvertsToTheBase) {
    auto special = make<SpecialLink>(7);
    Link* object = special.get();
    TuvRef<Link> base = std::move(special);
    EXPECT_FALSE(special);
    EXPECT_EQ(base.get(), object);
    base = make<SpecialLink>(8);
    EXPECT_EQ(base->_number, 8);
    EXPECT_EQ(Link::alive, 1);
}

TEST(TuvRefTest, LeakHandsTheReferenceOver) {
    auto ref = make<Link>(1);
    Link* object = ref.leak();
    EXPECT_FALSE(ref);
    EXPECT_EQ(object->retainCount(), 1u);
    object->release();
    EXPECT_EQ(Link::alive, 0);
}

}  // namespace
}  // namespace kavaro
