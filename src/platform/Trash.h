#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/TrashFolder.h"

namespace kavaro {

// Moves entries to the user's Trash by the rules of freedesktop.org: into the Trash of the home folder or, where that
// lies on another volume, into the entry's own volume's, and never by copying. Whether a Trash is on the same volume is
// found by trying. Holds the folders that it used open until it goes: such volumes cannot be unmounted meanwhile. No
// link is followed on the way to an entry, and the entry itself may be one. One thread at a time.
class Trash {
  public:
    struct Result {
        int error = 0;            // errno, 0 when it is in the Trash
        std::string reason;       // for people, without a full stop
        std::string trashFolder;  // where it went
        std::string name;         // what it is called there, below "files"
        bool ok() const { return error == 0; }
    };
    using Now = std::function<double()>;  // seconds since 1970

    Trash();
    explicit Trash(Now now) : _now(std::move(now)) {}

    Result move(const std::string& path);

    // "2026-11-21T02:02:33", local time.
    static std::string dateText(double secondsSince1970);

  private:
    enum Kind { ofUser, sharedOfVolume, ownOfVolume };
    struct Slot {
        bool isTried = false;
        int error = 0;
        std::unique_ptr<TrashFolder> folder;
    };
    Slot& slot(Kind kind, const Mount* mount);
    bool refuses(const SafePlace& place, const std::string& path, Result* result);
    bool tryTo(Slot& slot, const SafePlace& place, std::uint64_t mount, const std::string& path, Result* result);

    const Now _now;
    MountTable _mounts;
    std::map<std::pair<Kind, std::uint64_t>, Slot> _slots;  // by mount; that of the user has none
    std::map<std::uint64_t, Kind> _lastKinds;               // by mount: what took the last entry
};

// Where nobody would look for an entry, who knows the user's Trash and that it is on the entry's volume.
struct TrashDetour {
    std::string userTrash;
    std::string reason;  // why that cannot be used, for people
    std::string trashFolder;
};
// Of what this user moves to the Trash out of a folder; nothing when that goes to the usual place.
std::optional<TrashDetour> trashDetour(const std::string& folder);

}  // namespace kavaro
