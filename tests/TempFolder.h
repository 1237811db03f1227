#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace kavaro {

// Whether anything is at the path, be it a link that leads nowhere.
inline bool isThere(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

// A new folder below TMPDIR (else /tmp) that is removed with all it holds when the object goes: also folders that may
// not be read, and trees deeper than a path may be long. Links are removed and never followed. One descriptor is open
// at a time.
class TempFolder {
  public:
    TempFolder() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/kavaro-test-XXXXXX";
        if (mkdtemp(pattern.data())) {
            _path = pattern;
        } else {
            ADD_FAILURE() << "mkdtemp " << pattern << ": errno " << errno;
        }
    }
    ~TempFolder() {
        if (_path.empty()) return;
        removeContents(_path);
        if (rmdir(_path.c_str()) != 0) ADD_FAILURE() << _path << " cannot be removed: errno " << errno;
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return _path; }
    std::string path(std::string_view name) const { return _path + "/" + std::string(name); }

    // Makes a folder in it and gives its path. The parent must be there.
    std::string makeFolder(std::string_view name) const {
        std::string folder = path(name);
        if (mkdir(folder.c_str(), 0777) != 0) ADD_FAILURE() << "mkdir " << folder << ": errno " << errno;
        return folder;
    }
    // Writes a file in it and gives its path.
    std::string write(std::string_view name, std::string_view content) const {
        std::string file = path(name);
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(content.data(), static_cast<std::streamsize>(content.size()));
        stream.close();
        if (!stream) ADD_FAILURE() << "cannot write " << file;
        return file;
    }
    // What a file in it holds; empty when it cannot be read.
    std::string read(std::string_view name) const {
        std::ifstream stream(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    static void removeContents(const std::string& folder) {
        int fd = openFolder(AT_FDCWD, folder.c_str());
        if (fd < 0) return;
        std::vector<Level> levels;
        levels.push_back({"", clearLeaves(fd)});
        while (true) {
            Level& level = levels.back();
            if (level.folders.empty()) {
                if (levels.size() == 1) break;
                int parent = openat(fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
                close(fd);
                if (parent < 0) return;
                fd = parent;
                unlinkat(fd, level.name.c_str(), AT_REMOVEDIR);
                levels.pop_back();
                continue;
            }
            std::string name = std::move(level.folders.back());
            level.folders.pop_back();
            int child = openFolder(fd, name.c_str());
            if (child < 0) continue;
            close(fd);
            fd = child;
            levels.push_back({name, clearLeaves(fd)});
        }
        close(fd);
    }

  private:
    struct Level {
        std::string name;
        std::vector<std::string> folders;  // not empty, still to remove
    };

    static int openFolder(int parent, const char* name) {
        constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        int fd = openat(parent, name, kFlags);
        if (fd < 0 && errno == EACCES && fchmodat(parent, name, 0700, 0) == 0) fd = openat(parent, name, kFlags);
        struct stat info {};
        if (fd >= 0 && fstat(fd, &info) == 0 && (info.st_mode & 0700) != 0700) fchmod(fd, 0700);
        return fd;
    }

    // Removes files and empty folders of an open folder; gives the names of the folders that are left.
    static std::vector<std::string> clearLeaves(int fd) {
        std::vector<std::string> left;
        int own = openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* stream = own < 0 ? nullptr : fdopendir(own);
        if (!stream) {
            if (own >= 0) close(own);
            return left;
        }
        while (const dirent* entry = readdir(stream)) {
            std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            if (unlinkat(fd, entry->d_name, 0) == 0 || unlinkat(fd, entry->d_name, AT_REMOVEDIR) == 0) continue;
            left.emplace_back(name);
        }
        closedir(stream);
        return left;
    }

    std::string _path;
};

}  // namespace kavaro
