#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cleanup/LipoRequests.h"
#include "cleanup/TuvLipoNode.h"
#include "client/Measurement.h"

namespace kavaro {

// Code for one kind of processor in a program, which this machine does not run.
struct SlimArchitecture {
    std::string name;
    std::uint64_t size = 0;
    bool goes = false;  // is wanted to go
};

struct SlimProgram {
    const TuvLipoNode* node;  // one of the candidates
    std::vector<SlimArchitecture> architectures;
    std::uint64_t freed = 0;  // bytes of those that go
    std::vector<std::string> going() const;
};

// What could go of the programs in one measured folder. What is known of its tree is let go.
struct SlimOffer {
    std::string argument;  // the folder as it was named
    Measurement measurement;
    TuvRef<TuvObjectArray> candidates;  // TuvLipoNodes: all programs that may have such code
    std::vector<SlimProgram> programs;  // those that have some; by what they free, largest first, and by path
    std::uint64_t freed = 0;
    std::size_t slimmable = 0;  // programs of which something goes
};

// Of a measured tree, without programs of the system.
SlimOffer slimCandidates(const std::string& argument, Measurement measurement);
// Fills in the programs. `tables` are those of the candidates by their place among them, beginning with `first`. Names
// that are wanted go; where none are named, those of the family of processors that this machine is not of.
void fillSlimOffer(SlimOffer* offer, LipoTables* tables, std::uint32_t first, const std::vector<std::string>& wanted);

}  // namespace kavaro
