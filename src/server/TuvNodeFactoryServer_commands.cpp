#include "cleanup/HashRecordMessage.h"
#include "server/ServerLog.h"
#include "server/TuvNodeFactoryServer.h"

namespace kavaro {

namespace {

BusReply invalid(const BusCall& call, const std::string& reason) {
    TuvLog::error(serverLog, std::string(call.member).c_str(), "%@", reason);
    return {{}, {"org.freedesktop.DBus.Error.InvalidArgs", reason}};
}

// They come back with every notification: more than a message holds would keep all of them from being sent.
constexpr std::size_t kMostParentInodes = 1'000'000;

const std::string kBadPath = "the path must be an absolute path without a NUL byte";

// An absolute path, or nothing.
std::optional<std::string> pathAt(const BusCall& call, std::size_t index) {
    if (index >= call.arguments.size()) return std::nullopt;
    auto path = call.arguments[index].asPath();
    if (!path || path->empty() || path->front() != '/') return std::nullopt;
    return path;
}

const std::string kBadPaths = "every path must be an absolute path without a NUL byte";

// Absolute paths, or nothing.
std::optional<std::vector<std::string>> pathsAt(const BusCall& call, std::size_t index) {
    if (index >= call.arguments.size()) return std::nullopt;
    auto paths = call.arguments[index].asPaths();
    if (!paths) return std::nullopt;
    for (const std::string& path : *paths)
        if (path.empty() || path.front() != '/') return std::nullopt;
    return paths;
}

BusReply nodeReply(const ByteBuffer& node) {
    return {{BusValue::variant(BusValue::data(node.view()))}, {}};
}

std::string joined(const std::vector<std::uint32_t>& inodes) {
    std::string text;
    for (std::uint32_t inode : inodes) text += (text.empty() ? "" : ", ") + std::to_string(inode);
    return text;
}

}  // namespace

TuvNodeFactory* TuvNodeFactoryServer::factory() {
    return TuvNodeFactory::sharedInstance();
}

// Who may measure or remove hears of it; who may only shut the server down does not.
void TuvNodeFactoryServer::receiveCall(const BusCall& call, const Bus::Answer& answer) {
    if (!_authority->isRestricted()) return TuvKavaroProxy::receiveCall(call, answer);
    // The call itself is gone when the decision comes.
    _authority->decide(call, [this, member = std::string(call.member), sender = std::string(call.sender),
                              arguments = call.arguments, answer](const BusError& refusal) {
        if (refusal.isSet()) {
            TuvLog::error(serverLog, "receiveCall", "%@ refused to %@: %@", member, sender, refusal.message);
            return answer({{}, refusal});
        }
        if (CallAuthority::riskOf(member) != CallAuthority::Risk::shutDown) _distributedCenter->addReceiver(sender);
        answer(handleCall({member, sender, arguments}));
    });
}

BusReply TuvNodeFactoryServer::handleCall(const BusCall& call) {
    using Command = BusReply (TuvNodeFactoryServer::*)(const BusCall&);
    static constexpr std::pair<std::string_view, Command> kCommands[] = {
        {"startWorkingAtPath", &TuvNodeFactoryServer::startWorkingAtPath},
        {"startWorkingAtPathParentInodes", &TuvNodeFactoryServer::startWorkingAtPathParentInodes},
        {"prioritizeNodeWithInodePath", &TuvNodeFactoryServer::prioritizeNodeWithInodePath},
        {"hasFileSytemChanged", &TuvNodeFactoryServer::hasFileSytemChanged},
        {"stopSizing", &TuvNodeFactoryServer::stopSizing},
        {"moveToTrash", &TuvNodeFactoryServer::moveToTrash},
        {"removeLocales", &TuvNodeFactoryServer::removeLocales},
        {"removeNibs", &TuvNodeFactoryServer::removeNibs},
        {"lipoNodesInfo", &TuvNodeFactoryServer::lipoNodesInfo},
        {"lipoNodes", &TuvNodeFactoryServer::lipoNodes},
        {"fileDuplicatesHeader", &TuvNodeFactoryServer::fileDuplicatesHeader},
        {"shutdownServer", &TuvNodeFactoryServer::shutdownServerCall},
    };
    for (const auto& [member, command] : kCommands)
        if (member == call.member) return (this->*command)(call);
    return TuvKavaroProxy::handleCall(call);
}

BusReply TuvNodeFactoryServer::startWorkingAtPath(const BusCall& call) {
    const auto path = pathAt(call, 0);
    if (!path) return invalid(call, kBadPath);
    TuvLog::info(serverLog, "startWorkingAtPath:", "%@", *path);
    factory()->startWorkingAtPath(*path);
    return {};
}

BusReply TuvNodeFactoryServer::startWorkingAtPathParentInodes(const BusCall& call) {
    const auto path = pathAt(call, 0);
    const auto inodes = call.arguments.size() > 1 ? call.arguments[1].asUint32s() : std::nullopt;
    if (!path || !inodes) return invalid(call, kBadPath);
    if (inodes->size() > kMostParentInodes) return invalid(call, "too many parent inodes");
    TuvLog::info(serverLog, "startWorkingAtPath:parentInodes:", "%@ %@", *path, joined(*inodes));
    factory()->startWorkingAtPath(*path, *inodes);
    return {};
}

BusReply TuvNodeFactoryServer::prioritizeNodeWithInodePath(const BusCall& call) {
    const auto inode = call.arguments.empty() ? std::nullopt : call.arguments[0].asInteger();
    const auto path = pathAt(call, 1);
    if (!inode || !path) return invalid(call, kBadPath);
    TuvLog::info(serverLog, "prioritizeNodeWithInode:path:", "%d [%@]", *inode, *path);
    return nodeReply(factory()->prioritizeNodeWithInode(static_cast<std::int32_t>(*inode), *path));
}

BusReply TuvNodeFactoryServer::hasFileSytemChanged(const BusCall& call) {
    const auto path = pathAt(call, 0);
    if (!path) return invalid(call, kBadPath);
    TuvLog::info(serverLog, "hasFileSytemChanged:", "[%@]", *path);
    return nodeReply(factory()->hasFileSytemChanged(*path));
}

BusReply TuvNodeFactoryServer::stopSizing(const BusCall&) {
    TuvLog::info(serverLog, "stopSizing", "");
    factory()->stopSizing();
    return {};
}

BusReply TuvNodeFactoryServer::moveToTrash(const BusCall& call) {
    const auto paths = pathsAt(call, 0);
    if (!paths) return invalid(call, kBadPaths);
    TuvLog::info(serverLog, "moveToTrash:", "");
    factory()->moveToTrash(*paths);
    return {};
}

BusReply TuvNodeFactoryServer::removeLocales(const BusCall& call) {
    const auto paths = pathsAt(call, 0);
    if (!paths) return invalid(call, kBadPaths);
    TuvLog::info(serverLog, "removeLocales:", "");
    factory()->removeLocales(*paths);
    return {};
}

BusReply TuvNodeFactoryServer::removeNibs(const BusCall& call) {
    const auto paths = pathsAt(call, 0);
    if (!paths) return invalid(call, kBadPaths);
    TuvLog::info(serverLog, "removeNibs:", "");
    factory()->removeNibs(*paths);
    return {};
}

BusReply TuvNodeFactoryServer::lipoNodesInfo(const BusCall& call) {
    const auto files = call.arguments.empty() ? std::nullopt : lipoQuestionsIn(call.arguments[0]);
    if (!files)
        return invalid(call, "each entry needs \"inode\" (u) and \"filePath\", an absolute path without a NUL byte");
    TuvLog::info(serverLog, "lipoNodesInfo:", "");
    return {{busValueOf(factory()->lipoNodesInfo(*files))}, {}};
}

BusReply TuvNodeFactoryServer::lipoNodes(const BusCall& call) {
    const auto files = call.arguments.empty() ? std::nullopt : lipoRemovalsIn(call.arguments[0]);
    if (!files)
        return invalid(call,
                       "each entry needs \"filePath\", an absolute path without a NUL byte, and \"archTypes\" (as)");
    TuvLog::info(serverLog, "lipoNodes:", "");
    factory()->lipoNodes(*files);
    return {};
}

BusReply TuvNodeFactoryServer::fileDuplicatesHeader(const BusCall& call) {
    const auto asked = readHashRecordArguments(call.arguments);
    if (!asked) return invalid(call, "the records must be bytes or a sealed memory file, the header texts");
    TuvLog::info(serverLog, "fileDuplicates:header:", "");
    const auto answer = factory()->fileDuplicatesHeader(asked->data.view(), asked->header);
    return {{hashRecordAnswer(answer.data.view(), answer.headerData)}, {}};
}

BusReply TuvNodeFactoryServer::shutdownServerCall(const BusCall& call) {
    shutdownServer(call.arguments.empty() ? std::string() : call.arguments[0].asString().value_or(""));
    return {};
}

}  // namespace kavaro
