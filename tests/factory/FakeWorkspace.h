#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Workspace.h"

namespace kavaro {

// A desktop whose Trash does what a function says, and which writes down what it was asked.
class FakeWorkspace final : public Workspace {
  public:
    struct Answer {
        bool worked = true;
        int tag = 0;
        std::string reason;
    };
    std::function<Answer(const std::string& path)> answer = [](const std::string&) { return Answer(); };
    std::vector<std::string> asked;  // "FOLDER|NAME"
    int changes = 0;

    bool recycle(const std::string& folder, const std::string& name, int* tag, std::string* reason) override {
        asked.push_back(folder + "|" + name);
        firstTag = *tag;
        const Answer given = answer(folder + "/" + name);
        *tag = given.tag;
        *reason = given.reason;
        return given.worked;
    }
    void noteFileSystemChanged() override { ++changes; }
    int firstTag = 99;  // as it was handed in
};

}  // namespace kavaro
