#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/TreeTotals.h"
#include "model/TuvDirNode.h"

namespace kavaro {

// What could go of a measured tree. Nodes are the tree's.

struct OfferedEntry {
    const TuvNode* node;
    EntryTotals totals;  // of a folder: what lies below it
};

struct OfferedLanguage {
    std::string name;     // for people
    std::string country;  // whose flag stands for it; empty: none
    std::vector<OfferedEntry> folders;
    EntryTotals totals;  // what lies in a folder within another one of the language counts once
};

struct LanguageOffer {
    std::vector<OfferedLanguage> languages;
    std::uint64_t folders = 0;  // of all languages
    EntryTotals totals;         // likewise once
};

struct NibOffer {
    std::vector<OfferedEntry> files;
    EntryTotals totals;
};

// Sorted by language. The first call loads the flags.
LanguageOffer offeredLanguages(const TuvDirNode& root);
// Sorted by path. Reads the signature files of bundles.
NibOffer offeredNibs(const TuvDirNode& root);

}  // namespace kavaro
