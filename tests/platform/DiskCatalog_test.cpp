#include "platform/DiskCatalog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <numeric>
#include <set>

#include "TempFolder.h"
#include "platform/CatalogListing.h"
#include "platform/Environment.h"

namespace kavaro {
namespace {

std::shared_ptr<Catalog> diskCatalog(const std::string& root) {
    return Catalog::forRoot(root, {});
}

struct stat statOf(const std::string& path) {
    struct stat about {};
    EXPECT_EQ(lstat(path.c_str(), &about), 0) << path;
    return about;
}

int openFiles() {
    int files = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (folder && readdir(folder)) ++files;
    if (folder) closedir(folder);
    return files;
}

class DiskCatalogCounts : public testing::TestWithParam<int> {};

// Every entry once, never more than 16 a call, whatever number of calls and of buffers it takes.
TEST_P(DiskCatalogCounts, deliversEveryEntryOnce) {
    TempFolder temp;
    std::set<std::string> names;
    for (int i = 0; i < GetParam(); ++i) {
        names.insert(std::to_string(i) + (i % 3 == 0 ? "-with-a-much-longer-name-than-the-others-have" : ""));
    }
    for (const std::string& name : names) close(open(temp.path(name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    const CatalogListing listing = listPath(*diskCatalog(temp.path()), temp.path());
    EXPECT_EQ(listing.status, CatalogStatus::noMoreItems);
    EXPECT_EQ(listing.error, 0);
    EXPECT_EQ(listing.unreadableEntries, 0);
    EXPECT_FALSE(listing.hasDuplicates);
    std::set<std::string> seen;
    for (const auto& [name, entry] : listing.entries) seen.insert(name);
    EXPECT_EQ(seen, names);
    for (const int count : listing.counts) EXPECT_LE(count, 16);
    EXPECT_EQ(std::accumulate(listing.counts.begin(), listing.counts.end(), 0), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Sizes, DiskCatalogCounts, testing::Values(0, 1, 15, 16, 17, 32, 100, 6000));

TEST(DiskCatalog, entriesSayWhatTheDiskSays) {
    TempFolder temp;
    temp.write("content", std::string(5000, 'x'));
    temp.write("empty", "");
    temp.write("sparse", "x");
    ASSERT_EQ(truncate(temp.path("sparse").c_str(), 10000000), 0);
    temp.makeFolder("folder");
    const CatalogListing listing = listPath(*diskCatalog(temp.path()), temp.path());
    ASSERT_EQ(listing.entries.size(), 4u);
    for (const std::string name : {"content", "empty", "sparse"}) {
        const struct stat about = statOf(temp.path(name));
        EXPECT_FALSE(listing[name].isDirectory) << name;
        EXPECT_EQ(listing[name].logicalSize, static_cast<std::uint64_t>(about.st_size)) << name;
        EXPECT_EQ(listing[name].physicalSize, static_cast<std::uint64_t>(about.st_blocks) * 512) << name;
        EXPECT_EQ(listing[name].contentModDate.lowSeconds, catalogDate(about.st_mtime).lowSeconds) << name;
        EXPECT_FALSE(listing[name].isExcluded) << name;
    }
    EXPECT_EQ(listing["content"].logicalSize, 5000u);
    EXPECT_EQ(listing["sparse"].logicalSize, 10000000u);
    EXPECT_LT(listing["sparse"].physicalSize, 1000000u);
    const CatalogEntry& folder = listing["folder"];
    EXPECT_TRUE(folder.isDirectory);
    EXPECT_FALSE(folder.isExcluded);
    EXPECT_EQ(folder.reason, nullptr);
    EXPECT_EQ(folder.logicalSize, 0u);
    EXPECT_EQ(folder.physicalSize, 0u);
}

TEST(DiskCatalog, nodeIDIsTheInode) {
    TempFolder temp;
    temp.write("file", "x");
    temp.makeFolder("folder");
    auto catalog = diskCatalog(temp.path());
    const CatalogListing listing = listPath(*catalog, temp.path());
    for (const std::string name : {"file", "folder"}) {
        const struct stat about = statOf(temp.path(name));
        if (about.st_ino < NodeIdentity::kFirstDerived) {
            EXPECT_EQ(listing[name].nodeID, about.st_ino) << name;
        } else {
            EXPECT_GE(listing[name].nodeID, NodeIdentity::kFirstDerived) << name;
        }
        CatalogStat single;
        int error = 0;
        ASSERT_TRUE(catalog->stat(temp.path(name), &single, &error));
        EXPECT_EQ(single.nodeID, listing[name].nodeID) << name;
    }
    EXPECT_EQ(listPath(*catalog, temp.path())["file"].nodeID, listing["file"].nodeID);
}

TEST(DiskCatalog, hardLinksShareTheirID) {
    TempFolder temp;
    temp.write("one", "x");
    temp.write("other", "x");
    ASSERT_EQ(link(temp.path("one").c_str(), temp.path("two").c_str()), 0);
    const CatalogListing listing = listPath(*diskCatalog(temp.path()), temp.path());
    EXPECT_EQ(listing["one"].nodeID, listing["two"].nodeID);
    EXPECT_NE(listing["one"].nodeID, listing["other"].nodeID);
}

TEST(DiskCatalog, everythingButFoldersIsAFile) {
    TempFolder temp;
    temp.makeFolder("folder");
    ASSERT_EQ(symlink("folder", temp.path("link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere at all", temp.path("dangling").c_str()), 0);
    ASSERT_EQ(mkfifo(temp.path("fifo").c_str(), 0600), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(temp.path("socket").size(), sizeof address.sun_path);
    temp.path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(listener);

    auto catalog = diskCatalog(temp.path());
    const CatalogListing listing = listPath(*catalog, temp.path());
    ASSERT_EQ(listing.entries.size(), 5u);
    EXPECT_TRUE(listing["folder"].isDirectory);
    for (const std::string name : {"link", "dangling", "fifo", "socket"}) {
        EXPECT_FALSE(listing[name].isDirectory) << name;
        FileReference reference;
        int error = 0;
        EXPECT_TRUE(catalog->reference(temp.path(name), &reference, &error)) << name;
        EXPECT_FALSE(reference.isDirectory) << name;
        EXPECT_EQ(reference.fd, -1) << name;
        EXPECT_EQ(catalog->openIterator(std::move(reference), &error), nullptr) << name;
        EXPECT_EQ(error, ENOTDIR) << name;
    }
    EXPECT_EQ(listing["dangling"].logicalSize, 14u);
}

TEST(DiskCatalog, keepsTheBytesOfNames) {
    TempFolder temp;
    const std::set<std::string> names = {"new\nline", "\xff\xfe not utf-8", " ", "...", "-rf", std::string(255, 'n')};
    for (const std::string& name : names) {
        temp.makeFolder(name);
        temp.write(name + "/in", "x");
    }
    auto catalog = diskCatalog(temp.path());
    const CatalogListing listing = listPath(*catalog, temp.path());
    EXPECT_EQ(listing.entries.size(), names.size());
    for (const std::string& name : names) {
        EXPECT_TRUE(listing.has(name)) << name;
        EXPECT_TRUE(listPath(*catalog, temp.path(name)).has("in")) << name;
    }
}

TEST(DiskCatalog, carriesDates) {
    TempFolder temp;
    auto catalog = diskCatalog(temp.path());
    for (const time_t wanted : {-2082844800L, -2082844801L, -1L, 0L, 2212122495L, 2212122496L, 4102444800L}) {
        temp.write("file", "x");
        const timespec times[2] = {{wanted, 0}, {wanted, 999999999}};
        ASSERT_EQ(utimensat(AT_FDCWD, temp.path("file").c_str(), times, 0), 0);
        const time_t kept = statOf(temp.path("file")).st_mtime;  // a file system may hold fewer years
        const UTCDateTime date = listPath(*catalog, temp.path())["file"].contentModDate;
        const UTCDateTime expected = catalogDate(kept);
        EXPECT_EQ(date.lowSeconds, expected.lowSeconds) << wanted;
        EXPECT_EQ(date.highSeconds, expected.highSeconds) << wanted;
        EXPECT_EQ(date.fraction, expected.fraction) << wanted;
        CatalogStat single;
        int error = 0;
        ASSERT_TRUE(catalog->stat(temp.path("file"), &single, &error));
        EXPECT_EQ(single.modificationSeconds, kept);
    }
}

TEST(DiskCatalog, leavesOutWhatVanished) {
    TempFolder temp;
    for (int i = 0; i < 40; ++i) temp.write("file" + std::to_string(i), "");
    auto catalog = diskCatalog(temp.path());
    FileReference reference;
    int error = 0;
    ASSERT_TRUE(catalog->reference(temp.path(), &reference, &error));
    auto iterator = catalog->openIterator(std::move(reference), &error);
    CatalogEntry entries[CatalogIterator::kEntriesPerCall];
    int count = 0;
    ASSERT_EQ(iterator->nextEntries(entries, &count), CatalogStatus::ok);
    ASSERT_EQ(count, 16);
    TempFolder::removeContents(temp.path());  // the other names are in the buffer
    EXPECT_EQ(iterator->nextEntries(entries, &count), CatalogStatus::noMoreItems);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(iterator->unreadableEntries(), 0);
    EXPECT_EQ(iterator->error(), 0);
}

TEST(DiskCatalog, reportsAFolderThatVanishedWhileOpen) {
    TempFolder temp;
    const std::string folder = temp.makeFolder("folder");
    auto catalog = diskCatalog(temp.path());
    FileReference reference;
    int error = 0;
    ASSERT_TRUE(catalog->reference(folder, &reference, &error));
    ASSERT_EQ(rmdir(folder.c_str()), 0);
    auto iterator = catalog->openIterator(std::move(reference), &error);
    ASSERT_TRUE(iterator);
    const CatalogListing listing = listAll(*iterator);
    EXPECT_EQ(listing.status, CatalogStatus::error);
    EXPECT_EQ(listing.error, ENOENT);
    EXPECT_EQ(listAll(*iterator).status, CatalogStatus::error);  // and it stays so
    EXPECT_FALSE(catalog->reference(folder, &reference, &error));
    EXPECT_EQ(error, ENOENT);
}

TEST(DiskCatalog, saysWhichFoldersMayNotBeRead) {
    TempFolder temp;
    ASSERT_EQ(chmod(temp.path().c_str(), 0755), 0);
    temp.makeFolder("locked");
    temp.makeFolder("locked/inner");
    temp.makeFolder("names");
    temp.write("names/a", "x");
    temp.makeFolder("names/b");
    temp.makeFolder("way");
    temp.makeFolder("way/inner");
    temp.write("way/inner/file", "x");
    ASSERT_EQ(chmod(temp.path("locked").c_str(), 0000), 0);
    ASSERT_EQ(chmod(temp.path("names").c_str(), 0444), 0);
    ASSERT_EQ(chmod(temp.path("way").c_str(), 0111), 0);

    EXPECT_EQ(inChild(true,
                      [&] {
                          Findings findings;
                          auto catalog = diskCatalog(temp.path());
                          FileReference reference;
                          int error = 0;
                          findings.expect(catalog->reference(temp.path("locked"), &reference, &error), "locked exists");
                          findings.expect(reference.isDirectory, "locked is a folder");
                          findings.expect(reference.openError == EACCES, "why locked is closed");
                          findings.expect(!catalog->openIterator(std::move(reference), &error),
                                          "locked has no listing");
                          findings.expect(error == EACCES, "why locked has no listing");
                          findings.expect(pathOfDescriptor(reference.fd) == temp.path("locked"), "where locked is");
                          findings.expect(!catalog->reference(temp.path("locked/inner"), &reference, &error), "inner");
                          findings.expect(error == EACCES, "why inner is not there");

                          const CatalogListing names = listPath(*catalog, temp.path("names"));
                          findings.expect(names.status == CatalogStatus::noMoreItems, "names are listed");
                          findings.expect(names.entries.empty() && names.unreadableEntries == 2, "names are counted");
                          findings.expect(names.error == EACCES, "why names cannot be read");

                          findings.expect(listPath(*catalog, temp.path("way")).error == EACCES, "way is closed");
                          findings.expect(listPath(*catalog, temp.path("way/inner")).has("file"), "a way through");
                          findings.expect(listPath(*catalog, temp.path()).entries.size() == 3, "all three are listed");
                          return findings.text();
                      }),
              "");
}

TEST(DiskCatalog, statFollowsAndFails) {
    TempFolder temp;
    temp.makeFolder("folder");
    temp.write("file", "12345");
    ASSERT_EQ(symlink("folder", temp.path("link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", temp.path("dangling").c_str()), 0);
    auto catalog = diskCatalog(temp.path());
    CatalogStat result;
    int error = 0;
    ASSERT_TRUE(catalog->stat(temp.path("link"), &result, &error));
    EXPECT_TRUE(result.isDirectory);
    ASSERT_TRUE(catalog->stat(temp.path("file"), &result, &error));
    const struct stat about = statOf(temp.path("file"));
    EXPECT_FALSE(result.isDirectory);
    EXPECT_EQ(result.size, 5u);
    EXPECT_EQ(result.blockSize, static_cast<std::uint64_t>(about.st_blksize));
    EXPECT_EQ(result.modificationSeconds, about.st_mtime);
    const std::string withNul = temp.path("file") + std::string("\0x", 2);
    for (const std::string& path : {temp.path("dangling"), temp.path("absent"), std::string(), withNul}) {
        EXPECT_FALSE(catalog->stat(path, &result, &error)) << path;
        EXPECT_EQ(error, ENOENT) << path;
    }
    EXPECT_FALSE(catalog->stat(temp.path("file/in"), &result, &error));
    EXPECT_EQ(error, ENOTDIR);
}

TEST(DiskCatalog, givesEverythingBack) {
    TempFolder temp;
    temp.makeFolder("folder");
    temp.write("file", "");
    const int before = openFiles();
    std::unique_ptr<CatalogIterator> survivor;
    {
        auto catalog = diskCatalog(temp.path());
        for (int i = 0; i < 20; ++i) {
            std::vector<std::unique_ptr<CatalogIterator>> alive;
            for (const std::string& path : {temp.path(), temp.path("folder"), temp.path("file"), temp.path("absent")}) {
                FileReference reference;
                int error = 0;
                if (!catalog->reference(path, &reference, &error)) continue;
                if (auto iterator = catalog->openIterator(std::move(reference), &error)) {
                    alive.push_back(std::move(iterator));
                }
            }
            ASSERT_EQ(alive.size(), 2u);
            EXPECT_EQ(listAll(*alive[0]).entries.size(), 2u);
            survivor = std::move(alive[0]);
        }
        FileReference reference;
        int error = 0;
        ASSERT_TRUE(catalog->reference(temp.path(), &reference, &error));
        survivor = catalog->openIterator(std::move(reference), &error);
    }
    EXPECT_EQ(listAll(*survivor).entries.size(), 2u);  // it outlives the catalog
    survivor.reset();
    EXPECT_EQ(openFiles(), before);
}

}  // namespace
}  // namespace kavaro
