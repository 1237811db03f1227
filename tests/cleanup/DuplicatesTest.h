#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "cleanup/DuplicatesLog.h"
#include "cleanup/MD5Tool.h"
#include "cleanup/TuvNodeMD5Hash.h"
#include "model/ModelTest.h"
#include "support/BuiltInTools.h"

namespace kavaro {

// Captures the lines of the log from a level up, also those of classes that were used before.
class DuplicatesLogs {
  public:
    explicit DuplicatesLogs(LogLevel level = LogLevel::info) : _capture(level) { forgetLevels(); }

    // "component selector: text" of every line; numbers of milliseconds are "?".
    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : _capture.lines())
            lines.push_back(line.component + " " + line.selector + ": " + withoutTime(line.text));
        return lines;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> texts;
        for (const std::string& text : _capture.texts()) texts.push_back(withoutTime(text));
        return texts;
    }
    LogCapture* operator->() { return &_capture; }

  private:
    static std::string withoutTime(const std::string& text) {
        const std::size_t in = text.rfind(" in ");
        const bool hasTime = in != std::string::npos && text.ends_with(" ms");
        return hasTime ? text.substr(0, in) + " in ? ms" : text;
    }
    static void forgetLevels() {
        for (const LogComponent* component : {&tuvNodeMD5HashLog, &tuvObjectArrayLog, &tuvNodeLog, &tuvDirNodeLog})
            component->forget();
    }
    struct Forgetting {
        ~Forgetting() { forgetLevels(); }
    };
    Forgetting _forgetting;  // first: after the capture has restored the level
    LogCapture _capture;
};

inline TuvRef<TuvNodeMD5Hash> newRecord(std::uint32_t inode, std::string_view digest, double modified = 0,
                                        std::string_view path = "/f") {
    auto node = make<TuvNode>();
    node->setInode(inode);
    node->setContentModDate(modified);
    auto record = make<TuvNodeMD5Hash>(node.get());
    record->setFilePath(std::string(path));
    record->setMD5Hash(digest);
    return record;
}

inline TuvRef<TuvObjectArray> arrayOfRecords(std::vector<TuvRef<TuvNodeMD5Hash>> records) {
    auto array = make<TuvObjectArray>();
    for (TuvRef<TuvNodeMD5Hash>& record : records) array->adoptObject(record.leak());
    return array;
}

template <class... Records>
TuvRef<TuvObjectArray> recordsOf(Records... records) {
    std::vector<TuvRef<TuvNodeMD5Hash>> list;
    (list.push_back(std::move(records)), ...);
    return arrayOfRecords(std::move(list));
}

inline TuvNodeMD5Hash* recordAt(const TuvObjectArray* records, int index) {
    return TuvNodeMD5Hash::atIndex(records, index);
}

inline TuvObjectArray* arrayAt(const TuvObjectArray* arrays, int index) {
    return arrays->arrayAtIndex(index);
}

// An array of the borrowed objects.
inline TuvRef<TuvObjectArray> arrayOfAll(const std::vector<TuvObject*>& objects) {
    auto array = make<TuvObjectArray>();
    for (TuvObject* object : objects) array->addObject(object);
    return array;
}

// Puts another tool in the place of /sbin/md5 for as long as it lives. The system must have none of its own.
class FakeMD5Tool {
  public:
    explicit FakeMD5Tool(BuiltInTool tool) {
        EXPECT_NE(access(kMD5Tool, X_OK), 0) << "a real program is always run";
        registerMD5Tool();
        registerBuiltInTool(kMD5Tool, tool);
    }
    ~FakeMD5Tool() { registerBuiltInTool(kMD5Tool, md5ToolOutput); }
    FakeMD5Tool(const FakeMD5Tool&) = delete;
    FakeMD5Tool& operator=(const FakeMD5Tool&) = delete;
};

}  // namespace kavaro
