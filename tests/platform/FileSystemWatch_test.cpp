// The kernel's own events, on the disk and on a file system in memory. Needs administrator rights; without them, that
// is what is checked.
#include "platform/FileSystemWatch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include "TempFolder.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using State = FileSystemWatch::State;

std::uint64_t inodeOf(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

void put(const std::string& path, std::string_view content) {
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
}

// "created modified FOLDER/name", with "/" after the name of a folder and " -> destination".
std::string textOf(const FileSystemChange& change, const std::string& folder) {
    std::string text;
    const std::pair<std::uint32_t, const char*> words[] = {
        {FileSystemChange::kCreated, "created "},    {FileSystemChange::kModified, "modified "},
        {FileSystemChange::kAttributes, "changed "}, {FileSystemChange::kRenamed, "renamed "},
        {FileSystemChange::kDeleted, "deleted "},    {FileSystemChange::kLost, "lost "}};
    for (const auto& [bit, word] : words)
        if (change.what & bit) text += word;
    const auto place = [&](const std::string& path) {
        return path.starts_with(folder) ? path.substr(std::min(folder.size() + 1, path.size())) : path;
    };
    text += place(change.path) + (change.isFolder ? "/" : "");
    if (!change.destination.empty()) text += " -> " + place(change.destination);
    return text;
}

// A watch on the file system of a folder. Only changes below the folder are seen: others may use the disk, too.
class Watching {
  public:
    explicit Watching(const std::string& folder, FileSystemWatch::Options options = {})
        : Watching(folder, options, folder) {}
    Watching(const std::string& opened, FileSystemWatch::Options options, const std::string& folder) : _folder(folder) {
        FileSystemWatch::Problem problem;
        watch = FileSystemWatch::open(opened, options, &problem);
        if (watch) return;
        EXPECT_EQ(problem.code, EPERM) << problem.text;
        EXPECT_EQ(problem.text, "Operation not permitted");
        EXPECT_FALSE(problem.isVolume);
        [] { GTEST_SKIP() << "no rights to watch here: only the refusal was checked"; }();
    }
    // What happened up to now, in words.
    std::vector<std::string> changes() {
        const std::string end = _folder + "/end-of-changes-" + std::to_string(_ends++);
        pid_t child = fork();  // its changes count even where ours do not
        if (child == 0) _exit(mkdir(end.c_str(), 0755) == 0 ? 0 : 1);
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        std::vector<std::string> texts;
        last.clear();
        for (FileSystemChange change;;) {
            if (!watch->next(&change)) {
                const State state = watch->wait(20);
                EXPECT_NE(state, State::unmounted);
                if (state == State::unmounted) return texts;
            } else if (change.path == end) {
                rmdir(end.c_str());
                return texts;
            } else if (change.what == FileSystemChange::kLost ||
                       (change.path.starts_with(_folder + "/") &&
                        change.path.find("/end-of-changes-") == std::string::npos)) {
                texts.push_back(textOf(change, _folder));
                last.push_back(change);
            }
        }
    }

    std::unique_ptr<FileSystemWatch> watch;
    std::vector<FileSystemChange> last;

  private:
    const std::string _folder;
    int _ends = 0;
};

// Calls `body` with a folder on the disk of the tests and, on a thread with mounts of its own, with a new tmpfs.
void onEachFileSystem(const std::function<void(const std::string& folder)>& body) {
    const TempFolder disk;
    {
        SCOPED_TRACE("disk");
        body(disk.path());
    }
    std::thread([&] {
        SCOPED_TRACE("tmpfs");
        const std::string volume = disk.makeFolder("volume");
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=64m") != 0) {
            [] { GTEST_SKIP() << "mounts cannot be made here: tmpfs was not checked"; }();
            return;
        }
        body(volume);
        EXPECT_EQ(umount(volume.c_str()), 0) << strerror(errno);
    }).join();
}

TEST(FileSystemWatch, everyChangeOfAFile) {
    onEachFileSystem([](const std::string& folder) {
        Watching watching(folder);
        if (!watching.watch) return;
        const std::string file = folder + "/file";
        const auto check = [&](const char* what, const std::string& text, std::uint64_t inode) {
            EXPECT_THAT(watching.changes(), ElementsAre(text)) << what;
            for (const FileSystemChange& change : watching.last) {
                EXPECT_EQ(change.inode, inode) << what;
                EXPECT_EQ(change.process, getpid()) << what;
            }
        };
        put(file, "some");
        const std::uint64_t inode = inodeOf(file);
        check("new", "created modified file", inode);
        put(file, "other");
        check("written", "modified file", inode);
        const int fd = open(file.c_str(), O_RDWR | O_CLOEXEC);
        void* bytes = mmap(nullptr, 5, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ASSERT_NE(bytes, MAP_FAILED);
        std::memcpy(bytes, "third", 5);
        munmap(bytes, 5);
        close(fd);
        check("written through a mapping", "modified file", inode);
        EXPECT_EQ(truncate(file.c_str(), 1), 0);
        check("truncated", "modified file", inode);
        EXPECT_EQ(chmod(file.c_str(), 0600), 0);
        check("mode", "changed file", inode);
        EXPECT_EQ(chown(file.c_str(), 65534, 65534), 0);
        check("owner", "changed file", inode);
        const std::string odd = "b\xFF\n\"%s";
        EXPECT_EQ(link(file.c_str(), (folder + "/" + odd).c_str()), 0);
        check("linked", "created " + odd, inode);
        EXPECT_EQ(unlink((folder + "/" + odd).c_str()), 0);
        check("one link less", "deleted " + odd, inode);
        EXPECT_EQ(unlink(file.c_str()), 0);
        check("gone", "deleted file", inode);
        EXPECT_EQ(symlink("nowhere", file.c_str()), 0);
        check("a link", "created file", inodeOf(file));
        struct stat info {};
        EXPECT_EQ(stat(folder.c_str(), &info), 0);
        EXPECT_EQ(watching.watch->device(), info.st_dev);
    });
}

TEST(FileSystemWatch, everyChangeOfAFolder) {
    onEachFileSystem([](const std::string& folder) {
        Watching watching(folder);
        if (!watching.watch) return;
        const std::string sub = folder + "/sub";
        EXPECT_EQ(mkdir(sub.c_str(), 0755), 0);
        const std::uint64_t inode = inodeOf(sub);
        EXPECT_THAT(watching.changes(), ElementsAre("created sub/"));
        EXPECT_EQ(watching.last[0].inode, inode);
        EXPECT_EQ(chmod(sub.c_str(), 0700), 0);
        EXPECT_THAT(watching.changes(), ElementsAre("changed sub/"));
        EXPECT_EQ(watching.last[0].inode, inode);
        EXPECT_EQ(rmdir(sub.c_str()), 0);
        EXPECT_THAT(watching.changes(), ElementsAre("deleted sub/"));
        EXPECT_EQ(watching.last[0].inode, inode);
    });
}

TEST(FileSystemWatch, renamesSayWhereFromAndWhereTo) {
    onEachFileSystem([](const std::string& folder) {
        mkdir((folder + "/a").c_str(), 0755);
        mkdir((folder + "/b").c_str(), 0755);
        put(folder + "/a/1", "one");
        put(folder + "/a/2", "two");
        const std::uint64_t one = inodeOf(folder + "/a/1"), two = inodeOf(folder + "/a/2");
        const std::uint64_t a = inodeOf(folder + "/a");
        Watching watching(folder);
        if (!watching.watch) return;
        const auto move = [&](const char* from, const char* to, unsigned flags = 0) {
            EXPECT_EQ(renameat2(AT_FDCWD, (folder + from).c_str(), AT_FDCWD, (folder + to).c_str(), flags), 0) << from;
        };
        move("/a/1", "/a/3");
        EXPECT_THAT(watching.changes(), ElementsAre("renamed a/1 -> a/3"));
        EXPECT_EQ(watching.last[0].inode, one);
        move("/a/3", "/b/3");
        EXPECT_THAT(watching.changes(), ElementsAre("renamed a/3 -> b/3"));
        move("/b/3", "/a/2", RENAME_EXCHANGE);
        EXPECT_THAT(watching.changes(), ElementsAre("renamed b/3 -> a/2", "renamed a/2 -> b/3"));
        EXPECT_EQ(watching.last[0].inode, one);
        EXPECT_EQ(watching.last[1].inode, two);
        move("/b/3", "/a/2");  // in the place of the other, which is gone
        EXPECT_THAT(watching.changes(), ElementsAre("renamed b/3 -> a/2"));
        // What is below a folder that was renamed is at its new place.
        move("/a", "/b/c");
        EXPECT_THAT(watching.changes(), ElementsAre("renamed a/ -> b/c"));
        EXPECT_EQ(watching.last[0].inode, a);
        put(folder + "/b/c/new", "");
        EXPECT_THAT(watching.changes(), ElementsAre("created modified b/c/new"));
        // Seen late: each change has the path of its time.
        mkdir((folder + "/d").c_str(), 0755);
        put(folder + "/d/x", "");
        move("/d", "/e");
        put(folder + "/e/y", "");
        EXPECT_THAT(watching.changes(),
                    ElementsAre("created d/", "created modified d/x", "renamed d/ -> e", "created modified e/y"));
    });
}

TEST(FileSystemWatch, whatIsGoneBeforeItIsSeenHasItsPath) {
    onEachFileSystem([](const std::string& folder) {
        std::string deep = folder;
        for (const char* name : {"/a", "/b", "/c"}) mkdir((deep += name).c_str(), 0755);
        put(deep + "/f", "x");
        Watching watching(folder);
        if (!watching.watch) return;
        unlink((deep + "/f").c_str());
        for (const char* name : {"/a/b/c", "/a/b", "/a"}) EXPECT_EQ(rmdir((folder + name).c_str()), 0);
        EXPECT_THAT(watching.changes(), ElementsAre("deleted a/b/c/f", "deleted a/b/c/", "deleted a/b/", "deleted a/"));
        // Created and deleted in one: the kernel merges what it can.
        mkdir((folder + "/t").c_str(), 0755);
        put(folder + "/t/f", "x");
        unlink((folder + "/t/f").c_str());
        rmdir((folder + "/t").c_str());
        EXPECT_THAT(watching.changes(), ElementsAre("created deleted t/", "created modified deleted t/f"));
        EXPECT_FALSE(watching.last[1].isThereAgain);
    });
}

TEST(FileSystemWatch, deletedAndMadeAgainIsToldFromGone) {
    onEachFileSystem([](const std::string& folder) {
        put(folder + "/f", "x");
        Watching watching(folder);
        if (!watching.watch) return;
        const std::string file = folder + "/f", again = folder + "/again", gone = folder + "/gone";
        EXPECT_EQ(link(file.c_str(), again.c_str()), 0);
        EXPECT_EQ(link(file.c_str(), gone.c_str()), 0);
        EXPECT_EQ(unlink(again.c_str()), 0);
        EXPECT_EQ(unlink(gone.c_str()), 0);
        EXPECT_EQ(link(file.c_str(), again.c_str()), 0);
        EXPECT_THAT(watching.changes(), ElementsAre("created deleted again", "created deleted gone"));
        EXPECT_TRUE(watching.last[0].isThereAgain);
        EXPECT_FALSE(watching.last[1].isThereAgain);
    });
}

TEST(FileSystemWatch, theFolderThatItWasOpenedWithMayGo) {
    onEachFileSystem([](const std::string& folder) {
        const std::string asked = folder + "/asked";
        mkdir(asked.c_str(), 0755);
        mkdir((folder + "/other").c_str(), 0755);
        Watching watching(asked, {}, folder);
        if (!watching.watch) return;
        EXPECT_EQ(rmdir(asked.c_str()), 0);
        put(folder + "/other/file", "x");
        EXPECT_THAT(watching.changes(), ElementsAre("deleted asked/", "created modified other/file"));
    });
}

TEST(FileSystemWatch, changesOfOneProcessCanBeLeftOut) {
    onEachFileSystem([](const std::string& folder) {
        FileSystemWatch::Options options;
        options.ignoredProcess = getpid();
        mkdir((folder + "/a").c_str(), 0755);
        put(folder + "/a/old", "");
        Watching watching(folder, options);
        if (!watching.watch) return;
        const auto byAnother = [](const std::string& path) {
            const pid_t child = fork();
            if (child == 0) _exit(symlink("x", path.c_str()) == 0 ? 0 : 1);
            int status = 1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        };
        byAnother(folder + "/a/1");
        EXPECT_THAT(watching.changes(), ElementsAre("created a/1"));
        put(folder + "/mine", "x");
        EXPECT_EQ(rename((folder + "/a").c_str(), (folder + "/b").c_str()), 0);
        byAnother(folder + "/b/2");
        EXPECT_THAT(watching.changes(), ElementsAre("created b/2"));
    });
}

TEST(FileSystemWatch, aFullQueueIsTold) {
    onEachFileSystem([](const std::string& folder) {
        FileSystemWatch::Options options;
        options.unlimitedQueue = false;
        Watching watching(folder, options);
        if (!watching.watch) return;
        int most = 0;
        std::ifstream("/proc/sys/fs/fanotify/max_queued_events") >> most;
        ASSERT_GT(most, 0);
        if (most > 100000) {
            [] { GTEST_SKIP() << "the queue of this system is too long to fill"; }();
            return;
        }
        for (int i = 0; i <= most; ++i) EXPECT_EQ(symlink("x", (folder + "/" + std::to_string(i)).c_str()), 0);
        int lost = 0;
        FileSystemChange change;
        while (watching.watch->next(&change)) lost += change.what == FileSystemChange::kLost;
        EXPECT_EQ(lost, 1);
    });
}

// Calls `body` with a new tmpfs that it may unmount, on a thread with mounts of its own.
void onVolumeOfItsOwn(const std::function<void(const std::string& volume)>& body) {
    const TempFolder temp;
    const std::string volume = temp.makeFolder("volume");
    std::thread([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=1m") != 0) {
            [] { GTEST_SKIP() << "mounts cannot be made here"; }();
            return;
        }
        body(volume);
    }).join();
}

// All that is there when the volume has been unmounted.
std::vector<std::string> lastChanges(FileSystemWatch& watch, const std::string& volume) {
    EXPECT_EQ(watch.wait(20), State::changes);
    std::vector<std::string> texts;
    for (FileSystemChange change; watch.next(&change);) texts.push_back(textOf(change, volume));
    return texts;
}

TEST(FileSystemWatch, aVolumeThatIsMountedAgainAtOnceWasUnmounted) {
    onVolumeOfItsOwn([](const std::string& volume) {
        mkdir((volume + "/unknown").c_str(), 0755);
        Watching watching(volume);
        if (!watching.watch) return;
        mkdir((volume + "/folder").c_str(), 0755);
        put(volume + "/folder/file", "x");
        EXPECT_THAT(watching.changes(), ElementsAre("created folder/", "created modified folder/file"));
        EXPECT_EQ(lastChanges(*watching.watch, volume), std::vector<std::string>{"deleted end-of-changes-0/"});
        EXPECT_EQ(watching.watch->wait(0), State::quiet);  // and what is open of it is closed
        put(volume + "/last", "x");
        put(volume + "/folder/file", "y");
        put(volume + "/unknown/file", "z");
        ASSERT_EQ(umount(volume.c_str()), 0) << strerror(errno);
        // It has the number that has become free, unless another program was quicker.
        ASSERT_EQ(mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=1m"), 0) << strerror(errno);
        put(volume + "/other", "x");
        EXPECT_THAT(lastChanges(*watching.watch, volume), ElementsAre("created modified last", "modified folder/file"));
        EXPECT_EQ(umount(volume.c_str()), 0) << strerror(errno);  // none of it is open
        EXPECT_EQ(watching.watch->wait(20), State::unmounted);
        EXPECT_EQ(watching.watch->wait(20), State::unmounted);
    });
}

// The volume's own folder is known, the others were never asked for.
TEST(FileSystemWatch, changesJustBeforeUnmountingAreTold) {
    onVolumeOfItsOwn([](const std::string& volume) {
        mkdir((volume + "/folder").c_str(), 0755);
        mkdir((volume + "/gone").c_str(), 0755);
        Watching watching(volume);
        if (!watching.watch) return;
        put(volume + "/file", "x");
        put(volume + "/folder/file", "x");
        put(volume + "/gone/file", "x");
        unlink((volume + "/gone/file").c_str());
        rmdir((volume + "/gone").c_str());
        ASSERT_EQ(umount(volume.c_str()), 0) << strerror(errno);
        EXPECT_THAT(lastChanges(*watching.watch, volume),
                    ElementsAre("created modified file", "created modified deleted gone/file", "deleted gone/"));
        EXPECT_EQ(watching.watch->wait(20), State::unmounted);
    });
}

// Another mount of it keeps the file system going.
TEST(FileSystemWatch, aVolumeThatIsMountedElsewhereTooIsUnmountedHere) {
    onVolumeOfItsOwn([](const std::string& volume) {
        const TempFolder temp;
        const std::string other = temp.makeFolder("other");
        ASSERT_EQ(mount(volume.c_str(), other.c_str(), nullptr, MS_BIND, nullptr), 0);
        Watching watching(volume);
        if (!watching.watch) return;
        put(volume + "/file", "x");
        ASSERT_EQ(umount(volume.c_str()), 0) << strerror(errno);
        EXPECT_EQ(watching.watch->wait(20), State::changes);
        for (FileSystemChange change; watching.watch->next(&change);) {
        }
        put(other + "/file", "y");
        EXPECT_EQ(watching.watch->wait(20), State::unmounted);
        ASSERT_EQ(umount(other.c_str()), 0) << strerror(errno);
    });
}

// Of other volumes, mounting and unmounting changes nothing.
TEST(FileSystemWatch, mountsOfOthersAreNoEnd) {
    onVolumeOfItsOwn([](const std::string& volume) {
        const TempFolder temp;
        const std::string other = temp.makeFolder("other");
        Watching watching(volume);
        if (!watching.watch) return;
        ASSERT_EQ(mount("tmpfs", other.c_str(), "tmpfs", 0, "size=1m"), 0);
        ASSERT_EQ(umount(other.c_str()), 0) << strerror(errno);
        EXPECT_EQ(watching.watch->wait(0), State::quiet);
        put(volume + "/file", "x");
        EXPECT_THAT(watching.changes(), ElementsAre("created modified file"));
        watching.watch.reset();
        ASSERT_EQ(umount(volume.c_str()), 0) << strerror(errno);
    });
}

TEST(FileSystemWatch, aVolumeCanBeUnmountedAndThatIsTold) {
    onVolumeOfItsOwn([](const std::string& volume) {
        Watching watching(volume);
        if (!watching.watch) return;
        put(volume + "/file", "x");
        EXPECT_THAT(watching.changes(), ElementsAre("created modified file"));
        FileSystemChange change;
        while (watching.watch->next(&change)) {
        }
        while (watching.watch->wait(0) == State::changes)
            while (watching.watch->next(&change)) {
            }
        ASSERT_EQ(umount(volume.c_str()), 0) << strerror(errno);
        EXPECT_EQ(watching.watch->wait(20), State::unmounted);
    });
}

// There, handles say nothing of inodes.
TEST(FileSystemWatch, whatIsGoneFromAnOverlayIsNotOneEntry) {
    const TempFolder temp;
    const std::string space = temp.makeFolder("space"), folder = space + "/merged";
    std::thread([&] {
        bool isMounted = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", space.c_str(), "tmpfs", 0, "size=1m") == 0;
        std::string options = "index=on,nfs_export=on";
        for (const char* part : {"lowerdir", "upperdir", "workdir"}) {
            const std::string path = space + "/" + part;
            isMounted = isMounted && mkdir(path.c_str(), 0755) == 0;
            options += std::string(",") + part + "=" + path;
        }
        isMounted = isMounted && mkdir(folder.c_str(), 0755) == 0 &&
                    mount("overlay", folder.c_str(), "overlay", 0, options.c_str()) == 0;
        if (!isMounted) {
            [] { GTEST_SKIP() << "overlays cannot be mounted here"; }();
            return;
        }
        Watching watching(folder);
        if (!watching.watch) return;
        put(folder + "/known", "x");
        const std::uint64_t known = inodeOf(folder + "/known");
        EXPECT_THAT(watching.changes(), ElementsAre("created modified known"));
        EXPECT_EQ(watching.last[0].inode, known);
        unlink((folder + "/known").c_str());
        EXPECT_THAT(watching.changes(), ElementsAre("deleted known"));
        EXPECT_EQ(watching.last[0].inode, known);
        for (const char* name : {"/a", "/b"}) {
            put(folder + name, "x");
            unlink((folder + name).c_str());
        }
        EXPECT_THAT(watching.changes(), ElementsAre("created modified deleted a", "created modified deleted b"));
        EXPECT_NE(watching.last[0].inode, 0u);
        EXPECT_NE(watching.last[1].inode, 0u);
        EXPECT_NE(watching.last[0].inode, watching.last[1].inode);
        watching.watch.reset();
        EXPECT_EQ(umount(folder.c_str()), 0) << strerror(errno);
        EXPECT_EQ(umount(space.c_str()), 0) << strerror(errno);
    }).join();
}

TEST(FileSystemWatch, whatCannotBeWatchedIsSaid) {
    const TempFolder temp;
    FileSystemWatch::Problem problem;
    EXPECT_EQ(FileSystemWatch::open(temp.path("none"), {}, &problem), nullptr);
    EXPECT_EQ(problem.text, temp.path("none") + ": No such file or directory");
    EXPECT_TRUE(problem.isVolume);
    EXPECT_EQ(FileSystemWatch::open(temp.write("file", ""), {}, &problem), nullptr);
    EXPECT_EQ(problem.text, temp.path("file") + ": Not a directory");
    EXPECT_TRUE(problem.isVolume);
    if (geteuid() == 0) {
        EXPECT_EQ(FileSystemWatch::open("/proc", {}, &problem), nullptr);
        EXPECT_THAT(problem.text, testing::AllOf(testing::StartsWith("/proc: "),
                                                 testing::EndsWith("(this kind of file system does not tell its "
                                                                   "changes)")));
        EXPECT_TRUE(problem.isVolume);
    }
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && setuid(65534) != 0) _exit(1);
        const bool opened = FileSystemWatch::open("/", {}, &problem) != nullptr;
        _exit(!opened && problem.code == EPERM && !problem.isVolume ? 0 : 2);
    }
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

std::string handleOf(std::initializer_list<int> bytes) {
    std::string handle(8, '\0');
    handle[0] = static_cast<char>(bytes.size());
    handle[4] = 1;
    for (const int byte : bytes) handle += static_cast<char>(byte);
    return handle;
}

TEST(FileSystemWatch, inodesOfHandlesOfKnownForms) {
    using Form = FileSystemWatch::HandleForm;
    const std::string ext = handleOf({2, 0, 0, 0, 9, 9, 9, 9});
    const std::string memory = handleOf({9, 9, 9, 9, 1, 0, 0, 0, 0, 0, 0, 0});
    const std::string xfs = handleOf({128, 0, 0, 0, 1, 0, 0, 0, 9, 9, 9, 9});
    const std::string btrfs = handleOf({0, 1, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 9, 9, 9, 9});
    EXPECT_EQ(FileSystemWatch::formOfHandle(ext, 2), Form::word);
    EXPECT_EQ(FileSystemWatch::formOfHandle(memory, 1), Form::doubleWordAfterWord);
    EXPECT_EQ(FileSystemWatch::formOfHandle(xfs, 0x100000080), Form::doubleWord);
    EXPECT_EQ(FileSystemWatch::formOfHandle(btrfs, 256), Form::doubleWord);
    EXPECT_EQ(FileSystemWatch::formOfHandle(ext, 3), Form::opaque);
    EXPECT_EQ(FileSystemWatch::formOfHandle("", 2), Form::opaque);
    EXPECT_EQ(FileSystemWatch::formOfHandle(ext, 0), Form::opaque);
    EXPECT_EQ(FileSystemWatch::inodeOfHandle(handleOf({5, 1, 0, 0, 9, 9, 9, 9}), Form::word), 0x105u);
    EXPECT_EQ(FileSystemWatch::inodeOfHandle(xfs, Form::word), 0u);
    EXPECT_EQ(FileSystemWatch::inodeOfHandle(ext, Form::doubleWord), 0u);
}

}  // namespace
}  // namespace kavaro
