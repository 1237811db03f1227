#include "fsevents/TuvFSEvent.h"

#include "EventTest.h"
#include "LogCapture.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

TEST(TuvFSEventTest, TypesAndNames) {
    const char* names[] = {"CREATE_FILE",         "DELETE",     "STAT CHANGED", "RENAME", "MODIFIED", "EXCHANGE",
                           "FINDER_INFO_CHANGED", "CREATE_DIR", "CHOWN"};
    for (int type = 0; type < 9; ++type) {
        EXPECT_STREQ(TuvFSEvent::stringType(type), names[type]);
        EXPECT_EQ(TuvFSEvent::intType(names[type]), type);
    }
    EXPECT_STREQ(TuvFSEvent::stringType(100), "UPDATED");
    EXPECT_STREQ(TuvFSEvent::stringType(200), "UPDATED");
    for (int type : {9, 10, 99, 101, -1, -100 + 1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(TuvFSEvent::stringType(type), nullptr) << type;
    for (const char* name : {"UPDATED", "", "delete", "DELETE ", "(null)"})
        EXPECT_EQ(TuvFSEvent::intType(name), -1) << name;
}

TEST(TuvFSEventTest, ValidTypesAndThoseThatBecomeEvents) {
    for (int type = -1; type <= 101; ++type) {
        EXPECT_EQ(TuvFSEvent::validEventType(type), type >= 0 && type <= 9) << type;
        EXPECT_EQ(TuvFSEvent::shouldHandleEventType(type), type != 2 && type != 5 && type != 6 && type != 8) << type;
    }
}

TEST(TuvFSEventTest, ANewEventIsEmpty) {
    auto event = make<TuvFSEvent>(4);
    EXPECT_EQ(event->type(), 4);
    EXPECT_EQ(event->inode(), 0u);
    EXPECT_EQ(event->inodeDestination(), 0u);
    EXPECT_EQ(event->device(), 0u);
    EXPECT_EQ(event->deviceDestination(), 0u);
    EXPECT_EQ(event->filePath().data(), nullptr);
    EXPECT_EQ(event->filePathDestination().data(), nullptr);
    EXPECT_EQ(event->childEvents(), nullptr);
    EXPECT_EQ(sizeof(TuvFSEvent), 56u);  // millions may wait
}

TEST(TuvFSEventTest, TheSecondPlaceOfARenameIsItsDestination) {
    auto event = make<TuvFSEvent>(TuvFSEvent::intType("RENAME"));
    for (const char* path : {"/a", "/b", "/c"}) event->setFilePath(path);
    for (std::uint32_t number : {1, 2, 3}) {
        event->setInode(number);
        event->setDevice(number + 10);
    }
    EXPECT_EQ(event->filePath(), "/a");
    EXPECT_EQ(event->filePathDestination(), "/c");
    EXPECT_EQ(event->inode(), 1u);
    EXPECT_EQ(event->inodeDestination(), 3u);
    EXPECT_EQ(event->device(), 11u);
    EXPECT_EQ(event->deviceDestination(), 13u);
}

TEST(TuvFSEventTest, OtherTypesHaveOnePlace) {
    auto event = newEvent("MODIFIED", 1, "/a");
    event->setFilePath("/b");
    event->setInode(2);
    event->setDevice(3);
    EXPECT_EQ(event->filePath(), "/b");
    EXPECT_EQ(event->inode(), 2u);
    EXPECT_EQ(event->device(), 3u);
    EXPECT_EQ(event->filePathDestination().data(), nullptr);
    event->setFilePath({});
    EXPECT_EQ(event->filePath().data(), nullptr);
    event->setFilePath("");
    EXPECT_NE(event->filePath().data(), nullptr);
}

TEST(TuvFSEventTest, SettersAreTraced) {
    LogCapture capture(LogLevel::trace);
    newRename(7, "/a", "/b");
    std::vector<std::string> selectors;
    for (const LogCapture::Line& line : capture.lines())
        if (line.component == "TuvFSEvent") selectors.push_back(line.selector);
    EXPECT_THAT(selectors, ElementsAre("setInode:", "setDevice:", "setFilePath:", "setInodeDestination:",
                                       "setDeviceDestination:", "setFilePathDestination:"));
}

TEST(TuvFSEventTest, ACloneHasNoDestinationAndNoChildren) {
    auto event = newRename(7, "/a", "/b");
    event->addChildEvent(newEvent("DELETE", 7, "/b").get());
    auto copy = event->clone();
    EXPECT_EQ(textOf(*copy), "RENAME 7 /a");
    EXPECT_EQ(copy->device(), kDevice);
    EXPECT_EQ(copy->inodeDestination(), 0u);
    EXPECT_EQ(copy->deviceDestination(), 0u);
    EXPECT_EQ(make<TuvFSEvent>(1)->clone()->filePath().data(), nullptr);
}

TEST(TuvFSEventTest, ChildrenOfTheSameTypeAreNotTaken) {
    auto event = newEvent("CREATE_FILE", 7, "/a");
    event->addChildEvent(newEvent("CREATE_FILE", 7, "/a").get());
    EXPECT_EQ(event->childEvents(), nullptr);
    event->addChildEvent(nullptr);
    for (int i = 0; i < 6; ++i) event->addChildEvent(newEvent(i % 2 ? "MODIFIED" : "DELETE", 7, "/a").get());
    EXPECT_EQ(event->childEvents()->count(), 6);
    EXPECT_EQ(event->lastChildEvent()->type(), TuvFSEvent::intType("MODIFIED"));
}

TEST(TuvFSEventTest, ChildPathsAreTextsThatBeginAlike) {
    auto parent = newEvent("DELETE", 1, "/a/b");
    for (const char* path : {"/a/b", "/a/b/c", "/a/bc"})
        EXPECT_TRUE(newEvent("DELETE", 2, path)->isChildFilePath(parent.get())) << path;
    for (const char* path : {"/a", "/A/b/c", "", "/x/a/b"})
        EXPECT_FALSE(newEvent("DELETE", 2, path)->isChildFilePath(parent.get())) << path;
    auto without = make<TuvFSEvent>(1);
    EXPECT_FALSE(without->isChildFilePath(parent.get()));
    EXPECT_FALSE(parent->isChildFilePath(without.get()));
    EXPECT_FALSE(parent->isChildFilePath(nullptr));
    EXPECT_TRUE(parent->isChildFilePath(newEvent("DELETE", 3, "").get()));
}

TEST(TuvFSEventTest, OneDevicePasses) {
    auto event = newEvent("DELETE", 1, "/a");
    EXPECT_TRUE(event->shouldAddEvent());
    for (std::uint32_t device : {0u, 0x0E000013u, 0x0E000015u, 0x8E000014u}) {
        event->setDevice(device);
        EXPECT_FALSE(event->shouldAddEvent()) << device;
    }
    TuvFSEvent::setAcceptedDevice(0x8E000014);
    EXPECT_TRUE(event->shouldAddEvent());
    event->setDevice(kDevice);
    EXPECT_FALSE(event->shouldAddEvent());
    TuvFSEvent::setAcceptedDevice(kDevice);
}

TEST(TuvFSEventTest, FoldersOfTheSystemDoNotPass) {
    for (const char* path : {"/private/var/db/Spotlight-V100", "/private/var/db/Spotlight-V100/x", "/.Spotlight-V100",
                             "/.Spotlight-V1000", "/.fseventsd", "/.fseventsd/0001", "/.fseventsdx"})
        EXPECT_FALSE(newEvent("DELETE", 1, path)->shouldAddEvent()) << path;
    for (const char* path : {"/.FSEVENTSD", "/x/.fseventsd", "/.fsevents", "/.spotlight-V100", ""})
        EXPECT_TRUE(newEvent("DELETE", 1, path)->shouldAddEvent()) << path;
    auto without = make<TuvFSEvent>(1);
    without->setDevice(kDevice);
    EXPECT_TRUE(without->shouldAddEvent());
}

TEST(TuvFSEventTest, CreatedAndThenDeleted) {
    for (const char* type : {"CREATE_FILE", "CREATE_DIR", "MODIFIED", "RENAME"}) {
        auto event = newEvent(type, 1, "/a");
        EXPECT_FALSE(event->is_CREATE_DELETE()) << type;
        event->addChildEvent(newEvent("DELETE", 1, "/a").get());
        EXPECT_TRUE(event->is_CREATE_DELETE()) << type;
        event->addChildEvent(make<TuvFSEvent>(9).get());
        EXPECT_FALSE(event->is_CREATE_DELETE()) << type;
    }
    auto other = make<TuvFSEvent>(9);
    other->addChildEvent(newEvent("DELETE", 1, "/a").get());
    EXPECT_FALSE(other->is_CREATE_DELETE());
}

TEST(TuvFSEventTest, EqualIsTheSameInode) {
    auto event = newEvent("DELETE", 1, "/a");
    EXPECT_TRUE(event->isEqual(event.get()));
    EXPECT_TRUE(event->isEqual(newEvent("MODIFIED", 1, "/b").get()));
    EXPECT_FALSE(event->isEqual(newEvent("DELETE", 2, "/a").get()));
    EXPECT_FALSE(event->isEqual(nullptr));
    EXPECT_EQ(event->objectID(), 1u);
}

std::vector<std::string> sorted(TuvObjectArray::Comparison comparison) {
    auto array = make<TuvObjectArray>();
    const std::pair<std::uint32_t, const char*> events[] = {
        {0xffffffff, "/b"}, {5, "/B/x"}, {0x7fffffff, "/a"}, {1, "/C"}};
    for (const auto& [inode, path] : events) array->addObject(newEvent("DELETE", inode, path).get());
    array->sortByFunction(comparison);
    std::vector<std::string> paths;
    for (int index = 0; index < array->count(); ++index) paths.emplace_back(eventAt(*array, index)->filePath());
    return paths;
}

TEST(TuvFSEventTest, SortOrders) {
    EXPECT_THAT(sorted(TuvFSEvent_sortByPath), ElementsAre("/B/x", "/C", "/a", "/b"));
    EXPECT_THAT(sorted(TuvFSEvent_sortByPathInsensitive), ElementsAre("/a", "/b", "/B/x", "/C"));
    // As searches see inodes: signed.
    EXPECT_THAT(sorted(TuvFSEvent_sortByInode), ElementsAre("/b", "/C", "/B/x", "/a"));
    auto with = newEvent("DELETE", 1, "/a");
    auto without = make<TuvFSEvent>(1);
    TuvObject* slots[] = {with.get(), without.get()};
    for (auto comparison : {TuvFSEvent_sortByPath, TuvFSEvent_sortByPathInsensitive}) {
        EXPECT_EQ(comparison(&slots[0], &slots[1]), 0);
        EXPECT_EQ(comparison(&slots[1], &slots[0]), 0);
    }
}

TEST(TuvFSEventTest, DebugTextsAreOneLineEach) {
    auto event = newEvent("CREATE_FILE", 7, "/a\n\xff");
    event->addChildEvent(newEvent("MODIFIED", 7, "/a").get());
    testing::internal::CaptureStderr();
    event->debug();
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, testing::HasSubstr("inode=\"00000007\"; type=\"CREATE_FILE\";"));
    EXPECT_THAT(text, testing::HasSubstr("1 items"));
    EXPECT_EQ(event->description(),
              "TuvFSEvent inode=\"00000007\"; type=\"CREATE_FILE\"; device=\"234881044\"; filePath=\"/a\\n\\377\";");
}

}  // namespace
}  // namespace kavaro
