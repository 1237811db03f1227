#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "FakeCatalog.h"
#include "LogCapture.h"
#include "model/TuvDirNode.h"
#include "scan/ScanSession.h"

namespace kavaro {

// A test of listings on a disk in memory. Each case needs a process of its own, which ctest gives it: log levels and
// the setting of backup folders are read once.
class ScanTest : public testing::Test {
  protected:
    ScanTest() {
        ScanSession::setCatalogFactory([this](const std::string&) { return disk; });
    }
    ~ScanTest() override { ScanSession::setCatalogFactory({}); }

    static TuvRef<TuvDirNode> folderNode(std::string_view path, std::uint32_t inode = 1) {
        auto folder = make<TuvDirNode>();
        folder->setInode(inode);
        folder->setFileName(path);
        return folder;
    }

    std::shared_ptr<FakeCatalog> disk = std::make_shared<FakeCatalog>();
};

}  // namespace kavaro
