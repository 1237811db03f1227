#pragma once

namespace kavaro {

class TuvNode;

// What a filter must answer. Filters themselves live above the model.
class NodeFilterRule {
  public:
    virtual ~NodeFilterRule() = default;
    // The flag is handed through unchanged from TuvNode::filterUsing.
    virtual bool accepts(const TuvNode& node, bool flag) const = 0;
};

}  // namespace kavaro
