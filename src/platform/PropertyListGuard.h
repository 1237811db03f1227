#pragma once

#include "platform/ByteView.h"

namespace kavaro {

// Looks through the bytes of a property list before the parser sees them. The parser and its clean-up call themselves
// once per level and end the process on deep nesting (100,000 levels of a binary one, 1,000,000 of XML), and the parser
// unfolds shared parts of a binary one, so that some hundred bytes can ask for more memory than there is. False also
// for much of what is malformed; what is let through may still be malformed. Cost: one pass over the bytes.

// One <plist> element, closed, with at most PropertyList::kDeepest arrays and dictionaries within each other.
bool isSafeXMLPropertyList(std::string_view text);

// No cycles, at most PropertyList::kDeepest containers within each other, unfolded to at most one object per byte and
// to at most 16 MiB plus four times the size.
bool isSafeBinaryPropertyList(ByteView bytes);

}  // namespace kavaro
