#include "platform/PropertyList.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace kavaro {

namespace {

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The text without blanks and a plus sign at its start, which the number parser does not know.
std::string_view numberPart(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    return text;
}

std::int64_t integerOf(double value) {
    constexpr auto kLowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
    if (std::isnan(value)) return 0;
    if (value <= static_cast<double>(kLowest)) return kLowest;
    if (value >= static_cast<double>(kHighest)) return kHighest;
    return static_cast<std::int64_t>(value);
}

std::int64_t integerOf(std::string_view text) {
    text = numberPart(text);
    std::int64_t value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc::result_out_of_range) return value;
    return text[0] == '-' ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

double doubleOf(std::string_view text) {
    text = numberPart(text);
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// True for a text that starts like "yes" or "true", or with a number other than 0.
bool truthOf(std::string_view text) {
    text = numberPart(text);
    if (text.starts_with('-')) text.remove_prefix(1);
    while (text.starts_with('0')) text.remove_prefix(1);
    return !text.empty() && std::string_view("YyTt123456789").find(text[0]) != std::string_view::npos;
}

const PropertyList* valueIn(const PropertyList::Dictionary& dictionary, std::string_view key) {
    auto entry = std::find_if(dictionary.begin(), dictionary.end(), [=](const auto& e) { return e.first == key; });
    return entry == dictionary.end() ? nullptr : &entry->second;
}

}  // namespace

PropertyList::PropertyList(const PropertyList& other) {
    std::vector<std::pair<const PropertyList*, PropertyList*>> open;
    auto copy = [&open](const PropertyList& from, PropertyList& to) {
        if (from.isContainer()) {
            open.emplace_back(&from, &to);
        } else {
            to._value = from._value;
        }
    };
    copy(other, *this);
    while (!open.empty()) {
        auto [from, to] = open.back();
        open.pop_back();
        if (const Array* source = from->array()) {
            Array& elements = to->_value.emplace<Array>(source->size());
            for (std::size_t index = 0; index < elements.size(); index++) copy((*source)[index], elements[index]);
        } else {
            const Dictionary& pairs = *from->dictionary();
            Dictionary& entries = to->_value.emplace<Dictionary>(pairs.size());
            for (std::size_t index = 0; index < entries.size(); index++) {
                entries[index].first = pairs[index].first;
                copy(pairs[index].second, entries[index].second);
            }
        }
    }
}

PropertyList::PropertyList(PropertyList&& other) noexcept = default;

PropertyList::~PropertyList() {
    if (isContainer()) dismantle();
}

PropertyList& PropertyList::operator=(const PropertyList& other) {
    if (this != &other) *this = PropertyList(other);
    return *this;
}

PropertyList& PropertyList::operator=(PropertyList&& other) noexcept {
    PropertyList taken(std::move(other));
    std::swap(_value, taken._value);
    return *this;
}

void PropertyList::dismantle() noexcept {
    std::vector<PropertyList> open;
    auto takeContainers = [&open](PropertyList& from) {
        auto take = [&open](PropertyList& child) {
            if (child.isContainer()) open.push_back(std::move(child));
        };
        if (Array* elements = std::get_if<Array>(&from._value)) {
            for (PropertyList& element : *elements) take(element);
            elements->clear();
        } else if (Dictionary* entries = std::get_if<Dictionary>(&from._value)) {
            for (Entry& entry : *entries) take(entry.second);
            entries->clear();
        }
    };
    takeContainers(*this);
    while (!open.empty()) {
        PropertyList container = std::move(open.back());
        open.pop_back();
        takeContainers(container);  // empty now: it goes without a further level of calls
    }
}

bool PropertyList::operator==(const PropertyList& other) const {
    std::vector<std::pair<const PropertyList*, const PropertyList*>> open = {{this, &other}};
    while (!open.empty()) {
        auto [a, b] = open.back();
        open.pop_back();
        if (a->_value.index() != b->_value.index()) return false;
        if (const Array* elements = a->array()) {
            const Array& others = *b->array();
            if (elements->size() != others.size()) return false;
            for (std::size_t index = 0; index < others.size(); index++) {
                open.emplace_back(&(*elements)[index], &others[index]);
            }
        } else if (const Dictionary* entries = a->dictionary()) {
            const Dictionary& others = *b->dictionary();
            if (entries->size() != others.size()) return false;
            for (std::size_t index = 0; index < others.size(); index++) {
                const auto& [key, value] = (*entries)[index];
                const PropertyList* twin = others[index].first == key ? &others[index].second : valueIn(others, key);
                if (!twin) return false;
                open.emplace_back(&value, twin);
            }
        } else if (!(a->_value == b->_value)) {
            return false;
        }
    }
    return true;
}

std::int64_t PropertyList::intValue() const {
    if (const auto* truth = as<bool>()) return *truth;
    if (const auto* integer = as<std::int64_t>()) return *integer;
    if (const auto* real = as<double>()) return integerOf(*real);
    return string() ? integerOf(*string()) : 0;
}

double PropertyList::doubleValue() const {
    if (const auto* truth = as<bool>()) return *truth;
    if (const auto* integer = as<std::int64_t>()) return static_cast<double>(*integer);
    if (const auto* real = as<double>()) return *real;
    return string() ? doubleOf(*string()) : 0;
}

bool PropertyList::boolValue() const {
    if (const auto* truth = as<bool>()) return *truth;
    if (const auto* integer = as<std::int64_t>()) return *integer != 0;
    if (const auto* real = as<double>()) return *real != 0;
    return string() && truthOf(*string());
}

const PropertyList* PropertyList::get(std::string_view key) const {
    return dictionary() ? valueIn(*dictionary(), key) : nullptr;
}

void PropertyList::set(std::string_view key, PropertyList value) {
    if (isNull()) _value = Dictionary();
    auto* entries = std::get_if<Dictionary>(&_value);
    if (!entries) return;
    for (Entry& entry : *entries) {
        if (entry.first != key) continue;
        entry.second = std::move(value);
        return;
    }
    entries->emplace_back(key, std::move(value));
}

void PropertyList::remove(std::string_view key) {
    if (auto* entries = std::get_if<Dictionary>(&_value)) {
        std::erase_if(*entries, [=](const Entry& entry) { return entry.first == key; });
    }
}

}  // namespace kavaro
