#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TempFolder.h"
#include "model/FolderWalk.h"
#include "model/ModelTest.h"
#include "platform/PropertyList.h"

namespace kavaro {

// Application bundles on the disk, and the tree that is measured of them.
class Bundles {
  public:
    std::string path(std::string_view name = {}) const { return name.empty() ? _temp.path() : _temp.path(name); }

    // Makes the folders of a relative path.
    void folder(std::string_view name) const {
        for (std::size_t end = name.find('/');; end = name.find('/', end + 1)) {
            const std::string part = path(name.substr(0, end));
            if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) ADD_FAILURE() << part << ": errno " << errno;
            if (end == std::string_view::npos) return;
        }
    }
    // Writes a file and makes the folders above it.
    std::string file(std::string_view name, std::string_view content = "content") const {
        const std::size_t slash = name.rfind('/');
        if (slash != std::string_view::npos) folder(name.substr(0, slash));
        return _temp.write(name, content);
    }
    // Language folders, each with a file of `bytes` in it.
    void languages(const std::string& resources, const std::vector<std::string>& names, std::size_t bytes = 100) const {
        for (const std::string& name : names)
            file(resources + "/" + name + "/Localizable.strings", std::string(bytes, 's'));
    }
    // A nib bundle with all files it may have.
    void nib(const std::string& name) const {
        for (const char* part : {"classes.nib", "designable.nib", "info.nib", "keyedobjects.nib"})
            file(name + "/" + part);
    }
    // The dictionary that a signature file holds for these files.
    static PropertyList seal(const std::vector<std::string>& keys) {
        PropertyList files = PropertyList::Dictionary();
        for (const std::string& key : keys) files.set(key, PropertyList::Data{1, 2, 3});
        PropertyList root = PropertyList::Dictionary();
        root.set("files", std::move(files));
        root.set("rules", PropertyList::Dictionary());
        return root;
    }

    TuvRef<TuvDirNode> tree() const {
        TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path());
        EXPECT_TRUE(node && node->isDirectory());
        auto root = TuvRef<TuvDirNode>::adopt(static_cast<TuvDirNode*>(node.leak()));
        std::vector<TuvDirNode*> folders;
        for (FolderWalk walk(root.get()); TuvDirNode* folder = walk.next();) {
            folder->loadNodes();
            folders.push_back(folder);
        }
        for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) (*folder)->setIsResolved(true);
        return root;
    }
    // Without the path of the place they all lie in.
    std::vector<std::string> relative(const TuvObjectArray& nodes) const {
        std::vector<std::string> paths;
        for (int i = 0; i < nodes.count(); ++i)
            paths.emplace_back(nodes.nodeAtIndex(i)->filePath().substr(path().size() + 1));
        return paths;
    }

  private:
    TempFolder _temp;
};

}  // namespace kavaro
