#include "client/NotificationReader.h"

#include <gtest/gtest.h>

#include <functional>

#include "client/TreeDelivery.h"
#include "support/ProtocolNames.h"

namespace kavaro {
namespace {

const std::string kPath = "/random";  // of the trees by chance

class NotificationReaderTest : public testing::Test {
  protected:
    static std::vector<BusValue> arguments(const ByteBuffer& data, std::string_view object = kNotificationObject) {
        return {BusValue::string(object),
                BusValue::dictionary({{std::string(kSerializedKey), BusValue::data(data.view())}})};
    }
    static std::vector<BusValue> unread(const BusValue& folders, const BusValue& reasons) {
        return {BusValue::string(kNotificationObject),
                BusValue::dictionary({{std::string(kFoldersKey), folders}, {std::string(kReasonsKey), reasons}})};
    }
    static TuvRef<TuvDirNode> tree(unsigned seed, int folders = 20) {
        std::mt19937 random(seed);
        return TreeDelivery::randomTree(random, folders);
    }
    void start() { _reader.read(TuvNodeFactoryStartedNotification, arguments(_delivery.startedBytes())); }
    void resolve(std::size_t begin, std::size_t end) {
        _reader.read(TuvNodeFactoryResolvedNotification, arguments(_delivery.batch(begin, end)));
    }
    void complete() { _reader.read(TuvNodeFactoryCompletedNotification, arguments(_delivery.rootBytes())); }
    std::size_t count() const { return _delivery.order().size(); }
    Measurement finish() {
        Measurement measurement;
        _reader.finish(measurement);
        return measurement;
    }

    TreeDelivery _delivery{tree(1)};
    NotificationReader _reader{kPath};
};

TEST_F(NotificationReaderTest, FollowsAJobToItsEnd) {
    start();
    EXPECT_TRUE(_reader.hasStarted());
    resolve(0, 5);
    _reader.read(KavaroUnreadFoldersNotification, unread(BusValue::paths({"/random/d8", "/random/\xff"}),
                                                         BusValue::strings({"permission", "vanished"})));
    resolve(5, count());
    EXPECT_FALSE(_reader.hasEnded());
    complete();
    EXPECT_TRUE(_reader.hasEnded());
    EXPECT_TRUE(_reader.isCompleted());
    const Measurement measurement = finish();
    EXPECT_EQ(measurement.failure, "");
    EXPECT_FALSE(measurement.partial);
    ASSERT_EQ(measurement.unread.size(), 2u);
    EXPECT_EQ(measurement.unread[1].path, "/random/\xff");
    EXPECT_EQ(measurement.unread[1].reason, "vanished");
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery.root()));
}

TEST_F(NotificationReaderTest, WhatComesBeforeTheJobIsOfAnother) {
    TreeDelivery other(smallTree());  // "/data"
    resolve(0, 3);
    complete();
    _reader.read(TuvNodeFactoryStoppedNotification, arguments(ByteBuffer()));
    _reader.read(KavaroUnreadFoldersNotification, unread(BusValue::int32(1), BusValue::int32(2)));
    _reader.read(KavaroUnreadFoldersNotification, unread(BusValue::paths({"/x"}), BusValue::strings({"permission"})));
    _reader.read(TuvNodeFactoryStartedNotification, arguments(other.startedBytes()));
    _reader.read(TuvNodeFactoryResolvedNotification, arguments(other.batch(0, 2)));
    EXPECT_FALSE(_reader.hasStarted());
    EXPECT_FALSE(_reader.hasEnded());
    start();
    resolve(0, count());
    complete();
    const Measurement measurement = finish();
    EXPECT_EQ(measurement.failure, "");
    EXPECT_TRUE(measurement.unread.empty());
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery.root()));
}

TEST_F(NotificationReaderTest, AJobThatIsReplacedIsNoResult) {
    TreeDelivery other(smallTree());
    start();
    resolve(0, 5);
    _reader.read(TuvNodeFactoryStartedNotification, arguments(other.startedBytes()));
    EXPECT_TRUE(_reader.hasEnded());
    EXPECT_TRUE(_reader.isReplaced());
    _reader.read(TuvNodeFactoryCompletedNotification, arguments(other.rootBytes()));
    const Measurement measurement = finish();
    EXPECT_TRUE(measurement.partial);
    EXPECT_NE(measurement.failure.find("/random: another client has started a job"), std::string::npos);
    EXPECT_EQ(measurement.root->fileName(), kPath);
}

TEST_F(NotificationReaderTest, TheSameJobStartedAgainBeginsAnew) {
    start();
    resolve(0, 5);
    start();
    resolve(0, count());
    complete();
    const Measurement measurement = finish();
    EXPECT_FALSE(measurement.partial);
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery.root()));
}

TEST_F(NotificationReaderTest, AStoppedJobIsPartial) {
    start();
    resolve(0, 5);
    _reader.read(TuvNodeFactoryStoppedNotification, {BusValue::string(kNotificationObject), BusValue::dictionary({})});
    EXPECT_TRUE(_reader.isStopped());
    complete();  // too late
    EXPECT_TRUE(finish().partial);
}

TEST_F(NotificationReaderTest, AMissingBatchIsAFailure) {
    start();
    resolve(0, 5);
    resolve(6, count());
    complete();
    EXPECT_TRUE(_reader.hasEnded());
    EXPECT_FALSE(_reader.isCompleted());
    const Measurement measurement = finish();
    EXPECT_TRUE(measurement.partial);
    EXPECT_NE(measurement.failure.find("is missing"), std::string::npos);
    ASSERT_TRUE(measurement.root);
}

TEST_F(NotificationReaderTest, OtherObjectsAndNamesAreIgnored) {
    start();
    _reader.read(TuvNodeFactoryCompletedNotification, arguments(_delivery.rootBytes(), "SomethingElse"));
    _reader.read("TuvNodeFactoryUnheardOfNotification", arguments(_delivery.rootBytes()));
    _reader.read(TuvNodeFactoryTrashFileNotification, arguments(ByteBuffer()));
    _reader.read(TuvNodeFactoryCompletedNotification, std::vector<BusValue>());
    _reader.read(TuvNodeFactoryCompletedNotification, {BusValue::string(kNotificationObject)});
    _reader.read(TuvNodeFactoryCompletedNotification, {BusValue(), BusValue()});
    EXPECT_FALSE(_reader.hasEnded());
}

// Each of them ends the job, names it, and leaves what had arrived.
TEST_F(NotificationReaderTest, ValuesThatMakeNoSenseEndTheJob) {
    const auto serialized = [](const BusValue& value) {
        return std::vector<BusValue>{BusValue::string(kNotificationObject),
                                     BusValue::dictionary({{std::string(kSerializedKey), value}})};
    };
    const std::uint8_t absurd[] = {0xff, 0xff, 0xff, 0x7f, 1, 2, 3};
    const BusValue good = BusValue::data(_delivery.batch(0, 3).view());
    const std::vector<std::pair<std::string_view, std::vector<BusValue>>> cases = {
        {TuvNodeFactoryResolvedNotification, serialized(BusValue::string("text"))},
        {TuvNodeFactoryResolvedNotification, serialized(BusValue::int32(5))},
        {TuvNodeFactoryResolvedNotification, serialized(BusValue::strings({"a"}))},
        {TuvNodeFactoryResolvedNotification, serialized(BusValue::data(ByteView()))},
        {TuvNodeFactoryResolvedNotification, serialized(BusValue::data({absurd, sizeof absurd}))},
        {TuvNodeFactoryResolvedNotification, {BusValue::string(kNotificationObject), BusValue::dictionary({})}},
        {TuvNodeFactoryResolvedNotification, {BusValue::string(kNotificationObject), good}},
        {TuvNodeFactoryResolvedNotification, {BusValue::string(kNotificationObject), BusValue()}},
        {TuvNodeFactoryCompletedNotification, serialized(BusValue::data({absurd, sizeof absurd}))},
        {TuvNodeFactoryCompletedNotification, serialized(BusValue::int32(1))},
        {TuvNodeFactoryStartedNotification, serialized(BusValue::data({absurd, sizeof absurd}))},
        {KavaroUnreadFoldersNotification, unread(BusValue::paths({"/a", "/b"}), BusValue::strings({"one"}))},
        {KavaroUnreadFoldersNotification, unread(BusValue::strings({"/a"}), BusValue::strings({"one"}))},
        {KavaroUnreadFoldersNotification, unread(BusValue::paths({"/a"}), BusValue::int32(1))},
        {KavaroUnreadFoldersNotification, {BusValue::string(kNotificationObject), BusValue::dictionary({})}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        NotificationReader reader(kPath);
        reader.read(TuvNodeFactoryStartedNotification, arguments(_delivery.startedBytes()));
        reader.read(TuvNodeFactoryResolvedNotification, arguments(_delivery.batch(0, 4)));
        reader.read(cases[i].first, cases[i].second);
        EXPECT_TRUE(reader.hasEnded());
        EXPECT_FALSE(reader.isCompleted());
        Measurement measurement;
        reader.finish(measurement);
        EXPECT_NE(measurement.failure.find("/random: the server sent data that cannot be read"), std::string::npos);
        EXPECT_NE(measurement.failure.find(cases[i].first), std::string::npos);
        EXPECT_TRUE(measurement.partial);
        ASSERT_TRUE(measurement.root);
        EXPECT_EQ(TreeTotals(*measurement.root, 0).ofRoot().files, heldByFirst(_delivery, 4).files);
    }
}

TEST_F(NotificationReaderTest, NothingHasStartedWhenTheRootCannotBeRead) {
    const ByteBuffer root = _delivery.rootBytes();
    for (std::size_t length = 0; length < root.size(); ++length) {
        NotificationReader reader(kPath);
        reader.read(TuvNodeFactoryStartedNotification, root.view().subspan(0, length));
        EXPECT_FALSE(reader.hasStarted());
        EXPECT_TRUE(reader.hasEnded());
        Measurement measurement;
        reader.finish(measurement);
        EXPECT_FALSE(measurement.root);
        EXPECT_NE(measurement.failure, "");
    }
}

}  // namespace
}  // namespace kavaro
