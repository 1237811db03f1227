#include <gtest/gtest.h>

#include "platform/BusFixture.h"
#include "platform/BusValue.h"

namespace kavaro {
namespace {

using TextTables = BusValue::TextTables;

const TextTables kTables = {{7, {{"ppc", {{"architecture", "ppc"}, {"size", "12"}}}, {"arm", {}}}},
                            {0xffffffff, {}},
                            {0, {{"", {{"", ""}, {"päth", "\xF0\x9F\x98\x80"}}}}}};

TEST(BusValueTables, ThereAndBack) {
    EXPECT_EQ(BusValue::textTables(kTables).type(), "a{ua{sa{ss}}}");
    EXPECT_EQ(BusValue::textTables(kTables).asTextTables(), kTables);
    EXPECT_EQ(BusValue::variant(BusValue::textTables(kTables)).asTextTables(), kTables);
    EXPECT_EQ(BusValue::textTables({}).type(), "a{ua{sa{ss}}}");
    EXPECT_EQ(BusValue::textTables({}).asTextTables(), TextTables());
}

TEST(BusValueTables, TextsThatTheBusDoesNotTake) {
    const auto tables = BusValue::textTables({{1, {{"a\xff", {{"k", std::string("x\0y", 3)}}}}}}).asTextTables();
    EXPECT_EQ(tables, (TextTables{{1, {{"a\\xff", {{"k", "x\\x00y"}}}}}}));
}

TEST(BusValueTables, OtherTypesAreNone) {
    EXPECT_EQ(BusValue().asTextTables(), std::nullopt);
    EXPECT_EQ(BusValue::texts({{"a", "b"}}).asTextTables(), std::nullopt);
    EXPECT_EQ(BusValue::dictionary({}).asTextTables(), std::nullopt);
    EXPECT_EQ(BusValue::textTables(kTables).asDictionary(), std::nullopt);
    EXPECT_EQ(BusValue::textTables(kTables).description(),
              "{7: {\"ppc\": {\"architecture\": \"ppc\", \"size\": \"12\"}, \"arm\": {}}, 4294967295: {}, 0: {\"\": "
              "{\"\": \"\", \"päth\": \"\xF0\x9F\x98\x80\"}}}");
}

class BusValueTablesOnTheBus : public BusFixture {};

TEST_F(BusValueTablesOnTheBus, Travel) {
    const auto server = connect();
    const auto client = connect();
    publish(*server, echo);
    const BusReply reply = ask(*client, *server, "pass", {BusValue::variant(BusValue::textTables(kTables))});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_EQ(reply.values[0].asTextTables(), kTables);
}

}  // namespace
}  // namespace kavaro
