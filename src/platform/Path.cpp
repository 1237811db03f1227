// The path helpers of Text.h.
#include "platform/Text.h"

namespace kavaro {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

// Position of the dot that starts the extension of a path without trailing slashes; npos when there is none. A dot at
// the start or at the end of the name starts none.
std::size_t extensionDot(std::string_view path) {
    std::size_t slash = path.rfind('/');
    std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    std::size_t dot = path.rfind('.');
    bool hasOne = dot != std::string_view::npos && dot > nameStart && dot + 1 < path.size();
    return hasOne ? dot : std::string_view::npos;
}

}  // namespace

std::string lastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.size() == 1) return std::string(path);
    return std::string(path.substr(slash + 1));
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view name) {
    path = withoutTrailingSlashes(path);
    while (name.starts_with('/')) name.remove_prefix(1);
    name = withoutTrailingSlashes(name);
    std::string result(path);
    if (name.empty()) return result;
    result.reserve(path.size() + 1 + name.size());
    if (!result.empty() && result.back() != '/') result += '/';
    result += name;
    return result;
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    return std::string(withoutTrailingSlashes(path.substr(0, slash == 0 ? 1 : slash)));
}

std::string pathExtension(std::string_view path) {
    path = withoutTrailingSlashes(path);
    std::size_t dot = extensionDot(path);
    return dot == std::string_view::npos ? std::string() : std::string(path.substr(dot + 1));
}

std::string stringByDeletingPathExtension(std::string_view path) {
    path = withoutTrailingSlashes(path);
    return std::string(path.substr(0, extensionDot(path)));
}

}  // namespace kavaro
