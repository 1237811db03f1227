#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Catalog.h"

namespace kavaro {

// A folder whose contents are missing from the totals.
struct MissedFolder {
    std::string path;
    const char* reason;  // one of the kReason texts
};

// The scanner's way to the disk and what it could not read there. A job begins a session of its own, so that node IDs
// are unique within the job; every listing of the process then goes through that session. Safe from any thread.
class ScanSession {
  public:
    explicit ScanSession(std::shared_ptr<Catalog> catalog) : _catalog(std::move(catalog)) {}

    // The session of this thread's Scope, else the process's; one without a job is made when there is none.
    static std::shared_ptr<ScanSession> current();
    // Makes the session of a job on `root` and puts it in the place of the last one.
    static std::shared_ptr<ScanSession> begin(const std::string& root);
    // For a load beside the job. Its nodes must fit the job's tree, so it has the job's catalog; without a job the path
    // stands for itself. What it misses is not missing from the job's totals and stays its own.
    static std::shared_ptr<ScanSession> forOneShot(const std::string& path);

    // While it lives, current() on this thread is `session`.
    class Scope {
      public:
        explicit Scope(std::shared_ptr<ScanSession> session);
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();

      private:
        std::shared_ptr<ScanSession> _outer;
    };

    // What makes catalogs; tests put a fake disk here. An empty function brings the real one back.
    using CatalogFactory = std::function<std::shared_ptr<Catalog>(const std::string& root)>;
    static void setCatalogFactory(CatalogFactory factory);

    Catalog& catalog() const { return *_catalog; }
    void addMissed(std::string path, const char* reason);
    // The folders missed since the last call, in the order of listing.
    std::vector<MissedFolder> takeMissed();

  private:
    static std::shared_ptr<ScanSession> forPath(const std::string& path);

    const std::shared_ptr<Catalog> _catalog;
    std::mutex _mutex;
    std::vector<MissedFolder> _missed;  // guarded by _mutex
};

}  // namespace kavaro
