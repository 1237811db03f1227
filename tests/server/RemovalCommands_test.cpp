// The commands that move to the Trash and remove, over the bus.
#include <gmock/gmock.h>

#include "TempFolder.h"
#include "server/ServerTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;

constexpr const char* kBadPaths = "every path must be an absolute path without a NUL byte";

class RemovalCommands : public ServerTest {
  protected:
    void SetUp() override {
        ServerTest::SetUp();
        ASSERT_NE(server(), nullptr);
        _client->subscribe("", bus::kNotificationPath, bus::kNotificationInterface, [this](const BusSignal& signal) {
            if (signal.member == TuvNodeFactoryTrashFileNotification) _trashed.push_back(signal.arguments[1]);
        });
        _client->flush();
    }
    BusReply callWith(const char* member, const std::vector<std::string>& paths) {
        return call(member, {BusValue::paths(paths)});
    }

    std::vector<BusValue> _trashed;  // userInfo of the notifications
    ScopedEnvironment _data{"XDG_DATA_HOME", _folder.path("data")};
    ScopedEnvironment _language{"LC_ALL", "C"};
};

TEST_F(RemovalCommands, MoveToTrashTellsBeforeItAnswers) {
    const std::string odd = _folder.write("odd \n\"\xff", "four");
    const std::string absent = _folder.path("absent\n\xff");
    const BusReply reply = callWith("moveToTrash", {odd, absent});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_TRUE(reply.values.empty());
    EXPECT_FALSE(isThere(odd));
    EXPECT_TRUE(isThere(_folder.path("data/Trash/files/odd \n\"\xff")));
    ASSERT_EQ(_trashed.size(), 1u);
    const auto data = _trashed[0].get("serialized").asData();
    ASSERT_TRUE(data);
    const auto nodes = TuvObjectArray::fromBytes(data->view());
    ASSERT_TRUE(nodes);
    ASSERT_EQ(nodes->count(), 1);
    EXPECT_EQ(nodes->nodeAtIndex(0)->fileName(), odd);
    EXPECT_EQ(_trashed[0].get("errors").type(), "aa{sv}");
    const auto errors = _trashed[0].get("errors").asDictionaries();
    ASSERT_TRUE(errors);
    ASSERT_EQ(errors->size(), 1u);
    const BusValue error = BusValue::dictionary((*errors)[0]);
    EXPECT_EQ(error.get("reason").asString(), "Could not load node form path");
    EXPECT_EQ(error.get("pathName").asPath(), absent);
    EXPECT_TRUE(error.get("attributes").isNull());
    EXPECT_THAT(emptyLines(), IsSupersetOf({"moveToTrash:"}));
}

TEST_F(RemovalCommands, AFailureCarriesTheAttributes) {
    // Nothing can be moved into what is itself in it.
    ASSERT_TRUE(callWith("moveToTrash", {_folder.write("first", "")}).ok());
    ASSERT_TRUE(callWith("moveToTrash", {_folder.path("data")}).ok());
    ASSERT_EQ(_trashed.size(), 2u);
    EXPECT_TRUE(_trashed[0].get("errors").asDictionaries()->empty());
    const auto errors = _trashed[1].get("errors").asDictionaries();
    ASSERT_EQ(errors->size(), 1u);
    const BusValue error = BusValue::dictionary((*errors)[0]);
    EXPECT_EQ(error.get("reason").asString(), "Could not move this file to Trash.");
    EXPECT_EQ(error.get("detail").asString(), "the Trash itself is in it");
    const BusValue attributes = error.get("attributes");
    EXPECT_EQ(attributes.type(), "a{sv}");
    EXPECT_EQ(attributes.get("NSFileType").asString(), "NSFileTypeDirectory");
    EXPECT_EQ(attributes.get("NSFileOwnerAccountID").asInteger(), static_cast<std::int64_t>(geteuid()));
    EXPECT_GT(attributes.get("NSFileModificationDate").asDouble().value_or(0), 1e9);
}

TEST_F(RemovalCommands, NoNodeIsNoData) {
    ASSERT_TRUE(callWith("moveToTrash", {}).ok());
    ASSERT_EQ(_trashed.size(), 1u);
    EXPECT_EQ(_trashed[0].get("serialized").type(), "ay");
    EXPECT_EQ(_trashed[0].get("serialized").asData()->view().size(), 0u);
    EXPECT_EQ(_trashed[0].get("errors").type(), "aa{sv}");
}

TEST_F(RemovalCommands, LanguagesAndNibsAreRemoved) {
    for (const char* name : {"app", "app/en.lproj", "app/fr.lproj", "app/fr.lproj/Main.nib"}) _folder.makeFolder(name);
    const std::string nib = _folder.write("app/fr.lproj/Main.nib/info.nib", "x");
    ASSERT_TRUE(callWith("removeNibs", {nib, _folder.path("app/absent.nib")}).ok());
    EXPECT_FALSE(isThere(nib));
    ASSERT_TRUE(callWith("removeLocales", {_folder.path("app/fr.lproj")}).ok());
    EXPECT_FALSE(isThere(_folder.path("app/fr.lproj")));
    EXPECT_TRUE(isThere(_folder.path("app/en.lproj")));
    EXPECT_TRUE(_trashed.empty());
    EXPECT_THAT(emptyLines(), IsSupersetOf({"removeNibs:", "removeLocales:"}));
    EXPECT_EQ(_log.count("2 files, isRemote"), 1);
    EXPECT_EQ(_log.count("1 locales, isRemote"), 1);
}

TEST_F(RemovalCommands, PathsThatAreNoneAreRefusedAltogether) {
    const std::string file = _folder.write("file", "");
    for (const char* member : {"moveToTrash", "removeLocales", "removeNibs"}) {
        for (const std::string& wrong : {std::string("relative"), std::string()}) {
            const BusReply reply = callWith(member, {file, wrong});
            EXPECT_EQ(reply.error.name, "org.freedesktop.DBus.Error.InvalidArgs") << member;
            EXPECT_NE(reply.error.message.find(kBadPaths), std::string::npos) << reply.error.message;
        }
        EXPECT_FALSE(call(member, {BusValue::string(file)}).ok()) << member;
        EXPECT_FALSE(call(member, {BusValue::path(file)}).ok()) << member;
        EXPECT_FALSE(call(member).ok()) << member;
    }
    EXPECT_TRUE(isThere(file));
}

// 11 MiB of paths in one call, and as many failures in the notifications.
TEST_F(RemovalCommands, AHundredThousandPathsInOneCall) {
    std::vector<std::string> paths;
    for (int number = 0; number < 100000; ++number)
        paths.push_back(_folder.path("absent" + std::to_string(number) + std::string(90, 'x')));
    paths.push_back(_folder.write("last", ""));
    const BusReply reply = callWith("moveToTrash", paths);
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    std::size_t failures = 0;
    for (const BusValue& userInfo : _trashed) failures += userInfo.get("errors").asDictionaries()->size();
    EXPECT_EQ(failures, 100000u);
    EXPECT_FALSE(isThere(paths.back()));
    ASSERT_TRUE(callWith("removeNibs", paths).ok());
    EXPECT_EQ(_log.count("File does not exist "), 100001);
}

}  // namespace
}  // namespace kavaro
