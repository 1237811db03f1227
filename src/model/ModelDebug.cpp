// Debug texts of trees, on standard error. A folder prints its lists and a list its elements: DebugWalk does that with
// a list of what is still to be printed, so that any depth is fine.

#include <cstdio>
#include <ctime>
#include <typeinfo>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "support/Units.h"

namespace kavaro {

namespace {

std::string dateText(double secondsSince1970) {
    constexpr double kFarthest = 1e15;  // years are 32-bit
    if (!(secondsSince1970 > -kFarthest && secondsSince1970 < kFarthest)) return "(out of range)";
    const auto seconds = static_cast<time_t>(secondsSince1970);
    std::tm parts{};
    char text[64];
    gmtime_r(&seconds, &parts);
    text[std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts)] = 0;
    return text;
}

class DebugWalk {
  public:
    void print(const TuvObjectArray* array, int shift, int depth) {
        beginArray(array, shift, depth);
        goOn();
    }
    void print(const TuvDirNode* folder, int shift, int depth) {
        beginFolder(folder, shift, depth);
        goOn();
    }

  private:
    struct Level {
        const TuvDirNode* folder;     // one of the two
        const TuvObjectArray* array;  //
        int shift;
        int depth;
        int next;  // element of an array, list of a folder
    };

    void goOn() {
        while (!_levels.empty()) {
            Level& level = _levels.back();
            if (level.folder)
                continueFolder(level);
            else
                continueArray(level);
        }
    }

    // Classes that print themselves otherwise are asked to.
    void begin(const TuvObject* object, int shift, int depth) {
        if (typeid(*object) == typeid(TuvDirNode))
            beginFolder(static_cast<const TuvDirNode*>(object), shift, depth);
        else if (typeid(*object) == typeid(TuvObjectArray))
            beginArray(static_cast<const TuvObjectArray*>(object), shift, depth);
        else
            object->debug(shift, depth);
    }

    void beginFolder(const TuvDirNode* folder, int shift, int depth) {
        TuvObject::debugShift(shift);
        folder->debugHeader();
        _levels.push_back({folder, nullptr, shift, depth, 0});
    }

    void beginArray(const TuvObjectArray* array, int shift, int depth) {
        if (array->count() == 0) return;
        TuvObject::debugShift(shift);
        std::fprintf(stderr, "TuvObjectArray <0x%zx>[retCount=%u] [%d items]%s\n", address(array), array->retainCount(),
                     array->count(), depth < 1 ? " Not allowed to recurse deeper ..." : "");
        if (depth >= 1) _levels.push_back({nullptr, array, shift, depth, 0});
    }

    void continueArray(Level& level) {
        if (level.next > 0) {
            std::fputc('\n', stderr);
            std::fflush(stderr);
        }
        const Level now = level;
        const TuvObject* object = now.array->objectAtIndex(now.next);
        if (!object) {
            _levels.pop_back();
            return;
        }
        ++level.next;
        TuvObject::debugShift(now.shift);
        std::fprintf(stderr, "<index %d> from <0x%zx>\n", now.next, address(now.array));
        begin(object, now.shift + 1, now.depth - 1);
    }

    void continueFolder(Level& level) {
        const Level now = level;
        if (now.next == 2) {
            TuvObject::debugShift(now.shift);
            std::fputc('\n', stderr);
            std::fflush(stderr);
            _levels.pop_back();
            return;
        }
        ++level.next;
        const TuvObjectArray* list = now.next == 0 ? now.folder->files() : now.folder->folders();
        TuvObject::debugShift(now.shift + 1);
        std::fprintf(stderr, "%d immediate %s\n", list->count(), now.next == 0 ? "files" : "folders");
        beginArray(list, now.shift + 1, now.depth - 1);
    }

    static std::size_t address(const TuvObject* object) { return reinterpret_cast<std::size_t>(object); }

    std::vector<Level> _levels;
};

}  // namespace

void TuvObjectArray::debug(int shift, int depth) const {
    DebugWalk().print(this, shift, depth);
}

void TuvObjectArray::debug() const {
    debugShift(0);
    std::fprintf(stderr, "%d objects\n", _count);
    debug(0, Tuv_debugDepth);
}

void TuvNode::debugHeader() const {
    const std::string_view name = fileName();
    std::fprintf(stderr, "inod=[%8d] %s=[", static_cast<int>(_inode), isDirectory() ? "dirName" : "fileName");
    std::fwrite(name.data(), 1, name.size(), stderr);
    std::fprintf(stderr,
                 "] [<0x%zx>][retCount=%u] modDate=[%s] logicalSize=[%d] physicalSize=[%d] files=[%d] folders=[%d] "
                 "resolved=[%s]\n",
                 reinterpret_cast<std::size_t>(this), retainCount(), dateText(modDate()).c_str(),
                 static_cast<int>(_logicalSize), static_cast<int>(_physicalSize), fileCount(), folderCount(),
                 isResolved() ? "Y" : "N");
}

void TuvNode::debug(int shift, int) const {
    debugShift(shift);
    debugHeader();
    std::fflush(stderr);
}

void TuvNode::debug() const {
    debug(0, Tuv_debugDepth);
}

void TuvDirNode::debug(int shift, int depth) const {
    DebugWalk().print(this, shift, depth);
}

void TuvDirNode::debug() const {
    debug(0, Tuv_debugDepth);
}

}  // namespace kavaro
