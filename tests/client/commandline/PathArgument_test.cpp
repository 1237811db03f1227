#include "client/commandline/PathArgument.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <functional>

#include "TempFolder.h"

namespace kavaro {
namespace {

// Goes to a folder and comes back.
class CurrentFolder {
  public:
    explicit CurrentFolder(const std::string& path) : _before(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        EXPECT_EQ(chdir(path.c_str()), 0) << path;
    }
    ~CurrentFolder() {
        EXPECT_EQ(fchdir(_before), 0);
        close(_before);
    }

  private:
    int _before;
};

// TMPDIR may lead through links; the current folder is told without them.
std::string realOf(const std::string& path) {
    char* real = realpath(path.c_str(), nullptr);
    const std::string result = real ? real : "";
    free(real);
    return result;
}

// The path, or "failure: " and the text.
std::string checked(std::string_view argument) {
    const PathArgument result = checkFolder(argument, true);
    return result.failure.empty() ? result.path : "failure: " + result.failure;
}

TEST(PathArgument, absolutePathStays) {
    TempFolder folder;
    EXPECT_EQ(checked(folder.path()), folder.path());
    EXPECT_EQ(checked("/"), "/");
}

TEST(PathArgument, needlessPartsGo) {
    TempFolder folder;
    folder.makeFolder("a");
    EXPECT_EQ(checked("//" + folder.path() + "/.//a/./"), folder.path("a"));
    EXPECT_EQ(checked("/./"), "/");
}

TEST(PathArgument, relativePathBeginsAtTheCurrentFolder) {
    TempFolder folder;
    folder.makeFolder("a");
    CurrentFolder current(folder.path());
    EXPECT_EQ(checked("a"), realOf(folder.path()) + "/a");
    EXPECT_EQ(checked("./a/"), realOf(folder.path()) + "/a");
    EXPECT_EQ(checked("."), realOf(folder.path()));
}

TEST(PathArgument, linksAreKept) {
    TempFolder folder;
    folder.makeFolder("a");
    ASSERT_EQ(symlink("a", folder.path("link").c_str()), 0);
    EXPECT_EQ(checked(folder.path("link")), folder.path("link"));
    EXPECT_EQ(checked(folder.path("link/")), folder.path("link"));
}

TEST(PathArgument, dotDotIsFollowedThroughLinks) {
    TempFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/b");
    ASSERT_EQ(symlink("a/b", folder.path("link").c_str()), 0);
    EXPECT_EQ(checked(folder.path("link/..")), realOf(folder.path()) + "/a");
    EXPECT_EQ(checked("/.."), "/");
}

TEST(PathArgument, missingFolder) {
    TempFolder folder;
    EXPECT_EQ(checked(folder.path("none")),
              "failure: " + folder.path("none") + ": no such folder. Check the spelling.");
    EXPECT_EQ(checked(folder.path("none/..")),
              "failure: " + folder.path("none/..") + ": no such folder. Check the spelling.");
}

TEST(PathArgument, file) {
    TempFolder folder;
    const std::string file = folder.write("file", "x");
    EXPECT_EQ(checked(file), "failure: " + file + ": is not a folder. Name the folder that holds it.");
    EXPECT_EQ(checked(file + "/x"),
              "failure: " + file + "/x: a part of the path is a file, not a folder. Check the spelling.");
}

TEST(PathArgument, empty) {
    EXPECT_EQ(checked(""), "failure: the path is empty. Name a folder, for example \".\" for the current one.");
}

TEST(PathArgument, links) {
    TempFolder folder;
    ASSERT_EQ(symlink("nowhere", folder.path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("circle", folder.path("circle").c_str()), 0);
    EXPECT_EQ(checked(folder.path("dangling")),
              "failure: " + folder.path("dangling") +
                  ": is a link to something that does not exist. Name an existing folder.");
    EXPECT_EQ(checked(folder.path("circle")),
              "failure: " + folder.path("circle") +
                  ": its links lead in a circle. Name a folder that the links do not pass through.");
}

TEST(PathArgument, anyBytesAreKept) {
    TempFolder folder;
    const std::string odd = folder.makeFolder("a\nb\xFF\x1b[31m");
    EXPECT_EQ(checked(odd), odd);
    EXPECT_EQ(checked(odd + "/x"),
              "failure: " + folder.path() + "/a\\nb\\xff\\x1b[31m/x: no such folder. Check the spelling.");
}

TEST(PathArgument, pathOf5000BytesThatExists) {
    TempFolder folder;
    const std::string name(249, 'n');
    std::string path = folder.path();
    {
        CurrentFolder current(folder.path());
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(mkdir(name.c_str(), 0777), 0);
            ASSERT_EQ(chdir(name.c_str()), 0);
            path += "/" + name;
        }
        ASSERT_GT(path.size(), 5000U);
        EXPECT_EQ(checked("."), realOf(folder.path()) + path.substr(folder.path().size()));
    }
    EXPECT_EQ(checked(path), path);
    EXPECT_NE(checked(path + "/none").find(": no such folder. Check the spelling."), std::string::npos);
    EXPECT_NE(checked(path + "/..").find(": too long to follow its \"..\" parts."), std::string::npos);
}

TEST(PathArgument, nameOf5000Bytes) {
    const std::string path = "/" + std::string(5000, 'n');
    EXPECT_EQ(checked(path),
              "failure: " + path + ": a name in the path is longer than a name can be. Check the spelling.");
}

// Runs the check in a child process as a user who owns nothing.
std::string asNobody(const std::function<std::string()>& check) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(1);
        const std::string text = check();
        _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string text(65536, '\0');
    const ssize_t length = read(ends[0], text.data(), text.size());
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return text;
}

TEST(PathArgument, noPermission) {
    TempFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    const std::string closed = folder.makeFolder("closed");
    folder.makeFolder("closed/in");
    ASSERT_EQ(chmod(closed.c_str(), 0), 0);
    const std::string denied = ": permission denied. Run kavaro as a user who may read it, or with sudo.";
    EXPECT_EQ(asNobody([&] { return checked(closed); }), "failure: " + closed + denied);
    EXPECT_EQ(asNobody([&] { return checked(closed + "/in"); }), "failure: " + closed + "/in" + denied);
    // A server with more rights may be asked.
    EXPECT_EQ(asNobody([&] { return checkFolder(closed, false).failure; }), "");
}

TEST(PathArgument, folderWithoutLinks) {
    TempFolder folder;
    const std::string real = folder.makeFolder("real");
    const std::string in = folder.makeFolder("real/in");
    ASSERT_EQ(symlink("real", folder.path("link").c_str()), 0);
    EXPECT_EQ(pathWithoutLinks(folder.path("link/in")), pathWithoutLinks(in));
    EXPECT_EQ(pathWithoutLinks(folder.path("link")), pathWithoutLinks(folder.path()) + "/real");
    EXPECT_EQ(pathWithoutLinks("/"), "/");
    EXPECT_EQ(pathWithoutLinks(folder.path("none")), folder.path("none"));
}

TEST(PathArgument, currentFolderIsGone) {
    TempFolder folder;
    CurrentFolder current(folder.makeFolder("gone"));
    ASSERT_EQ(rmdir(folder.path("gone").c_str()), 0);
    EXPECT_EQ(checked("x"),
              "failure: x: the current folder is gone, so a relative path leads nowhere. "
              "Give the whole path, beginning with \"/\".");
}

}  // namespace
}  // namespace kavaro
