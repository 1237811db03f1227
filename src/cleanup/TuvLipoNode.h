#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/TuvNode.h"
#include "platform/PropertyList.h"

namespace kavaro {

// A file that may hold code for several families of processors, with the table of its architectures that could go.
// A dictionary by the architecture's name, in the order of the file; each value is a dictionary of the texts
// "architecture", the name again, and "size", its bytes.
//
// A family of processors is a number: 0 PowerPC, 1 Intel, -1 not known. Made from a scanned node, of which it keeps
// nothing; has no parent and no children. A node is used by one thread at a time; what is static, by any.
class TuvLipoNode : public TuvNode {
  public:
    static constexpr int kPowerPC = 0, kIntel = 1, kUnknownProcessor = -1;

    explicit TuvLipoNode(TuvNode* node);

    // Null until it is set.
    const PropertyList& lipoInfo() const { return _lipoInfo; }
    void setLipoInfo(PropertyList info) { _lipoInfo = std::move(info); }
    std::uint64_t lipoSize() const;  // bytes that removing all of the table would free
    static std::uint64_t lipoSize(const TuvObjectArray* lipoNodes);
    // The request for lipoNode(): "filePath", and in "archTypes" the names of the table that belong to the family.
    PropertyList serializeForRemoval(int type) const;

    // Of the machine; asked once it is known.
    static int processorArchitecture();
    static int processorArchitectureToRemove();  // the other one
    static bool isProcessorArchitectureOfType(std::string_view name, int type);
    static std::string architectureNameForIndex(int type);    // "Intel"
    static std::string anArchitectureNameForIndex(int type);  // "an Intel"

    static bool shouldIgnoreLipoInfo(const std::string& path);
    // The table of a file as the tool gives it, less the machine's own architectures. Empty for all files that are not
    // universal or cannot be read.
    static PropertyList lipoInfo(const std::string& path);
    // Where the machine is of the Intel family, removes the nodes of system folders from the array, which may be null.
    static void filterSystemFolders(TuvObjectArray* lipoNodes);
    // Removes architectures from a file, which keeps owner, group and permissions. The log says how it went.
    static void lipoNode(const std::string& path, const std::vector<std::string>& archTypes);

    // For tests: what "uname -p" answers, and the next question for the machine's family is the first. Nothing: it is
    // asked again.
    static void setProcessorName(std::optional<std::string> name);

  protected:
    ~TuvLipoNode() override;

  private:
    PropertyList _lipoInfo;
};

}  // namespace kavaro
