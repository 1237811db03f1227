#include "support/StringHelpers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "platform/Catalog.h"
#include "platform/ChildProcess.h"
#include "platform/Environment.h"
#include "support/BuiltInTools.h"
#include "support/Units.h"

namespace kavaro {

namespace {

template <class Predicate>
std::string trimmed(std::string_view text, Predicate goes) {
    while (!text.empty() && goes(text.front())) text.remove_prefix(1);
    while (!text.empty() && goes(text.back())) text.remove_suffix(1);
    return std::string(text);
}

bool isProgram(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::string compactStringFromSize(std::uint64_t bytes) {
    if (bytes == 1) return "1 byte";
    if (bytes < Tuv_KB) return std::to_string(bytes) + " bytes";
    static constexpr struct {
        std::uint64_t size;
        const char* name;
    } kUnits[] = {{Tuv_KB, " KB"}, {Tuv_MB, " MB"}, {Tuv_GB, " GB"}, {Tuv_TB, " TB"}};
    for (const auto& unit : kUnits) {
        std::uint64_t whole = bytes / unit.size;
        std::uint64_t tenths = (bytes % unit.size * 10 + unit.size / 2) / unit.size;
        if (tenths == 10) {
            ++whole;
            tenths = 0;
        }
        if (whole < 1024 || unit.size == Tuv_TB)
            return std::to_string(whole) + '.' + static_cast<char>('0' + tenths) + unit.name;
    }
    return {};  // not reached
}

std::string trimWhiteSpace(std::string_view text) {
    return trimmed(text, [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); });
}

std::string trimBadCharacters(std::string_view text) {
    return trimmed(text, [](char c) {
        const unsigned char byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7f || std::string_view("\"'`()[]{},;:").find(c) != std::string_view::npos;
    });
}

bool getFSRef(const std::string& path, FileReference* reference, bool* isDir) {
    // Of all mounts: whether a folder should be listed is the scanner's question.
    const Catalog::Options everything{true, false};
    FileReference found;
    int error = 0;
    if (!Catalog::forRoot("", everything)->reference(path, &found, &error)) return false;
    // The catalog holds folders alone.
    if (!found.isDirectory) found.fd = open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    *isDir = found.isDirectory;
    *reference = std::move(found);
    return true;
}

std::string pathFromFSRef(const FileReference& reference) {
    return pathOfDescriptor(reference.fd);
}

bool isBuiltInTask(const std::string& path) {
    return !isProgram(path) && builtInTool(path);
}

std::optional<std::string> stringFromTask(const std::string& path, const std::vector<std::string>& arguments) {
    if (!isProgram(path))
        if (const BuiltInTool tool = builtInTool(path)) return tool(arguments);
    return runAndRead(path, arguments);
}

}  // namespace kavaro
