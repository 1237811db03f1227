#pragma once

#include <string>

#include "platform/FileAttributes.h"
#include "platform/PropertyList.h"

namespace kavaro {

inline constexpr int kObjectNotFound = 0x7fffffff;

// Description of a dictionary or an array without line ends, for log lines.
std::string descriptionInOneLine(const PropertyList& value);

// True when the owner in a dictionary of file attributes is the user the process acts as: by the account's number, or
// by its name when there is no number. False when there is neither.
bool isSameFileOwner(const PropertyList& attributes);

// The entries of `other` whose values differ from those of `receiver`, or that it does not have, in the order of
// `other`. Always a dictionary.
PropertyList changesFromDictionary(const PropertyList& receiver, const PropertyList& other);

// Index of a value in an array that is sorted ascending by compare(): texts by code point, numbers and dates by value,
// anything else by kind alone. Any of several equal ones; kObjectNotFound when absent.
int binaryIndexOfObject(const PropertyList::Array& sorted, const PropertyList& object);

}  // namespace kavaro
