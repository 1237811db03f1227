#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/PropertyList.h"

namespace kavaro {

inline constexpr std::string_view kPreferencesDomain = "org.kavaro.Kavaro";

// The user's settings: "-key value" pairs of the command line first, then the preferences file
// $XDG_CONFIG_HOME/DOMAIN.plist (~/.config/DOMAIN.plist), an XML property list that is written atomically and read
// again when it changed. Safe from any thread. Errors are values. A file that cannot be read, or that is no property
// list with a dictionary at its root, reads as empty and is left alone: writing then gives the reason.
// A look-up costs one stat().
class UserDefaults {
  public:
    // The process's own settings in kPreferencesDomain. HOME and XDG_CONFIG_HOME are looked at once, at the first use.
    static UserDefaults& standard();
    explicit UserDefaults(std::string path) : _path(std::move(path)) {}

    // Path of a domain's preferences file for the current HOME and XDG_CONFIG_HOME; empty when there is no home, also
    // in the user database, and for a domain that is no file name.
    static std::string pathOfDomain(std::string_view domain);

    // Takes pairs "-key value" out of the arguments (without the program's name): they win over the file. The last
    // pair of a key counts. A value starts with '-' only when a digit or nothing follows; a key without a value, an
    // argument that starts with "--" and all others are no business of the settings. Replaces earlier pairs.
    void setArguments(const std::vector<std::string>& arguments);

    std::optional<PropertyList> objectForKey(std::string_view key);
    std::optional<std::string> stringForKey(std::string_view key);  // numbers as decimal text
    std::int64_t integerForKey(std::string_view key);               // 0 when absent
    bool boolForKey(std::string_view key);                          // false when absent
    PropertyList all();                                             // the file's dictionary
    // Why the file reads as empty, with its path; empty when it was read or is not there.
    std::string problem();

    // Write through to the file, which only the user may read then; a link is followed. The error text names the path
    // and the reason; empty on success. Processes that write at the same time do not undo each other's changes.
    // A null value removes the key.
    std::string setObject(std::string_view key, PropertyList value);
    std::string removeObject(std::string_view key) { return setObject(key, PropertyList()); }

  private:
    UserDefaults() : _resolvesPath(true) {}

    struct Stamp {                                             // times of the last change, also of owner or mode
        std::int64_t seconds = 0, nanoseconds = 0, size = -1;  // size -1: no file
        std::uint64_t inode = 0;
        bool operator==(const Stamp&) const = default;
    };

    std::optional<PropertyList> find(std::string_view key);  // REQUIRES: _mutex held, as for all below
    void refresh();
    void read();
    std::string write(std::string_view key, PropertyList value);

    std::mutex _mutex;
    bool _resolvesPath = false;  // standard() before its first use
    std::string _path;           // empty: there is none
    PropertyList _arguments;
    PropertyList _file = PropertyList::Dictionary();
    std::string _problem;
    Stamp _stamp;  // of the file when it was read
};

}  // namespace kavaro
