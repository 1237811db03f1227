#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/SafeFolder.h"

namespace kavaro {

// Owner, group and permission bits of a file, kept while a tool rewrites it by its path, and given back to it. The
// folder stays open and no link is followed, so both looks are at the same place. One thread at a time.
class OwnershipKeeper {
  public:
    struct Ownership {
        std::uint32_t owner = 0;
        std::uint32_t group = 0;
        std::uint32_t permissions = 0;  // with the set-ID and sticky bits
    };

    // Looks at the file now. The path is absolute, and no part of it a link.
    explicit OwnershipKeeper(const std::string& path);

    // Of the entry, a link itself; nothing when there is none.
    std::optional<Ownership> before() const;
    std::optional<Ownership> now() const;

    // Gives back what was before, and only to the same file or to one that this process's user made since then: who
    // may rename entries there could otherwise have files of others given to him, or his own to root. Set-ID bits go to
    // the same file alone. 0, or an errno value; EPERM for such a file, ELOOP for a link, EMLINK for one with several
    // names.
    int giveBack() const;

  private:
    struct Look {
        Ownership ownership;
        std::uint32_t mode = 0, links = 0;
        std::uint32_t deviceMajor = 0, deviceMinor = 0;
        std::uint64_t inode = 0;
        std::int64_t birth = 0;  // nanoseconds since 1970; 0 where the file system keeps none
    };
    static int look(int folder, const char* name, Look* look);
    bool mayHave(const Look& now) const;

    SafePlace _place;
    int _error = 0;  // of the first look
    Look _before;
    std::int64_t _start = 0;  // nanoseconds since 1970, by the clock of file times
};

}  // namespace kavaro
