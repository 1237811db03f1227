#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/commandline/Confirmation.h"
#include "client/commandline/FolderMeasurements.h"

namespace kavaro {

enum class CleanupCall { moveToTrash, removeLocales, removeNibs };

// One entry that is to go.
struct CleanupItem {
    std::string path;  // absolute, without links but for the entry itself
    std::uint64_t bytes = 0;
    bool isFolder = false;
};

// What a command wants to have done.
struct CleanupPlan {
    CleanupCall call;
    std::vector<CleanupItem> items;
    bool isLowerBound = false;  // a part of the sizes is not known
};

// Whether one of the paths is a folder above this one.
bool isBelowAny(std::string_view path, const std::set<std::string, std::less<>>& paths);

// How many of the items from `begin` on go into one call: at least one while there are any, at most `most`. The server
// answers nobody else meanwhile, and an interruption takes effect between two calls.
std::size_t cleanupPortion(const std::vector<CleanupItem>& items, std::size_t begin, std::size_t most);

// The most for the next call, after one with `most` items took so long: what an item costs differs by orders.
std::size_t nextCleanupMost(std::size_t most, double seconds);

// Shows a plan: what is to go and how many bytes that frees; asks; has it done by what measured the folders; looks
// afterwards what is still there, and says each failure with its reason. Returns the exit code.
int runCleanup(const CleanupPlan& plan, FolderMeasurements& measurements, const MeasureOptions& options,
               const ConfirmOptions& confirm, const CommandContext& context);

}  // namespace kavaro
