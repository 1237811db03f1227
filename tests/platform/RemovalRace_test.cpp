// Somebody swaps folders for links, and back, while they are removed: nothing outside may be touched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/Removal.h"
#include "platform/Trash.h"

namespace kavaro {
namespace {

constexpr int kRounds = 3000;

// `temp`/outside holds what must stay. `temp`/decoy is a link to it, `temp`/work the place where removals run.
class RemovalRace : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"outside", "outside/sub", "work"}) temp.makeFolder(name);
        for (const char* name : {"outside/kept", "outside/sub/kept", "outside/sub/entry"}) temp.write(name, "x");
        ASSERT_EQ(symlink(temp.path("outside").c_str(), temp.path("decoy").c_str()), 0);
    }

    // Lets two names change places again and again, as fast as it can.
    void swapWhile(const std::string& a, const std::string& b, const std::function<void()>& action) {
        std::atomic<bool> ends{false};
        std::thread swapper([&] {
            while (!ends) {
                if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) ++swaps;
            }
        });
        action();
        ends = true;
        swapper.join();
    }
    void expectUntouched() {
        for (const char* name : {"outside/kept", "outside/sub/kept", "outside/sub/entry"})
            EXPECT_TRUE(isThere(temp.path(name))) << name;
    }

    TempFolder temp;
    std::atomic<int> swaps{0};
};

// The folder that holds the entry is swapped for a link to a folder with an entry of that name.
TEST_F(RemovalRace, APartOfThePathIsSwappedForALink) {
    temp.makeFolder("work/sub");
    int removed = 0;
    swapWhile(temp.path("work"), temp.path("decoy"), [&] {
        for (int round = 0; round < kRounds; ++round) {
            removed += removeItem(temp.path("work/sub/entry"), RemovalKind::tree).ok() ? 1 : 0;
            removed += removeItem(temp.path("decoy/sub/entry"), RemovalKind::tree).ok() ? 1 : 0;
        }
    });
    EXPECT_GT(swaps, 0);
    EXPECT_EQ(removed, 0) << "no such entry is there but outside";
    expectUntouched();
}

// A folder within the tree that goes is swapped for a link while it is walked.
TEST_F(RemovalRace, AFolderWithinIsSwappedForALink) {
    for (int round = 0; round < kRounds / 30; ++round) {
        temp.makeFolder("work/tree");
        for (int folder = 0; folder < 8; ++folder) {
            const std::string name = "work/tree/" + std::to_string(folder);
            temp.makeFolder(name);
            temp.makeFolder(name + "/sub");
            temp.write(name + "/sub/entry", "");
        }
        swapWhile(temp.path("work/tree/3"), temp.path("decoy"), [&] {
            // Swapped back and forth it may not get to its end, which does no harm.
            removeItem(temp.path("work/tree"), RemovalKind::tree);
        });
        expectUntouched();
        TempFolder::removeContents(temp.path("work"));
        if (HasFailure()) break;
        unlink(temp.path("decoy").c_str());
        TempFolder::removeContents(temp.path("decoy"));
        rmdir(temp.path("decoy").c_str());
        ASSERT_EQ(symlink(temp.path("outside").c_str(), temp.path("decoy").c_str()), 0);
    }
    EXPECT_GT(swaps, 0);
}

// The folder that is being emptied is moved away, so that ".." would lead to another place: deep enough that the
// folders above are not held open.
TEST_F(RemovalRace, AFolderOnTheWayIsMovedElsewhere) {
    temp.makeFolder("elsewhere");
    temp.makeFolder("elsewhere/d");
    temp.write("elsewhere/kept", "x");
    temp.write("elsewhere/d/kept", "x");
    for (int round = 0; round < 30; ++round) {
        std::string path = temp.makeFolder("work/tree");
        std::string middle;
        for (int level = 0; level < 60; ++level) {
            path += "/d";
            ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
            if (level == 19) middle = path;
        }
        for (int file = 0; file < 50; ++file)
            close(open((path + "/" + std::to_string(file)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        swapWhile(middle, temp.path("elsewhere/d"), [&] { removeItem(temp.path("work/tree"), RemovalKind::tree); });
        EXPECT_TRUE(isThere(temp.path("elsewhere/kept")));
        expectUntouched();
        TempFolder::removeContents(temp.path("work"));
        TempFolder::removeContents(temp.path("elsewhere"));
        temp.makeFolder("elsewhere/d");
        temp.write("elsewhere/kept", "x");
        if (HasFailure()) break;
    }
    EXPECT_GT(swaps, 0);
}

TEST_F(RemovalRace, MovesToTheTrashFollowNoLinkEither) {
    const ScopedEnvironment home("HOME", temp.makeFolder("home"));
    const ScopedEnvironment data("XDG_DATA_HOME", temp.path("home/data"));
    temp.makeFolder("work/sub");
    Trash trash;
    int moved = 0;
    swapWhile(temp.path("work"), temp.path("decoy"), [&] {
        for (int round = 0; round < kRounds; ++round) {
            moved += trash.move(temp.path("work/sub/entry")).ok() ? 1 : 0;
            moved += trash.move(temp.path("decoy/sub/entry")).ok() ? 1 : 0;
        }
    });
    EXPECT_GT(swaps, 0);
    EXPECT_EQ(moved, 0);
    expectUntouched();
}

}  // namespace
}  // namespace kavaro
