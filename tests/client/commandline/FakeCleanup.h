#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/commandline/CommandRun.h"

namespace kavaro {

// In the place of the server's commands that move to the Trash and remove: does what a function says, and writes down
// what it was asked. Where the function says nothing, the answer is that all went well.
class FakeCleanup {
  public:
    explicit FakeCleanup(CommandRun& run) {
        run.command = [this](std::string_view, const std::vector<BusValue>& arguments,
                             const std::function<bool()>& interrupted) {
            EXPECT_FALSE(interrupted()) << "a call that changes something is waited for after the first signal";
            const auto some = arguments.at(0).asPaths().value_or(std::vector<std::string>{"no paths"});
            portions.push_back(some.size());
            paths.insert(paths.end(), some.begin(), some.end());
            CommandReply reply;
            if (work) work(some, &reply);
            reply.interrupted = interrupted();
            return reply;
        };
    }

    std::function<void(const std::vector<std::string>& paths, CommandReply* reply)> work;
    std::vector<std::string> paths;
    std::vector<std::size_t> portions;  // paths of each call
};

}  // namespace kavaro
