#include "platform/HandleInodes.h"

#include <utility>

namespace kavaro {

namespace {

std::uint64_t numberOf(std::string_view bytes) {
    std::uint64_t number = 0xcbf29ce484222325;
    for (const char byte : bytes) number = (number ^ static_cast<std::uint8_t>(byte)) * 0x100000001b3;
    return (number & 0xffffffff) != 0 ? number : number + 1;
}

}  // namespace

void HandleInodes::remember(std::string_view handle, std::uint64_t inode) {
    const auto found = _newer.find(handle);
    if (found != _newer.end()) {
        found->second = inode;
        return;
    }
    if (_newer.size() >= kMostHandles) _older = std::exchange(_newer, {});
    _newer.emplace(handle, inode);
}

std::uint64_t HandleInodes::inodeOf(std::string_view handle) const {
    for (const Inodes* inodes : {&_newer, &_older}) {
        const auto found = inodes->find(handle);
        if (found != inodes->end()) return found->second;
    }
    return numberOf(handle);
}

}  // namespace kavaro
