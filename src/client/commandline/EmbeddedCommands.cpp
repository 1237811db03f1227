#include "client/commandline/EmbeddedCommands.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "factory/TuvNodeFactory.h"

namespace kavaro {

namespace {

using Arguments = std::vector<BusValue>;

CommandReply hasFileSytemChanged(TuvNodeFactory& engine, const Arguments& arguments) {
    CommandReply reply;
    const ByteBuffer node = engine.hasFileSytemChanged(arguments.at(0).asPath().value_or(""));
    reply.values.push_back(BusValue::data(node.view()));
    return reply;
}

CommandReply lipoNodesInfo(TuvNodeFactory& engine, const Arguments& arguments) {
    CommandReply reply;
    const auto files = lipoQuestionsIn(arguments.at(0));
    if (files) reply.values.push_back(busValueOf(engine.lipoNodesInfo(*files)));
    return reply;
}

CommandReply lipoNodes(TuvNodeFactory& engine, const Arguments& arguments) {
    if (const auto files = lipoRemovalsIn(arguments.at(0))) engine.lipoNodes(*files);
    return {};
}

struct Command {
    std::string_view member;
    CommandReply (*run)(TuvNodeFactory& engine, const Arguments& arguments);
};

constexpr Command kCommands[] = {
    {"hasFileSytemChanged", hasFileSytemChanged},
    {"lipoNodesInfo", lipoNodesInfo},
    {"lipoNodes", lipoNodes},
};

}  // namespace

CommandReply runEmbeddedCommand(std::string_view member, const Arguments& arguments,
                                const std::function<bool()>& interrupted) {
    const auto command =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& c) { return c.member == member; });
    CommandReply reply;
    if (command == std::end(kCommands)) {
        reply.failure = "the engine in this process has no command " + std::string(member) + ".";
        return reply;
    }
    TuvNodeFactory* engine = TuvNodeFactory::sharedInstance();
    engine->setLocalWorker(true);
    reply = command->run(*engine, arguments);
    reply.interrupted = interrupted();
    return reply;
}

}  // namespace kavaro
