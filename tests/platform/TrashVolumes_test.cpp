// Volumes of their own, in a mount namespace that nobody else sees.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/CatalogListing.h"
#include "platform/Trash.h"

namespace kavaro {
namespace {

constexpr const char* kRefused = "mounting refused";
constexpr const char* kNoTrash = "there is no Trash on its volume, and nothing is copied to another one";

void makeFile(const std::string& path) {
    close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
}

std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// "home" on the disk of the tests and "volume", a tmpfs.
class TrashVolumes : public testing::Test {
  protected:
    void check(const std::function<void(Findings&)>& body) {
        const std::string text = inChild(false, [&]() -> std::string {
            if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=1m") != 0)
                return kRefused;
            mkdir((volume + "/sub folder").c_str(), 0777);
            makeFile(volume + "/sub folder/file");
            Findings findings;
            body(findings);
            return findings.text();
        });
        if (text == kRefused)
            GTEST_SKIP() << "mounts cannot be made here";
        else
            EXPECT_EQ(text, "");
    }
    std::string reasonOf(const std::string& path) {
        Trash trash;
        const Trash::Result result = trash.move(path);
        return result.ok() ? "moved to " + result.trashFolder : result.reason;
    }
    bool homeIsEmpty() const {
        return !isThere(home + "/.local/share/Trash/info/file.trashinfo") &&
               !isThere(home + "/.local/share/Trash/files/file");
    }

    TempFolder temp;
    const std::string home = temp.makeFolder("home");
    const std::string volume = temp.makeFolder("volume");
    const std::string user = std::to_string(geteuid());
    ScopedEnvironment _home{"HOME", home};
    ScopedEnvironment _data{"XDG_DATA_HOME", ""};
};

TEST_F(TrashVolumes, AnotherVolumeHasATrashOfItsOwn) {
    check([&](Findings& findings) {
        const std::string result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == "moved to " + volume + "/.Trash-" + user, result);
        const std::string info = contentOf(volume + "/.Trash-" + user + "/info/file.trashinfo");
        findings.expect(info.starts_with("[Trash Info]\nPath=sub%20folder/file\nDeletionDate="), info);
        findings.expect(isThere(volume + "/.Trash-" + user + "/files/file"), "the file is in it");
        findings.expect(homeIsEmpty(), "something is in the home trash");
    });
}

TEST_F(TrashVolumes, ACommonTrashMustBeSticky) {
    check([&](Findings& findings) {
        const std::string common = volume + "/.Trash";
        mkdir(common.c_str(), 0777);
        chmod(common.c_str(), 0777);
        std::string result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == "moved to " + volume + "/.Trash-" + user, "not sticky: " + result);
        chmod(common.c_str(), 01777);
        makeFile(volume + "/sub folder/file");
        result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == "moved to " + common + "/" + user, "sticky: " + result);
        const std::string info = contentOf(common + "/" + user + "/info/file.trashinfo");
        findings.expect(info.starts_with("[Trash Info]\nPath=sub%20folder/file\n"), info);
        // A link to a sticky folder is none.
        rename(common.c_str(), (volume + "/real").c_str());
        findings.expect(symlink("real", common.c_str()) == 0, "no link");
        makeFile(volume + "/sub folder/file");
        result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == "moved to " + volume + "/.Trash-" + user, "a link: " + result);
    });
}

// Nothing is ever copied.
TEST_F(TrashVolumes, AVolumeWithoutAnyIsRefused) {
    check([&](Findings& findings) {
        makeFile(volume + "/.Trash-" + user);  // no folder, so none can be made
        std::string result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == kNoTrash, "a file in its place: " + result);
        findings.expect(isThere(volume + "/sub folder/file") && homeIsEmpty(), "it was touched");
        unlink((volume + "/.Trash-" + user).c_str());
        mkdir((volume + "/trap").c_str(), 0777);
        findings.expect(symlink("trap", (volume + "/.Trash-" + user).c_str()) == 0, "no link");
        result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == kNoTrash, "a link in its place: " + result);
        findings.expect(!isThere(volume + "/trap/files"), "a link was followed");
        unlink((volume + "/.Trash-" + user).c_str());
        mkdir((volume + "/.Trash-" + user).c_str(), 0777);
        if (geteuid() == 0 && chown((volume + "/.Trash-" + user).c_str(), 65534, 65534) == 0) {
            result = reasonOf(volume + "/sub folder/file");
            findings.expect(result == kNoTrash, "somebody else's: " + result);
        }
        mount(nullptr, volume.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
        result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == kNoTrash || result == "its volume can only be read", "read-only: " + result);
        findings.expect(isThere(volume + "/sub folder/file") && homeIsEmpty(), "it was touched");
    });
}

TEST_F(TrashVolumes, AFullTrashIsSaid) {
    check([&](Findings& findings) {
        // The home's own volume is full.
        const std::string home2 = volume + "/home";
        mkdir(home2.c_str(), 0755);
        setenv("HOME", home2.c_str(), 1);
        Trash trash;
        makeFile(volume + "/first");
        findings.expect(trash.move(volume + "/first").ok(), "with room it works");
        std::ofstream filler(volume + "/filler", std::ios::binary);
        filler << std::string(2 << 20, 'x');
        filler.close();
        for (int number = 0; number < 20000; ++number) makeFile(volume + "/f" + std::to_string(number));
        const Trash::Result result = trash.move(volume + "/sub folder/file");
        findings.expect(result.ok() || result.error == ENOSPC, result.reason);
        findings.expect(result.ok() != isThere(volume + "/sub folder/file"), "the file is in one place");
        findings.expect(result.ok() == isThere(home2 + "/.local/share/Trash/info/file.trashinfo"),
                        "an info file without a file");
    });
}

TEST_F(TrashVolumes, AMissingHomeIsNotMade) {
    check([&](Findings& findings) {
        setenv("HOME", (volume + "/none").c_str(), 1);
        const std::string result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == "moved to " + volume + "/.Trash-" + user, result);
        findings.expect(!isThere(volume + "/none"), "a home was made");
    });
}

TEST_F(TrashVolumes, TheUsersTrashIsNoLinkAndTheUsersOwn) {
    check([&](Findings& findings) {
        setenv("HOME", volume.c_str(), 1);
        setenv("XDG_DATA_HOME", (volume + "/data").c_str(), 1);
        for (const char* name : {"/data", "/elsewhere"}) mkdir((volume + name).c_str(), 0777);
        findings.expect(symlink("../elsewhere", (volume + "/data/Trash").c_str()) == 0, "no link");
        const std::string own = "moved to " + volume + "/.Trash-" + user;
        std::string result = reasonOf(volume + "/sub folder/file");
        findings.expect(result == own, "a link: " + result);
        findings.expect(rmdir((volume + "/elsewhere").c_str()) == 0, "a link was followed");
        unlink((volume + "/data/Trash").c_str());
        mkdir((volume + "/data/Trash").c_str(), 0777);
        makeFile(volume + "/sub folder/file");
        if (chown((volume + "/data/Trash").c_str(), 65534, 65534) == 0) {
            result = reasonOf(volume + "/sub folder/file");
            findings.expect(result == own, "somebody else's: " + result);
        }
    });
}

TEST_F(TrashVolumes, MountPointsAndWhatHoldsThemAreRefused) {
    check([&](Findings& findings) {
        std::string result = reasonOf(volume);
        findings.expect(result == "a file system is mounted there", result);
        result = reasonOf(temp.path());
        findings.expect(result.starts_with("another file system is mounted in it, at " + volume), result);
    });
}

// The folder is on the same mount as the Trash, and still cannot be renamed.
TEST_F(TrashVolumes, AFolderOfALowerLayerIsRefused) {
    check([&](Findings& findings) {
        for (const char* name : {"/lower", "/lower/folder", "/upper", "/work", "/merged"})
            mkdir((volume + name).c_str(), 0755);
        const std::string merged = volume + "/merged";
        const std::string layers =
            "lowerdir=" + volume + "/lower,upperdir=" + volume + "/upper,workdir=" + volume + "/work,redirect_dir=off";
        if (mount("overlay", merged.c_str(), "overlay", 0, layers.c_str()) != 0) return;  // not every kernel has it
        mkdir((merged + "/home").c_str(), 0755);
        setenv("HOME", (merged + "/home").c_str(), 1);
        const std::string result = reasonOf(merged + "/folder");
        findings.expect(result == "its file system could only copy it, and nothing is copied", result);
        findings.expect(isThere(merged + "/folder") && !isThere(merged + "/.Trash-" + user), "something was done");
        makeFile(merged + "/file");
        const std::string file = reasonOf(merged + "/file");
        findings.expect(file == "moved to " + merged + "/home/.local/share/Trash", file);
    });
}

// A bind mount is another mount of the same file system: the kernel renames nothing across, and neither is copied.
TEST_F(TrashVolumes, ABindMountHasItsOwnToo) {
    check([&](Findings& findings) {
        const std::string original = temp.path("original");
        const std::string bound = temp.path("bound");
        mkdir(original.c_str(), 0777);
        mkdir(bound.c_str(), 0777);
        makeFile(original + "/file");
        findings.expect(mount(original.c_str(), bound.c_str(), nullptr, MS_BIND, nullptr) == 0, "no bind mount");
        const std::string result = reasonOf(bound + "/file");
        findings.expect(result == "moved to " + bound + "/.Trash-" + user, result);
    });
}

}  // namespace
}  // namespace kavaro
