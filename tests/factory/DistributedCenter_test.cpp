// Notifications as signals of a bus of the test's own.
#include "factory/DistributedCenter.h"

#include <gmock/gmock.h>

#include <thread>

#include "PrivateBus.h"
#include "platform/RunLoop.h"
#include "support/ProtocolNames.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kPatience = 60;  // seconds

struct Heard {
    std::string member;
    std::string object;
    BusValue userInfo;
};

class BusDistributedCenterTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(server && client && other);
        listen(*client, heard);
        listen(*other, heardByOther);
    }
    std::unique_ptr<Bus> connect() {
        BusError failure;
        auto connection = Bus::open(daemon.address(), &failure);
        EXPECT_TRUE(connection) << failure.message;
        return connection;
    }
    static void listen(Bus& connection, std::vector<Heard>& into) {
        connection.subscribe("", bus::kNotificationPath, bus::kNotificationInterface, [&into](const BusSignal& signal) {
            into.push_back({std::string(signal.member), signal.arguments.at(0).asString().value_or("no text"),
                            signal.arguments.at(1)});
        });
        connection.flush();
    }
    bool post(std::string_view name, const NotificationUserInfo& userInfo = {}) {
        return center.post(name, kNotificationObject, userInfo, &error);
    }
    static bool runUntil(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, kPatience); }
    static std::vector<std::string> membersOf(const std::vector<Heard>& all) {
        std::vector<std::string> members;
        for (const Heard& one : all) members.push_back(one.member);
        return members;
    }

    PrivateBus daemon;
    std::shared_ptr<Bus> server = connect();
    std::unique_ptr<Bus> client = connect();
    std::unique_ptr<Bus> other = connect();
    BusDistributedCenter center{server};
    std::vector<Heard> heard, heardByOther;
    std::string error;
};

TEST_F(BusDistributedCenterTest, broadcastsInOrder) {
    constexpr std::string_view kBytes("a\0b", 3);
    NotificationUserInfo userInfo;
    userInfo.serialized = std::make_shared<const ByteBuffer>(ByteBuffer::copyOf(bytesOf(kBytes)));
    userInfo.parentInodes = {{1, 4294967295u}};
    ASSERT_TRUE(post(TuvNodeFactoryStartedNotification, userInfo));
    ASSERT_TRUE(post(TuvNodeFactoryStoppedNotification));
    center.waitUntilWritten();
    ASSERT_TRUE(runUntil([this] { return heard.size() == 2 && heardByOther.size() == 2; }));
    EXPECT_THAT(membersOf(heard),
                ElementsAre("TuvNodeFactoryStartedNotification", "TuvNodeFactoryStoppedNotification"));
    EXPECT_EQ(heard[0].object, "TuvNodeFactory");
    EXPECT_EQ(textOf(heard[0].userInfo.get("serialized").asData()->view()), kBytes);
    EXPECT_THAT(*heard[0].userInfo.get("parentInodes").asUint32s(), ElementsAre(1, 4294967295u));
    EXPECT_EQ(heard[0].userInfo.asDictionary()->size(), 2u);
    // No user info is an empty dictionary.
    EXPECT_EQ(heard[1].userInfo.type(), "a{sv}");
    EXPECT_THAT(*heard[1].userInfo.asDictionary(), IsEmpty());
}

TEST_F(BusDistributedCenterTest, carriesUnreadFoldersWithAnyBytes) {
    NotificationUserInfo userInfo;
    userInfo.folders = {{"/r/\xff", "/r/b"}};
    userInfo.reasons = {"permission", "vanished"};
    ASSERT_TRUE(post(KavaroUnreadFoldersNotification, userInfo));
    ASSERT_TRUE(runUntil([this] { return heard.size() == 1; }));
    EXPECT_THAT(*heard[0].userInfo.get("folders").asPaths(), ElementsAre("/r/\xff", "/r/b"));
    EXPECT_THAT(*heard[0].userInfo.get("reasons").asStrings(), ElementsAre("permission", "vanished"));
}

TEST_F(BusDistributedCenterTest, carriesWhatCouldNotBeTrashed) {
    NotificationUserInfo userInfo;
    userInfo.serialized = std::make_shared<const ByteBuffer>();
    userInfo.errors.emplace();
    userInfo.errors->push_back({"the reason", "/r/\xff\n", {}, {}});
    const PropertyList attributes =
        PropertyList::Dictionary{{"NSFileSize", std::int64_t{5} << 40}, {"NSFileOwnerAccountName", "me"}};
    userInfo.errors->push_back({"another", "/r/b", attributes, "the detail"});
    ASSERT_TRUE(post(TuvNodeFactoryTrashFileNotification, userInfo));
    ASSERT_TRUE(runUntil([this] { return heard.size() == 1; }));
    EXPECT_EQ(heard[0].userInfo.get("serialized").type(), "ay");
    const auto errors = heard[0].userInfo.get("errors").asDictionaries();
    ASSERT_TRUE(errors);
    ASSERT_EQ(errors->size(), 2u);
    const BusValue first = BusValue::dictionary((*errors)[0]);
    EXPECT_EQ(first.get("reason").asString(), "the reason");
    EXPECT_EQ(first.get("pathName").asPath(), "/r/\xff\n");
    EXPECT_EQ((*errors)[0].size(), 2u);
    const BusValue second = BusValue::dictionary((*errors)[1]);
    EXPECT_EQ(second.get("attributes").get("NSFileSize").asInteger(), std::int64_t{5} << 40);
    EXPECT_EQ(second.get("attributes").get("NSFileOwnerAccountName").asString(), "me");
    EXPECT_EQ(second.get("detail").asString(), "the detail");
}

TEST_F(BusDistributedCenterTest, carriesMoreThanAMessageHolds) {
    constexpr std::size_t kLength = 70u << 20;
    ByteBuffer bytes(kLength);
    std::memset(bytes.extend(kLength), 'x', kLength);
    NotificationUserInfo userInfo;
    userInfo.serialized = std::make_shared<const ByteBuffer>(std::move(bytes));
    ASSERT_TRUE(post(TuvNodeFactoryResolvedNotification, userInfo)) << error;
    ASSERT_TRUE(runUntil([this] { return heard.size() == 1; }));
    const auto data = heard[0].userInfo.get("serialized").asData();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->view().size(), kLength);
    EXPECT_EQ(data->view()[kLength - 1], 'x');
}

TEST_F(BusDistributedCenterTest, addressesReceiversAlone) {
    center.addressOnly();
    ASSERT_TRUE(post(TuvNodeFactoryStartedNotification)) << "to nobody";
    center.addReceiver(client->uniqueName());
    center.addReceiver(client->uniqueName());
    ASSERT_TRUE(post(TuvNodeFactoryResolvedNotification));
    center.addReceiver(other->uniqueName());
    ASSERT_TRUE(post(TuvNodeFactoryCompletedNotification));
    ASSERT_TRUE(runUntil([this] { return !heardByOther.empty() && heard.size() >= 2; }));
    EXPECT_THAT(membersOf(heardByOther), ElementsAre("TuvNodeFactoryCompletedNotification"));
    EXPECT_THAT(membersOf(heard),
                ElementsAre("TuvNodeFactoryResolvedNotification", "TuvNodeFactoryCompletedNotification"));
}

// A server ends by hearing of its own job's end, also where nothing is broadcast.
TEST_F(BusDistributedCenterTest, addressesTheEndOfAJobToItselfToo) {
    std::vector<Heard> heardByItself;
    listen(*server, heardByItself);
    center.addressOnly();
    center.addReceiver(client->uniqueName());
    for (std::string_view name : {TuvNodeFactoryStartedNotification, TuvNodeFactoryResolvedNotification,
                                  TuvNodeFactoryCompletedNotification, TuvNodeFactoryStoppedNotification})
        ASSERT_TRUE(post(name));
    ASSERT_TRUE(runUntil([&] { return heard.size() == 4 && !heardByItself.empty(); }));
    EXPECT_THAT(membersOf(heardByItself), ElementsAre("TuvNodeFactoryCompletedNotification"));
    EXPECT_THAT(heardByOther, IsEmpty());
}

TEST_F(BusDistributedCenterTest, forgetsReceiversThatHaveLeft) {
    center.addressOnly();
    EXPECT_FALSE(center.hasReceivers());
    center.addReceiver(client->uniqueName());
    center.addReceiver(other->uniqueName());
    EXPECT_TRUE(center.hasReceivers());
    const std::string left = client->uniqueName();
    client.reset();
    while (!server->nameOwner(left).empty()) std::this_thread::yield();
    EXPECT_TRUE(center.hasReceivers());
    const std::string leftLast = other->uniqueName();
    other.reset();
    while (!server->nameOwner(leftLast).empty()) std::this_thread::yield();
    EXPECT_FALSE(center.hasReceivers());
}

TEST_F(BusDistributedCenterTest, saysWhyNothingCanBePosted) {
    server->close();
    EXPECT_FALSE(post(TuvNodeFactoryStartedNotification));
    EXPECT_FALSE(error.empty());
    center.waitUntilWritten();  // returns
}

}  // namespace
}  // namespace kavaro
