// Lists of menu items: the program's own, the user's, and their forms.
#include <fcntl.h>
#include <unistd.h>

#include "filters/FiltersLog.h"
#include "filters/TuvNodeFilter.h"
#include "platform/FileContent.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

using Items = TuvNodeFilterItem::Items;

constexpr const char* kCustomSizeItems = "customSizeItems";
constexpr const char* kCustomLastModifiedItems = "customLastModifiedItems";

const Items* defaultItems(const char* selector, const char* name) {
    const std::string path = stringByAppendingPathComponent(resourcesFolder(), name);
    std::optional<Items> items = TuvNodeFilterItem::itemsFromFile(path);
    if (!items) TuvLog::error(tuvNodeFilterItemLog, selector, "\"%@\" is no list of menu items", path);
    return new Items(items ? std::move(*items) : Items());
}

PropertyList::Array readCustomItems(const char* key) {
    PropertyList::Array ivars;
    const std::optional<PropertyList> value = UserDefaults::standard().objectForKey(key);
    if (!value || !value->array()) return ivars;
    for (const PropertyList& item : *value->array())
        if (item.dictionary()) ivars.push_back(item);
    return ivars;
}

void writeCustomItems(const char* selector, const char* key, const PropertyList::Array& ivars) {
    const std::string error = UserDefaults::standard().setObject(key, ivars);
    if (!error.empty()) TuvLog::error(tuvNodeFilterItemLog, selector, "%@", error);
    TuvNodeFilter::resetFileSizes();
}

}  // namespace

std::optional<Items> TuvNodeFilterItem::itemsFromFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string content;
    const int error = readWholeFile(fd, &content);
    close(fd);
    if (error != 0) return std::nullopt;
    const std::optional<PropertyList> root = PropertyList::fromBytes(bytesOf(content));
    if (!root || !root->array()) return std::nullopt;
    return ivars_toTuvNodeFilterItem(*root->array());
}

const Items& TuvNodeFilterItem::defaultFileSizeItems() {
    static const Items* items = defaultItems("defaultFileSizeItems", "defaultFileSizeItems.plist");
    return *items;
}

const Items& TuvNodeFilterItem::defaultLastModifiedItems() {
    static const Items* items = defaultItems("defaultLastModifiedItems", "defaultLastModifiedItems.plist");
    return *items;
}

PropertyList::Array TuvNodeFilterItem::customSizeItems() {
    return readCustomItems(kCustomSizeItems);
}

void TuvNodeFilterItem::setCustomSizeItems(const PropertyList::Array& ivars) {
    writeCustomItems("setCustomSizeItems", kCustomSizeItems, ivars);
}

PropertyList::Array TuvNodeFilterItem::customLastModifiedItems() {
    return readCustomItems(kCustomLastModifiedItems);
}

void TuvNodeFilterItem::setCustomLastModifiedItems(const PropertyList::Array& ivars) {
    writeCustomItems("setCustomLastModifiedItems", kCustomLastModifiedItems, ivars);
}

PropertyList::Array toTuvNodeFilterItem_ivars(const Items& items) {
    PropertyList::Array ivars;
    for (const auto& item : items) ivars.push_back(item->ivars());
    return ivars;
}

std::vector<std::string> toTuvNodeFilterItem_title(const Items& items) {
    std::vector<std::string> titles;
    for (const auto& item : items) titles.push_back(item->title());
    return titles;
}

Items ivars_toTuvNodeFilterItem(const PropertyList::Array& ivars) {
    Items items;
    for (const PropertyList& item : ivars)
        if (item.dictionary()) items.push_back(TuvNodeFilterItem::initWithIvars(item));
    return items;
}

}  // namespace kavaro
