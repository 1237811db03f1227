#include "platform/Localization.h"

#include <libintl.h>
#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <mutex>

#include "platform/Environment.h"
#include "platform/Resources.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr const char* kDomain = "kavaro";

struct Translations {
    std::mutex mutex;
    bool isReady = false;
    locale_t locale = nullptr;  // null: default words for everything
};

Translations& translations() {
    static Translations translations;
    return translations;
}

bool isNoLanguage(std::string_view locale) {
    return locale == "C" || locale == "POSIX";
}

// "de_AT.UTF-8@euro" -> "de_AT@euro"
std::string withoutCharacterSet(std::string_view locale) {
    const std::size_t dot = locale.find('.');
    if (dot == std::string_view::npos) return std::string(locale);
    const std::size_t modifier = locale.find('@', dot);
    std::string name(locale.substr(0, dot));
    if (modifier != std::string_view::npos) name += locale.substr(modifier);
    return name;
}

// Two to eight letters, then the parts that names have, but nothing that leads to other folders.
bool isLanguageName(std::string_view name) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const auto isPart = [&](char c) {
        return isLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '@';
    };
    const auto end = std::find_if_not(name.begin(), name.end(), isLetter);
    const auto letters = end - name.begin();
    if (letters < 2 || letters > 8) return false;
    return end == name.end() ||
           (std::string_view("_-@").find(*end) != std::string_view::npos && std::all_of(end, name.end(), isPart));
}

bool isEnglish(std::string_view name) {
    return name.starts_with("en") && (name.size() == 2 || name[2] == '_' || name[2] == '-' || name[2] == '@');
}

// The default words are English: languages that the user wants less have no say.
std::string languagesBeforeEnglish() {
    std::string list;
    for (const std::string& language : userLanguages()) {
        if (isEnglish(language)) break;
        if (!list.empty()) list += ':';
        list += language;
    }
    return list;
}

// REQUIRES: the mutex is held.
void prepare(Translations& all) {
    all.isReady = true;
    if (all.locale) freelocale(all.locale);
    all.locale = nullptr;
    const std::string languages = languagesBeforeEnglish();
    const std::string resources = resourcesFolder();
    if (languages.empty() || resources.empty()) return;
    // gettext takes no notice of LANGUAGE in the locale "C", and of no other name that is not installed; this one is
    // part of the C library.
    all.locale = newlocale(LC_MESSAGES_MASK, "C.UTF-8", nullptr);
    if (!all.locale) return;
    if (environmentVariable("LANGUAGE") != languages) setenv("LANGUAGE", languages.c_str(), 1);
    bindtextdomain(kDomain, stringByAppendingPathComponent(resources, "locale").c_str());
    bind_textdomain_codeset(kDomain, "UTF-8");
    textdomain(textdomain(nullptr));  // forgets what was found in another language
}

}  // namespace

std::vector<std::string> userLanguages() {
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (locale.empty()) locale = environmentVariable(name);
    }
    if (isNoLanguage(locale)) return {};
    std::string list = environmentVariable("LANGUAGE");
    if (list.empty()) list = locale;
    std::vector<std::string> languages;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(':', begin), list.size());
        std::string name = withoutCharacterSet(std::string_view(list).substr(begin, end - begin));
        begin = end + 1;
        if (isNoLanguage(name)) break;
        if (isLanguageName(name)) languages.push_back(std::move(name));
    }
    return languages;
}

void useUserLanguage() {
    Translations& all = translations();
    std::lock_guard lock(all.mutex);
    prepare(all);
}

std::string localized(std::string_view key, std::string_view defaultWords) {
    Translations& all = translations();
    std::lock_guard lock(all.mutex);
    if (!all.isReady) prepare(all);
    const std::string id(key);
    if (!all.locale || id.empty()) return std::string(defaultWords);  // an empty id is the catalog's own description
    const locale_t before = uselocale(all.locale);
    const char* text = dgettext(kDomain, id.c_str());
    uselocale(before);
    return text == id.c_str() ? std::string(defaultWords) : text;
}

}  // namespace kavaro
