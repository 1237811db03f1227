#pragma once

#include "client/Measurement.h"
#include "client/commandline/CleanupOffer.h"
#include "client/commandline/Color.h"
#include "client/commandline/Output.h"

namespace kavaro {

// As people read it: what could go in all, then a line for each language with the folders below it, or for each file.
// Paths are whole, so that they can be copied. With `summary` the languages stand alone.
void writeLanguages(Output& output, const Measurement& measurement, const LanguageOffer& offer, bool summary,
                    ColorDepth color);
void writeNibs(Output& output, const Measurement& measurement, const NibOffer& offer, ColorDepth color);

// One JSON object without a line end:
//   path, languages, logicalSize, physicalSize, files, folders, seconds
// and, where they apply: pathRaw, partial (true), lowerBound (true), unread (path, pathRaw, reason each). The sizes and
// counts are sums of all that could go. Each language has
//   language, flag (the country; null: none), logicalSize, physicalSize, files, folders (their number), entries
// and each of its entries, the folders,
//   path, inode, logicalSize, physicalSize, files, modified
// With `summary` there are no entries. xRaw is x in base64, there when x is not UTF-8.
void writeLanguagesJson(Output& output, const Measurement& measurement, const LanguageOffer& offer, bool summary);
// The same with `nibs` in place of languages: entries without `files`; and without `folders`.
void writeNibsJson(Output& output, const Measurement& measurement, const NibOffer& offer);

}  // namespace kavaro
