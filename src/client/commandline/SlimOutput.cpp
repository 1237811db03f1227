#include "client/commandline/SlimOutput.h"

#include <algorithm>
#include <set>

#include "client/commandline/JsonFields.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr std::string_view kFreed = "FREED", kCode = "CODE";

std::string namesOf(const SlimProgram& program) {
    std::string text;
    for (const std::string& name : program.going()) text += (text.empty() ? "" : ", ") + printable(name);
    return text;
}

std::string blanks(std::size_t width, std::size_t used) {
    return std::string(used < width ? width - used : 0, ' ');
}

// "/srv/apps: code for PowerPC in 2 programs could go: 3.4 MB"
void writeTotal(Output& output, const SlimOffer& offer, bool isFamily) {
    const std::string partial = offer.measurement.partial ? " (partial)\n" : "\n";
    output.write(printable(offer.measurement.path) + ": ");
    if (offer.slimmable == 0) return output.write("no code that could go" + partial);
    const int family = TuvLipoNode::processorArchitectureToRemove();
    output.write((isFamily ? "code for " + TuvLipoNode::architectureNameForIndex(family) : "code") + " in " +
                 counted(offer.slimmable, "program", "programs") + " could go: " + compactStringFromSize(offer.freed) +
                 partial);
}

void writeTable(Output& output, const SlimOffer& offer, ColorDepth color) {
    if (offer.slimmable == 0) return;
    std::size_t sizeWidth = kFreed.size(), namesWidth = kCode.size();
    for (const SlimProgram& program : offer.programs) {
        if (program.going().empty()) continue;
        sizeWidth = std::max(sizeWidth, compactStringFromSize(program.freed).size());
        namesWidth = std::max(namesWidth, namesOf(program).size());
    }
    output.write("\n" + blanks(sizeWidth, kFreed.size()) + std::string(kFreed) + "  " + std::string(kCode) +
                 blanks(namesWidth, kCode.size()) + "  PROGRAM\n");
    for (const SlimProgram& program : offer.programs) {
        const std::string names = namesOf(program), size = compactStringFromSize(program.freed);
        if (names.empty()) continue;
        if (output.failed()) return;
        output.write(blanks(sizeWidth, size.size()) + coloredBySize(size, program.freed, color) + "  " + names +
                     blanks(namesWidth, names.size()) + "  " + printable(program.node->filePath()) + "\n");
    }
}

// "Besides, 1 program holds arm64 (4.9 KB). --arch NAME lets it go."
void writeRest(Output& output, const SlimOffer& offer) {
    std::set<std::string> names;
    std::size_t programs = 0;
    std::uint64_t bytes = 0;
    for (const SlimProgram& program : offer.programs) {
        const std::size_t known = program.going().size();
        if (known == program.architectures.size()) continue;
        ++programs;
        for (const SlimArchitecture& architecture : program.architectures) {
            if (architecture.goes) continue;
            names.insert(printable(architecture.name));
            bytes += architecture.size;
        }
    }
    if (programs == 0) return;
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    output.write(std::string(offer.slimmable > 0 ? "\nBesides, " : "") + counted(programs, "program", "programs") +
                 (programs == 1 ? " holds " : " hold ") + text + " (" + compactStringFromSize(bytes) +
                 "). --arch NAME lets it go.\n");
}

void writeArchitectures(JsonWriter& writer, const SlimProgram& program) {
    writeKey(writer, "architectures");
    writer.StartArray();
    for (const SlimArchitecture& architecture : program.architectures) {
        writer.StartObject();
        writeText(writer, "architecture", "architectureRaw", architecture.name);
        writeNumber(writer, "size", architecture.size);
        writeKey(writer, "goes");
        writer.Bool(architecture.goes);
        writer.EndObject();
    }
    writer.EndArray();
}

void writeProgram(JsonWriter& writer, const SlimProgram& program) {
    writer.StartObject();
    writeText(writer, "path", "pathRaw", program.node->filePath());
    writeNumber(writer, "inode", program.node->inode());
    writeNumber(writer, "logicalSize", program.node->logicalSize());
    writeNumber(writer, "physicalSize", program.node->physicalSize());
    writeModified(writer, *program.node);
    writeArchitectures(writer, program);
    writeNumber(writer, "freed", program.freed);
    writer.EndObject();
}

}  // namespace

void writeSlimOffer(Output& output, const SlimOffer& offer, bool isFamily, ColorDepth color) {
    writeTotal(output, offer, isFamily);
    writeTable(output, offer, color);
    if (isFamily) writeRest(output, offer);
}

void writeSlimOfferJson(Output& output, const SlimOffer& offer) {
    JsonStream stream{output};
    JsonWriter writer(stream);
    writer.StartObject();
    writeText(writer, "path", "pathRaw", offer.measurement.path);
    writeKey(writer, "programs");
    writer.StartArray();
    for (const SlimProgram& program : offer.programs)
        if (!output.failed()) writeProgram(writer, program);
    writer.EndArray();
    writeNumber(writer, "freed", offer.freed);
    writeSeconds(writer, "seconds", offer.measurement.seconds);
    if (offer.measurement.partial) writeTrue(writer, "partial");
    writeUnread(writer, offer.measurement.unread);
    writer.EndObject();
}

}  // namespace kavaro
