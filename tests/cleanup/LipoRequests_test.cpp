#include "cleanup/LipoRequests.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

using Dictionary = BusValue::Dictionary;

TEST(LipoRequests, ThereAndBack) {
    const std::vector<LipoQuestion> questions = {{0, "/a \"b\"\n\xff"}, {0xffffffff, "/"}};
    EXPECT_EQ(busValueOf(questions).type(), "aa{sv}");
    EXPECT_EQ(lipoQuestionsIn(busValueOf(questions)), questions);
    const std::vector<LipoRemoval> removals = {{"/a", {"ppc", "(cputype (99) cpusubtype (3))"}}, {"/b", {}}};
    EXPECT_EQ(busValueOf(removals).type(), "aa{sv}");
    EXPECT_EQ(lipoRemovalsIn(busValueOf(removals)), removals);
    LipoTables tables;
    tables[7] = PropertyList::Dictionary{{"ppc", PropertyList::Dictionary{{"architecture", "ppc"}, {"size", "12"}}},
                                         {"i386", PropertyList::Dictionary()}};
    tables[0xffffffff] = PropertyList::Dictionary();
    EXPECT_EQ(busValueOf(tables).type(), "a{ua{sa{ss}}}");
    EXPECT_EQ(lipoTablesIn(busValueOf(tables)), tables);
    EXPECT_EQ(lipoQuestionsIn(busValueOf(std::vector<LipoQuestion>())), std::vector<LipoQuestion>());
    EXPECT_EQ(lipoTablesIn(busValueOf(LipoTables())), LipoTables());
}

TEST(LipoRequests, OneEntryThatMakesNoSenseSpoilsAll) {
    const BusValue inode = BusValue::uint32(1), file = BusValue::path("/f"), names = BusValue::strings({"ppc"});
    const Dictionary question = {{"inode", inode}, {"filePath", file}};
    const Dictionary removal = {{"filePath", file}, {"archTypes", names}};
    EXPECT_TRUE(lipoQuestionsIn(BusValue::dictionaries({question, question})));
    for (const Dictionary& entry :
         {Dictionary{}, Dictionary{{"inode", inode}}, Dictionary{{"filePath", file}},
          Dictionary{{"inode", BusValue::string("1")}, {"filePath", file}},
          Dictionary{{"inode", BusValue::int32(-1)}, {"filePath", file}},
          Dictionary{{"inode", BusValue::int64(0x100000000)}, {"filePath", file}},
          Dictionary{{"inode", inode}, {"filePath", BusValue::string("/f")}},
          Dictionary{{"inode", inode}, {"filePath", BusValue::path("relative")}},
          Dictionary{{"inode", inode}, {"filePath", BusValue::path("")}},
          Dictionary{{"inode", inode}, {"filePath", BusValue::data(bytesOf(std::string_view("/a\0b", 4)))}}})
        EXPECT_FALSE(lipoQuestionsIn(BusValue::dictionaries({question, entry})));
    EXPECT_TRUE(lipoRemovalsIn(BusValue::dictionaries({removal, removal})));
    for (const Dictionary& entry : {Dictionary{}, Dictionary{{"filePath", file}}, Dictionary{{"archTypes", names}},
                                    Dictionary{{"filePath", BusValue::path("a")}, {"archTypes", names}},
                                    Dictionary{{"filePath", file}, {"archTypes", BusValue::string("ppc")}}})
        EXPECT_FALSE(lipoRemovalsIn(BusValue::dictionaries({removal, entry})));
    for (const BusValue& other : {BusValue(), file, names, BusValue::dictionary(question)}) {
        EXPECT_FALSE(lipoQuestionsIn(other));
        EXPECT_FALSE(lipoRemovalsIn(other));
        EXPECT_FALSE(lipoTablesIn(other));
    }
}

}  // namespace
}  // namespace kavaro
