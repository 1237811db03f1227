#pragma once

#include <optional>

#include "platform/FileIcon.h"

namespace kavaro {

// The icon of an answer; for an answer without one nothing, and two lines in the log.
std::optional<FileIcon> iconOrLog(const FileIconResult& result);

}  // namespace kavaro
