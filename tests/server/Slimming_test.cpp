#include <gmock/gmock.h>

#include "cleanup/TuvLipoNode.h"
#include "cleanup/UniversalFile.h"
#include "server/CallAuthority.h"
#include "server/ServerTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using Dictionary = BusValue::Dictionary;

class SlimmingCallsTest : public ServerTest {
  protected:
    void SetUp() override {
        TuvLipoNode::setProcessorName("i386");
        ServerTest::SetUp();
        ASSERT_NE(server(), nullptr);
    }
    void TearDown() override { TuvLipoNode::setProcessorName(std::nullopt); }
    static Dictionary question(std::uint32_t inode, const std::string& path) {
        return {{"inode", BusValue::uint32(inode)}, {"filePath", BusValue::path(path)}};
    }
    static Dictionary removal(const std::string& path, const std::vector<std::string>& names) {
        return {{"filePath", BusValue::path(path)}, {"archTypes", BusValue::strings(names)}};
    }
    void expectRefusal(std::string_view member, const BusValue& argument) {
        const BusReply reply = call(member, {argument});
        EXPECT_EQ(reply.error.name, "org.freedesktop.DBus.Error.InvalidArgs") << argument.description();
    }
};

TEST_F(SlimmingCallsTest, LipoNodesInfo) {
    const std::string one = _folder.write("a \"name\"\n\xff", universalFile(kFourSlices));
    const std::string two = _folder.write("b", universalFile({kX86_64}));
    _log.clear();
    const BusReply reply =
        call("lipoNodesInfo", {BusValue::dictionaries({question(5, one), question(6, two), question(7, "/none")})});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    const BusValue::TextTables wanted = {{5,
                                          {{"ppc", {{"architecture", "ppc"}, {"size", "1000"}}},
                                           {"ppc7400", {{"architecture", "ppc7400"}, {"size", "2000"}}}}}};
    EXPECT_EQ(reply.values[0].asTextTables(), wanted);
    EXPECT_THAT(emptyLines(), ElementsAre("lipoNodesInfo:"));
    EXPECT_EQ(_log.count("3 files, all files"), 1);
}

TEST_F(SlimmingCallsTest, LipoNodes) {
    const std::string path = _folder.write("a", universalFile(kFourSlices));
    _log.clear();
    const BusReply reply = call("lipoNodes", {BusValue::dictionaries({removal(path, {"ppc", "ppc7400"})})});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_TRUE(reply.values.empty());
    EXPECT_EQ(_folder.read("a"), universalFile({kI386, kX86_64}));
    EXPECT_THAT(emptyLines(), ElementsAre("lipoNodes:"));
    EXPECT_EQ(_log.count("1 files, isRemote"), 1);
}

TEST_F(SlimmingCallsTest, NothingAskedFor) {
    const BusReply reply = call("lipoNodesInfo", {BusValue::dictionaries({})});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_EQ(reply.values[0].asTextTables(), BusValue::TextTables());
    EXPECT_TRUE(call("lipoNodes", {BusValue::dictionaries({})}).ok());
}

TEST_F(SlimmingCallsTest, ACallIsRefusedWhole) {
    const std::string path = _folder.write("a", universalFile({kPPC, kX86_64}));
    expectRefusal("lipoNodesInfo", BusValue::dictionaries({question(9, path), question(10, "relative")}));
    expectRefusal("lipoNodes", BusValue::dictionaries({removal(path, {"ppc"}), removal("relative", {"ppc"})}));
    expectRefusal("lipoNodesInfo", BusValue::strings({path}));
    expectRefusal("lipoNodes", BusValue::path(path));
    EXPECT_EQ(_folder.read("a"), universalFile({kPPC, kX86_64}));
}

TEST_F(SlimmingCallsTest, ReadingNeedsLessThanRewriting) {
    EXPECT_EQ(CallAuthority::riskOf("lipoNodesInfo"), CallAuthority::Risk::readSizes);
    EXPECT_EQ(CallAuthority::riskOf("lipoNodes"), CallAuthority::Risk::remove);
}

}  // namespace
}  // namespace kavaro
