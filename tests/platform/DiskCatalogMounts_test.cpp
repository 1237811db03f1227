#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdio>
#include <set>

#include "TempFolder.h"
#include "platform/CatalogListing.h"
#include "platform/DiskCatalog.h"

namespace kavaro {
namespace {

constexpr const char* kRefused = "mounting refused";

// A tree in a mount namespace of the child's own:
//   original/file            plain
//   bind/file                the same folder, bind mounted
//   memory/file              tmpfs
//   process/                 proc
// The whole tree lies on a tmpfs of its own, so that its mount has small inodes wherever the tests run.
class MountedTree {
  public:
    explicit MountedTree(const std::string& path) : _path(path) {}

    bool mountAll() const {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
        if (mount("tmpfs", _path.c_str(), "tmpfs", 0, nullptr) != 0) return false;
        for (const char* name : {"original", "bind", "memory", "process"}) mkdir(path(name).c_str(), 0755);
        makeFile("original/file");
        if (mount(path("original").c_str(), path("bind").c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
        if (mount("tmpfs", path("memory").c_str(), "tmpfs", 0, nullptr) != 0) return false;
        makeFile("memory/file");
        return mount("proc", path("process").c_str(), "proc", 0, nullptr) == 0 ||
               mount("/proc", path("process").c_str(), nullptr, MS_BIND, nullptr) == 0;
    }
    std::string path(const std::string& name) const { return _path + "/" + name; }
    const std::string& path() const { return _path; }

  private:
    void makeFile(const std::string& name) const {
        close(open(path(name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    }
    const std::string _path;
};

std::string reasonIn(const CatalogListing& listing, const std::string& name) {
    if (!listing.has(name)) return "absent";
    const CatalogEntry& entry = listing[name];
    if (entry.isExcluded != (entry.reason != nullptr)) return "contradiction";
    return entry.isExcluded ? entry.reason : "";
}

class DiskCatalogMounts : public testing::TestWithParam<bool> {
  protected:
    using Body = std::string (*)(const MountedTree&, const FolderOpener&);

    // Empty when everything was right, or when this process may not mount (the test is skipped then).
    static std::string inMountedTree(Body body) {
        TempFolder temp;
        const FolderOpener opener(GetParam() && FolderOpener::kernelHasOpenat2());
        const std::string text = inChild(false, [&]() -> std::string {
            const MountedTree tree(temp.path());
            return tree.mountAll() ? body(tree, opener) : kRefused;
        });
        if (text != kRefused) return text;
        [] { GTEST_SKIP() << "mounts cannot be made here"; }();
        return "";
    }
    static std::shared_ptr<Catalog> make(const std::string& root, Catalog::Options options,
                                         const FolderOpener& opener) {
        return std::make_shared<DiskCatalog>(root, options, opener);
    }
    static std::string excludedReason(Catalog& catalog, const std::string& path) {
        FileReference reference;
        int error = 0;
        if (!catalog.reference(path, &reference, &error)) return "no reference";
        if (!reference.isDirectory) return "no folder";
        if (!reference.excludedReason) return reference.fd >= 0 ? "" : "closed";
        if (reference.fd >= 0) return "open";
        const std::string reason = reference.excludedReason;
        auto iterator = catalog.openIterator(std::move(reference), &error);
        if (!iterator) return "no iterator";
        const CatalogListing listing = listAll(*iterator);
        return listing.entries.empty() && listing.status == CatalogStatus::noMoreItems ? reason : "listed";
    }
};

TEST_P(DiskCatalogMounts, mountsHaveIDsOfTheirOwn) {
    EXPECT_EQ(
        inMountedTree([](const MountedTree& tree, const FolderOpener& opener) {
            Findings findings;
            auto catalog = make(tree.path(), {}, opener);
            std::vector<CatalogListing> listings;
            std::set<std::uint32_t> ids;
            for (const char* name : {"", "original", "bind", "memory"}) {
                listings.push_back(listPath(*catalog, tree.path(name)));
                for (const auto& [key, entry] : listings.back().entries) {
                    findings.expect(ids.insert(entry.nodeID).second, std::string("ID again: ") + name + "/" + key);
                    findings.expect(entry.nodeID < NodeIdentity::kEnd, "ID too large: " + key);
                }
            }
            findings.expect(listings[0].entries.size() == 4, "four entries in the root");
            findings.expect(listings[0]["original"].nodeID < NodeIdentity::kFirstDerived, "own inode as ID");
            findings.expect(listings[1]["file"].nodeID < NodeIdentity::kFirstDerived, "own inode as ID below");
            for (const char* name : {"bind", "memory", "process"}) {
                findings.expect(listings[0][name].nodeID >= NodeIdentity::kFirstDerived, "derived ID of a mount");
            }
            findings.expect(listings[2].has("file") && listings[3].has("file"), "mounts are listed");
            findings.expect(listings[2]["file"].nodeID >= NodeIdentity::kFirstDerived, "derived ID in a bind mount");
            for (const auto& [name, entry] : listPath(*catalog, tree.path()).entries) {
                findings.expect(entry.nodeID == listings[0][name].nodeID, "the same ID again: " + name);
            }
            CatalogStat about;
            int error = 0;
            findings.expect(catalog->stat(tree.path("bind"), &about, &error), "stat of a mount");
            findings.expect(about.nodeID == listings[0]["bind"].nodeID, "stat and listing agree");
            // A job below has its own root mount.
            auto below = make(tree.path("bind"), {}, opener);
            const std::uint32_t own = listPath(*below, tree.path("bind"))["file"].nodeID;
            findings.expect(own == listings[1]["file"].nodeID, "own inode as ID in a job of its own");
            return findings.text();
        }),
        "");
}

TEST_P(DiskCatalogMounts, pseudoFileSystemsAreNotEntered) {
    EXPECT_EQ(inMountedTree([](const MountedTree& tree, const FolderOpener& opener) {
                  Findings findings;
                  for (const std::string& root : {tree.path(), std::string()}) {
                      auto catalog = make(root, {}, opener);
                      const CatalogListing listing = listPath(*catalog, tree.path());
                      findings.expect(reasonIn(listing, "process") == kReasonPseudoFileSystem, "proc is left out");
                      findings.expect(listing["process"].isDirectory, "proc is a folder");
                      for (const char* name : {"original", "bind", "memory"}) {
                          findings.expect(reasonIn(listing, name).empty(), std::string("not left out: ") + name);
                          findings.expect(excludedReason(*catalog, tree.path(name)).empty(), "and may be opened");
                      }
                      for (const char* name : {"process", "process/self/", "process/sys/kernel"}) {
                          const std::string reason = excludedReason(*catalog, tree.path(name));
                          findings.expect(reason == kReasonPseudoFileSystem || reason == "no reference",
                                          std::string(name) + ": " + reason);
                      }
                      const std::string inside = excludedReason(*catalog, tree.path("process/sys/kernel"));
                      findings.expect(inside == kReasonPseudoFileSystem, "inside of proc: " + inside);
                  }
                  Catalog::Options options;
                  options.loadPseudoFileSystems = true;
                  auto catalog = make(tree.path(), options, opener);
                  findings.expect(reasonIn(listPath(*catalog, tree.path()), "process").empty(), "proc is wanted");
                  findings.expect(listPath(*catalog, tree.path("process")).has("sys"), "proc is listed");
                  findings.expect(listPath(*catalog, tree.path("process/sys")).has("kernel"), "and what is in it");
                  return findings.text();
              }),
              "");
}

// Far below the root a folder is opened from another one on the way.
TEST_P(DiskCatalogMounts, mountsOnALongWayAreSeen) {
    EXPECT_EQ(inMountedTree([](const MountedTree& tree, const FolderOpener& opener) {
                  Findings findings;
                  std::string below = "memory";
                  for (int i = 0; i < 40; ++i) {
                      below += "/" + std::string(50, 'n');
                      mkdir(tree.path(below).c_str(), 0755);
                  }
                  const std::string deeper = below + "/mounted", inside = deeper + "/" + std::string(50, 'n');
                  mkdir(tree.path(deeper).c_str(), 0755);
                  findings.expect(mount("tmpfs", tree.path(deeper).c_str(), "tmpfs", 0, nullptr) == 0, "mount");
                  mkdir(tree.path(inside).c_str(), 0755);
                  for (const std::string root : {"", "memory"}) {
                      auto catalog = make(tree.path(root), {}, opener);
                      for (const std::string& name : {below, deeper, inside})
                          findings.expect(excludedReason(*catalog, tree.path(name)).empty(), root + ": is opened");
                      findings.expect(listPath(*catalog, tree.path(deeper)).entries.size() == 1, root + ": is listed");
                      Catalog::Options options;
                      options.sameFileSystemOnly = true;
                      catalog = make(tree.path(root), options, opener);
                      const std::string reason = root.empty() ? kReasonOtherFileSystem : "";
                      findings.expect(excludedReason(*catalog, tree.path(below)) == reason, root + ": below");
                      for (const std::string& name : {deeper, inside})
                          findings.expect(excludedReason(*catalog, tree.path(name)) == kReasonOtherFileSystem,
                                          root + ": left out");
                  }
                  return findings.text();
              }),
              "");
}

TEST_P(DiskCatalogMounts, aRootOnAPseudoFileSystemIsEmpty) {
    EXPECT_EQ(inMountedTree([](const MountedTree& tree, const FolderOpener& opener) {
                  Findings findings;
                  for (const std::string name : {"process", "process/sys"}) {
                      auto catalog = make(tree.path(name), {}, opener);
                      CatalogStat about;
                      int error = 0;
                      findings.expect(catalog->stat(tree.path(name), &about, &error) && about.isDirectory, "stat");
                      findings.expect(excludedReason(*catalog, tree.path(name)) == kReasonPseudoFileSystem, name);
                      findings.expect(
                          excludedReason(*catalog, tree.path("process/sys/kernel")) == kReasonPseudoFileSystem,
                          "below " + name);
                      Catalog::Options options;
                      options.loadPseudoFileSystems = true;
                      catalog = make(tree.path(name), options, opener);
                      findings.expect(excludedReason(*catalog, tree.path(name)).empty(), name + " when wanted");
                      findings.expect(!listPath(*catalog, tree.path(name)).entries.empty(), name + " is listed");
                  }
                  return findings.text();
              }),
              "");
}

TEST_P(DiskCatalogMounts, sameFileSystemOnlyLeavesOutEveryOtherMount) {
    EXPECT_EQ(inMountedTree([](const MountedTree& tree, const FolderOpener& opener) {
                  Findings findings;
                  Catalog::Options options;
                  options.sameFileSystemOnly = true;
                  auto catalog = make(tree.path(), options, opener);
                  const CatalogListing listing = listPath(*catalog, tree.path());
                  findings.expect(reasonIn(listing, "original").empty(), "original stays");
                  findings.expect(reasonIn(listing, "bind") == kReasonOtherFileSystem, "bind mount");
                  findings.expect(reasonIn(listing, "memory") == kReasonOtherFileSystem, "tmpfs");
                  findings.expect(reasonIn(listing, "process") == kReasonPseudoFileSystem, "proc");
                  findings.expect(excludedReason(*catalog, tree.path("original")).empty(), "original opens");
                  findings.expect(excludedReason(*catalog, tree.path("bind")) == kReasonOtherFileSystem, "bind opens");
                  findings.expect(excludedReason(*catalog, tree.path("memory")) == kReasonOtherFileSystem,
                                  "tmpfs opens");
                  findings.expect(excludedReason(*catalog, "/") == kReasonOtherFileSystem, "above the root");
                  // The root itself may be a mount.
                  auto below = make(tree.path("memory"), options, opener);
                  findings.expect(listPath(*below, tree.path("memory")).has("file"), "a mount as the root");
                  options.loadPseudoFileSystems = true;
                  auto both = make(tree.path(), options, opener);
                  findings.expect(reasonIn(listPath(*both, tree.path()), "process") == kReasonOtherFileSystem, "both");
                  return findings.text();
              }),
              "");
}

INSTANTIATE_TEST_SUITE_P(Openers, DiskCatalogMounts, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& way) { return way.param ? "openat2" : "nameByName"; });

// Without any right to mount: the machine's own /proc.
TEST(DiskCatalog, procIsNotEnteredFromTheRootFolder) {
    auto catalog = Catalog::forRoot("/", {});
    const CatalogListing listing = listPath(*catalog, "/");
    ASSERT_EQ(reasonIn(listing, "proc"), kReasonPseudoFileSystem);
    FileReference reference;
    int error = 0;
    ASSERT_TRUE(catalog->reference("/proc/" + std::to_string(getpid()), &reference, &error));
    EXPECT_EQ(reference.fd, -1);
    EXPECT_STREQ(reference.excludedReason, kReasonPseudoFileSystem);
}

}  // namespace
}  // namespace kavaro
