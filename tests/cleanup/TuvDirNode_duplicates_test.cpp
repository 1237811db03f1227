#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <regex>

#include "cleanup/DuplicatesTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesOf(const TuvObjectArray* nodes) {
    std::vector<std::string> names;
    for (int i = 0; i < nodes->count(); ++i) names.emplace_back(nodes->nodeAtIndex(i)->fileName());
    return names;
}

// Each group as its names.
std::vector<std::vector<std::string>> groupsOf(const TuvObjectArray* groups) {
    std::vector<std::vector<std::string>> all;
    for (int i = 0; i < groups->count(); ++i) all.push_back(namesOf(arrayAt(groups, i)));
    return all;
}

TEST(DuplicateCandidates, AreTheFilesOfAFolderThenThoseOfItsFoldersInOrder) {
    auto root = newFolder(1, "/r");
    addFile(root.get(), newFile(2, "b", 5));
    addFile(root.get(), newFile(3, "a", 0));
    TuvDirNode* first = addFolder(root.get(), newFolder(4, "first"));
    TuvDirNode* second = addFolder(root.get(), newFolder(5, "second"));
    addFile(first, newFile(6, "c"));
    addFile(addFolder(first, newFolder(7, "inner")), newFile(8, "d"));
    addFile(second, newFile(9, "e"));
    EXPECT_THAT(namesOf(root->potentialyDuplicateChildren().get()), ElementsAre("b", "a", "c", "d", "e"));

    auto own = make<TuvObjectArray>();
    own->addObject(second);  // what is in it stays
    root->potentialyDuplicateChildren(own.get(), 0);
    EXPECT_THAT(namesOf(own.get()), ElementsAre("second", "b", "a"));
    root->potentialyDuplicateChildren(own.get(), -1);
    EXPECT_EQ(own->count(), 3 + 5);
}

TEST(DuplicateCandidates, LeaveOutFolderSettingsInAnyCase) {
    auto root = newFolder(1, "/r");
    for (const char* name : {".DS_Store", ".ds_store", ".Ds_sTORE", "old.DS_STORE", "DS_Store", ".DS_Store.txt", "x"})
        addFile(root.get(), newFile(2, name, 6148));
    EXPECT_THAT(namesOf(root->potentialyDuplicateChildren().get()), ElementsAre("DS_Store", ".DS_Store.txt", "x"));
}

TEST(DuplicateCandidates, LeaveOutSubfoldersByTheEndOfTheirNames) {
    auto root = newFolder(1, "/r");
    std::uint32_t inode = 10;
    for (const char* name :
         {".svn", "a.svn", "build", "Build", "rebuild", "ReBUILD", "Mail.app", "X.APP", "a.framework", "A.FrameWork",
          "A.Framewor\xe2\x84\xaa", "CVS", "cvs", "xcvs", "buildx", "app", "framework", "svn", "Caches"}) {
        TuvDirNode* folder = addFolder(root.get(), newFolder(inode++, name));
        addFile(folder, newFile(inode++, "in " + std::string(name)));
        TuvDirNode* inner = addFolder(folder, newFolder(inode++, "inner"));
        addFile(inner, newFile(inode++, "below " + std::string(name)));
    }
    EXPECT_THAT(namesOf(root->potentialyDuplicateChildren().get()),
                ElementsAre("in buildx", "below buildx", "in app", "below app", "in framework", "below framework",
                            "in svn", "below svn", "in Caches", "below Caches"));
}

TEST(DuplicateCandidates, LeaveOutCachesInALibrary) {
    const std::vector<std::pair<const char*, std::vector<const char*>>> libraries = {
        {"Library", {}}, {"my LIBRARY", {}}, {"Libraries", {"in Caches", "in MyCaches", "in cacheS"}}};
    for (const auto& [library, wanted] : libraries) {
        auto root = newFolder(1, "/r");
        TuvDirNode* parent = addFolder(root.get(), newFolder(2, library));
        for (const char* name : {"Caches", "MyCaches", "cacheS"})
            addFile(addFolder(parent, newFolder(3, name)), newFile(4, "in " + std::string(name)));
        addFile(addFolder(parent, newFolder(5, "Caches2")), newFile(6, "in Caches2"));
        std::vector<std::string> all(wanted.begin(), wanted.end());
        all.push_back("in Caches2");
        EXPECT_EQ(namesOf(root->potentialyDuplicateChildren().get()), all) << library;
    }
}

TEST(DuplicateCandidates, TheFolderAskedIsSearchedWhateverItsName) {
    for (const char* name : {"/x/build", "/x/Mail.app", "/x/.svn", "/x/CVS", "/Library/Caches"}) {
        auto root = newFolder(1, name);
        addFile(root.get(), newFile(2, "f"));
        EXPECT_THAT(namesOf(root->potentialyDuplicateChildren().get()), ElementsAre("f")) << name;
    }
    auto library = newFolder(1, "Library");
    TuvDirNode* caches = addFolder(library.get(), newFolder(2, "Caches"));
    addFile(caches, newFile(3, "f"));
    EXPECT_THAT(namesOf(library->potentialyDuplicateChildren().get()), IsEmpty());
    EXPECT_THAT(namesOf(caches->potentialyDuplicateChildren().get()), ElementsAre("f"));
}

TEST(DuplicateCandidates, ADeepTreeTakesNoStack) {
    runOnSmallStack([] {
        auto root = newFolder(1, "/r");
        TuvDirNode* folder = root.get();
        for (std::uint32_t level = 0; level < 100000; ++level) folder = addFolder(folder, newFolder(level + 2, "d"));
        addFile(folder, newFile(200000, "f", 7));
        EXPECT_EQ(root->potentialyDuplicateChildren()->count(), 1);
        EXPECT_EQ(root->potentialyDuplicateFiles()->count(), 0);
    });
}

TEST(SizeGroups, ComeLargestFirstWithTheirMembersInTheOrderOfTheTree) {
    auto root = newFolder(1, "/r");
    TuvDirNode* sub = addFolder(root.get(), newFolder(2, "sub"));
    addFile(root.get(), newFile(3, "small1", 5));
    addFile(root.get(), newFile(4, "large1", 5'000'000'000));
    addFile(root.get(), newFile(5, "alone", 6));
    addFile(sub, newFile(6, "small2", 5));
    addFile(sub, newFile(7, "large2", 5'000'000'000));
    addFile(sub, newFile(8, "other", 705'032'704));  // the same in the low 32 bits
    addFile(sub, newFile(9, "small3", 5));
    DuplicatesLogs log;
    const TuvRef<TuvObjectArray> groups = root->potentialyDuplicateFiles();
    EXPECT_THAT(groupsOf(groups.get()),
                ElementsAre(ElementsAre("large1", "large2"), ElementsAre("small1", "small2", "small3")));
    EXPECT_THAT(log.lines(), ElementsAre("TuvDirNode potentialyDuplicateFiles: Found 2 groups with 5 duplicate files "
                                         "from 7 files in ? ms"));
    EXPECT_EQ(arrayAt(groups.get(), 0)->size(), 16);
}

TEST(SizeGroups, EmptyFilesFormNone) {
    auto root = newFolder(1, "/r");
    for (std::uint32_t inode = 2; inode < 6; ++inode) addFile(root.get(), newFile(inode, "empty", 0));
    EXPECT_EQ(root->potentialyDuplicateFiles()->count(), 0);
    EXPECT_EQ(newFolder(1, "/r")->potentialyDuplicateFiles()->count(), 0);
}

TEST(SizeGroups, TellTheirStepsAtDebugLevel) {
    auto root = newFolder(1, "/r");
    addFile(root.get(), newFile(12, "a", 9));
    addFile(root.get(), newFile(13, "b", 9));
    addFile(root.get(), newFile(14, "c", 3));
    DuplicatesLogs log(LogLevel::debug);
    root->potentialyDuplicateFiles();
    std::vector<std::string> own;
    for (const LogCapture::Line& line : log->lines())
        if (line.component == "TuvDirNode") own.push_back(line.text);
    ASSERT_EQ(own.size(), 5u);
    EXPECT_EQ(own[0], std::string(41, '-'));
    EXPECT_EQ(own[1], "size change 0 --> 9, 000000012, /r/a");
    EXPECT_EQ(own[2], "potential duplicate 2, 9, 000000013, /r/b");
    EXPECT_EQ(own[3], "size change 9 --> 3, 000000014, /r/c");
    EXPECT_TRUE(own[4].starts_with("Found 1 groups with 2 duplicate files from 3 files in "));
}

// They are logged as numbers of 32 bits, which what reads the logs expects.
TEST(SizeGroups, LogLargeSizesCut) {
    auto root = newFolder(1, "/r");
    addFile(root.get(), newFile(12, "a", 0x1'8000'0000));
    addFile(root.get(), newFile(13, "b", 0x1'0000'0005));
    DuplicatesLogs log(LogLevel::debug);
    root->potentialyDuplicateFiles();
    EXPECT_TRUE(log->contains("size change 0 --> -2147483648, 000000012, /r/a"));
    EXPECT_TRUE(log->contains("size change -2147483648 --> 5, 000000013, /r/b"));
    bool timeIsShown = false;
    for (const LogCapture::Line& line : log->lines())
        timeIsShown |= std::regex_match(line.text, std::regex("Found 0 groups with 0 duplicate files from 2 files in "
                                                              "[ 0-9]{5}[.][0-9]{3} ms"));
    EXPECT_TRUE(timeIsShown);
}

TEST(SizeGroups, AreLoggedOnRequest) {
    auto root = newFolder(1, "/r");
    TuvNode* a = addFile(root.get(), newFile(12, "a", 9));
    TuvNode* b = addFile(root.get(), newFile(13, "b", 9));
    DuplicatesLogs log;
    debugDuplicates(arrayOfAll({a, b}).get(), "here:");
    EXPECT_THAT(log.lines(),
                ElementsAre("TuvDirNode here:: 000009 bytes, 2 duplicates", "TuvDirNode here:: 000009, 12, /r/a",
                            "TuvDirNode here:: 000009, 13, /r/b", "TuvDirNode here:: "));
}

// Random trees beside a map from size to names.
TEST(SizeGroups, AreThoseOfASimpleTwin) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 random(seed);
        auto root = newFolder(1, "/r");
        std::vector<TuvDirNode*> folders = {root.get()};
        std::uint32_t inode = 2;
        for (unsigned left = random() % 60; left > 0; --left) {
            TuvDirNode* parent = folders[random() % folders.size()];
            if (random() % 4 == 0)
                folders.push_back(addFolder(parent, newFolder(inode++, "d")));
            else
                addFile(parent, newFile(inode++, "f", random() % 12));
        }
        std::map<std::uint64_t, std::vector<std::uint32_t>, std::greater<>> twin;
        const TuvRef<TuvObjectArray> candidates = root->potentialyDuplicateChildren();
        for (int i = 0; i < candidates->count(); ++i) {
            const TuvNode* node = candidates->nodeAtIndex(i);
            if (node->logicalSize() > 0) twin[node->logicalSize()].push_back(node->inode());
        }
        std::vector<std::vector<std::uint32_t>> wanted, found;
        for (const auto& [size, inodes] : twin)
            if (inodes.size() > 1) wanted.push_back(inodes);
        const TuvRef<TuvObjectArray> groups = root->potentialyDuplicateFiles();
        for (int i = 0; i < groups->count(); ++i) found.push_back(idsOf(arrayAt(groups.get(), i)));
        EXPECT_EQ(found, wanted) << seed;
    }
}

// The order is the one that the model's own comparison gives to a sort that leaves equal ones alone.
TEST(SizeGroups, AreOrderedAsTheModelOrdersBySize) {
    std::mt19937 random(5);
    auto root = newFolder(1, "/r");
    for (std::uint32_t inode = 2; inode < 600; ++inode) addFile(root.get(), newFile(inode, "f", 1 + random() % 50));
    const TuvRef<TuvObjectArray> all = root->potentialyDuplicateChildren();
    std::vector<TuvObject*> sorted(all->begin(), all->end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](TuvObject* a, TuvObject* b) { return TuvNode_sortByLogicalSize(&a, &b) < 0; });
    std::vector<std::uint32_t> wanted;
    for (const TuvObject* object : sorted) wanted.push_back(object->objectID());
    const TuvRef<TuvObjectArray> groups = root->potentialyDuplicateFiles();
    EXPECT_EQ(idsOf(TuvNodeMD5Hash::flatenArray(groups.get()).get()), wanted);
}

}  // namespace
}  // namespace kavaro
