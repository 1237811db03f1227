// Kernel records become events.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fsevents/FSEventsLog.h"
#include "fsevents/KernelRecord.h"
#include "fsevents/TuvFSEvents.h"
#include "platform/AccountNames.h"
#include "platform/ProcessName.h"

namespace kavaro {

namespace {

constexpr const char* kDumpEntry = "TuvFSEvents_dump_entry";
constexpr const char* kPrintEvent = "TuvFSEvents_print_event";

// Little-endian; what is not there counts as 0.
std::uint64_t numberAt(const std::uint8_t* bytes, int length, int width) {
    std::uint64_t number = 0;
    for (int i = std::min(length, width); i-- > 0;) number = number << 8 | bytes[i];
    return number;
}

std::int32_t wordAt(const std::uint8_t* bytes, int length) {
    return static_cast<std::int32_t>(numberAt(bytes, length, 4));
}

// On standard output: "dump_entry() raw    = 01 02 "
void printBytes(const char* title, const std::uint8_t* data, int length) {
    std::string line = title;
    char text[4];
    for (int i = 0; i < length; ++i) {
        std::snprintf(text, sizeof text, "%02x ", data[i]);
        line += text;
    }
    std::puts(line.c_str());
}

std::string nameOr(const std::string& name, std::uint32_t number) {
    return name.empty() ? std::to_string(number) : name;
}

void dumpText(int type, const std::uint8_t* data, int length, TuvFSEvent* event) {
    const auto* text = reinterpret_cast<const char*>(data);
    const void* end = length > 0 ? std::memchr(data, 0, static_cast<std::size_t>(length)) : nullptr;
    const auto size = static_cast<std::size_t>(end ? static_cast<const std::uint8_t*>(end) - data : length);
    const std::string_view string(text, size);
    if (type == record::kVnode) TuvLog::trace(tuvFSEventsLog, kDumpEntry, "vnode = %s", string);
    if (type == record::kString) TuvLog::trace(tuvFSEventsLog, kDumpEntry, "string = %s", string);
    if (type == record::kPath) TuvLog::trace(tuvFSEventsLog, kDumpEntry, "path = %s", string);
    // Names are any bytes on a disk. What cannot be made is a text that does not end.
    if (!end) TuvLog::error(tuvFSEventsLog, kDumpEntry, "could not create NSString from cstring = %s", string);
    if (event) event->setFilePath(end ? string : std::string_view());
}

void dumpData(int type, const std::uint8_t* data, int length, TuvFSEvent* event) {
    const std::int32_t word = wordAt(data, length);
    const auto number = static_cast<std::uint32_t>(word);
    switch (type) {
        case record::kVnode:
        case record::kString:
        case record::kPath:
            return dumpText(type, data, length, event);
        case record::kInt32:
            return TuvLog::trace(tuvFSEventsLog, kDumpEntry, "int32 = %d (%#010x)", word, word);
        case record::kInt64: {
            const auto wide = static_cast<std::int64_t>(numberAt(data, length, 8));
            return TuvLog::trace(tuvFSEventsLog, kDumpEntry, "int64 = %lld (%#018llx)", wide, wide);
        }
        case record::kRaw:
            return printBytes("dump_entry() raw    = ", data, length);
        case record::kInode:
            TuvLog::trace(tuvFSEventsLog, kDumpEntry, "inode = %d", word);
            if (event) event->setInode(number);
            return;
        case record::kUser:
            if (tuvFSEventsLog.traceOn())
                TuvLog::trace(tuvFSEventsLog, kDumpEntry, "uid = %d (%s)", word, nameOr(userName(number), number));
            return;
        case record::kDevice:
            TuvLog::trace(tuvFSEventsLog, kDumpEntry, "device = %#010x", word);
            if (event) event->setDevice(number);
            return;
        case record::kMode:
            return TuvLog::trace(tuvFSEventsLog, kDumpEntry, "mode = %#06x", word);
        case record::kGroup:
            if (tuvFSEventsLog.traceOn())
                TuvLog::trace(tuvFSEventsLog, kDumpEntry, "gid = %d (%s)", word, nameOr(groupName(number), number));
            return;
        case record::kFinderInfo:
            return printBytes("dump_entry() finfo   = ", data, length);
    }
}

// One record; gives the number of bytes up to its end, 0 when nothing after it can be read.
int readRecord(TuvFSEvents* listener, const std::uint8_t* buffer, int length) {
    TuvLog::trace(tuvFSEventsLog, kPrintEvent, "");
    TuvLog::trace(tuvFSEventsLog, kPrintEvent, "%d bytes", length);
    TuvLog::trace(tuvFSEventsLog, kPrintEvent, "---------------------------------");
    if (length < 4) return 0;
    const int type = wordAt(buffer, length);
    if (!TuvFSEvent::validEventType(type)) return 0;
    TuvRef<TuvFSEvent> event;
    if (TuvFSEvent::shouldHandleEventType(type)) event = make<TuvFSEvent>(type);
    int at = record::kHeadSize, consumed = 0;
    while (at < length) {
        const int argument = TuvFSEvents_dump_entry(buffer + at, length - at, &consumed, event.get());
        at += consumed;
        if (argument == -1 || argument == record::kDone) break;
    }
    listener->addEvent(std::move(event));
    return at < length ? at : 0;
}

}  // namespace

void TuvFSEvents_print_event(TuvFSEvents* listener, const std::uint8_t* buffer, int length) {
    while (const int read = readRecord(listener, buffer, length)) {
        buffer += read;
        length -= read;
    }
}

int TuvFSEvents_dump_entry(const std::uint8_t* entry, int remaining, int* consumed, TuvFSEvent* event) {
    TuvLog::trace(tuvFSEventsLog, kDumpEntry, "%d bytes, %d remaining", *consumed, remaining);
    const int type = remaining < 2 ? 0 : static_cast<int>(numberAt(entry, remaining, 2));
    if (type == record::kDone) {
        *consumed = record::kDoneSize;
        return type;
    }
    const int length = remaining < record::kArgumentHeadSize ? 0 : static_cast<int>(numberAt(entry + 2, 2, 2));
    *consumed = length + record::kArgumentHeadSize;
    if (remaining >= 2 && (type < record::kVnode || type > record::kFinderInfo)) {
        TuvLog::error(tuvFSEventsLog, kDumpEntry, "error: entry->type too big %d", type);
        return type;
    }
    // With the head: data that begins in the buffer and ends behind it is too long, too.
    if (*consumed > remaining) {
        TuvLog::error(tuvFSEventsLog, kDumpEntry, "error: entry->len too big %d", length);
        return -1;
    }
    dumpData(type, entry + record::kArgumentHeadSize, length, event);
    return type;
}

const char* TuvFSEvents_name_from_pid(int process) {
    thread_local char name[256];
    const std::string found = commandNameOfProcess(process);
    if (found.empty()) return nullptr;
    std::snprintf(name, sizeof name, "%s", found.c_str());
    return name;
}

}  // namespace kavaro
