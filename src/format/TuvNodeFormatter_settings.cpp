#include <algorithm>
#include <limits>

#include "format/FormatLog.h"
#include "format/TuvNodeFormatter.h"
#include "platform/Localization.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

constexpr int kNotLoaded = -1, kShown = 1;
constexpr const char* kCountKey = "displayCountImageType";
constexpr const char* kIconKey = "displayFileIcon";

int displayCount = kNotLoaded;
int displayIcon = kNotLoaded;

int storedValue(const char* key) {
    const auto value = UserDefaults::standard().objectForKey(key);
    using Limits = std::numeric_limits<int>;
    return value ? static_cast<int>(std::clamp<std::int64_t>(value->intValue(), Limits::min(), Limits::max())) : 0;
}

void store(const char* selector, const char* key, int value) {
    const std::string error = UserDefaults::standard().setObject(key, std::to_string(value));
    if (!error.empty()) TuvLog::error(tuvNodeFormatterLog, selector, "%@", error);
}

// Whether the file icon's setting is read depends on the counts', which it never loads.
void loadIconUnlessCountIsLoaded() {
    if (displayCount == kNotLoaded) displayIcon = storedValue(kIconKey);
}

}  // namespace

int TuvNodeFormatter::displayCountImageType() {
    if (displayCount == kNotLoaded) displayCount = storedValue(kCountKey);
    return displayCount;
}

void TuvNodeFormatter::setDisplayCountImageType(int type) {
    store("setDisplayCountImageType", kCountKey, type);
    displayCount = type;
}

int TuvNodeFormatter::displayFileIcon() {
    loadIconUnlessCountIsLoaded();
    return displayIcon;
}

void TuvNodeFormatter::setDisplayFileIcon(int type) {
    store("setDisplayFileIcon", kIconKey, type);
    displayIcon = type;
}

std::string TuvNodeFormatter::displayCountMenuTitle() {
    return displayCountImageType() == kShown ? localized("kTuvNodeFormatter02", "Hide File Counts")
                                             : localized("kTuvNodeFormatter01", "Show File Counts");
}

std::string TuvNodeFormatter::displayFileIconMenuTitle() {
    loadIconUnlessCountIsLoaded();
    return displayIcon == kShown ? localized("kTuvNodeFormatter04", "Hide File Icon")
                                 : localized("kTuvNodeFormatter03", "Show File Icon");
}

}  // namespace kavaro
