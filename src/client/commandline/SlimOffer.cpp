#include "client/commandline/SlimOffer.h"

#include <algorithm>

namespace kavaro {

namespace {

std::vector<std::string> namesToGo(const TuvLipoNode& node, const std::vector<std::string>& wanted) {
    if (!wanted.empty()) return wanted;
    const PropertyList request = node.serializeForRemoval(TuvLipoNode::processorArchitectureToRemove());
    std::vector<std::string> names;
    for (const PropertyList& name : *request.get("archTypes")->array()) names.push_back(*name.string());
    return names;
}

SlimProgram programOf(const TuvLipoNode* node, const std::vector<std::string>& wanted) {
    SlimProgram program{node, {}, 0};
    const std::vector<std::string> names = namesToGo(*node, wanted);
    for (const auto& [name, entry] : *node->lipoInfo().dictionary()) {
        const PropertyList* size = entry.get("size");
        const bool goes = std::find(names.begin(), names.end(), name) != names.end();
        const std::int64_t bytes = size ? std::max<std::int64_t>(size->intValue(), 0) : 0;
        program.architectures.push_back({name, static_cast<std::uint64_t>(bytes), goes});
        if (goes) program.freed += static_cast<std::uint64_t>(bytes);
    }
    return program;
}

}  // namespace

std::vector<std::string> SlimProgram::going() const {
    std::vector<std::string> names;
    for (const SlimArchitecture& architecture : architectures)
        if (architecture.goes) names.push_back(architecture.name);
    return names;
}

SlimOffer slimCandidates(const std::string& argument, Measurement measurement) {
    SlimOffer offer;
    offer.argument = argument;
    offer.candidates = make<TuvObjectArray>();
    const TuvRef<TuvObjectArray> files = measurement.root->lipoFiles();
    for (int i = 0; i < files->count(); ++i)
        offer.candidates->adoptObject(make<TuvLipoNode>(files->nodeAtIndex(i)).leak());
    TuvLipoNode::filterSystemFolders(offer.candidates.get());
    offer.measurement = std::move(measurement);
    offer.measurement.root = nullptr;
    return offer;
}

void fillSlimOffer(SlimOffer* offer, LipoTables* tables, std::uint32_t first, const std::vector<std::string>& wanted) {
    for (int i = 0; i < offer->candidates->count(); ++i) {
        const auto table = tables->find(first + static_cast<std::uint32_t>(i));
        if (table == tables->end()) continue;
        auto* node = static_cast<TuvLipoNode*>(offer->candidates->nodeAtIndex(i));
        node->setLipoInfo(std::move(table->second));
        offer->programs.push_back(programOf(node, wanted));
        offer->freed += offer->programs.back().freed;
        if (!offer->programs.back().going().empty()) ++offer->slimmable;
    }
    std::sort(offer->programs.begin(), offer->programs.end(), [](const SlimProgram& a, const SlimProgram& b) {
        return a.freed != b.freed ? a.freed > b.freed : a.node->filePath() < b.node->filePath();
    });
}

}  // namespace kavaro
