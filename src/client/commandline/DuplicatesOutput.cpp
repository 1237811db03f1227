#include "client/commandline/DuplicatesOutput.h"

#include <algorithm>

#include "client/commandline/JsonFields.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

std::uint64_t wasteOf(const std::vector<DuplicateGroup>& groups) {
    std::uint64_t sum = 0;
    for (const DuplicateGroup& group : groups) sum += group.waste;
    return sum;
}

std::uint64_t filesIn(const std::vector<DuplicateGroup>& groups) {
    std::uint64_t sum = 0;
    for (const DuplicateGroup& group : groups) sum += group.files.size();
    return sum;
}

std::string noteOn(const DuplicateFile& file, const DuplicateGroup& group) {
    std::string note;
    if (file.sameAs >= 0) note = "hard link of " + printable(group.files[static_cast<std::size_t>(file.sameAs)].path);
    if (file.hasNamesElsewhere) note += note.empty() ? "it has names elsewhere" : ", which has names elsewhere";
    return note.empty() ? note : "  (" + note + ")";
}

void writeFile(JsonWriter& writer, const DuplicateFile& file) {
    writer.StartObject();
    writeText(writer, "path", "pathRaw", file.path);
    writeNumber(writer, "inode", file.inode);
    writeNumber(writer, "physicalSize", file.node->physicalSize());
    writeModified(writer, *file.node);
    if (file.sameAs >= 0) writeNumber(writer, "hardLinkOf", static_cast<std::uint64_t>(file.sameAs));
    if (file.hasNamesElsewhere) writeTrue(writer, "hasNamesElsewhere");
    writer.EndObject();
}

void writeGroup(JsonWriter& writer, const DuplicateGroup& group) {
    writer.StartObject();
    writeNumber(writer, "size", group.size);
    writeNumber(writer, "waste", group.waste);
    if (!group.digest.empty()) {
        writeKey(writer, "md5");
        writeString(writer, group.digest);
    }
    writeKey(writer, "files");
    writer.StartArray();
    for (const DuplicateFile& file : group.files) writeFile(writer, file);
    writer.EndArray();
    writer.EndObject();
}

}  // namespace

void writeDuplicates(Output& output, const DuplicatesOutcome& outcome) {
    for (const DuplicateGroup& group : outcome.groups) {
        if (output.failed()) return;
        output.write(counted(group.files.size(), "file", "files") + " of " + compactStringFromSize(group.size) + ", " +
                     compactStringFromSize(group.waste) + " wasted\n");
        for (const DuplicateFile& file : group.files)
            output.write("  " + printable(file.path) + noteOn(file, group) + "\n");
        output.put('\n');
    }
    const std::string part = outcome.partial ? " (partial)" : "";
    if (outcome.groups.empty() && outcome.uncompared > 0) {
        output.write("no duplicates found" + part + ": of " + counted(outcome.candidates, "file", "files") + ", " +
                     counted(outcome.uncompared, "was", "were") + " not compared\n");
        return;
    }
    if (outcome.groups.empty()) {
        output.write("no duplicates among " + counted(outcome.candidates, "file", "files") + part + "\n");
        return;
    }
    output.write(counted(outcome.groups.size(), "group", "groups") + " of " +
                 counted(filesIn(outcome.groups), "file", "files") + ", " +
                 compactStringFromSize(wasteOf(outcome.groups)) + " wasted" + part);
    if (outcome.uncompared > 0)
        output.write(", " + counted(outcome.uncompared, "file", "files") +
                     (outcome.uncompared == 1 ? " was" : " were") + " not compared");
    output.put('\n');
}

void writeDuplicatesAsFdupes(Output& output, const DuplicatesOutcome& outcome) {
    for (const DuplicateGroup& group : outcome.groups) {
        if (output.failed()) return;
        const auto isFirstName = [](const DuplicateFile& file) { return file.sameAs < 0; };
        if (std::count_if(group.files.begin(), group.files.end(), isFirstName) < 2) continue;
        for (const DuplicateFile& file : group.files)
            if (isFirstName(file)) output.write(file.path + "\n");
        output.put('\n');
    }
}

void writeDuplicatesJson(Output& output, const DuplicatesOutcome& outcome) {
    JsonStream stream{output};
    JsonWriter writer(stream);
    writer.StartObject();
    writeKey(writer, "folders");
    writer.StartArray();
    for (const std::string& folder : outcome.folders) {
        writer.StartObject();
        writeText(writer, "path", "pathRaw", folder);
        writer.EndObject();
    }
    writer.EndArray();
    writeKey(writer, "groups");
    writer.StartArray();
    for (const DuplicateGroup& group : outcome.groups) {
        if (output.failed()) break;
        writeGroup(writer, group);
    }
    writer.EndArray();
    writeNumber(writer, "files", filesIn(outcome.groups));
    writeNumber(writer, "waste", wasteOf(outcome.groups));
    writeSeconds(writer, "seconds", outcome.seconds);
    if (outcome.partial) writeTrue(writer, "partial");
    writeUnread(writer, outcome.unread);
    if (!outcome.undigested.empty()) {
        writeKey(writer, "undigested");
        writer.StartArray();
        for (const UndigestedFile& file : outcome.undigested) {
            writer.StartObject();
            writeText(writer, "path", "pathRaw", file.path);
            writeText(writer, "reason", "reasonRaw", file.reason);
            writer.EndObject();
        }
        writer.EndArray();
    }
    writer.EndObject();
    output.put('\n');
}

}  // namespace kavaro
