#include "support/BuiltInTools.h"

#include <map>

#include "platform/Mutex.h"

namespace kavaro {

namespace {

struct Table {
    Mutex mutex;
    std::map<std::string, BuiltInTool, std::less<>> tools KAVARO_GUARDED_BY(mutex);
};

// Made on first use, never destroyed: a thread may ask while the process ends.
Table& table() {
    static Table* const instance = new Table;
    return *instance;
}

}  // namespace

void registerBuiltInTool(const std::string& path, BuiltInTool tool) {
    Table& known = table();
    MutexLock lock(known.mutex);
    known.tools.insert_or_assign(path, tool);
}

BuiltInTool builtInTool(const std::string& path) {
    Table& known = table();
    MutexLock lock(known.mutex);
    const auto found = known.tools.find(path);
    return found == known.tools.end() ? nullptr : found->second;
}

}  // namespace kavaro
