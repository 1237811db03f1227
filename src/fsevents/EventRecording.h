#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "fsevents/TuvFSEvent.h"

namespace kavaro {

// The text of recordings: rows that begin with "index=", each a list of key="value"; entries. See docs/recordings.md.
// A row ends where the next one begins, so the last one of a text is not read: a recording ends with kRecordingEnd.
inline constexpr std::string_view kRowStart = "index=";
inline constexpr std::string_view kRecordingEnd = "\n  index=\"0\";\n";
// Behind the rows of an event's children; no entry, and no part of the last row.
inline constexpr std::string_view kChildrenEnd = "\n    ---";

// Called with one piece of text after another.
using TextSink = std::function<void(std::string_view)>;

// One batch: its start row, the events' rows (1001 events a piece), its end row.
void writeBatch(const TuvObjectArray& batch, const TextSink& sink);

// A path as it stands between quotation marks, so that exactly its bytes are read again. Line ends and other control
// bytes, quotation marks, backslashes and bytes that are not UTF-8 are escaped, and one letter of every "index=", which
// would look like the beginning of a row.
std::string escapedPath(std::string_view path);

}  // namespace kavaro
