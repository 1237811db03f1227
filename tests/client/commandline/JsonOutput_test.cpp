#include "client/commandline/JsonOutput.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"
#include "platform/Text.h"

namespace kavaro {
namespace {

std::string jsonOf(const Measurement& measurement, const EntryView& view) {
    WrittenBytes bytes;
    {
        Output output(bytes.fd());
        writeJson(output, measurement, view, false);
    }
    return bytes.text();
}

rapidjson::Document parsed(const std::string& json) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag>(json.c_str());
    EXPECT_FALSE(document.HasParseError()) << rapidjson::GetParseError_En(document.GetParseError()) << "\n" << json;
    return document;
}

Measurement smallMeasurement() {
    Measurement measurement;
    measurement.path = "/data";
    measurement.root = smallTree();
    measurement.seconds = 0.12345;
    return measurement;
}

std::string namesOf(const rapidjson::Value& children) {
    std::string names;
    for (const auto& child : children.GetArray())
        names += std::string(names.empty() ? "" : " ") + child["name"].GetString();
    return names;
}

TEST(JsonOutput, everyByte) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::root("/data");
    TuvDirNode* folder = FakeTree::addFolder(*measurement.root, "d\"\\\n", 10);
    FakeTree::addFile(*folder, "é", 11, 10, 4096);
    FakeTree::addFile(*measurement.root, "f", 12, 20, 512, -1);
    FakeTree::resolve(*measurement.root);
    EntryView view;
    view.depth = 2;
    EXPECT_EQ(jsonOf(measurement, view),
              R"({"path":"/data","logicalSize":30,"physicalSize":4608,"files":2,"folders":1,"seconds":0.123,)"
              R"("children":[{"name":"d\"\\\n","kind":"folder","inode":10,"logicalSize":10,"physicalSize":4096,)"
              R"("files":1,"folders":0,"modified":"2024-02-29T12:34:56Z","children":[)"
              R"({"name":"é","kind":"file","inode":11,"logicalSize":10,"physicalSize":4096,"files":1,"folders":0,)"
              R"("modified":"2024-02-29T12:34:56Z"}]},)"
              R"({"name":"f","kind":"file","inode":12,"logicalSize":20,"physicalSize":512,"files":1,"folders":0,)"
              R"("modified":"1969-12-31T23:59:59Z"}]})");
}

TEST(JsonOutput, depth) {
    const Measurement measurement = smallMeasurement();
    EntryView view;
    view.depth = 0;
    EXPECT_FALSE(parsed(jsonOf(measurement, view)).HasMember("children"));
    view.depth = 1;
    const rapidjson::Document one = parsed(jsonOf(measurement, view));
    EXPECT_EQ(namesOf(one["children"]), "big list 写真 small");
    EXPECT_FALSE(one["children"][0].HasMember("children"));
    view.depth = 2;
    const rapidjson::Document two = parsed(jsonOf(measurement, view));
    EXPECT_EQ(namesOf(two["children"][0]["children"]), "film deep");
    EXPECT_FALSE(two["children"][0]["children"][1].HasMember("children"));
    EXPECT_EQ(two["children"][3]["children"].Size(), 0U);  // an empty folder
    view.depth = 3;
    EXPECT_EQ(namesOf(parsed(jsonOf(measurement, view))["children"][0]["children"][1]["children"]), "note");
}

TEST(JsonOutput, orders) {
    Measurement measurement = smallMeasurement();
    FakeTree::addFile(*measurement.root, "copy", 20, 999999, 2048, FakeTree::kDate - 10);  // ties with 写真 on disk
    FakeTree::resolve(*measurement.root);
    const auto order = [&](SortKey key, bool apparent) {
        EntryView view;
        view.sort = key;
        view.apparent = apparent;
        return namesOf(parsed(jsonOf(measurement, view))["children"]);
    };
    EXPECT_EQ(order(SortKey::size, false), "big list copy 写真 small");
    EXPECT_EQ(order(SortKey::size, true), "big copy list 写真 small");
    EXPECT_EQ(order(SortKey::name, false), "big copy list small 写真");
    EXPECT_EQ(order(SortKey::date, false), "写真 big list small copy");
    EXPECT_EQ(order(SortKey::count, false), "big copy list 写真 small");
}

TEST(JsonOutput, topTellsWhatItLeftOut) {
    EntryView view;
    view.depth = 2;
    view.top = 1;
    const rapidjson::Document document = parsed(jsonOf(smallMeasurement(), view));
    EXPECT_EQ(namesOf(document["children"]), "big");
    EXPECT_EQ(document["childrenLeftOut"].GetInt(), 3);
    EXPECT_EQ(namesOf(document["children"][0]["children"]), "film");
    EXPECT_EQ(document["children"][0]["childrenLeftOut"].GetInt(), 1);
}

TEST(JsonOutput, namesThatAreNotUTF8) {
    Measurement measurement = smallMeasurement();
    measurement.path = "/da\xFFta";
    FakeTree::addFile(*measurement.root, "a\xE9z", 20, 1, 1ULL << 40);
    measurement.unread = {{"/data/\xFE", kReasonPermission}};
    const rapidjson::Document document = parsed(jsonOf(measurement, {}));
    EXPECT_STREQ(document["path"].GetString(), "/da\uFFFDta");
    EXPECT_EQ(document["pathRaw"].GetString(), base64(bytesOf("/da\xFFta")));
    const rapidjson::Value& child = document["children"][0];
    EXPECT_STREQ(child["name"].GetString(), "a\uFFFDz");
    EXPECT_STREQ(child["nameRaw"].GetString(), "Yel6");
    EXPECT_FALSE(document["children"][1].HasMember("nameRaw"));
    EXPECT_STREQ(document["unread"][0]["path"].GetString(), "/data/\uFFFD");
    EXPECT_TRUE(document["unread"][0].HasMember("pathRaw"));
}

TEST(JsonOutput, whatIsMissing) {
    Measurement measurement = smallMeasurement();
    const rapidjson::Document whole = parsed(jsonOf(measurement, {}));
    for (const char* key : {"partial", "lowerBound", "unread", "childrenLeftOut", "statistics", "pathRaw"}) {
        EXPECT_FALSE(whole.HasMember(key)) << key;
    }
    measurement.partial = true;
    measurement.unread = {{"/data/x", kReasonPermission}, {"/data/y", kReasonVanished}};
    measurement.root->folderWithFileName("big")->setIsResolved(false, true);
    const rapidjson::Document document = parsed(jsonOf(measurement, {}));
    EXPECT_TRUE(document["partial"].GetBool());
    EXPECT_TRUE(document["lowerBound"].GetBool());
    EXPECT_EQ(document["unread"].Size(), 2U);
    EXPECT_STREQ(document["unread"][1]["reason"].GetString(), "vanished");
    EXPECT_EQ(document["physicalSize"].GetUint64(), 5553152U);
    EXPECT_STREQ(document["children"][0]["name"].GetString(), "big");
    EXPECT_TRUE(document["children"][0]["partial"].GetBool());
    EXPECT_FALSE(document["children"][1].HasMember("partial"));
}

TEST(JsonOutput, noDate) {
    Measurement measurement = smallMeasurement();
    measurement.root->folderWithFileName("big")->setContentModDate(0);
    EXPECT_TRUE(parsed(jsonOf(measurement, {}))["children"][0]["modified"].IsNull());
}

TEST(JsonOutput, isoTimes) {
    EXPECT_EQ(isoTime(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(isoTime(-0.5), "1969-12-31T23:59:59Z");
    EXPECT_EQ(isoTime(951782400), "2000-02-29T00:00:00Z");
    EXPECT_EQ(isoTime(TuvNode::dateForJan1904()), "1904-01-01T00:00:00Z");
    EXPECT_EQ(isoTime(253402300800), "10000-01-01T00:00:00Z");
}

TEST(JsonOutput, aTreeOf100000Levels) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::chain(100000);
    EntryView view;
    view.depth = 1000000;
    const std::string json = jsonOf(measurement, view);
    rapidjson::Reader reader;
    rapidjson::StringStream stream(json.c_str());
    rapidjson::BaseReaderHandler<> ignore;
    EXPECT_FALSE(reader.Parse<rapidjson::kParseIterativeFlag>(stream, ignore).IsError());
    EXPECT_NE(json.find(R"("name":"file")"), std::string::npos);
}

}  // namespace
}  // namespace kavaro
