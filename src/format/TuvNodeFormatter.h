#pragma once

namespace kavaro {

// Turns a node's numbers into what is shown beside it. Stateless; any thread.
class TuvNodeFormatter {
  public:
    // Components, 0 to 1, of the colour that a size in bytes is written in.
    static void sizeStringColor(unsigned long long size, float* red, float* green, float* blue, float* alpha);
};

}  // namespace kavaro
