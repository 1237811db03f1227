#include "client/DigestCache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "TempFolder.h"
#include "cleanup/DuplicatesTest.h"
#include "platform/MD5.h"

namespace kavaro {
namespace {

constexpr std::int64_t kNow = 1'700'000'000'000'000'000;

FileIdentity identity(std::uint64_t inode) {
    return {3, inode, 100, kNow - 90'000'000'000, kNow - 80'000'000'000};
}

class DigestCacheTest : public testing::Test {
  protected:
    std::string path() const { return _folder.path("cache/kavaro/digests"); }
    void saveSome() {
        DigestCache cache(path());
        cache.add(*newRecord(1, "11", 5, "/d/a"), identity(1), kNow);
        cache.add(*newRecord(2, "22", 6, "/d/\xff\n"), identity(2), kNow);
        cache.add(*newRecord(3, "33", 7, "/e"), identity(3), kNow);
        EXPECT_EQ(cache.save(), 0);
    }
    TempFolder _folder;
};

TEST_F(DigestCacheTest, KnowsWhatItWasTold) {
    saveSome();
    DigestCache cache(path());
    EXPECT_EQ(cache.find("/d/a", identity(1)), std::nullopt) << "not loaded";
    cache.load();
    EXPECT_EQ(cache.count(), 3u);
    EXPECT_EQ(cache.find("/d/a", identity(1)), "11");
    EXPECT_EQ(cache.find("/d/\xff\n", identity(2)), "22");
    EXPECT_EQ(cache.find("/e", identity(3)), "33");
    EXPECT_EQ(cache.find("/f", identity(3)), std::nullopt);
}

TEST_F(DigestCacheTest, IsPrivate) {
    saveSome();
    struct stat info {};
    ASSERT_EQ(stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    ASSERT_EQ(stat(_folder.path("cache").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u);
}

TEST_F(DigestCacheTest, AnyOtherIdentityIsAnotherFile) {
    saveSome();
    DigestCache cache(path());
    cache.load();
    for (int field = 0; field < 5; ++field) {
        FileIdentity other = identity(1);
        if (field == 0) other.device = 4;
        if (field == 1) other.inode = 4;
        if (field == 2) other.size = 99;
        if (field == 3) other.modified += 1;
        if (field == 4) other.changed += 1;
        EXPECT_EQ(cache.find("/d/a", other), std::nullopt) << field;
    }
}

// Within the tick of the file system's clock it may change once more and look the same.
TEST_F(DigestCacheTest, WhatChangedJustNowIsNotKept) {
    DigestCache cache(path());
    for (const bool isContent : {true, false}) {
        FileIdentity fresh = identity(1);
        (isContent ? fresh.modified : fresh.changed) = kNow - DigestCache::kUncertainNanoseconds + 1;
        cache.add(*newRecord(1, "11", 5, "/a"), fresh, kNow);
        EXPECT_EQ(cache.count(), 0u);
    }
    FileIdentity old = identity(1);
    old.changed = kNow - DigestCache::kUncertainNanoseconds;
    cache.add(*newRecord(1, "11", 5, "/a"), old, kNow);
    EXPECT_EQ(cache.count(), 1u);
    cache.add(*newRecord(2, "", 5, "/b"), identity(2), kNow);
    EXPECT_EQ(cache.count(), 1u) << "there is no digest";
}

TEST_F(DigestCacheTest, ForgetsWhatWasNotUsedBelowAFolder) {
    saveSome();
    DigestCache cache(path());
    cache.load();
    cache.find("/d/a", identity(1));
    cache.forgetUnusedBelow("/d");
    EXPECT_EQ(cache.count(), 2u);
    EXPECT_EQ(cache.save(), 0);
    DigestCache again(path());
    again.load();
    EXPECT_EQ(again.find("/d/a", identity(1)), "11");
    EXPECT_EQ(again.find("/d/\xff\n", identity(2)), std::nullopt);
    again.forgetUnusedBelow("/");
    EXPECT_EQ(again.count(), 1u);
    again.forgetUnusedBelow("/d/a");
    again.forgetUnusedBelow("/d/");
    EXPECT_EQ(again.count(), 1u);
}

TEST_F(DigestCacheTest, IsWrittenWhenThereIsSomethingNew) {
    saveSome();
    DigestCache cache(path());
    cache.load();
    const std::string before = _folder.read("cache/kavaro/digests");
    ASSERT_EQ(unlink(path().c_str()), 0);
    cache.find("/e", identity(3));
    EXPECT_EQ(cache.save(), 0);
    EXPECT_EQ(_folder.read("cache/kavaro/digests"), "") << "nothing was new";
    cache.forgetUnusedBelow("/");
    EXPECT_EQ(cache.save(), 0);
    EXPECT_LT(_folder.read("cache/kavaro/digests").size(), before.size());
}

TEST_F(DigestCacheTest, WithoutAPlaceNothingIsKept) {
    DigestCache cache("");
    cache.load();
    cache.add(*newRecord(1, "11", 5, "/a"), identity(1), kNow);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(cache.save(), 0);
}

TEST_F(DigestCacheTest, APlaceThatCannotBeWrittenIsAnError) {
    _folder.write("cache", "a file");
    DigestCache cache(path());
    cache.load();
    cache.add(*newRecord(1, "11", 5, "/a"), identity(1), kNow);
    EXPECT_EQ(cache.save(), ENOTDIR);
}

TEST_F(DigestCacheTest, ADamagedFileIsAnEmptyOne) {
    saveSome();
    const std::string whole = _folder.read("cache/kavaro/digests");
    const auto countOf = [&](const std::string& bytes) {
        _folder.write("cache/kavaro/digests", bytes);
        DigestCache cache(path());
        cache.load();
        return cache.count();
    };
    EXPECT_EQ(countOf(whole), 3u);
    for (std::size_t length = 0; length < whole.size(); ++length) EXPECT_EQ(countOf(whole.substr(0, length)), 0u);
    EXPECT_EQ(countOf(whole + "x"), 0u);
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string altered = whole;
        altered[bit / 8] = static_cast<char>(altered[bit / 8] ^ (1 << bit % 8));
        EXPECT_EQ(countOf(altered), 0u) << bit;
    }
}

// With a right check sum, as somebody who wants to do harm would give it.
TEST_F(DigestCacheTest, HostileCountsAreAnEmptyFile) {
    saveSome();
    const std::string whole = _folder.read("cache/kavaro/digests");
    const std::size_t body = whole.find('\n') + 1 + 16;
    for (std::uint64_t count :
         {std::uint64_t{0}, std::uint64_t{2}, std::uint64_t{4}, ~std::uint64_t{0}, std::uint64_t{1} << 60}) {
        for (const std::size_t field : {std::size_t{0}, std::size_t{8}}) {
            std::string altered = whole;
            std::memcpy(altered.data() + body + field, &count, sizeof count);
            const MD5Digest digest = md5Of(bytesOf(std::string_view(altered).substr(body)));
            std::memcpy(altered.data() + body - 16, digest.data(), 16);
            _folder.write("cache/kavaro/digests", altered);
            DigestCache cache(path());
            cache.load();
            EXPECT_EQ(cache.count(), 0u) << count << " " << field;
        }
    }
}

TEST_F(DigestCacheTest, WhatIsNoFileIsAnEmptyOne) {
    _folder.makeFolder("cache");
    _folder.makeFolder("cache/kavaro");
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    DigestCache cache(path());
    cache.load();
    EXPECT_EQ(cache.count(), 0u);
}

}  // namespace
}  // namespace kavaro
