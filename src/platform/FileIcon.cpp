#include "platform/FileIcon.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <memory>

namespace kavaro {

namespace {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct Free {
    void operator()(gpointer memory) const { g_free(memory); }
};

std::string contentTypeOf(const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) == 0) {
        switch (info.st_mode & S_IFMT) {
            case S_IFDIR:
                return "inode/directory";
            case S_IFLNK:
                return "inode/symlink";
            case S_IFBLK:
                return "inode/blockdevice";
            case S_IFCHR:
                return "inode/chardevice";
            case S_IFIFO:
                return "inode/fifo";
            case S_IFSOCK:
                return "inode/socket";
            default:
                break;
        }
    }
    const std::unique_ptr<char, Free> type(g_content_type_guess(path.c_str(), nullptr, 0, nullptr));
    return type ? type.get() : "";
}

}  // namespace

FileIconResult iconForFile(const std::string& path) {
    if (path.empty()) return {{}, "no path"};
    const std::string type = contentTypeOf(path);
    const std::unique_ptr<GIcon, Unref> icon(g_content_type_get_icon(type.c_str()));
    if (!icon || !G_IS_THEMED_ICON(icon.get())) return {{}, "no themed icon for content type \"" + type + "\""};
    FileIconResult result;
    for (const gchar* const* name = g_themed_icon_get_names(G_THEMED_ICON(icon.get())); name && *name; ++name) {
        result.icon.names.emplace_back(*name);
    }
    if (result.icon.names.empty()) result.error = "an icon without names for content type \"" + type + "\"";
    return result;
}

}  // namespace kavaro
