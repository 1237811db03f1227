#pragma once

#include <dirent.h>

#include <memory>

#include "platform/DiskCatalog.h"

namespace kavaro {

// Lists one folder: names in large pieces into one buffer, then one record per entry, asked for relative to the open
// folder. A call stops at the end of a piece, so that the names it delivered stay where they are.
class DiskCatalogIterator final : public CatalogIterator {
  public:
    // Without identities (a reference that must not be listed) an iterator without entries.
    DiskCatalogIterator(std::shared_ptr<DiskCatalog> catalog, NodeIdentity* identity, FileReference reference);
    ~DiskCatalogIterator() override;

    CatalogStatus nextEntries(CatalogEntry* entries, int* count) override;
    int error() const override { return _error; }
    int unreadableEntries() const override { return _unreadable; }

  private:
    bool readNames();
    bool readEntry(const char* name, CatalogEntry* entry);

    const std::shared_ptr<DiskCatalog> _catalog;
    NodeIdentity* const _identity;
    const FileReference _reference;
    DiskCatalog::Buffer _buffer;
    const char* _next = nullptr;  // the names not yet delivered, in _buffer
    const char* _end = nullptr;
    CatalogStatus _status = CatalogStatus::ok;
    int _error = 0;
    int _unreadable = 0;
};

}  // namespace kavaro
