#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "filters/TuvNodeFilter.h"

namespace kavaro {

// The values of find's options --kind, --size and --modified. Titles of the menus count as they stand, in the user's
// language and in English, letter case ignored where no title is exactly so. Each reader gives nothing for a value that
// makes no sense, and puts a sentence without the full stop into *wrong that says what does.

enum class FoundKind { any, file, folder, link };
std::optional<FoundKind> readKind(std::string_view text, std::string* wrong);

// Also "10 MB..", "..1 GB" and "1.5 GB..2 GB": numbers of bytes or with a unit up to TB, both ends included. A range
// with an open end has none: what is larger than the largest size of the menus is found, too.
std::optional<TuvNodeFilter::SizeRange> readSizes(std::string_view text, std::string* wrong);

std::optional<TuvNodeFilter::DateRange> readDates(std::string_view text, const LocalTime& now, std::string* wrong);

// What --list-ranges writes: the titles of both menus, one a line.
std::string rangeList();

}  // namespace kavaro
