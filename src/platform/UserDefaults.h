#pragma once

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
// again when it changed. Safe from any thread. Errors are values; a malformed file reads as empty.
class UserDefaults {
  public:
    // The process's own settings in kPreferencesDomain.
    static UserDefaults& standard();
    explicit UserDefaults(std::string path) : _path(std::move(path)) {}

    // Path of a domain's preferences file for the current HOME and XDG_CONFIG_HOME; empty when neither is set.
    static std::string pathOfDomain(std::string_view domain);

    // Takes pairs "-key value" out of the arguments (without the program's name): they win over the file.
    void setArguments(const std::vector<std::string>& arguments);

    std::optional<PropertyList> objectForKey(std::string_view key);
    std::optional<std::string> stringForKey(std::string_view key);  // numbers as decimal text
    std::int64_t integerForKey(std::string_view key);               // 0 when absent
    bool boolForKey(std::string_view key);                          // false when absent
    PropertyList all();                                             // the file's dictionary

    // Write through to the file. The error text names the path and the reason; empty on success.
    std::string setObject(std::string_view key, PropertyList value);
    std::string removeObject(std::string_view key);

  private:
    void refresh();  // REQUIRES: _mutex held
    std::string store();
    std::mutex _mutex;
    std::string _path;  // empty: not yet resolved (standard()) or no home
    PropertyList _arguments;
    PropertyList _file;
    struct Stamp {
        std::int64_t seconds = 0, nanoseconds = 0, size = -1;
        std::uint64_t inode = 0;
        bool operator==(const Stamp&) const = default;
    } _stamp;
};

}  // namespace kavaro
