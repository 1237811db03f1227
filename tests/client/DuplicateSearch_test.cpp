#include "client/DuplicateSearch.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <random>

#include "TempFolder.h"
#include "cleanup/DuplicatesTest.h"
#include "client/ContentSample.h"
#include "platform/Clock.h"
#include "platform/MD5.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Contents that only a digest tells apart.
std::string alike(std::string_view end) {
    return std::string(kSampleBytes, 'x').append(end);
}

// Folders on the disk and their trees, as if they had been measured.
class DuplicateSearchTest : public testing::Test {
  protected:
    TuvRef<TuvDirNode> measured(const std::string& folder) const {
        auto root = newFolder(1, folder);
        fill(*root, folder);
        return root;
    }
    void add(DuplicateSearch& search, const std::string& folder) { search.addFolder(measured(folder)); }

    // Digests what is asked for, and shows how much that was.
    std::vector<DuplicateGroup> finish(DuplicateSearch& search) {
        const TuvRef<TuvObjectArray> records = TuvNodeMD5Hash::md5HashesFromTuvNodes(search.nodesToDigest());
        _digested = records->count();
        TuvNodeMD5Hash::loadMD5Hash(records.get());
        return search.finish(records.get(), _cache);
    }
    std::vector<DuplicateGroup> search(const std::string& folder, DigestCache* cache = nullptr,
                                       std::uint64_t smallest = 1) {
        _search = std::make_unique<DuplicateSearch>(smallest);
        add(*_search, folder);
        _search->prepare(cache);
        return finish(*_search);
    }
    // Names below the temporary folder.
    std::vector<std::string> namesOf(const DuplicateGroup& group) const {
        std::vector<std::string> names;
        for (const DuplicateFile& file : group.files) names.push_back(file.path.substr(_folder.path().size() + 1));
        return names;
    }
    std::vector<std::vector<std::string>> namesOf(const std::vector<DuplicateGroup>& groups) const {
        std::vector<std::vector<std::string>> names;
        for (const DuplicateGroup& group : groups) names.push_back(namesOf(group));
        return names;
    }
    void link(const char* from, const char* to) const {
        ASSERT_EQ(::link(_folder.path(from).c_str(), _folder.path(to).c_str()), 0);
    }

    LogCapture _log;
    TempFolder _folder;
    TempFolder _cacheFolder;
    DigestCache _cache{_cacheFolder.path("digests")};
    std::unique_ptr<DuplicateSearch> _search;
    int _digested = 0;

  private:
    // With IDs that say nothing over more than one tree.
    void fill(TuvDirNode& node, const std::string& path) const {
        DIR* stream = opendir(path.c_str());
        ASSERT_NE(stream, nullptr);
        while (const dirent* entry = readdir(stream)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            struct stat info {};
            ASSERT_EQ(lstat((path + "/" + name).c_str(), &info), 0);
            const auto inode = static_cast<std::uint32_t>(info.st_ino % 1000000);
            if (S_ISDIR(info.st_mode)) {
                fill(*addFolder(&node, newFolder(inode, name)), path + "/" + name);
            } else {
                TuvNode* file = addFile(&node, newFile(inode, name, static_cast<std::uint64_t>(info.st_size),
                                                       static_cast<std::uint64_t>(info.st_blocks) * 512));
                file->setContentModDate(static_cast<double>(info.st_mtime) - TuvNode::dateForJan1904());
            }
        }
        closedir(stream);
    }
};

TEST_F(DuplicateSearchTest, FindsFilesOfTheSameContent) {
    _folder.write("a1", "aaaa");
    _folder.write("b1", "bbbb");
    _folder.makeFolder("d");
    _folder.write("d/a2", "aaaa");
    _folder.write("d/b2", "bbbb");
    _folder.write("other", "cccc");
    _folder.write("alone", "alone");
    _folder.write("empty1", "");
    _folder.write("empty2", "");
    const auto groups = search(_folder.path());
    EXPECT_THAT(namesOf(groups), UnorderedElementsAre(ElementsAre("a1", "d/a2"), ElementsAre("b1", "d/b2")))
        << "also those that are not as the first of their size";
    EXPECT_EQ(groups[0].size, 4u);
    EXPECT_EQ(groups[0].digest.size(), 32u);
    EXPECT_EQ(_digested, 4) << "the other one begins otherwise";
    EXPECT_EQ(_search->candidates(), 6u) << "empty ones are too small";
    EXPECT_THAT(_search->undigested(), IsEmpty());
}

TEST_F(DuplicateSearchTest, TheLargestWasteComesFirst) {
    _folder.write("small1", std::string(5000, 's'));
    _folder.write("small2", std::string(5000, 's'));
    _folder.write("small3", std::string(5000, 's'));
    _folder.write("large1", std::string(100000, 'l'));
    _folder.write("large2", std::string(100000, 'l'));
    const auto groups = search(_folder.path());
    EXPECT_THAT(namesOf(groups),
                ElementsAre(ElementsAre("large1", "large2"), ElementsAre("small1", "small2", "small3")));
    struct stat info {};
    ASSERT_EQ(stat(_folder.path("small1").c_str(), &info), 0);
    EXPECT_EQ(groups[1].waste, 2 * static_cast<std::uint64_t>(info.st_blocks) * 512);
}

TEST_F(DuplicateSearchTest, SmallerFilesAreLeftAlone) {
    _folder.write("a1", "aaaa");
    _folder.write("a2", "aaaa");
    _folder.write("b1", "bbbbb");
    _folder.write("b2", "bbbbb");
    EXPECT_THAT(namesOf(search(_folder.path(), nullptr, 5)), ElementsAre(ElementsAre("b1", "b2")));
    EXPECT_THAT(search(_folder.path(), nullptr, 6), IsEmpty());
}

TEST_F(DuplicateSearchTest, HardLinksAreOneFileAndWasteNothing) {
    _folder.write("a", std::string(5000, 'x'));
    _folder.write("c", std::string(5000, 'x'));
    link("a", "b");
    const auto groups = search(_folder.path());
    ASSERT_THAT(namesOf(groups), ElementsAre(ElementsAre("a", "b", "c")));
    EXPECT_EQ(_digested, 2);
    EXPECT_EQ(groups[0].files[0].sameAs, -1);
    EXPECT_EQ(groups[0].files[1].sameAs, 0);
    EXPECT_EQ(groups[0].files[2].sameAs, -1);
    EXPECT_FALSE(groups[0].files[0].hasNamesElsewhere);
    EXPECT_EQ(groups[0].files[0].inode, groups[0].files[1].inode);
    EXPECT_EQ(groups[0].waste, groups[0].files[2].node->physicalSize());
}

TEST_F(DuplicateSearchTest, HardLinksAloneAreNotRead) {
    _folder.write("a", std::string(5000, 'x'));
    link("a", "b");
    const auto groups = search(_folder.path());
    ASSERT_THAT(namesOf(groups), ElementsAre(ElementsAre("a", "b")));
    EXPECT_EQ(_digested, 0);
    EXPECT_EQ(groups[0].waste, 0u);
    EXPECT_EQ(groups[0].digest, "");
}

// What is removed here does not free a file that has another name elsewhere: so that one is kept, and the others go.
TEST_F(DuplicateSearchTest, NamesElsewhereKeepAFileFromBeingFreed) {
    _folder.makeFolder("in");
    _folder.makeFolder("out");
    for (const char* name : {"in/a", "in/b", "in/c"}) _folder.write(name, std::string(5000, 'x'));
    link("in/a", "out/a");
    auto groups = search(_folder.path("in"));
    ASSERT_THAT(namesOf(groups), ElementsAre(ElementsAre("in/a", "in/b", "in/c")));
    EXPECT_TRUE(groups[0].files[0].hasNamesElsewhere);
    EXPECT_FALSE(groups[0].files[1].hasNamesElsewhere);
    EXPECT_EQ(groups[0].waste, 2 * groups[0].files[1].node->physicalSize());
    link("in/b", "out/b");
    link("in/c", "out/c");
    groups = search(_folder.path("in"));
    EXPECT_EQ(groups.at(0).waste, 0u);
}

TEST_F(DuplicateSearchTest, LinksAreNoFiles) {
    _folder.write("aaaa", "1234");
    _folder.write("b", "1234");
    ASSERT_EQ(symlink("aaaa", _folder.path("link1").c_str()), 0);  // as long as the file it leads to
    ASSERT_EQ(symlink("aaaa", _folder.path("link2").c_str()), 0);
    EXPECT_THAT(namesOf(search(_folder.path())), ElementsAre(ElementsAre("aaaa", "b")));
}

TEST_F(DuplicateSearchTest, WhatHasGoneOrChangedSinceItWasMeasuredIsLeftOut) {
    for (const char* name : {"a", "b", "c", "d"}) _folder.write(name, "1234");
    DuplicateSearch searched(1);
    add(searched, _folder.path());
    ASSERT_EQ(unlink(_folder.path("a").c_str()), 0);
    _folder.write("b", "12345");
    searched.prepare(nullptr);
    EXPECT_EQ(searched.nodesToDigest()->count(), 2);
    EXPECT_THAT(namesOf(finish(searched)), ElementsAre(ElementsAre("c", "d")));
    EXPECT_THAT(searched.undigested(), IsEmpty());
}

TEST_F(DuplicateSearchTest, FilesWithoutADigestAreTold) {
    for (const char* name : {"a", "b", "c"}) _folder.write(name, "1234");
    DuplicateSearch searched(1);
    add(searched, _folder.path());
    searched.prepare(nullptr);
    ASSERT_EQ(unlink(_folder.path("a").c_str()), 0);
    EXPECT_THAT(namesOf(finish(searched)), ElementsAre(ElementsAre("b", "c")));
    ASSERT_EQ(searched.undigested().size(), 1u);
    EXPECT_EQ(searched.undigested()[0].path, _folder.path("a"));
    EXPECT_EQ(searched.undigested()[0].reason, "No such file or directory");
}

TEST_F(DuplicateSearchTest, AChangeIsTheReasonOnlyWhereThereIsOne) {
    for (const char* name : {"a", "b"}) _folder.write(name, "1234");
    DuplicateSearch searched(1);
    add(searched, _folder.path());
    searched.prepare(nullptr);
    const auto records = TuvNodeMD5Hash::md5HashesFromTuvNodes(searched.nodesToDigest());  // nothing was read
    _folder.write("b", "12345");
    searched.finish(records.get(), _cache);
    std::map<std::string, std::string> reasons;
    for (const UndigestedFile& file : searched.undigested()) reasons[file.path] = file.reason;
    EXPECT_THAT(reasons, ElementsAre(testing::Pair(_folder.path("a"), "it could not be read"),
                                     testing::Pair(_folder.path("b"), "it changed while it was read")));
}

// The digest of content that the file had after it was looked at: with the status from before, it would be trusted.
TEST_F(DuplicateSearchTest, WhatChangedAfterItWasLookedAtIsNotKept) {
    for (const char* name : {"a", "b"}) _folder.write(name, alike("1234"));
    for (const bool changes : {true, false}) {
        DigestCache cache(_cacheFolder.path("digests"));
        DuplicateSearch searched(1);
        add(searched, _folder.path());
        searched.setNow([] { return Clock::system().wallSeconds() + 100; });
        searched.prepare(nullptr);
        if (changes) {  // another inode: the clock may not have moved on
            ASSERT_EQ(rename(_cacheFolder.write("new", alike("5678")).c_str(), _folder.path("b").c_str()), 0);
        }
        const auto records = TuvNodeMD5Hash::md5HashesFromTuvNodes(searched.nodesToDigest());
        TuvNodeMD5Hash::loadMD5Hash(records.get());
        searched.finish(records.get(), cache);
        EXPECT_EQ(cache.count(), changes ? 1u : 2u) << "old enough";
    }
}

// IDs hold within a tree alone: here both folders have files of other contents under the same IDs.
TEST_F(DuplicateSearchTest, FoldersAreSearchedTogether) {
    _folder.makeFolder("one");
    _folder.makeFolder("two");
    _folder.write("one/a", "1234");
    _folder.write("one/b", "5678");
    _folder.write("two/a", "5678");
    _folder.write("two/b", "1234");
    link("one/a", "two/c");
    DuplicateSearch searched(1);
    for (const char* name : {"one", "two"}) {
        TuvRef<TuvDirNode> root = measured(_folder.path(name));
        std::uint32_t inode = 1;
        for (int i = 0; i < root->fileCount(); ++i) root->files()->nodeAtIndex(i)->setInode(inode++);
        searched.addFolder(std::move(root));
    }
    searched.prepare(nullptr);
    EXPECT_EQ(searched.nodesToDigest()->count(), 4);
    const auto groups = finish(searched);
    EXPECT_THAT(namesOf(groups),
                UnorderedElementsAre(ElementsAre("one/a", "two/b", "two/c"), ElementsAre("one/b", "two/a")));
    for (const DuplicateGroup& group : groups)
        if (group.files.size() == 3) {
            EXPECT_EQ(group.files[2].sameAs, 0);
            EXPECT_EQ(group.files[1].sameAs, -1);
        }
}

TEST_F(DuplicateSearchTest, AFileIsNoDuplicateOfItself) {
    _folder.makeFolder("one");
    _folder.makeFolder("one/inner");
    _folder.write("one/inner/a", "1234");
    _folder.write("one/inner/b", "5678");
    _folder.write("one/c", "1234");
    DuplicateSearch searched(1);
    for (const char* name : {"one", "one/inner", "one"}) add(searched, _folder.path(name));
    searched.prepare(nullptr);
    EXPECT_THAT(namesOf(finish(searched)), ElementsAre(ElementsAre("one/c", "one/inner/a")));
}

// Whoever keeps the first of a group and removes the others must not remove the only one there is.
TEST_F(DuplicateSearchTest, AFileBehindALinkToItsFolderIsNoDuplicateOfItself) {
    _folder.makeFolder("d1");
    _folder.makeFolder("d1/inner");
    _folder.write("d1/inner/only", "1234");
    ASSERT_EQ(symlink("d1", _folder.path("d2").c_str()), 0);
    for (const char* first : {"d1", "d1/inner", "d2"})
        for (const char* second : {"d2", "d2/inner"}) {
            DuplicateSearch searched(1);
            add(searched, _folder.path(first));
            add(searched, _folder.path(second));
            searched.prepare(nullptr);
            EXPECT_EQ(searched.nodesToDigest()->count(), 0) << first << " " << second;
            EXPECT_THAT(finish(searched), IsEmpty()) << first << " " << second;
        }
}

TEST_F(DuplicateSearchTest, ANameIsCountedOnceWhateverTheWayToIt) {
    _folder.makeFolder("d1");
    _folder.makeFolder("out");
    _folder.write("d1/a", "1234");
    _folder.write("d1/b", "1234");
    link("d1/a", "out/a");
    ASSERT_EQ(symlink("d1", _folder.path("d2").c_str()), 0);
    DuplicateSearch searched(1);
    add(searched, _folder.path("d1"));
    add(searched, _folder.path("d2"));
    searched.prepare(nullptr);
    const auto groups = finish(searched);
    ASSERT_THAT(namesOf(groups), ElementsAre(ElementsAre("d1/a", "d1/b")));
    EXPECT_TRUE(groups[0].files[0].hasNamesElsewhere) << "the one that was reached twice is no second one";
    EXPECT_FALSE(groups[0].files[1].hasNamesElsewhere);
    EXPECT_EQ(groups[0].files[0].sameAs, -1);
    EXPECT_EQ(groups[0].files[1].sameAs, -1);
}

TEST_F(DuplicateSearchTest, WhatIsMountedTwiceIsNoDuplicate) {
    for (const char* name : {"d1", "d2"}) _folder.makeFolder(name);
    _folder.write("d1/only", "1234");
    _folder.write("d1/mounted", "5678");
    _folder.write("point", "");
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(_folder.path("d1").c_str(), _folder.path("d2").c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        mount(_folder.path("d1/mounted").c_str(), _folder.path("point").c_str(), nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "mounts cannot be made here";
    }
    EXPECT_THAT(namesOf(search(_folder.path())), IsEmpty());
    link("d1/only", "d1/second");
    EXPECT_THAT(namesOf(search(_folder.path())), ElementsAre(testing::SizeIs(2))) << "of two names, each once";
    umount(_folder.path("point").c_str());
    umount(_folder.path("d2").c_str());
}

// Sets the time of the last change long back, as far as that is possible: by asking the cache as if it were later.
class CachedSearchTest : public DuplicateSearchTest {
  protected:
    void SetUp() override {
        for (const char* name : {"a", "b", "c"}) _folder.write(name, alike("1234"));
        addToCache();
    }
    // What a search some seconds from now would have kept.
    void addToCache() {
        for (const char* name : {"a", "b", "c"}) {
            const std::string path = _folder.path(name);
            struct stat info {};
            ASSERT_EQ(lstat(path.c_str(), &info), 0);
            const auto nano = [](const struct timespec& time) { return time.tv_sec * 1'000'000'000 + time.tv_nsec; };
            _cache.add(*newRecord(1, md5Text(md5Of(bytesOf(alike("1234")))), 0, path),
                       {info.st_dev, info.st_ino, static_cast<std::uint64_t>(info.st_size), nano(info.st_mtim),
                        nano(info.st_ctim)},
                       nano(info.st_ctim) + DigestCache::kUncertainNanoseconds);
        }
    }
};

TEST_F(CachedSearchTest, KnownFilesAreNotReadAgain) {
    EXPECT_THAT(namesOf(search(_folder.path(), &_cache)), ElementsAre(ElementsAre("a", "b", "c")));
    EXPECT_EQ(_digested, 0);
    EXPECT_THAT(namesOf(search(_folder.path(), nullptr)), ElementsAre(ElementsAre("a", "b", "c")));
    EXPECT_EQ(_digested, 3);
}

TEST_F(CachedSearchTest, AChangeThatHidesItselfIsSeen) {
    struct stat before {};
    ASSERT_EQ(stat(_folder.path("b").c_str(), &before), 0);
    _folder.write("b", alike("5678"));
    const struct timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, _folder.path("b").c_str(), times, 0), 0);
    EXPECT_THAT(namesOf(search(_folder.path(), &_cache)), ElementsAre(ElementsAre("a", "c")));
    EXPECT_EQ(_digested, 1);
}

TEST_F(CachedSearchTest, AnotherFileOfTheSameNameIsRead) {
    _folder.write("new", alike("5678"));
    ASSERT_EQ(rename(_folder.path("new").c_str(), _folder.path("c").c_str()), 0);
    EXPECT_THAT(namesOf(search(_folder.path(), &_cache)), ElementsAre(ElementsAre("a", "b")));
    EXPECT_EQ(_digested, 1);
}

TEST_F(CachedSearchTest, WhatHasChangedWhileItWasReadIsNotKept) {
    DigestCache empty(_cacheFolder.path("other"));
    DuplicateSearch searched(1);
    add(searched, _folder.path());
    searched.prepare(&empty);
    const auto records = TuvNodeMD5Hash::md5HashesFromTuvNodes(searched.nodesToDigest());
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    searched.finish(records.get(), empty);
    EXPECT_EQ(empty.count(), 0u) << "all three were written a moment ago";
}

TEST_F(DuplicateSearchTest, FilesThatBeginOrEndOtherwiseAreNotDigested) {
    std::string large(kLargeFileBytes + 1, 'l');
    _folder.write("large1", large);
    large.back() = 'm';
    _folder.write("large2", large);
    _folder.write("small1", "1" + alike(""));
    _folder.write("small2", "2" + alike(""));
    EXPECT_THAT(search(_folder.path()), IsEmpty());
    EXPECT_EQ(_digested, 0);
    EXPECT_THAT(_search->undigested(), IsEmpty()) << "they need none";
}

TEST_F(DuplicateSearchTest, HardLinksAreLeftOfAGroupThatFallsApart) {
    _folder.write("a", "1234");
    link("a", "b");
    _folder.write("c", "5678");
    const auto groups = search(_folder.path());
    ASSERT_THAT(namesOf(groups), ElementsAre(ElementsAre("a", "b")));
    EXPECT_EQ(groups[0].waste, 0u);
    EXPECT_EQ(groups[0].files[1].sameAs, 0);
    EXPECT_EQ(_digested, 0);
}

TEST_F(DuplicateSearchTest, TheLookCanBeGivenUp) {
    for (int i = 0; i < 600; ++i) _folder.write(std::to_string(1000 + i), "1234");
    DuplicateSearch searched(1);
    add(searched, _folder.path());
    std::vector<std::uint64_t> asked;
    EXPECT_FALSE(searched.prepare(nullptr, [&](const SampleProgress& progress) {
        EXPECT_EQ(progress.totalFiles, 600u);
        asked.push_back(progress.files);
        return asked.size() < 2;
    }));
    EXPECT_THAT(asked, ElementsAre(0, 512));
    EXPECT_EQ(searched.nodesToDigest()->count(), 0);
}

// Random contents beside a map from contents to names.
TEST_F(DuplicateSearchTest, FindsWhatASimpleTwinFinds) {
    for (unsigned seed = 1; seed <= 25; ++seed) {
        TempFolder folder;
        std::mt19937 random(seed);
        std::map<std::string, std::vector<std::string>> twin;
        for (unsigned i = 0; i < 40; ++i) {
            const std::string content(random() % 4, static_cast<char>('a' + random() % 3));
            const std::string name = std::to_string(100 + i);
            folder.write(name, content);
            if (!content.empty()) twin[content].push_back(folder.path(name));
        }
        std::vector<std::vector<std::string>> wanted, found;
        for (const auto& [content, paths] : twin)
            if (paths.size() > 1) wanted.push_back(paths);
        for (const DuplicateGroup& group : search(folder.path())) {
            found.emplace_back();
            for (const DuplicateFile& file : group.files) found.back().push_back(file.path);
        }
        EXPECT_THAT(found, testing::UnorderedElementsAreArray(wanted)) << seed;
    }
}

}  // namespace
}  // namespace kavaro
