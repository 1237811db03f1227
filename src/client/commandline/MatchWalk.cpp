#include "client/commandline/MatchWalk.h"

#include <limits>
#include <optional>
#include <vector>

#include "client/TreeTotals.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

class Walk {
  public:
    Walk(Measurement& measurement, std::string_view folder, const std::function<bool(const TuvNode&)>& test,
         const std::function<bool(const TuvNode&, const std::string&)>& found)
        : _root(measurement.root.get()), _test(test), _found(found), _path(folder) {
        if (measurement.partial) _totals.emplace(*_root, std::numeric_limits<int>::max());
    }

    void run() {
        if (!visitRoot()) return;
        if (_path.empty() || _path.back() != '/') _path += '/';
        if (!enter(_root)) return;
        while (!_levels.empty()) {
            Level& level = _levels.back();
            _path.resize(level.pathLength);
            TuvDirNode* next = level.folder->folders()->folderAtIndex(level.nextFolder++);
            if (!next) {
                _levels.pop_back();
                continue;
            }
            sumUnfinished(*next);
            _path += next->fileName();
            if (_test(*next) && !_found(*next, _path)) return;
            _path += '/';
            if (!enter(next)) return;
        }
    }

  private:
    struct Level {
        TuvDirNode* folder;
        int nextFolder;
        std::size_t pathLength;  // of the folder with its "/"
    };

    void sumUnfinished(TuvDirNode& folder) {
        if (!_totals || folder.isResolved()) return;
        folder.setLogicalSize(_totals->of(folder).logicalSize);
        folder.setPhysicalSize(_totals->of(folder).physicalSize);
    }

    // The root's own name is a whole path.
    bool visitRoot() {
        sumUnfinished(*_root);
        const TuvRef<TuvDirNode> named = make<TuvDirNode>();
        named->setFileName(lastPathComponent(_root->fileName()));
        named->setFlags(_root->flags());
        named->setInode(_root->inode());
        named->setContentModDate(_root->contentModDate());
        named->setLogicalSize(_root->logicalSize());
        named->setPhysicalSize(_root->physicalSize());
        return !_test(*named) || _found(*named, _path);
    }

    // The files of the folder whose path with its "/" is the present one.
    bool enter(TuvDirNode* folder) {
        _levels.push_back({folder, 0, _path.size()});
        for (int i = 0; i < folder->fileCount(); ++i) {
            const TuvNode* file = folder->files()->nodeAtIndex(i);
            if (!_test(*file)) continue;
            _path.resize(_levels.back().pathLength);
            _path += file->fileName();
            if (!_found(*file, _path)) return false;
        }
        return true;
    }

    TuvDirNode* const _root;
    const std::function<bool(const TuvNode&)>& _test;
    const std::function<bool(const TuvNode&, const std::string&)>& _found;
    std::optional<TreeTotals> _totals;
    std::string _path;
    std::vector<Level> _levels;
};

}  // namespace

void walkMatches(Measurement& measurement, std::string_view folder, const std::function<bool(const TuvNode&)>& test,
                 const std::function<bool(const TuvNode&, const std::string& path)>& found) {
    Walk(measurement, folder, test, found).run();
}

}  // namespace kavaro
