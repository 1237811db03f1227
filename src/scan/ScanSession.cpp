#include "scan/ScanSession.h"

#include <utility>

#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

struct Shared {
    std::mutex mutex;
    std::shared_ptr<ScanSession> session;  // guarded by mutex
    ScanSession::CatalogFactory factory;   // guarded by mutex
    bool begun = false;                    // guarded by mutex
};

Shared& shared() {
    static Shared& shared = *new Shared;  // the worker thread never ends
    return shared;
}

thread_local std::shared_ptr<ScanSession> scoped;

std::shared_ptr<Catalog> makeCatalog(const std::string& root) {
    ScanSession::CatalogFactory factory;
    {
        std::lock_guard lock(shared().mutex);
        factory = shared().factory;
    }
    if (factory) return factory(root);
    Catalog::Options options;
    options.loadPseudoFileSystems = UserDefaults::standard().integerForKey("loadPseudoFileSystems") == 1;
    options.sameFileSystemOnly = UserDefaults::standard().integerForKey("sameFileSystemOnly") == 1;
    return Catalog::forRoot(root, options);
}

}  // namespace

std::shared_ptr<ScanSession> ScanSession::current() {
    if (scoped) return scoped;
    {
        std::lock_guard lock(shared().mutex);
        if (shared().session) return shared().session;
    }
    auto session = forPath({});
    std::lock_guard lock(shared().mutex);
    if (!shared().session) shared().session = std::move(session);
    return shared().session;
}

std::shared_ptr<ScanSession> ScanSession::begin(const std::string& root) {
    auto session = forPath(root);
    std::lock_guard lock(shared().mutex);
    shared().session = session;
    shared().begun = true;
    return session;
}

std::shared_ptr<ScanSession> ScanSession::forOneShot(const std::string& path) {
    {
        std::lock_guard lock(shared().mutex);
        if (shared().begun) return std::make_shared<ScanSession>(shared().session->_catalog);
    }
    return forPath(path);
}

std::shared_ptr<ScanSession> ScanSession::forPath(const std::string& path) {
    return std::make_shared<ScanSession>(makeCatalog(path));
}

ScanSession::Scope::Scope(std::shared_ptr<ScanSession> session) : _outer(std::exchange(scoped, std::move(session))) {}

ScanSession::Scope::~Scope() {
    scoped = std::move(_outer);
}

void ScanSession::setCatalogFactory(CatalogFactory factory) {
    std::lock_guard lock(shared().mutex);
    shared().factory = std::move(factory);
    shared().session = nullptr;
    shared().begun = false;
}

void ScanSession::addMissed(std::string path, const char* reason) {
    std::lock_guard lock(_mutex);
    _missed.push_back({std::move(path), reason});
}

std::vector<MissedFolder> ScanSession::takeMissed() {
    std::lock_guard lock(_mutex);
    return std::exchange(_missed, {});
}

}  // namespace kavaro
