// The bare limit that walks are measured against: getdents64 and statx per entry on N threads that share one stack of
// folders. Adds up blocks and keeps nothing.
//
//     walk_limit FOLDER [THREADS]
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

struct DirectoryEntry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t length;
    std::uint8_t type;
    char name[1];  // and more: up to the entry's length
};

constexpr std::uint8_t kDirectoryType = 4;

std::mutex mutex;
std::condition_variable changed;
std::vector<std::string> folders;  // guarded by mutex
int busy = 0;                      // guarded by mutex
std::atomic<unsigned long> fileCount{0}, folderCount{0}, blockCount{0};

bool isDots(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

void list(const std::string& path, std::vector<char>& buffer, std::vector<std::string>& found) {
    const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return;
    unsigned long files = 0, blocks = 0;
    long length;
    while ((length = syscall(SYS_getdents64, fd, buffer.data(), buffer.size())) > 0) {
        for (long at = 0; at < length;) {
            const auto* entry = reinterpret_cast<const DirectoryEntry*>(buffer.data() + at);
            at += entry->length;
            if (isDots(entry->name)) continue;
            if (entry->type == kDirectoryType) {
                found.push_back(path + "/" + entry->name);
            } else {
                ++files;
            }
            struct statx about;
            const int flags = AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC;
            if (statx(fd, entry->name, flags, STATX_BASIC_STATS, &about) == 0) blocks += about.stx_blocks;
        }
    }
    close(fd);
    fileCount += files;
    folderCount += found.size();
    blockCount += blocks;
}

void work() {
    std::vector<char> buffer(65536);
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [] { return !folders.empty() || busy == 0; });
        if (folders.empty()) break;
        const std::string path = std::move(folders.back());
        folders.pop_back();
        ++busy;
        lock.unlock();
        std::vector<std::string> found;
        list(path, buffer, found);
        lock.lock();
        --busy;
        for (std::string& folder : found) folders.push_back(std::move(folder));
        changed.notify_all();
    }
    changed.notify_all();
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2) return 2;
    const int threads = count > 2 ? std::atoi(arguments[2]) : 1;
    const auto start = std::chrono::steady_clock::now();
    folders.emplace_back(arguments[1]);
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i) pool.emplace_back(work);
    for (std::thread& thread : pool) thread.join();
    const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - start;
    std::printf("%lu files %lu folders %lu KiB %.1f ms\n", fileCount.load(), folderCount.load(), blockCount.load() / 2,
                spent.count());
}
