#pragma once

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/Catalog.h"

namespace kavaro {

// A disk too large to be kept in memory: what a folder holds is worked out from its path when it is listed. Files are
// named file-number-0 ... and hold 10 bytes in 512; folders are named 0, 1 ... and come first.
class GeneratedCatalog final : public Catalog {
  public:
    struct Shape {
        int folders = 0;
        int files = 0;
    };
    using ShapeOf = std::function<Shape(const std::string& path)>;

    explicit GeneratedCatalog(ShapeOf shapeOf) : _shapeOf(std::move(shapeOf)) {}

    bool stat(const std::string&, CatalogStat* result, int*) override {
        *result = {++_state->lastID, true, 0, 4096, 4096};
        return true;
    }
    bool reference(const std::string& path, FileReference* result, int*) override {
        *result = {};
        result->isDirectory = true;
        result->fd = open("/dev/null", O_RDONLY | O_CLOEXEC);  // a number of its own, given back by the reference
        std::lock_guard lock(_mutex);
        _shapes[result->fd] = _shapeOf(path);
        return true;
    }
    std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int*) override {
        std::lock_guard lock(_mutex);
        const Shape shape = _shapes.at(reference.fd);
        return std::make_unique<Iterator>(std::move(reference), shape, _state);
    }
    int entriesDelivered() const { return _state->delivered; }

  private:
    struct State {
        std::atomic<std::uint32_t> lastID{1};
        std::atomic<int> delivered{0};
    };
    class Iterator final : public CatalogIterator {
      public:
        Iterator(FileReference reference, Shape shape, std::shared_ptr<State> state)
            : _reference(std::move(reference)), _shape(shape), _state(std::move(state)) {}
        CatalogStatus nextEntries(CatalogEntry* entries, int* count) override {
            const int total = _shape.folders + _shape.files;
            *count = 0;
            for (; *count < kEntriesPerCall && _next < total; ++_next) {
                const bool isFolder = _next < _shape.folders;
                std::string& name = _names[*count];
                name = isFolder ? std::to_string(_next) : "file-number-" + std::to_string(_next - _shape.folders);
                CatalogEntry& entry = entries[(*count)++];
                entry = {};
                entry.name = name;
                entry.nodeID = ++_state->lastID;
                entry.isDirectory = isFolder;
                entry.contentModDate = catalogDate(0);
                if (isFolder) continue;
                entry.logicalSize = 10;
                entry.physicalSize = 512;
            }
            _state->delivered += *count;
            return _next == total ? CatalogStatus::noMoreItems : CatalogStatus::ok;
        }
        int error() const override { return 0; }
        int unreadableEntries() const override { return 0; }

      private:
        const FileReference _reference;
        const Shape _shape;
        const std::shared_ptr<State> _state;
        std::string _names[kEntriesPerCall];
        int _next = 0;
    };

    const ShapeOf _shapeOf;
    std::shared_ptr<State> _state = std::make_shared<State>();
    std::mutex _mutex;
    std::map<int, Shape> _shapes;  // by descriptor; a number is used again after its reference has gone
};

}  // namespace kavaro
