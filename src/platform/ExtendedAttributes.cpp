#include "platform/ExtendedAttributes.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// Calls `get` with a buffer of the size that it asks for until it fits. Nothing with errno set when it fails.
template <class Get>
std::optional<std::string> grown(Get get) {
    std::string bytes;
    for (;;) {
        const ssize_t size = get(nullptr, 0);
        if (size < 0) return std::nullopt;
        bytes.resize(static_cast<std::size_t>(size));
        const ssize_t got = size == 0 ? 0 : get(bytes.data(), bytes.size());
        if (got >= 0) {
            bytes.resize(static_cast<std::size_t>(got));
            return bytes;
        }
        if (errno != ERANGE) return std::nullopt;
    }
}

std::optional<std::string> valueOf(int fd, const std::string& name) {
    return grown([&](char* bytes, std::size_t size) { return fgetxattr(fd, name.c_str(), bytes, size); });
}

// False with errno set when they cannot be listed. A file system without them has none.
bool namesOf(int fd, std::vector<std::string>* names) {
    const auto list = grown([&](char* bytes, std::size_t size) { return flistxattr(fd, bytes, size); });
    if (!list) return errno == ENOTSUP;
    for (std::string_view left = *list; !left.empty();) {
        const std::size_t end = std::min(left.find('\0'), left.size());
        names->emplace_back(left.substr(0, end));
        left.remove_prefix(std::min(end + 1, left.size()));
    }
    return true;
}

bool sealsContent(std::string_view name) {
    return name == "security.ima" || name == "security.evm";
}

std::string fault(const std::string& name) {
    return "its extended attribute " + printable(name) + " cannot be kept: " + errorText(errno);
}

}  // namespace

std::string copyExtendedAttributes(int from, int to) {
    std::vector<std::string> wanted, present;
    if (!namesOf(from, &wanted) || !namesOf(to, &present))
        return "its extended attributes cannot be read: " + errorText(errno);
    for (const std::string& name : wanted) {
        if (sealsContent(name)) continue;
        const auto value = valueOf(from, name);
        if (!value) return fault(name);
        // One that is right already may be one that this user may not set.
        if (valueOf(to, name) != value && fsetxattr(to, name.c_str(), value->data(), value->size(), 0) != 0)
            return fault(name);
    }
    for (const std::string& name : present) {
        const bool isWanted = std::find(wanted.begin(), wanted.end(), name) != wanted.end();
        if (isWanted || name.starts_with("security.") || fremovexattr(to, name.c_str()) == 0) continue;
        if (errno != ENODATA) return fault(name);
    }
    return {};
}

}  // namespace kavaro
