#include "platform/FileDigests.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <random>
#include <string>
#include <thread>

#include "TempFolder.h"
#include "platform/ChildProcess.h"
#include "platform/Clock.h"
#include "platform/Environment.h"
#include "platform/RandomBytes.h"

namespace kavaro {
namespace {

std::string textOf(const FileDigest& digest) {
    return digest.digest ? md5Text(*digest.digest) : errorText(digest.error);
}

std::vector<std::string> textsOf(const std::vector<FileDigest>& digests) {
    std::vector<std::string> texts;
    for (const FileDigest& digest : digests) texts.push_back(textOf(digest));
    return texts;
}

// What the program says of the same files.
std::vector<std::string> byProgram(const std::vector<std::string>& paths) {
    const auto output = runAndRead("/usr/bin/md5sum", paths);
    std::vector<std::string> digests;
    for (std::size_t at = 0; output && at < output->size(); at = output->find('\n', at) + 1)
        digests.push_back(output->substr(at, 32));
    return digests;
}

TEST(FileDigests, AgreeWithTheProgramForEverySetOfLanes) {
    TempFolder folder;
    std::mt19937 random(11);
    std::vector<std::string> paths;
    for (std::size_t border : {std::size_t{0}, std::size_t{64}, kFileReadBytes, 2 * kFileReadBytes})
        for (int off = -2; off <= 2; ++off) {
            const auto length = static_cast<std::int64_t>(border) + off;
            if (length < 0) continue;
            const std::string name = std::to_string(paths.size());
            paths.push_back(folder.write(name, randomBytes(static_cast<std::size_t>(length), random())));
        }
    while (paths.size() < 90) {
        const std::string name = std::to_string(paths.size());
        paths.push_back(folder.write(name, randomBytes(random() % 1200000, random())));
    }
    const std::vector<std::string> wanted = byProgram(paths);
    ASSERT_EQ(wanted.size(), paths.size());
    EXPECT_EQ(textsOf(md5OfFiles(paths)), wanted);
    for (const MD5Kernel& kernel : md5KernelsOfProcessor()) {
        EXPECT_EQ(textsOf(md5OfFiles(paths, chooseMD5Kernels({kernel}))), wanted) << kernel.name;
    }
}

TEST(FileDigests, ASingleFileIsNoOtherThanOneOfMany) {
    TempFolder folder;
    for (std::size_t length : {std::size_t{0}, std::size_t{1}, kFileReadBytes - 1, kFileReadBytes, 1000000ul}) {
        const std::string path = folder.write("file", randomBytes(length, 5));
        const std::string wanted = byProgram({path}).at(0);
        EXPECT_EQ(textsOf(md5OfFiles({path})), std::vector<std::string>{wanted});
        EXPECT_EQ(textsOf(md5OfFiles({path, path})), (std::vector<std::string>{wanted, wanted}));
    }
    EXPECT_TRUE(md5OfFiles({}).empty());
}

TEST(FileDigests, WhatIsNoReadableFileHasAReasonAndDisturbsNoOther) {
    TempFolder folder;
    const std::string good = folder.write("good", "abc");
    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(symlink("nowhere", folder.path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("good", folder.path("link").c_str()), 0);
    const std::vector<std::string> paths = {
        folder.path("none"),     good, folder.makeFolder("folder"), fifo, "", good + std::string(1, '\0') + "x",
        folder.path("dangling"), good, folder.path("link")};
    const std::vector<FileDigest> digests = md5OfFiles(paths);
    const std::string digest = "900150983cd24fb0d6963f7d28e17f72";
    EXPECT_EQ(digests[0].error, ENOENT);
    EXPECT_EQ(textOf(digests[1]), digest);
    EXPECT_EQ(digests[2].error, EISDIR);
    EXPECT_EQ(digests[3].error, EINVAL);
    EXPECT_EQ(digests[4].error, ENOENT);
    EXPECT_EQ(digests[5].error, ENOENT);
    EXPECT_EQ(digests[6].error, ENOENT);
    EXPECT_EQ(textOf(digests[7]), digest);
    EXPECT_EQ(textOf(digests[8]), digest);
    for (std::size_t i : {0, 2, 3, 4, 5, 6}) {
        const std::vector<FileDigest> alone = md5OfFiles({paths[i]});
        EXPECT_EQ(alone[0].error, digests[i].error);
        EXPECT_FALSE(alone[0].digest);
    }
}

TEST(FileDigests, FilesOfTheKernelThatHoldMoreThanTheySayHaveNone) {
    struct stat info {};
    ASSERT_EQ(stat("/proc/self/status", &info), 0);
    ASSERT_EQ(info.st_size, 0);
    EXPECT_EQ(md5OfFiles({"/proc/self/status"})[0].error, ESTALE);
    EXPECT_EQ(md5OfFiles({"/proc/self/status", "/proc/self/maps"})[1].error, ESTALE);
}

// Changes a file over and over while it is read.
class ChangingFile {
  public:
    ChangingFile(const std::string& path, void (*change)(const std::string& path, int round)) {
        _thread = std::thread([this, path, change] {
            for (int round = 0; !_stop; ++round) {
                change(path, round);
                _isChanged = true;
            }
        });
        while (!_isChanged) std::this_thread::yield();
    }
    ~ChangingFile() {
        _stop = true;
        _thread.join();
    }

  private:
    std::atomic<bool> _stop{false};
    std::atomic<bool> _isChanged{false};  // for the first time
    std::thread _thread;
};

constexpr std::size_t kLarge = 6 * kFileReadBytes;

// What has to meet by chance meets soon, however busy the machine is.
class Patience {
  public:
    bool isLeft() const { return Clock::system().monotonicSeconds() < _end; }

  private:
    const double _end = Clock::system().monotonicSeconds() + 60;
};

TEST(FileDigests, AFileThatChangesItsSizeWhileItIsReadHasNone) {
    TempFolder folder;
    const std::string path = folder.write("file", std::string(kLarge, 'x'));
    const std::string still = folder.write("still", "abc");
    const std::string whole = textsOf(md5OfFiles({path}))[0];
    ASSERT_EQ(truncate(path.c_str(), kLarge / 2), 0);
    const std::string half = textsOf(md5OfFiles({path}))[0];
    ChangingFile changing(path, [](const std::string& name, int round) {
        // Grows with zeros: neither of the two contents comes back.
        ASSERT_EQ(truncate(name.c_str(), static_cast<off_t>(kLarge + static_cast<std::size_t>(round % 7))), 0);
    });
    int none = 0;
    for (const Patience patience; none < 5 && patience.isLeft();) {
        const std::vector<std::string> texts = textsOf(md5OfFiles({path, still, path}));
        EXPECT_EQ(texts[1], "900150983cd24fb0d6963f7d28e17f72");
        EXPECT_NE(texts[0], whole);
        EXPECT_NE(texts[0], half);
        none += texts[0] == errorText(ESTALE);
        none += textsOf(md5OfFiles({path}))[0] == errorText(ESTALE);
    }
    EXPECT_GE(none, 5);
}

TEST(FileDigests, AFileThatIsWrittenOverWhileItIsReadHasNone) {
    TempFolder folder;
    const std::string path = folder.write("file", std::string(kLarge, 'x'));
    ChangingFile changing(path, [](const std::string& name, int round) {
        const int fd = open(name.c_str(), O_WRONLY | O_CLOEXEC);
        const std::string content(kLarge, round % 2 ? 'x' : 'y');
        ASSERT_EQ(pwrite(fd, content.data(), content.size(), 0), static_cast<ssize_t>(kLarge));
        close(fd);
    });
    int none = 0;
    for (const Patience patience; none < 5 && patience.isLeft();)
        for (const std::string& text : textsOf(md5OfFiles({path, path}))) none += text == errorText(ESTALE);
    EXPECT_GE(none, 5) << "its size is the same all the time";
}

TEST(FileDigests, AFileThatIsCutWhileItIsReadHasNone) {
    TempFolder folder;
    const std::string path = folder.write("file", std::string(kLarge, 'x'));
    const std::string whole = textsOf(md5OfFiles({path}))[0];
    ChangingFile changing(path, [](const std::string& name, int) {
        ASSERT_EQ(truncate(name.c_str(), 1), 0);
        ASSERT_EQ(truncate(name.c_str(), kLarge), 0);
    });
    int none = 0;
    for (const Patience patience; none < 5 && patience.isLeft();) {
        const std::string text = textsOf(md5OfFiles({path, path}))[0];
        EXPECT_NE(text, whole);
        none += text == errorText(ESTALE);
    }
    EXPECT_GE(none, 5);
}

TEST(FileDigests, AFileThatIsRemovedWhileItIsReadHasNone) {
    TempFolder folder;
    const std::string path = folder.path("file");
    const std::string content(kLarge, 'x');
    folder.write("file", content);
    const std::string whole = textsOf(md5OfFiles({path}))[0];
    std::atomic<int> rounds{0};
    int none = 0;
    const Patience patience;
    for (int i = 0; none < 3 && patience.isLeft(); ++i) {
        folder.write("file", content);
        std::thread remover([&] {
            while (rounds.load() == i) std::this_thread::yield();
            unlink(path.c_str());
        });
        rounds = i + 1;
        const FileDigest digest = md5OfFiles({path, path})[0];
        remover.join();
        if (digest.digest) {
            EXPECT_EQ(textOf(digest), whole);
        } else {
            EXPECT_TRUE(digest.error == ESTALE || digest.error == ENOENT) << digest.error;
            none += digest.error == ESTALE;
        }
    }
    EXPECT_GE(none, 3);
}

TEST(FileDigests, ThreadsDoNotDisturbEachOther) {
    TempFolder folder;
    std::vector<std::string> paths, wanted;
    for (unsigned i = 0; i < 40; ++i) {
        const std::string content = randomBytes(1000 * i, i);
        paths.push_back(folder.write(std::to_string(i), content));
        wanted.push_back(md5Text(md5Of(bytesOf(content))));
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 20; ++round) EXPECT_EQ(textsOf(md5OfFiles(paths)), wanted);
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(FileDigests, LeaveNoFileOpen) {
    TempFolder folder;
    std::vector<std::string> paths;
    for (int i = 0; i < 50; ++i) paths.push_back(folder.write(std::to_string(i), std::string(1000, 'x')));
    paths.push_back(folder.makeFolder("folder"));
    const auto lowest = [] {
        const int fd = dup(0);
        close(fd);
        return fd;
    };
    const int before = lowest();
    for (int i = 0; i < 30; ++i) md5OfFiles(paths);
    EXPECT_EQ(lowest(), before);
}

}  // namespace
}  // namespace kavaro
