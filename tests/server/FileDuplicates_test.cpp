#include "cleanup/HashRecordMessage.h"
#include "platform/MD5.h"
#include "platform/MemoryFile.h"
#include "server/ServerTest.h"

namespace kavaro {
namespace {

class FileDuplicatesCall : public ServerTest {
  protected:
    void SetUp() override {
        ServerTest::SetUp();
        ASSERT_NE(server(), nullptr);
    }
    void ask(const std::vector<std::string>& paths) {
        _records = make<TuvObjectArray>();
        for (const std::string& path : paths) {
            auto record = make<TuvNodeMD5Hash>();
            record->setFilePath(path);
            _records->adoptObject(record.leak());
        }
        TuvNodeMD5Hash::serialize_TuvObjectArray(_records.get(), &_header, _data);
    }
    BusReply callWith(const BusValue& data) {
        return call("fileDuplicatesHeader",
                    {BusValue::variant(data), BusValue::texts({_header.begin(), _header.end()})});
    }
    static TuvRef<TuvObjectArray> recordsOf(const BusReply& reply) {
        EXPECT_TRUE(reply.ok()) << reply.error.message;
        EXPECT_EQ(reply.values.at(0).type(), "a{sv}");
        EXPECT_EQ(reply.values[0].get("headerData").type(), "a{ss}");
        return readHashRecordAnswer(reply.values[0]);
    }
    static std::string digestAt(const TuvRef<TuvObjectArray>& records, int index) {
        return TuvNodeMD5Hash::atIndex(records.get(), index)->md5Hash();
    }

    TuvRef<TuvObjectArray> _records;
    MD5HashHeader _header;
    ByteBuffer _data;
};

TEST_F(FileDuplicatesCall, GivesTheDigests) {
    ask({_folder.write("a", "abc"), _folder.path("none")});
    const auto records = recordsOf(callWith(BusValue::data(_data.view())));
    ASSERT_TRUE(records);
    ASSERT_EQ(records->count(), 2);
    EXPECT_EQ(digestAt(records, 0), md5Text(md5Of(bytesOf("abc"))));
    EXPECT_EQ(digestAt(records, 1), "");
    EXPECT_EQ(emptyLines().back(), "fileDuplicates:header:");
}

// Nine million bytes and more, in files of memory both ways.
TEST_F(FileDuplicatesCall, LargeDataTravelsInMemoryFiles) {
    const std::string file = _folder.write("a", "abc");
    std::vector<std::string> paths(3000, _folder.path("none/" + std::string(3500, 'x')));
    paths.back() = file;
    ask(paths);
    ASSERT_GT(_data.size(), BusValue::kInlineLimit);
    const BusValue data = BusValue::data(_data.view());
    EXPECT_EQ(data.type(), "h");
    const BusReply reply = callWith(data);
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_EQ(reply.values.at(0).get("data").type(), "h");
    const auto records = recordsOf(reply);
    ASSERT_TRUE(records);
    EXPECT_EQ(records->count(), 3000);
    EXPECT_EQ(digestAt(records, 2999), md5Text(md5Of(bytesOf("abc"))));
}

TEST_F(FileDuplicatesCall, RecordsThatMakeNoSenseGiveNoData) {
    ask({_folder.write("a", "abc")});
    for (const BusValue& data : {BusValue::data(ByteView()), BusValue::data(_data.view().first(10))}) {
        const BusReply reply = callWith(data);
        ASSERT_TRUE(reply.ok()) << reply.error.message;
        EXPECT_TRUE(reply.values.at(0).get("data").asData()->view().empty());
        EXPECT_TRUE(reply.values[0].get("headerData").asDictionary()->empty());
    }
}

TEST_F(FileDuplicatesCall, WrongArgumentsAreRefused) {
    ask({_folder.write("a", "abc")});
    for (const BusValue& data : {BusValue::string("text"), BusValue::int32(5), BusValue::strings({"a"})})
        EXPECT_EQ(callWith(data).error.name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(call("fileDuplicatesHeader", {BusValue::variant(BusValue::data(_data.view()))}).error.name,
              "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_TRUE(recordsOf(callWith(BusValue::data(_data.view())))) << "and the server is still there";
}

}  // namespace
}  // namespace kavaro
