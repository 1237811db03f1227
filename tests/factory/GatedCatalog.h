#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/Catalog.h"

namespace kavaro {

// Another catalog, with gates: who asks for the reference of a gated path waits there until the gate is opened.
class GatedCatalog final : public Catalog {
  public:
    explicit GatedCatalog(std::shared_ptr<Catalog> inner) : _inner(std::move(inner)) {}

    void gate(const std::string& path) {
        std::lock_guard lock(_mutex);
        _gates.insert(path);
    }
    void open(const std::string& path) {
        std::lock_guard lock(_mutex);
        _gates.erase(path);
        _changed.notify_all();
    }
    void openAll() {
        std::lock_guard lock(_mutex);
        _gates.clear();
        _changed.notify_all();
    }
    // Waits until somebody stands at the path's gate.
    void waitUntilReached(const std::string& path) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [&] { return _waiting == path; });
    }

    bool stat(const std::string& path, CatalogStat* result, int* error) override {
        return _inner->stat(path, result, error);
    }
    bool reference(const std::string& path, FileReference* result, int* error) override {
        {
            std::unique_lock lock(_mutex);
            if (_gates.contains(path)) {
                _waiting = path;
                _changed.notify_all();
                _changed.wait(lock, [&] { return !_gates.contains(path); });
                _waiting.clear();
            }
        }
        return _inner->reference(path, result, error);
    }
    std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int* error) override {
        return _inner->openIterator(std::move(reference), error);
    }

  private:
    const std::shared_ptr<Catalog> _inner;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::set<std::string> _gates;
    std::string _waiting;
};

}  // namespace kavaro
