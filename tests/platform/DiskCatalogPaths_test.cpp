#include <gtest/gtest.h>
#include <time.h>

#include <filesystem>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/CatalogListing.h"
#include "platform/DiskCatalog.h"

namespace kavaro {
namespace {

// The ways to a folder, with openat2 and without.
class DiskCatalogPaths : public testing::TestWithParam<bool> {
  protected:
    std::shared_ptr<Catalog> catalogFor(const std::string& root) const {
        return std::make_shared<DiskCatalog>(root, Catalog::Options{},
                                             FolderOpener(GetParam() && FolderOpener::kernelHasOpenat2()));
    }
    // The reference's errno when there is none, otherwise 0; the reference in `result`.
    static int refer(Catalog& catalog, const std::string& path, FileReference* result) {
        int error = 0;
        return catalog.reference(path, result, &error) ? 0 : error;
    }
};

TEST_P(DiskCatalogPaths, tellsWhatIsNotAFolder) {
    TempFolder temp;
    temp.write("file", "");
    auto catalog = catalogFor(temp.path());
    FileReference reference;
    EXPECT_EQ(refer(*catalog, temp.path("file"), &reference), 0);
    EXPECT_FALSE(reference.isDirectory);
    EXPECT_EQ(reference.openError, 0);
    EXPECT_EQ(refer(*catalog, temp.path("absent"), &reference), ENOENT);
    EXPECT_EQ(refer(*catalog, temp.path("absent/below"), &reference), ENOENT);
    EXPECT_EQ(refer(*catalog, temp.path("file/below"), &reference), ENOTDIR);
    EXPECT_EQ(refer(*catalog, temp.path(std::string(256, 'n')), &reference), ENAMETOOLONG);
    EXPECT_EQ(refer(*catalog, "", &reference), ENOENT);
    EXPECT_EQ(refer(*catalog, temp.path() + std::string("\0x", 2), &reference), ENOENT);
}

TEST_P(DiskCatalogPaths, takesSlashesAsTheyCome) {
    TempFolder temp;
    temp.makeFolder("a");
    temp.makeFolder("a/b");
    temp.write("a/b/file", "");
    for (const std::string& root : {temp.path(), temp.path() + "/", temp.path() + "///", std::string("/")}) {
        auto catalog = catalogFor(root);
        for (const std::string below : {"a/b", "/a/b", "a//b", "a/b/", "a/b///"}) {
            EXPECT_TRUE(listPath(*catalog, temp.path(below)).has("file")) << root << " " << below;
        }
        EXPECT_TRUE(listPath(*catalog, root).status == CatalogStatus::noMoreItems) << root;
    }
    EXPECT_TRUE(listPath(*catalogFor(temp.path()), temp.path()).has("a"));
    EXPECT_TRUE(listPath(*catalogFor(temp.path()), temp.path() + "//").has("a"));
}

TEST_P(DiskCatalogPaths, listsOutsideItsRootAndWithoutOne) {
    TempFolder temp;
    temp.makeFolder("root");
    temp.makeFolder("roots");  // the root's path is the beginning of this one
    temp.write("roots/file", "");
    ASSERT_EQ(symlink("roots", temp.path("link").c_str()), 0);
    for (const std::string& root : {temp.path("root"), std::string(), temp.path("absent"), temp.path("roots/file")}) {
        auto catalog = catalogFor(root);
        EXPECT_TRUE(listPath(*catalog, temp.path("roots")).has("file")) << root;
        FileReference reference;
        EXPECT_EQ(refer(*catalog, temp.path("link"), &reference), 0) << root;
        EXPECT_FALSE(reference.isDirectory) << root;
        EXPECT_EQ(refer(*catalog, temp.path("nothing"), &reference), ENOENT) << root;
    }
}

TEST_P(DiskCatalogPaths, aRootMayBeALink) {
    TempFolder temp;
    temp.makeFolder("real");
    temp.makeFolder("real/sub");
    temp.write("real/sub/file", "");
    ASSERT_EQ(symlink("real", temp.path("link").c_str()), 0);
    for (const std::string root : {"link", "link/"}) {
        auto catalog = catalogFor(temp.path(root));
        CatalogStat about;
        int error = 0;
        ASSERT_TRUE(catalog->stat(temp.path(root), &about, &error));
        EXPECT_TRUE(about.isDirectory);
        EXPECT_TRUE(listPath(*catalog, temp.path(root)).has("sub")) << root;
        EXPECT_TRUE(listPath(*catalog, temp.path("link/sub")).has("file")) << root;
    }
}

TEST_P(DiskCatalogPaths, aFolderSwappedForALinkIsNotFollowed) {
    TempFolder temp, other;
    other.makeFolder("sub");
    other.write("secret", "");
    temp.makeFolder("a");
    temp.makeFolder("a/folder");
    temp.makeFolder("a/folder/sub");
    auto catalog = catalogFor(temp.path());
    ASSERT_TRUE(listPath(*catalog, temp.path("a")).has("folder"));
    ASSERT_EQ(rename(temp.path("a/folder").c_str(), temp.path("a/moved").c_str()), 0);
    ASSERT_EQ(symlink(other.path().c_str(), temp.path("a/folder").c_str()), 0);

    FileReference reference;
    EXPECT_EQ(refer(*catalog, temp.path("a/folder"), &reference), 0);
    EXPECT_FALSE(reference.isDirectory);
    EXPECT_EQ(reference.fd, -1);
    for (const std::string below : {"a/folder/sub", "a/folder/"}) {
        const int error = refer(*catalog, temp.path(below), &reference);
        if (below == "a/folder/" && error == 0) {
            EXPECT_FALSE(reference.isDirectory);
            continue;
        }
        EXPECT_TRUE(error == ELOOP || error == ENOTDIR) << below << " " << error;
    }
}

TEST_P(DiskCatalogPaths, goesDeeperThanAPathMayBeLong) {
    constexpr int kDepth = 3000;
    TempFolder temp;
    temp.makeFolder("top");
    std::string path = temp.path("top");
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < kDepth; ++i) {
        std::string name = std::to_string(i);
        name.insert(0, 20 - name.size(), 'n');
        ASSERT_EQ(mkdirat(fd, name.c_str(), 0755), 0);
        const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(next, 0);
        close(fd);
        fd = next;
        path += "/" + name;
    }
    struct stat deepest {};
    ASSERT_EQ(fstat(fd, &deepest), 0);
    close(openat(fd, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    ASSERT_EQ(symlinkat("/", fd, "link"), 0);
    close(fd);
    ASSERT_GT(path.size(), 60000u);

    for (const std::string& root : {temp.path("top"), path, std::string()}) {
        auto catalog = catalogFor(root);
        CatalogStat about;
        int error = 0;
        ASSERT_TRUE(catalog->stat(path, &about, &error)) << error;
        EXPECT_TRUE(about.isDirectory);
        EXPECT_EQ(about.modificationSeconds, deepest.st_mtime);
        EXPECT_TRUE(catalog->stat(path + "/file", &about, &error));
        EXPECT_FALSE(catalog->stat(path + "/absent", &about, &error));
        EXPECT_EQ(error, ENOENT);
        const CatalogListing listing = listPath(*catalog, path);
        EXPECT_TRUE(listing.has("file")) << listing.error;
        EXPECT_EQ(listing.entries.size(), 2u);
        FileReference reference;
        EXPECT_EQ(refer(*catalog, path + "/link", &reference), 0);
        EXPECT_FALSE(reference.isDirectory);
        EXPECT_EQ(refer(*catalog, path + "/absent", &reference), ENOENT);
        EXPECT_EQ(refer(*catalog, path + "/" + std::string(5000, 'n'), &reference), ENAMETOOLONG);
    }
}

// Makes a chain of folders below one that is there, each with a file "file" beside the next folder. Paths of all.
std::vector<std::string> makeChain(const std::string& start, int depth, const std::string& name) {
    std::vector<std::string> paths;
    std::string path = start;
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < depth; ++i) {
        EXPECT_EQ(mkdirat(fd, name.c_str(), 0755), 0);
        const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(fd);
        fd = next;
        close(openat(fd, ("file" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        path += "/" + name;
        paths.push_back(path);
    }
    close(fd);
    return paths;
}

TEST_P(DiskCatalogPaths, findsEveryFolderOfADeepChain) {
    TempFolder temp;
    const std::vector<std::string> paths = makeChain(temp.path(), 300, "a folder of a chain");
    auto catalog = catalogFor(temp.path());
    const auto expectFound = [&](std::size_t i) {
        const CatalogListing listing = listPath(*catalog, paths[i]);
        EXPECT_TRUE(listing.has("file" + std::to_string(i))) << i;
        EXPECT_EQ(listing.entries.size(), i + 1 < paths.size() ? 2u : 1u);
    };
    for (std::size_t i = 0; i < paths.size(); ++i) expectFound(i);
    for (std::size_t i = paths.size(); i-- > 0;) expectFound(i);
    for (std::size_t i = 0; i < paths.size(); ++i) expectFound(i * 7919 % paths.size());
    FileReference reference;
    EXPECT_EQ(refer(*catalog, paths.back() + "/file299", &reference), 0);
    EXPECT_FALSE(reference.isDirectory);
    EXPECT_EQ(refer(*catalog, paths.back() + "/nothing", &reference), ENOENT);
    EXPECT_EQ(refer(*catalog, paths.back() + "/nothing/deeper", &reference), ENOENT);
}

TEST_P(DiskCatalogPaths, aDeepFolderMadeAnewIsFound) {
    TempFolder temp;
    const std::vector<std::string> paths = makeChain(temp.path(), 100, "a folder of a chain");
    auto catalog = catalogFor(temp.path());
    EXPECT_TRUE(listPath(*catalog, paths[98]).has("file98"));
    std::filesystem::remove_all(paths[0]);
    FileReference reference;
    EXPECT_EQ(refer(*catalog, paths[98], &reference), ENOENT);
    makeChain(temp.path(), 100, "a folder of a chain");
    EXPECT_TRUE(listPath(*catalog, paths[98]).has("file98"));
}

// Processor time, in which the kernel looks for names.
double secondsToOpenAll(Catalog& catalog, const std::vector<std::string>& paths) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double begin = now();
    for (const std::string& path : paths) {
        FileReference reference;
        int error = 0;
        EXPECT_TRUE(catalog.reference(path, &reference, &error)) << error;
    }
    return now() - begin;
}

TEST(DiskCatalogPaths, theCostOfAChainDoesNotGrowWithTheSquare) {
    ScopedEnvironment environment;
    if (access("/dev/shm", W_OK) == 0) environment.set("TMPDIR", "/dev/shm");  // some disks need long for a chain
    TempFolder temp;
    const std::vector<std::string> paths = makeChain(temp.path(), 2000, "d");
    auto catalog = std::make_shared<DiskCatalog>(temp.path(), Catalog::Options{});
    const std::vector<std::string> upper(paths.begin() + 250, paths.begin() + 500);
    const std::vector<std::string> lower(paths.begin() + 1750, paths.end());
    secondsToOpenAll(*catalog, paths);  // the kernel gets to know them
    const double near = secondsToOpenAll(*catalog, upper), far = secondsToOpenAll(*catalog, lower);
    EXPECT_LT(far, 3 * near) << "5 times the names on the way";
}

// Lengths around the one where a path no longer fits into one call.
TEST_P(DiskCatalogPaths, fitsPathsOfEveryLength) {
    TempFolder temp;
    auto catalog = catalogFor(temp.path());
    auto outside = catalogFor("");
    std::string below = std::string(97, 'a');
    for (int i = 0; i < 43; ++i) {
        int fd = -1;
        FileReference parent;
        const std::string path = temp.path(below);
        ASSERT_EQ(refer(*catalog, i == 0 ? temp.path() : path.substr(0, path.rfind('/')), &parent), 0);
        fd = parent.fd;
        ASSERT_EQ(mkdirat(fd, below.substr(below.rfind('/') + 1).c_str(), 0755), 0);
        // Slashes make the path as long as needed without another folder.
        for (int slashes = 1; slashes <= 98; slashes += i < 39 ? 97 : 1) {
            const std::string longer = path + std::string(static_cast<std::size_t>(slashes), '/') + ".";
            EXPECT_EQ(refer(*catalog, longer, &parent), 0) << longer.size();
            EXPECT_EQ(refer(*outside, longer, &parent), 0) << longer.size();
        }
        below += "/" + std::string(97, 'b');
    }
    EXPECT_GT(temp.path(below).size(), 4200u);
}

INSTANTIATE_TEST_SUITE_P(Openers, DiskCatalogPaths, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& way) { return way.param ? "openat2" : "nameByName"; });

}  // namespace
}  // namespace kavaro
