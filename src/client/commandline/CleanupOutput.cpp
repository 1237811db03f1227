#include "client/commandline/CleanupOutput.h"

#include <algorithm>
#include <functional>

#include "client/commandline/JsonFields.h"
#include "platform/Text.h"
#include "platform/TextDisplay.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr std::string_view kOnDisk = "ON DISK", kLogical = "LOGICAL";

std::string rightAligned(std::string_view text, std::size_t width) {
    const std::size_t used = displayWidth(text);
    return std::string(used < width ? width - used : 0, ' ') + std::string(text);
}

// Two columns of sizes and what they are of.
class SizeColumns {
  public:
    explicit SizeColumns(ColorDepth color) : _color(color) {}
    void take(const EntryTotals& totals) {
        _physical = std::max(_physical, compactStringFromSize(totals.physicalSize).size());
        _logical = std::max(_logical, compactStringFromSize(totals.logicalSize).size());
    }
    std::string header(std::string_view what) const {
        return rightAligned(kOnDisk, _physical) + "  " + rightAligned(kLogical, _logical) + "  " + std::string(what) +
               "\n";
    }
    std::string line(const EntryTotals& totals, std::string_view what) const {
        return sized(totals.physicalSize, _physical) + "  " + sized(totals.logicalSize, _logical) + "  " +
               std::string(what) + "\n";
    }

  private:
    std::string sized(std::uint64_t size, std::size_t width) const {
        return coloredBySize(rightAligned(compactStringFromSize(size), width), size, _color);
    }

    const ColorDepth _color;
    std::size_t _physical = kOnDisk.size(), _logical = kLogical.size();
};

// "/srv/apps: 3 languages in 12 folders could go: 1.4 MB on disk, 1.1 MB logical"
void writeTotal(Output& output, const Measurement& measurement, const std::string& what, const EntryTotals& totals) {
    output.write(printable(measurement.path) + ": " + what + " could go: " +
                 compactStringFromSize(totals.physicalSize) + " on disk, " + compactStringFromSize(totals.logicalSize) +
                 " logical" + (measurement.partial ? " (partial)\n" : "\n"));
}

void writeNothing(Output& output, const Measurement& measurement, const char* what) {
    output.write(printable(measurement.path) + ": no " + what + " that could go" +
                 (measurement.partial ? " (partial)\n" : "\n"));
}

std::string titleOf(const OfferedLanguage& language) {
    const std::string flag = language.country.empty() ? "" : " (" + printable(language.country) + ")";
    return printable(language.name) + flag + ", " + counted(language.folders.size(), "folder", "folders");
}

void writeSizes(JsonWriter& writer, const EntryTotals& totals) {
    writeNumber(writer, "logicalSize", totals.logicalSize);
    writeNumber(writer, "physicalSize", totals.physicalSize);
}

void writeEntry(JsonWriter& writer, const OfferedEntry& entry) {
    writer.StartObject();
    writeText(writer, "path", "pathRaw", entry.node->filePath());
    writeNumber(writer, "inode", entry.node->inode());
    writeSizes(writer, entry.totals);
    if (entry.node->isDirectory()) writeNumber(writer, "files", entry.totals.files);
    writeModified(writer, *entry.node);
    writer.EndObject();
}

void writeEntries(JsonWriter& writer, const Output& output, std::string_view key,
                  const std::vector<OfferedEntry>& entries) {
    writeKey(writer, key);
    writer.StartArray();
    for (const OfferedEntry& entry : entries) {
        if (output.failed()) break;
        writeEntry(writer, entry);
    }
    writer.EndArray();
}

void writeLanguage(JsonWriter& writer, const Output& output, const OfferedLanguage& language, bool summary) {
    writer.StartObject();
    writeText(writer, "language", "languageRaw", language.name);
    writeKey(writer, "flag");
    if (language.country.empty())
        writer.Null();
    else
        writeString(writer, language.country);
    writeSizes(writer, language.totals);
    writeNumber(writer, "files", language.totals.files);
    writeNumber(writer, "folders", language.folders.size());
    if (!summary) writeEntries(writer, output, "entries", language.folders);
    writer.EndObject();
}

// The object of one measurement: `middle` writes what it is about.
void writeObject(Output& output, const Measurement& measurement, const std::function<void(JsonWriter&)>& middle) {
    JsonStream stream{output};
    JsonWriter writer(stream);
    writer.StartObject();
    writeText(writer, "path", "pathRaw", measurement.path);
    middle(writer);
    writeSeconds(writer, "seconds", measurement.seconds);
    if (measurement.partial) writeTrue(writer, "partial");
    writeUnread(writer, measurement.unread);
    writer.EndObject();
}

}  // namespace

void writeLanguages(Output& output, const Measurement& measurement, const LanguageOffer& offer, bool summary,
                    ColorDepth color) {
    if (offer.languages.empty()) return writeNothing(output, measurement, "language folders");
    writeTotal(
        output, measurement,
        counted(offer.languages.size(), "language", "languages") + " in " + counted(offer.folders, "folder", "folders"),
        offer.totals);
    SizeColumns columns(color);
    for (const OfferedLanguage& language : offer.languages) {
        columns.take(language.totals);
        for (const OfferedEntry& folder : language.folders) columns.take(folder.totals);
    }
    output.write("\n" + columns.header("LANGUAGE"));
    for (const OfferedLanguage& language : offer.languages) {
        output.write(columns.line(language.totals, titleOf(language)));
        for (std::size_t i = 0; !summary && i < language.folders.size() && !output.failed(); ++i) {
            const OfferedEntry& folder = language.folders[i];
            output.write(columns.line(folder.totals, "  " + printable(folder.node->filePath()) + "/"));
        }
    }
}

void writeNibs(Output& output, const Measurement& measurement, const NibOffer& offer, ColorDepth color) {
    if (offer.files.empty()) return writeNothing(output, measurement, "nib files");
    writeTotal(output, measurement, counted(offer.files.size(), "nib file", "nib files"), offer.totals);
    SizeColumns columns(color);
    columns.take(offer.totals);
    for (const OfferedEntry& file : offer.files) columns.take(file.totals);
    output.write("\n" + columns.header("FILE"));
    for (const OfferedEntry& file : offer.files) {
        if (output.failed()) break;
        output.write(columns.line(file.totals, printable(file.node->filePath())));
    }
}

void writeLanguagesJson(Output& output, const Measurement& measurement, const LanguageOffer& offer, bool summary) {
    writeObject(output, measurement, [&](JsonWriter& writer) {
        writeKey(writer, "languages");
        writer.StartArray();
        for (const OfferedLanguage& language : offer.languages) writeLanguage(writer, output, language, summary);
        writer.EndArray();
        writeSizes(writer, offer.totals);
        writeNumber(writer, "files", offer.totals.files);
        writeNumber(writer, "folders", offer.folders);
    });
}

void writeNibsJson(Output& output, const Measurement& measurement, const NibOffer& offer) {
    writeObject(output, measurement, [&](JsonWriter& writer) {
        writeEntries(writer, output, "nibs", offer.files);
        writeSizes(writer, offer.totals);
        writeNumber(writer, "files", offer.totals.files);
    });
}

}  // namespace kavaro
