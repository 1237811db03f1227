#include "support/DictionaryHelpers.h"

#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/AccountNames.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

enum class Kind { null, number, text, date, other };

Kind kindOf(const PropertyList& value) {
    if (value.isNull()) return Kind::null;
    if (value.as<bool>() || value.as<std::int64_t>() || value.as<double>()) return Kind::number;
    if (value.string()) return Kind::text;
    if (value.as<PropertyList::Date>()) return Kind::date;
    return Kind::other;
}

template <class Number>
int order(Number a, Number b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

int compareValues(const PropertyList& a, const PropertyList& b) {
    const Kind kind = kindOf(a);
    if (kind != kindOf(b)) return order(kind, kindOf(b));
    switch (kind) {
        case Kind::number:
            if (a.as<double>() || b.as<double>()) return order(a.doubleValue(), b.doubleValue());
            return order(a.intValue(), b.intValue());
        case Kind::text:
            return compare(*a.string(), *b.string());
        case Kind::date:
            return order(a.as<PropertyList::Date>()->secondsSince1970, b.as<PropertyList::Date>()->secondsSince1970);
        default:
            return 0;
    }
}

}  // namespace

std::string descriptionInOneLine(const PropertyList& value) {
    std::string text = value.description();
    std::erase_if(text, [](char c) { return c == '\n' || c == '\r'; });
    return text;
}

bool isSameFileOwner(const PropertyList& attributes) {
    const uid_t user = geteuid();
    if (const PropertyList* number = attributes.get(kFileOwnerAccountID))
        return number->as<std::int64_t>() && number->intValue() == static_cast<std::int64_t>(user);
    const PropertyList* name = attributes.get(kFileOwnerAccountName);
    return name && name->string() && !name->string()->empty() && *name->string() == userName(user);
}

PropertyList changesFromDictionary(const PropertyList& receiver, const PropertyList& other) {
    PropertyList::Dictionary changes;
    if (const PropertyList::Dictionary* entries = other.dictionary())
        for (const auto& [key, value] : *entries)
            if (const PropertyList* old = receiver.get(key); !old || !(*old == value)) changes.emplace_back(key, value);
    return changes;
}

int binaryIndexOfObject(const PropertyList::Array& sorted, const PropertyList& object) {
    const auto found = std::lower_bound(sorted.begin(), sorted.end(), object,
                                        [](const auto& a, const auto& b) { return compareValues(a, b) < 0; });
    if (found == sorted.end() || compareValues(*found, object) != 0) return kObjectNotFound;
    return static_cast<int>(found - sorted.begin());
}

}  // namespace kavaro
