#pragma once

#include <string>
#include <string_view>

#include "filters/TuvNodeFilter.h"
#include "model/TuvDirNode.h"

namespace kavaro {

inline constexpr double kEpoch = 2082844800;  // 1970 in seconds since 1904

struct TestNode {
    std::string_view name = "file";  // null data: none
    std::uint64_t physicalSize = 0;
    double date = 0;  // seconds since 1904
    std::uint16_t flags = TuvNode::kFile | TuvNode::kResolved;
};

inline TuvRef<TuvNode> newNode(const TestNode& about) {
    auto node = make<TuvNode>();
    if (about.name.data()) node->setFileName(about.name);
    node->setPhysicalSize(about.physicalSize);
    node->setContentModDate(about.date);
    node->setFlags(about.flags);
    return node;
}

inline bool passes(const TuvRef<TuvNodeFilter>& filter, const TestNode& about, signed char exact = 0) {
    return newNode(about)->filterUsing(filter.get(), exact);
}

}  // namespace kavaro
