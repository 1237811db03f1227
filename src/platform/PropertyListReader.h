#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace kavaro {

// Why a text is no property list, and where that showed.
struct PropertyListFault {
    std::string reason;
    std::size_t offset = 0;  // in bytes
    int line = 1;
    int column = 1;  // in bytes, from 1

    // "REASON (line L, column C)"
    std::string description() const;
};

// The text form of property lists: one value, with blanks and comments (// to the line's end, /* ... */) around any
// part of it.
//
//   { key = value; "another key" = value; }    dictionary; of several equal keys the last one counts
//   ( value, value, )                          array
//   <0fbd77 1c2735ae>                          data
//   word_$/:.-1                                text of such characters, without quotation marks
//   "text" 'text'                              any other, with \a \b \f \n \r \t \v \" \' \\, \nnn and \Unnnn
//
// \nnn (one to three octal digits) is that byte as it stands, so that any bytes can be written; \Unnnn (one to four
// hexadecimal digits) is a UTF-16 unit, two for characters that need them. A backslash before any other character
// means that character. Numbers are texts. Nothing for anything else, for bytes behind the value, and for more than
// PropertyList::kDeepest containers within each other; `fault`, if given, then says why. Needs no stack for nesting.
std::optional<PropertyList> propertyListFromText(std::string_view text, PropertyListFault* fault);

}  // namespace kavaro
