// Random filters on random nodes, beside a twin that knows the rules and nothing else.
#include <gtest/gtest.h>

#include <cmath>

#include <random>

#include "filters/FilterTest.h"

namespace kavaro {
namespace {

class Twin {
  public:
    std::string type, name;
    std::uint64_t minimum = 0, maximum = 0;  // 0: open
    TuvNodeFilter::DateRange date;
    bool exact = false;

    bool passes(const TuvNode& node) const {
        if (type == "File" && !(node.flags() & 1)) return false;
        if (type == "Folder" && (node.flags() & 3) != 2) return false;
        if (type == "Link" && node.flags() & 3) return false;
        if (minimum > 0 && node.physicalSize() < minimum) return false;
        if (maximum > 0 && node.physicalSize() > maximum) return false;
        if (minimum > 0 && maximum == 0 && node.physicalSize() > std::uint64_t{1} << 40) return false;
        if (date.begin > 0 && (node.contentModDate() < date.begin || node.contentModDate() > date.end)) return false;
        if (name.empty() || !node.hasFileName()) return true;
        return exact ? name == node.fileName() : contains(node.fileName());
    }

  private:
    static std::string lower(std::string_view text) {
        std::string result(text);
        for (char& c : result) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        // The only letters beyond ASCII that the test has.
        for (std::size_t at; (at = result.find("\u00c9")) != std::string::npos;) result.replace(at, 2, "\u00e9");
        return result;
    }
    bool contains(std::string_view whole) const { return lower(whole).find(lower(name)) != std::string::npos; }
};

struct Random {
    std::mt19937 engine;
    unsigned below(unsigned count) { return static_cast<unsigned>(engine() % count); }
    template <class T, std::size_t n>
    const T& oneOf(const T (&items)[n]) {
        return items[below(n)];
    }
    std::string text(unsigned longest) {
        static const std::string kPieces[] = {"a", "A", "b", "B", ".", "\u00e9", "\u00c9", "\xff", "\u5199"};
        std::string result;
        for (unsigned length = below(longest + 1); length > 0; --length) result += oneOf(kPieces);
        return result;
    }
};

TEST(TuvNodeFilterTwin, agreesOnRandomTrees) {
    Random random{std::mt19937(5)};
    const LocalTime now{1773235800, "Europe/Berlin"};
    static const std::uint64_t kSizes[] = {
        0, 1, 2047, 2048, 2049, 1 << 20, 3 << 20, 1u << 30, (std::uint64_t{1} << 40), (std::uint64_t{1} << 40) + 1};
    static const std::uint16_t kFlags[] = {0, 1, 2, 3, 0x11, 0x12, 0x32};
    auto nodes = make<TuvObjectArray>();
    const double today = now.secondsSince1970 + kEpoch;
    for (int i = 0; i < 500; ++i) {
        const double date = random.below(5) == 0 ? 0 : std::floor(today - random.below(4000) * 86400.0 / 3);
        const std::string name = random.text(6);
        auto node = newNode({.physicalSize = random.oneOf(kSizes), .date = date, .flags = random.oneOf(kFlags)});
        node->setFileName(random.below(20) == 0 ? std::string_view() : std::string_view(name));
        nodes->adoptObject(node.leak());
    }
    const std::vector<std::string> titles = TuvNodeFilter::lastModifiedTypes();
    static const char* kTypes[] = {"File", "Folder", "Link", "AnyType", ""};
    static const std::pair<const char*, std::uint64_t> kUnits[] = {
        {"bytes", 1}, {"KB", 1024}, {"MB", 1048576}, {"GB", 1 << 30}};
    int passed = 0;
    for (int round = 0; round < 3000; ++round) {
        Twin twin;
        twin.type = random.oneOf(kTypes);
        twin.name = random.below(2) ? random.text(2) : "";
        twin.exact = random.below(4) == 0;
        TuvNodeFilterItem size;
        const auto& [minUnit, minBytes] = random.oneOf(kUnits);
        const auto& [maxUnit, maxBytes] = random.oneOf(kUnits);
        size.setMinType(minUnit);
        size.setMin(random.below(3));
        size.setMaxType(maxUnit);
        size.setMax(random.below(3));
        twin.minimum = static_cast<std::uint64_t>(*size.min()) * minBytes;
        twin.maximum = static_cast<std::uint64_t>(*size.max()) * maxBytes;
        const std::string& title = titles[random.below(static_cast<unsigned>(titles.size()))];
        const bool hasSize = random.below(2), hasDate = random.below(2);
        if (!hasSize) twin.minimum = twin.maximum = 0;
        if (hasDate) twin.date = TuvNodeFilter::lastModifiedTypeFromString(title, now);
        const auto filter =
            TuvNodeFilter::filterFrom(twin.type, hasSize ? &size : nullptr,
                                      hasDate ? std::string_view(title) : std::string_view(), twin.name, now);
        const auto result = nodes->filterUsing(filter.get(), twin.exact);
        int at = 0;
        for (int i = 0; i < nodes->count(); ++i) {
            if (!twin.passes(*nodes->nodeAtIndex(i))) continue;
            ASSERT_EQ(result->objectAtIndex(at++), nodes->objectAtIndex(i))
                << filter->description() << " " << twin.exact;
        }
        ASSERT_EQ(result->count(), at) << filter->description();
        passed += at;
    }
    EXPECT_GT(passed, 20000);
}

}  // namespace
}  // namespace kavaro
