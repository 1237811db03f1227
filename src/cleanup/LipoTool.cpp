#include "cleanup/LipoTool.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <mutex>
#include <optional>

#include "cleanup/ArchitectureNames.h"
#include "cleanup/LipoLog.h"
#include "cleanup/UniversalHeader.h"
#include "platform/Environment.h"
#include "platform/FileRewrite.h"
#include "platform/FolderOpener.h"
#include "platform/Text.h"
#include "support/BuiltInTools.h"

namespace kavaro {

namespace {

constexpr std::uint64_t kLongestGap = 1u << 20;  // bytes outside the architectures that are worth looking at

using Beginning = std::array<std::uint8_t, UniversalHeader::kLongest>;

std::string complaint(const std::string& path, const std::string& reason) {
    return "lipo: " + printable(path) + ": " + reason + "\n";
}

std::string detailsOf(const UniversalSlice& slice) {
    const ArchitectureNames names = namesOfArchitecture(slice.cpuType, slice.cpuSubtype);
    return "architecture " + names.name + "\n    cputype " + names.type + "\n    cpusubtype " + names.subtype +
           "\n    capabilities " + names.capabilities + "\n    offset " + std::to_string(slice.offset) + "\n    size " +
           std::to_string(slice.size) + "\n    align 2^" + std::to_string(slice.alignment) + " (" +
           std::to_string(1u << slice.alignment) + ")\n";
}

std::string detailsOfFile(const std::string& path) {
    const auto cannotBeRead = [&] { return complaint(path, "cannot be read: " + errorText(errno)); };
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    const FolderOpener opener;
    // Looked at before it is opened: opening a device does things.
    const FileDescriptor place(opener.open(AT_FDCWD, path, O_PATH | O_NOFOLLOW, FolderOpener::Rule::followLinks));
    struct stat info {};
    if (!place.isOpen() || fstat(place.get(), &info) != 0) return cannotBeRead();
    if (S_ISLNK(info.st_mode)) return complaint(path, "is a link, which is not followed");
    if (!S_ISREG(info.st_mode)) return complaint(path, "is no file");
    const FileDescriptor file(opener.open(AT_FDCWD, path, O_RDONLY | kFlags, FolderOpener::Rule::followLinks));
    if (!file.isOpen() || fstat(file.get(), &info) != 0) return cannotBeRead();
    Beginning beginning;
    std::size_t length = 0;
    while (length < beginning.size()) {
        const ssize_t got = read(file.get(), beginning.data() + length, beginning.size() - length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return cannotBeRead();
        if (got == 0) break;
        length += static_cast<std::size_t>(got);
    }
    return lipoDetails(path, ByteView(beginning).first(length), static_cast<std::uint64_t>(info.st_size));
}

// Removes architectures from one file. Each step gives false when it fails, and reason() says why.
class ArchitectureRemoval {
  public:
    bool open(const std::string& path, const std::vector<std::string>& names);
    bool rewrite();
    const std::string& reason() const { return _reason.empty() ? _file.reason() : _reason; }

  private:
    bool fail(std::string reason) {
        _reason = std::move(reason);
        return false;
    }
    bool select(const std::vector<std::string>& names);
    bool checkGaps();

    FileRewrite _file;
    UniversalHeader _before, _after;
    std::string _reason;
};

bool ArchitectureRemoval::open(const std::string& path, const std::vector<std::string>& names) {
    if (!_file.open(path)) return false;
    Beginning beginning;
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(_file.size(), beginning.size()));
    if (!_file.read(0, beginning.data(), length)) return false;
    std::string fault;
    const auto header = UniversalHeader::read(ByteView(beginning).first(length), _file.size(), &fault);
    if (!header) return fail(fault.empty() ? "it is no universal file" : fault);
    _before = *header;
    return select(names) && checkGaps();
}

bool ArchitectureRemoval::select(const std::vector<std::string>& names) {
    const auto goes = [&](const UniversalSlice& slice) {
        return std::find(names.begin(), names.end(), slice.name()) != names.end();
    };
    for (const std::string& name : names) {
        const bool isThere = std::any_of(_before.slices.begin(), _before.slices.end(),
                                         [&](const UniversalSlice& slice) { return slice.name() == name; });
        if (!isThere) return fail("it does not hold the architecture " + printable(name));
    }
    _after.isWide = _before.isWide;
    std::remove_copy_if(_before.slices.begin(), _before.slices.end(), std::back_inserter(_after.slices), goes);
    if (_after.slices.empty()) return fail("no architecture would be left");
    if (_after.slices.size() == _before.slices.size()) return fail("no architecture is to be removed");
    return true;
}

// What no architecture counts as its own would be lost: an appended archive, an entry that the table hides.
bool ArchitectureRemoval::checkGaps() {
    std::uint64_t total = 0;
    std::vector<char> bytes;
    for (const UniversalHeader::Range& gap : _before.gaps(_file.size())) {
        total += gap.end - gap.begin;
        bool isEmpty = total <= kLongestGap;
        if (isEmpty) {
            bytes.resize(static_cast<std::size_t>(gap.end - gap.begin));
            if (!_file.read(gap.begin, bytes.data(), bytes.size())) return false;
            isEmpty = std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
        }
        if (!isEmpty) return fail("it holds bytes that belong to no architecture, and they would be lost");
    }
    return true;
}

bool ArchitectureRemoval::rewrite() {
    UniversalHeader laidOut = _after;
    laidOut.layOut();
    const std::string table = laidOut.bytes();
    if (!_file.create() || !_file.write(0, table.data(), table.size())) return false;
    for (std::size_t i = 0; i < laidOut.slices.size(); ++i) {
        const UniversalSlice& slice = laidOut.slices[i];
        if (!_file.copy(_after.slices[i].offset, slice.offset, slice.size)) return false;
    }
    return _file.commit();
}

struct Request {
    bool detailedInfo = false;
    std::vector<std::string> inputs, removed, outputs;
    std::string wrong;  // what cannot be understood
};

Request requestOf(const std::vector<std::string>& arguments) {
    Request request;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word == "-detailed_info") {
            request.detailedInfo = true;
        } else if (word == "-remove" || word == "-output") {
            if (i + 1 == arguments.size()) {
                request.wrong = word + " needs a value";
                return request;
            }
            (word == "-remove" ? request.removed : request.outputs).push_back(arguments[++i]);
        } else if (word.starts_with('-')) {
            request.wrong = "unknown flag: " + printable(word);
            return request;
        } else {
            request.inputs.push_back(word);
        }
    }
    if (request.detailedInfo != request.removed.empty())
        request.wrong = "either -detailed_info or -remove is needed";
    else if (request.detailedInfo && request.inputs.empty())
        request.wrong = "no input file";
    else if (!request.detailedInfo && (request.inputs.size() != 1 || request.outputs != request.inputs))
        request.wrong = "-remove needs one input file and -output with the same one";
    return request;
}

}  // namespace

std::string lipoDetails(const std::string& path, ByteView beginning, std::uint64_t fileSize) {
    const std::string shown = printable(path);
    std::string fault;
    const auto header = UniversalHeader::read(beginning, fileSize, &fault);
    if (!header) {
        if (!fault.empty()) return complaint(path, fault);
        const auto thin = thinArchitecture(beginning);
        if (!thin) return complaint(path, "can't figure out the architecture type");
        return "input file " + shown + " is not a fat file\nNon-fat file: " + shown + " is architecture: " + *thin +
               "\n";
    }
    std::string text = "Fat header in: " + shown + "\nfat_magic " + (header->isWide ? "0xcafebabf" : "0xcafebabe") +
                       "\nnfat_arch " + std::to_string(header->slices.size()) + "\n";
    for (const UniversalSlice& slice : header->slices) text += detailsOf(slice);
    return text;
}

std::string lipoObstacle(const std::string& path, const std::vector<std::string>& names) {
    ArchitectureRemoval removal;
    return removal.open(path, names) ? std::string() : removal.reason();
}

std::string lipoTool(const std::vector<std::string>& arguments) {
    const Request request = requestOf(arguments);
    if (!request.wrong.empty()) return "lipo: " + request.wrong + "\n";
    std::string text;
    if (request.detailedInfo) {
        for (const std::string& path : request.inputs) text += detailsOfFile(path);
        return text;
    }
    const std::string& path = request.inputs.front();
    ArchitectureRemoval removal;
    if (removal.open(path, request.removed) && removal.rewrite()) return {};
    TuvLog::error(lipoLog, "remove", "\"%@\": %@", path, removal.reason());
    return complaint(path, removal.reason());
}

void registerLipoTool() {
    static std::once_flag once;
    std::call_once(once, [] { registerBuiltInTool(kLipoPath, lipoTool); });
}

}  // namespace kavaro
