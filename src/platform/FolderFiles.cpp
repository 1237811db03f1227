#include "platform/FolderFiles.h"

#include <algorithm>
#include <filesystem>

namespace kavaro {

std::vector<std::string> filesBelow(const std::string& folder) {
    namespace fs = std::filesystem;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(folder, kOptions, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (!entry->is_directory(ignored) || entry->is_symlink(ignored)) {
            files.push_back(entry->path().lexically_relative(folder).native());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace kavaro
