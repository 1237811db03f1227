#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "LogCapture.h"
#include "model/ModelLog.h"
#include "model/TuvDirNode.h"

namespace kavaro {

inline TuvRef<TuvNode> newFile(std::uint32_t inode, std::string_view name = "f", std::uint64_t logical = 0,
                               std::uint64_t physical = 0) {
    auto node = make<TuvNode>();
    node->setInode(inode);
    node->setFileName(name);
    node->setLogicalSize(logical);
    node->setPhysicalSize(physical);
    return node;
}

inline TuvRef<TuvDirNode> newFolder(std::uint32_t inode, std::string_view name = "d") {
    auto node = make<TuvDirNode>();
    node->setInode(inode);
    node->setFileName(name);
    return node;
}

// The child belongs to the parent from here on.
inline TuvNode* addFile(TuvDirNode* parent, TuvRef<TuvNode> file) {
    TuvNode* borrowed = file.get();
    borrowed->setParent(parent);
    parent->files()->adoptObject(file.leak());
    return borrowed;
}

inline TuvDirNode* addFolder(TuvDirNode* parent, TuvRef<TuvDirNode> folder) {
    TuvDirNode* borrowed = folder.get();
    borrowed->setParent(parent);
    parent->folders()->adoptObject(folder.leak());
    return borrowed;
}

inline std::vector<std::uint32_t> idsOf(const TuvObjectArray* array) {
    std::vector<std::uint32_t> ids;
    for (const TuvObject* object : *array) ids.push_back(object->objectID());
    return ids;
}

// Captures the lines of the model's classes from the given level up, whatever was asked for before.
class ModelLogs {
  public:
    explicit ModelLogs(LogLevel level = LogLevel::info) : _capture(level) { forgetLevels(); }

    // "component selector: text" of every line.
    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : _capture.lines())
            lines.push_back(line.component + " " + line.selector + ": " + line.text);
        return lines;
    }
    LogCapture* operator->() { return &_capture; }

  private:
    static void forgetLevels() {
        for (const LogComponent* component : {&tuvObjectArrayLog, &tuvNodeLog, &tuvDirNodeLog}) component->forget();
    }
    struct Forgetting {
        ~Forgetting() { forgetLevels(); }
    };
    Forgetting _forgetting;  // first: after the capture has restored the level
    LogCapture _capture;
};

// Runs the body on a thread with a stack of 256 KiB.
inline void runOnSmallStack(std::function<void()> body) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    const auto start = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, start, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// What the body writes to standard error.
inline std::string standardErrorOf(const std::function<void()>& body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

// The address as debug texts write it.
inline std::string addressOf(const void* object) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%zx", reinterpret_cast<std::size_t>(object));
    return text;
}

}  // namespace kavaro
