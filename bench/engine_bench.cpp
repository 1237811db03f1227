// engine_bench PATH: the sizing engine alone, in this process, with observers that drop what they are given. Prints one
// line: folders, files, the milliseconds that the engine itself says the job took, and the peak memory of the process.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "factory/TuvNodeFactory.h"
#include "platform/NotificationCenter.h"
#include "platform/RunLoop.h"
#include "support/ProtocolNames.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

constexpr double kLongestJob = 24 * 3600;  // seconds

// The disk, with what it delivers counted. One thread lists.
class CountingCatalog final : public Catalog {
  public:
    struct Counts {
        long folders = 0;
        long files = 0;
    };

    CountingCatalog(std::shared_ptr<Catalog> disk, Counts* counts) : _disk(std::move(disk)), _counts(counts) {}
    bool stat(const std::string& path, CatalogStat* result, int* error) override {
        return _disk->stat(path, result, error);
    }
    bool reference(const std::string& path, FileReference* result, int* error) override {
        return _disk->reference(path, result, error);
    }
    std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int* error) override {
        auto iterator = _disk->openIterator(std::move(reference), error);
        return iterator ? std::make_unique<Iterator>(std::move(iterator), _counts) : nullptr;
    }

  private:
    class Iterator final : public CatalogIterator {
      public:
        Iterator(std::unique_ptr<CatalogIterator> disk, Counts* counts) : _disk(std::move(disk)), _counts(counts) {}
        CatalogStatus nextEntries(CatalogEntry* entries, int* count) override {
            const CatalogStatus status = _disk->nextEntries(entries, count);
            for (int i = 0; i < *count; ++i) ++(entries[i].isDirectory ? _counts->folders : _counts->files);
            return status;
        }
        int error() const override { return _disk->error(); }
        int unreadableEntries() const override { return _disk->unreadableEntries(); }

      private:
        const std::unique_ptr<CatalogIterator> _disk;
        Counts* const _counts;
    };

    const std::shared_ptr<Catalog> _disk;
    Counts* const _counts;
};

int measure(const char* path) {
    TuvLog::setDefaultLevel(LogLevel::error);
    CountingCatalog::Counts counts;
    ScanSession::setCatalogFactory([&counts](const std::string& root) {
        return std::make_shared<CountingCatalog>(Catalog::forRoot(root, {}), &counts);
    });
    TuvNodeFactory::Surroundings surroundings;
    surroundings.durations.setUpPause = 0;
    TuvNodeFactory::setSurroundings(surroundings);
    TuvNodeFactory* engine = TuvNodeFactory::sharedInstance();
    engine->setLocalWorker(true);

    bool completed = false;
    std::size_t bytes = 0;
    NotificationCenter::defaultCenter().addObserver("", [&](const NotificationCenter::Notification& notification) {
        const auto* data = std::any_cast<std::shared_ptr<const ByteBuffer>>(&notification.object);
        if (data && *data) bytes += (*data)->size();
        completed = completed || notification.name == TuvNodeFactoryCompletedNotification;
    });
    engine->startWorkingAtPath(path);
    if (bytes == 0) return 1;  // not started; the engine has said why
    if (!RunLoop::main().runUntil([&] { return completed; }, kLongestJob)) return 1;

    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%ld folders, %ld files, %.1f ms, %ld KiB at most, %zu bytes of records\n", counts.folders + 1,
                counts.files, engine->lastJobMilliseconds(), usage.ru_maxrss, bytes);
    return 0;
}

}  // namespace

}  // namespace kavaro

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: engine_bench PATH\n");
        return 2;
    }
    const int status = kavaro::measure(arguments[1]);
    // The engine's threads live as long as the process: nothing of it may be taken down under them.
    std::fflush(nullptr);
    _exit(status);
}
