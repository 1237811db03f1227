#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct ULocaleDisplayNames;

namespace kavaro {

// Names of languages, written in one of them. Immutable; any thread.
class Locale {
  public:
    // The first of the user's languages (Localization.h) that names are known in, else English. The environment is
    // looked at once.
    static const Locale& current();
    // Of all that the library has data for, in no order: "de", "de_AT", "zh_Hans_CN". The same whatever is installed.
    static std::vector<std::string> availableLocaleIdentifiers();
    static bool hasNames(std::string_view identifier);  // known in that language, whatever its country

    // Takes an identifier with names; others have none.
    explicit Locale(std::string identifier);
    Locale(Locale&&) noexcept;
    ~Locale();

    const std::string& identifier() const { return _identifier; }
    // Of a language code ("fr", "fil", letter case ignored, withdrawn ones such as "iw" included). Nothing for a code
    // that is unknown or no code: the code itself never stands in for the name.
    std::optional<std::string> displayNameForLanguageCode(std::string_view code) const;

  private:
    struct Close {
        void operator()(ULocaleDisplayNames* names) const;
    };

    std::string _identifier;
    std::unique_ptr<ULocaleDisplayNames, Close> _names;  // null: no names
};

}  // namespace kavaro
