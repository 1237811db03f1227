#include "fsevents/EventRecording.h"

#include "fsevents/EventHelpers.h"
#include "fsevents/FSEventsLog.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr int kEventsInPiece = 1001;
constexpr std::size_t kNameWidth = 11;

void appendOctal(std::string& text, char byte) {
    const auto value = static_cast<std::uint8_t>(byte);
    text += {'\\', static_cast<char>('0' + (value >> 6)), static_cast<char>('0' + (value >> 3 & 7)),
             static_cast<char>('0' + (value & 7))};
}

// Length of the UTF-8 character at the position; 0 for a byte that is none.
std::size_t characterLength(std::string_view text, std::size_t position) {
    const auto first = static_cast<std::uint8_t>(text[position]);
    const std::size_t length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    const std::string_view character = text.substr(position, length);
    return character.size() == length && isValidUTF8(character) ? length : 0;
}

// What stands for a path that is not there. No path begins so.
constexpr std::string_view kNoPath = "(null)";

std::string pathText(std::string_view path) {
    return path.data() ? escapedPath(path) : std::string(kNoPath);
}

// Null view for a row without one.
std::string_view pathOfRow(const PropertyList& row, const char* key) {
    const PropertyList* value = row.get(key);
    const std::string* path = value ? value->string() : nullptr;
    return path && *path != kNoPath ? std::string_view(*path) : std::string_view();
}

std::uint32_t numberOfRow(const PropertyList& row, const char* key) {
    const PropertyList* value = row.get(key);
    return value ? static_cast<std::uint32_t>(value->intValue()) : 0;
}

}  // namespace

std::string escapedPath(std::string_view path) {
    std::string text;
    text.reserve(path.size());
    for (std::size_t position = 0; position < path.size();) {
        const char byte = path[position];
        if (byte == '"' || byte == '\\') {
            text += {'\\', byte};
        } else if (byte == '\n') {
            text += "\\n";
        } else if (static_cast<std::uint8_t>(byte) < 0x20 || byte == 0x7f) {
            appendOctal(text, byte);
        } else if (path.substr(position).starts_with(kRowStart)) {
            // Readers look for this text before they know of quotation marks.
            appendOctal(text, byte);
        } else if (const std::size_t length = characterLength(path, position)) {
            text += path.substr(position, length);
            position += length;
            continue;
        } else {
            appendOctal(text, byte);
        }
        ++position;
    }
    return text;
}

void writeBatch(const TuvObjectArray& batch, const TextSink& sink) {
    sink(formatted("\n  index=\"0\"; eventBatch=\"begin\"; batchCount=\"%d\"; ", batch.count()));
    std::string text;
    for (int index = 0; index < batch.count(); ++index) {
        if (index > 0 && index % kEventsInPiece == 0) {
            sink(text);
            text.clear();
        }
        text += eventAtIndex(batch, index)->descriptionInOneLine(true);
    }
    text += formatted("\n  index=\"0\"; eventBatch=\"end\"; batchCount=\"%d\"; ", batch.count());
    sink(text);
}

void TuvFSEvent::debugEvents(const TuvObjectArray* batch) {
    if (!tuvFSEventLog.debugOn()) return;
    TuvLog::debug(tuvFSEventLog, "debugEvents", "%d items", batch->count());
    writeBatch(*batch, [](std::string_view text) { TuvLog::debug(tuvFSEventLog, "debugEvents", "%@", text); });
}

void TuvFSEvent::appendFields(std::string& text) const {
    const std::string_view name = stringType(_type) ? stringType(_type) : LogArgument::kAbsent;
    text += formatted(" inode=\"%08d\";", static_cast<std::int32_t>(_inode));
    text += formatted(" type=\"%@\";", name);
    // Behind the entry: between the quotation marks they would belong to the name.
    if (name.size() < kNameWidth) text.append(kNameWidth - name.size(), ' ');
    text += formatted(" device=\"%d\";", static_cast<std::int32_t>(_device));
    text += formatted(" filePath=\"%@\";", pathText(filePath()));
    if (!isRename(*this)) return;
    text += formatted(" inodeDestination=\"%d\";", static_cast<std::int32_t>(_inodeDestination));
    text += formatted(" deviceDestination=\"%d\";", static_cast<std::int32_t>(_deviceDestination));
    text += formatted(" filePathDestination=\"%@\";", pathText(filePathDestination()));
}

std::string TuvFSEvent::descriptionInOneLine(bool withChildren) const {
    std::string text = "\n  index=\"0\";  ";
    appendFields(text);
    if (!withChildren || !lastChildEvent()) return text;
    for (int index = 0; index < _childEvents->count(); ++index) {
        text += formatted("\n    index=\"%d\";", index + 1);
        eventAtIndex(*_childEvents, index)->appendFields(text);
    }
    text += kChildrenEnd;
    return text;
}

std::string TuvFSEvent::description() const {
    std::string text = "TuvFSEvent";
    appendFields(text);
    return text;
}

TuvRef<TuvFSEvent> TuvFSEvent::eventFromString(const PropertyList& row, bool log) {
    const PropertyList* type = row.get("type");
    const bool named = type && type->string();
    auto event = make<TuvFSEvent>(named ? intType(*type->string()) : -1);
    event->_inode = numberOfRow(row, "inode");
    event->_device = numberOfRow(row, "device");
    event->_filePath.set(pathOfRow(row, "filePath"));
    if (isRename(*event)) {
        event->_inodeDestination = numberOfRow(row, "inodeDestination");
        event->_deviceDestination = numberOfRow(row, "deviceDestination");
        event->_filePathDestination.set(pathOfRow(row, "filePathDestination"));
    }
    if (log) TuvLog::info(mainLog, "eventFromString", "item=[%@]", event->descriptionInOneLine(false));
    return event;
}

}  // namespace kavaro
