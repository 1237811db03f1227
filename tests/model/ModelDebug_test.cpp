#include <limits>

#include "ModelTest.h"

namespace kavaro {
namespace {

std::string debugOf(const TuvObject& object, int shift, int depth) {
    return standardErrorOf([&] { object.debug(shift, depth); });
}

std::string shift(int steps) {
    return std::string(static_cast<std::size_t>(steps) * 3, '-') + "-> ";
}

std::string headerOf(const TuvObject& object) {
    return standardErrorOf([&] { object.debugHeader(); });
}

TEST(ModelDebugTest, HeaderOfAFile) {
    auto file = newFile(7, "na me", 5000000000, 2);
    file->setContentModDate(2082844800.0 + 1000000000);
    EXPECT_EQ(headerOf(*file), "inod=[       7] fileName=[na me] [<" + addressOf(file.get()) +
                                   ">][retCount=1] modDate=[2001-09-09 01:46:40 +0000] logicalSize=[705032704] "
                                   "physicalSize=[2] files=[0] folders=[0] resolved=[Y]\n");
    file->setIsResolved(false);
    EXPECT_NE(headerOf(*file).find("resolved=[N]"), std::string::npos);
    EXPECT_EQ(debugOf(*file, 1, 0), shift(1) + headerOf(*file));
    EXPECT_EQ(standardErrorOf([&] { static_cast<TuvObject&>(*file).debug(); }), "-> " + headerOf(*file));
    EXPECT_NE(headerOf(*make<TuvNode>()).find("fileName=[No File Name !!!]"), std::string::npos);
    EXPECT_NE(headerOf(*make<TuvNode>()).find("modDate=[1904-01-01 00:00:00 +0000]"), std::string::npos);
}

TEST(ModelDebugTest, HeaderOfAFolder) {
    auto folder = newFolder(1234567890, "d");
    addFile(folder.get(), newFile(1));
    addFolder(folder.get(), newFolder(2));
    addFolder(folder.get(), newFolder(3));
    const std::string header = headerOf(*folder);
    EXPECT_EQ(header.rfind("inod=[1234567890] dirName=[d] [<", 0), 0u);
    EXPECT_NE(header.find("files=[1] folders=[2] resolved=[N]\n"), std::string::npos);
}

TEST(ModelDebugTest, AbsurdDates) {
    auto file = newFile(7);
    for (double date : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        file->setContentModDate(date);
        EXPECT_NE(headerOf(*file).find("modDate=["), std::string::npos);
    }
    file->setContentModDate(65535 * 4294967296.0);
    EXPECT_NE(headerOf(*file).find(" +0000]"), std::string::npos);
}

TEST(ModelDebugTest, ArraysAndFolders) {
    auto folder = newFolder(1, "outer");
    TuvNode* file = addFile(folder.get(), newFile(2, "file"));
    TuvDirNode* inner = addFolder(folder.get(), newFolder(3, "inner"));
    const auto array = [](const TuvObjectArray* list, int items) {
        return "TuvObjectArray <" + addressOf(list) + ">[retCount=1] [" + std::to_string(items) + " items]";
    };
    const auto element = [](const TuvObjectArray* list, int index) {
        return "<index " + std::to_string(index) + "> from <" + addressOf(list) + ">\n";
    };
    const std::string innerText = shift(2) + headerOf(*inner) + shift(3) + "0 immediate files\n" + shift(3) +
                                  "0 immediate folders\n" + shift(2) + "\n";
    const std::string text = "-> " + headerOf(*folder) + shift(1) + "1 immediate files\n" + shift(1) +
                             array(folder->files(), 1) + "\n" + shift(1) + element(folder->files(), 0) + shift(2) +
                             headerOf(*file) + "\n" + shift(1) + "1 immediate folders\n" + shift(1) +
                             array(folder->folders(), 1) + "\n" + shift(1) + element(folder->folders(), 0) + innerText +
                             "\n" + "-> \n";
    EXPECT_EQ(debugOf(*folder, 0, 10), text);
    EXPECT_EQ(standardErrorOf([&] { static_cast<TuvObject&>(*folder).debug(); }), text);
    // With a depth of 1 the lists may not be entered.
    EXPECT_EQ(debugOf(*folder, 0, 1), "-> " + headerOf(*folder) + shift(1) + "1 immediate files\n" + shift(1) +
                                          array(folder->files(), 1) + " Not allowed to recurse deeper ...\n" +
                                          shift(1) + "1 immediate folders\n" + shift(1) + array(folder->folders(), 1) +
                                          " Not allowed to recurse deeper ...\n" + "-> \n");
    EXPECT_EQ(debugOf(*folder->files(), 2, 1), shift(2) + array(folder->files(), 1) + "\n" + shift(2) +
                                                   element(folder->files(), 0) + shift(3) + headerOf(*file) + "\n");
    EXPECT_EQ(standardErrorOf([&] { static_cast<TuvObject*>(folder->files())->debug(); }),
              "-> 1 objects\n" + debugOf(*folder->files(), 0, 5));
}

TEST(ModelDebugTest, EmptyArraysPrintNothing) {
    auto array = make<TuvObjectArray>();
    EXPECT_EQ(debugOf(*array, 0, 5), "");
    EXPECT_EQ(debugOf(*array, 0, 0), "");
    EXPECT_EQ(standardErrorOf([&] { static_cast<TuvObject&>(*array).debug(); }), "-> 0 objects\n");
}

TEST(ModelDebugTest, ElementsThatPrintThemselvesOtherwiseDo) {
    struct Own : TuvDirNode {
        using TuvDirNode::debug;
        void debug(int shift, int depth) const override {
            std::fprintf(stderr, "own %d %d\n", shift, depth);
            if (depth > 2) TuvDirNode::debug(shift, depth);
        }
    };
    auto array = make<TuvObjectArray>();
    array->adoptObject(new Own);
    const std::string text = debugOf(*array, 0, 5);
    EXPECT_NE(text.find("own 1 4\n----> inod=["), std::string::npos) << text;
}

}  // namespace
}  // namespace kavaro
