// kavaro events record, kavaro events watch
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "client/commandline/Commands.h"
#include "client/commandline/EventSession.h"
#include "client/commandline/JsonFields.h"
#include "client/commandline/JsonOutput.h"
#include "client/commandline/Output.h"
#include "fsevents/BatchResolver.h"
#include "fsevents/EventRecording.h"
#include "fsevents/KernelRecord.h"
#include "platform/Environment.h"
#include "platform/FileDescriptor.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr std::uint64_t kBlock = 512;  // bytes of a unit of stat()
constexpr std::size_t kSizeColumns = 10;

// The exit code after all was written; says what could not be written, but for a reader that has gone.
int finishOutput(Output& output, const std::string& name, int exitCode, const CommandContext& context) {
    output.flush();
    if (!output.failed()) return exitCode;
    if (output.error() == EPIPE) return kExitDone;
    writeError(context, errorMessage(name, "cannot be written: " + errorText(output.error()), ""));
    return kExitFailed;
}

void sayWhatBegins(const EventSession& session, const char* doing, const CommandContext& context) {
    if (!context.errorIsTerminal) return;
    writeError(context, std::string(doing) + " changes of the file system of " + printable(session.volume()) +
                            ". Ctrl-C ends it.\n");
}

// Where the entry is after the change.
std::string_view placeAfter(const TuvFSEvent& event) {
    return event.filePathDestination().data() ? event.filePathDestination() : event.filePath();
}

// Of a file that is there, and no other than the one that changed.
bool statusOf(const TuvFSEvent& event, struct stat* info) {
    const std::string path(placeAfter(event));
    return event.type() != record::kDelete && !path.empty() && lstat(path.c_str(), info) == 0 &&
           !S_ISDIR(info->st_mode) && static_cast<std::uint32_t>(info->st_ino) == event.inode();
}

void writeRow(Output& output, const TuvFSEvent& event) {
    struct stat info {};
    std::string size;
    if (statusOf(event, &info)) size = compactStringFromSize(static_cast<std::uint64_t>(info.st_blocks) * kBlock);
    output.write(std::string(size.size() < kSizeColumns ? kSizeColumns - size.size() : 0, ' ') + size + "  " +
                 eventLine(event) + "\n");
}

void writeObject(Output& output, const TuvFSEvent& event, const std::string& time) {
    JsonStream stream{output};
    JsonWriter writer(stream);
    writer.StartObject();
    writeKey(writer, "time");
    writeString(writer, time);
    writeKey(writer, "type");
    const char* name = TuvFSEvent::stringType(event.type());
    writeString(writer, name ? name : "");
    writeText(writer, "path", "pathRaw", event.filePath());
    if (event.filePathDestination().data())
        writeText(writer, "destination", "destinationRaw", event.filePathDestination());
    writeNumber(writer, "inode", event.inode());
    writeNumber(writer, "device", event.device());
    struct stat info {};
    if (statusOf(event, &info)) {
        writeNumber(writer, "logicalSize", static_cast<std::uint64_t>(info.st_size));
        writeNumber(writer, "physicalSize", static_cast<std::uint64_t>(info.st_blocks) * kBlock);
    }
    writer.EndObject();
    output.put('\n');
}

// Of --output. Not open, with the reason written, when that cannot be; not open either for standard output's own file.
bool openRecording(const std::string& name, FileDescriptor* file, const CommandContext& context) {
    const auto refuse = [&](const std::string& reason) {
        writeError(context, errorMessage(name, reason, ""));
        return false;
    };
    constexpr const char* kNoFile = "is neither a file nor a device: a recording cannot be written there";
    struct stat info {};
    struct stat own {};
    if (stat(name.c_str(), &info) == 0 && fstat(context.output, &own) == 0 && info.st_dev == own.st_dev &&
        info.st_ino == own.st_ino)
        return true;
    // Nothing is waited for, as by a pipe that nobody reads.
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    file->reset(open(name.c_str(), kFlags, 0644));
    if (!file->isOpen()) return refuse(errno == ENXIO ? kNoFile : "cannot be written: " + errorText(errno));
    if (fstat(file->get(), &info) != 0) return refuse("cannot be written: " + errorText(errno));
    if (!S_ISREG(info.st_mode) && !S_ISCHR(info.st_mode)) return refuse(kNoFile);
    fcntl(file->get(), F_SETFL, fcntl(file->get(), F_GETFL) & ~O_NONBLOCK);
    return true;
}

// The closing line, unless not all of it could be written.
int finish(Output& output, const std::string& name, const EventSession& session, const CommandContext& context,
           const std::string& closing) {
    const int exitCode = finishOutput(output, name, session.exitCode(), context);
    if (!output.failed() || output.error() == EPIPE) writeError(context, closing);
    return exitCode;
}

}  // namespace

int runEventsRecord(const EventsOptions& options, const CommandContext& context) {
    const LogErrors log(context);
    const std::unique_ptr<EventSession> session = EventSession::open(options, context);
    if (!session) return kExitFailed;
    FileDescriptor file;
    if (!options.output.empty() && !openRecording(options.output, &file, context)) return kExitFailed;
    TuvFSEvent::setRunAsDataCollector(true);
    sayWhatBegins(*session, "Recording", context);
    const int fd = file.isOpen() ? file.get() : context.output;
    session->setOutput(fd);
    Output output(fd);
    const double begin = context.clock->monotonicSeconds();
    std::uint64_t changes = 0, batches = 0;
    for (bool goesOn = true; goesOn && !output.failed();) {
        // In the batches that a server would make of them.
        double seconds = BatchResolver::kLive.seconds;
        const double left = options.seconds - (context.clock->monotonicSeconds() - begin);
        const bool isLast = options.seconds > 0 && left <= seconds;
        if (isLast) seconds = left;
        goesOn = session->gather(seconds, isLast);
        const TuvRef<TuvObjectArray> batch = session->take();
        if (batch->count() == 0) continue;
        writeBatch(*batch, [&](std::string_view text) { output.write(text); });
        output.flush();
        if (output.failed()) break;
        changes += static_cast<std::uint64_t>(changeCount(*batch));
        ++batches;
    }
    output.write(kRecordingEnd);
    const std::string name = file.isOpen() ? options.output : "standard output";
    if (context.errorIsTerminal && context.signalCount() > 0) writeError(context, "\n");  // after its ^C
    return finish(
        output, name, *session, context,
        counted(changes, "change", "changes") + " in " + counted(batches, "batch", "batches") + " recorded.\n");
}

int runEventsWatch(const EventsOptions& options, const CommandContext& context) {
    const LogErrors log(context);
    const std::unique_ptr<EventSession> session = EventSession::open(options, context);
    if (!session) return kExitFailed;
    TuvFSEvent::setRunAsDataCollector(false);
    sayWhatBegins(*session, "Watching", context);
    session->setOutput(context.output);
    Output output(context.output);
    std::uint64_t changes = 0;
    for (bool goesOn = true; goesOn && !output.failed();) {
        goesOn = session->gather(options.every);
        if (!goesOn && context.outputIsTerminal) output.put('\n');  // after the terminal's ^C
        const TuvRef<TuvObjectArray> batch = session->take();
        const std::string time = isoTime(context.clock->wallSeconds());
        std::uint64_t shown = 0;
        for (const TuvFSEvent* event : settle(*batch)) {
            forEachChange(*event, [&](const TuvFSEvent& change, int) {
                ++shown;
                if (options.json) {
                    writeObject(output, change, time);
                } else {
                    writeRow(output, change);
                }
            });
        }
        output.flush();
        if (!output.failed()) changes += shown;
    }
    return finish(output, "standard output", *session, context, counted(changes, "change", "changes") + " shown.\n");
}

}  // namespace kavaro
