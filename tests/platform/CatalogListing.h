#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Catalog.h"

namespace kavaro {

// A whole listing, and how it ended.
struct CatalogListing {
    std::map<std::string, CatalogEntry> entries;  // by name; the entries' own names are gone
    std::vector<int> counts;                      // of each call
    bool hasDuplicates = false;
    CatalogStatus status = CatalogStatus::ok;
    int error = 0;
    int unreadableEntries = 0;

    bool has(const std::string& name) const { return entries.count(name) != 0; }
    const CatalogEntry& operator[](const std::string& name) const { return entries.at(name); }
};

inline CatalogListing listAll(CatalogIterator& iterator) {
    CatalogListing listing;
    while (listing.status == CatalogStatus::ok) {
        CatalogEntry entries[CatalogIterator::kEntriesPerCall];
        int count = -1;
        listing.status = iterator.nextEntries(entries, &count);
        listing.counts.push_back(count);
        for (int i = 0; i < count; ++i) {
            if (!listing.entries.emplace(entries[i].name, entries[i]).second) listing.hasDuplicates = true;
        }
    }
    listing.error = iterator.error();
    listing.unreadableEntries = iterator.unreadableEntries();
    return listing;
}

// Status error and the errno when the folder cannot be opened.
inline CatalogListing listPath(Catalog& catalog, const std::string& path) {
    CatalogListing failed;
    failed.status = CatalogStatus::error;
    FileReference reference;
    if (!catalog.reference(path, &reference, &failed.error)) return failed;
    auto iterator = catalog.openIterator(std::move(reference), &failed.error);
    return iterator ? listAll(*iterator) : failed;
}

// Runs `body` in a forked child, as user 65534 when `unprivileged` and this is root. Gives the text it returned, or why
// it did not come.
inline std::string inChild(bool unprivileged, const std::function<std::string()>& body) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t pid = fork();
    if (pid < 0) return "no fork";
    if (pid == 0) {
        close(ends[0]);
        std::string text;
        if (unprivileged && geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) text = "cannot change user";
        if (text.empty()) text = body();
        const bool written = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (status != 0) text += "; child ended with status " + std::to_string(status);
    return text;
}

// Collects what a child found wrong: gtest's own checks do not cross the fork.
class Findings {
  public:
    void expect(bool condition, const std::string& what) {
        if (!condition) _text += what + "\n";
    }
    const std::string& text() const { return _text; }

  private:
    std::string _text;
};

}  // namespace kavaro
