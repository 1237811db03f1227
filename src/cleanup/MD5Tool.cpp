#include "cleanup/MD5Tool.h"

#include "platform/FileDigests.h"
#include "support/BuiltInTools.h"

namespace kavaro {

void registerMD5Tool() {
    static const bool isRegistered = [] {
        registerBuiltInTool(kMD5Tool, md5ToolOutput);
        return true;
    }();
    static_cast<void>(isRegistered);
}

std::string md5ToolOutput(const std::vector<std::string>& arguments) {
    const bool isQuiet = !arguments.empty() && arguments.front() == "-q";
    const std::vector<std::string> paths(arguments.begin() + (isQuiet ? 1 : 0), arguments.end());
    const std::vector<FileDigest> digests = md5OfFiles(paths);
    std::string output;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (!digests[i].digest) continue;
        if (!isQuiet) output.append("MD5 (").append(paths[i]).append(") = ");
        output.append(md5Text(*digests[i].digest)).append("\n");
    }
    return output;
}

}  // namespace kavaro
