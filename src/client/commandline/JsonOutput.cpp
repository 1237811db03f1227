#include "client/commandline/JsonOutput.h"

#include <time.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "client/commandline/JsonFields.h"
#include "client/commandline/JsonStream.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

void writeTotals(JsonWriter& writer, const EntryTotals& totals) {
    writeNumber(writer, "logicalSize", totals.logicalSize);
    writeNumber(writer, "physicalSize", totals.physicalSize);
    writeNumber(writer, "files", totals.files);
    writeNumber(writer, "folders", totals.folders);
}

void writeStatistics(JsonWriter& writer, const Measurement& measurement) {
    writeKey(writer, "statistics");
    writer.StartObject();
    writeSeconds(writer, "engineSeconds", measurement.serverSeconds);
    writeNumber(writer, "serverIdleMemory", measurement.serverIdleMemory);
    writeNumber(writer, "serverPeakMemory", measurement.serverPeakMemory);
    writeNumber(writer, "clientPeakMemory", peakMemoryOfProcess(0));
    writer.EndObject();
}

// The entry without its children; the object stays open.
void startEntry(JsonWriter& writer, const EntryRow& row) {
    writer.StartObject();
    writeText(writer, "name", "nameRaw", row.node->fileName());
    writeKey(writer, "kind");
    writeString(writer, row.folder ? "folder" : "file");
    writeNumber(writer, "inode", row.node->inode());
    writeTotals(writer, row.totals);
    writeModified(writer, *row.node);
    if (row.folder && !row.folder->isResolved()) writeTrue(writer, "partial");
}

// Writes nested "children" from rows that come one after another.
class ChildrenWriter {
  public:
    ChildrenWriter(JsonWriter& writer, int depth) : _writer(writer), _depth(depth) { open(); }

    void row(const EntryRow& row) {
        while (static_cast<int>(_open.size()) > row.level) close();
        if (!row.node) {
            _open.back() = row.restCount;
            return;
        }
        startEntry(_writer, row);
        if (row.folder && row.level < _depth) {
            open();
        } else {
            _writer.EndObject();
        }
    }
    void finish() {
        while (!_open.empty()) close();
    }

  private:
    void open() {
        writeKey(_writer, "children");
        _writer.StartArray();
        _open.push_back(0);
    }
    void close() {
        _writer.EndArray();
        if (_open.back() > 0) writeNumber(_writer, "childrenLeftOut", _open.back());
        _open.pop_back();
        if (!_open.empty()) _writer.EndObject();
    }

    JsonWriter& _writer;
    const int _depth;
    std::vector<std::uint64_t> _open;  // for each open "children", how many were left out
};

}  // namespace

std::string isoTime(double secondsSince1970) {
    const auto seconds = static_cast<time_t>(std::floor(secondsSince1970));
    struct tm parts {};
    if (!gmtime_r(&seconds, &parts)) return {};
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02dZ", 1900LL + parts.tm_year, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

void writeJson(Output& output, const Measurement& measurement, const EntryView& view, bool withStatistics) {
    const TreeTotals totals(*measurement.root, view.depth);
    JsonStream stream{output};
    JsonWriter writer(stream);
    writer.StartObject();
    writeText(writer, "path", "pathRaw", measurement.path);
    writeTotals(writer, totals.ofRoot());
    writeSeconds(writer, "seconds", measurement.seconds);
    if (measurement.partial) writeTrue(writer, "partial");
    writeUnread(writer, measurement.unread);
    if (withStatistics) writeStatistics(writer, measurement);
    if (view.depth > 0) {
        ChildrenWriter children(writer, view.depth);
        walkEntries(*measurement.root, totals, view, [&](const EntryRow& row) {
            children.row(row);
            return !output.failed();
        });
        children.finish();
    }
    writer.EndObject();
}

}  // namespace kavaro
