#include "client/commandline/EmbeddedCommands.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "cleanup/HashRecordMessage.h"
#include "client/TrashFailures.h"
#include "factory/TuvNodeFactory.h"
#include "platform/NotificationCenter.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kPollSeconds = 0.1;

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

std::vector<std::string> pathsOf(const Arguments& arguments) {
    return arguments.at(0).asPaths().value_or(std::vector<std::string>());
}

// The engine moves a moment later: returns when its notification has come.
CommandReply moveToTrash(TuvNodeFactory& engine, const Arguments& arguments) {
    CommandReply reply;
    bool isOver = false;
    NotificationCenter& center = NotificationCenter::defaultCenter();
    const NotificationCenter::ObserverID observer = center.addObserver(
        TuvNodeFactoryTrashFileNotification, [&](const NotificationCenter::Notification& notification) {
            isOver = true;
            const auto* info = std::any_cast<NotificationUserInfo>(&notification.userInfo);
            if (!info || !info->errors) return;
            for (const TrashError& error : *info->errors)
                reply.failures.push_back({error.pathName, trashReasonText(error.reason, printable(error.detail))});
        });
    engine.moveToTrash(pathsOf(arguments));
    while (!RunLoop::main().runUntil([&] { return isOver; }, kPollSeconds)) {
    }
    center.removeObserver(observer);
    return reply;
}

CommandReply removeLocales(TuvNodeFactory& engine, const Arguments& arguments) {
    engine.removeLocales(pathsOf(arguments));
    return {};
}

CommandReply removeNibs(TuvNodeFactory& engine, const Arguments& arguments) {
    engine.removeNibs(pathsOf(arguments));
    return {};
}

CommandReply fileDuplicatesHeader(TuvNodeFactory& engine, const Arguments& arguments) {
    CommandReply reply;
    const HashRecordMessage asked = readHashRecordArguments(arguments).value_or(HashRecordMessage());
    const TuvNodeFactory::FileDuplicates answer = engine.fileDuplicatesHeader(asked.data.view(), asked.header);
    reply.values.push_back(hashRecordAnswer(answer.data.view(), answer.headerData));
    return reply;
}

struct Command {
    std::string_view member;
    CommandReply (*run)(TuvNodeFactory& engine, const Arguments& arguments);
};

constexpr Command kCommands[] = {
    {"fileDuplicatesHeader", fileDuplicatesHeader},
    {"hasFileSytemChanged", hasFileSytemChanged},
    {"lipoNodesInfo", lipoNodesInfo},
    {"lipoNodes", lipoNodes},
    {"moveToTrash", moveToTrash},
    {"removeLocales", removeLocales},
    {"removeNibs", removeNibs},
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
