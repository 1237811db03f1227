#include "factory/TuvKavaroProxy.h"

#include "factory/FactoryLog.h"
#include "platform/Clock.h"
#include "support/Backtrace.h"
#include "support/Version.h"

namespace kavaro {

namespace {

std::shared_ptr<Bus>& defaultBus() {
    static std::shared_ptr<Bus>& bus = *new std::shared_ptr<Bus>;
    return bus;
}

// The first time that any version record was made in this process, seconds since 1970.
double startDate() {
    static const double date = Clock::system().wallSeconds();
    return date;
}

std::string oneLine(const BusValue::Dictionary& record) {
    std::string line = "{";
    for (const auto& [key, value] : record) line += " " + key + " = " + value.description() + ";";
    return line + " }";
}

}  // namespace

void TuvKavaroProxy::setDefaultConnection(std::shared_ptr<Bus> bus) {
    defaultBus() = std::move(bus);
}

const std::shared_ptr<Bus>& TuvKavaroProxy::defaultConnection() {
    return defaultBus();
}

bool TuvKavaroProxy::registerLocalEnd() {
    TuvLog::info(proxyLog, "registerLocalEnd", "Registering server at %@", localName());
    std::shared_ptr<Bus> bus = defaultConnection();
    BusError error;
    const bool published =
        bus && bus->publish(
                   localPath(), localIntrospection(),
                   [this](const BusCall& call, const Bus::Answer& answer) { receiveCall(call, answer); }, &error);
    if (published && bus->requestName(localName(), &error)) {
        _rootConnection = std::move(bus);
        return true;
    }
    if (published) bus->unpublish(localPath());
    if (error.isSet()) TuvLog::error(proxyLog, "registerLocalEnd", "Exception: %@", error.message);
    TuvLog::error(proxyLog, "registerLocalEnd",
                  "Could not register with [%@]. Maybe another instance is running. But we already checked that !!!",
                  localName());
    return false;
}

void TuvKavaroProxy::unregisterLocalEnd() {
    if (!_rootConnection) return;
    _rootConnection->releaseName(localName());
    _rootConnection->unpublish(localPath());
    _rootConnection = nullptr;
}

bool TuvKavaroProxy::isRemoteEndAlive() {
    if (proxyLog.debugOn())
        TuvLog::debug(proxyLog, "isRemoteEndAlive", "0x%x", _remoteObject ? &*_remoteObject : nullptr);
    bool alive = false;
    if (_remoteObject) {
        TuvLog::debug(proxyLog, "isRemoteEndAlive", "Checking version info ...");
        const BusReply reply =
            _remoteConnection->call(*_remoteObject, remotePath(), remoteInterface(), "versionInfo", {}, kAnswerSeconds);
        alive = reply.ok() && !reply.values.empty();
        if (!reply.ok()) {
            TuvLog::error(proxyLog, "isRemoteEndAlive", "Exception: %@", reply.error.message);
            TuvLog::error(proxyLog, "isRemoteEndAlive", "[%@]", backtrace());
        }
    }
    if (!alive) {
        _remoteObject.reset();
        _remoteConnection = nullptr;
        TuvLog::error(proxyLog, "isRemoteEndAlive", "NO, _remoteObject is nil !!!");
    }
    return alive;
}

std::optional<std::string> TuvKavaroProxy::createRemoteEnd() {
    TuvLog::info(proxyLog, "createRemoteEnd", "");
    if (!_remoteObject) {
        _remoteConnection = defaultConnection();
        if (_remoteConnection && !_remoteConnection->isClosed()) {
            std::string owner = _remoteConnection->nameOwner(remoteName());
            if (!owner.empty()) _remoteObject = std::move(owner);
        }
        isRemoteEndAlive();
    }
    return _remoteObject;
}

const BusValue::Dictionary& TuvKavaroProxy::versionInfo() {
    if (_versionInfo.empty()) {
        _versionInfo = {{"version", BusValue::string(KAVARO_VERSION)},
                        {"versionNumber", BusValue::string(KAVARO_VERSION_NUMBER)},
                        {"buildNumber", BusValue::string(KAVARO_BUILD_NUMBER)},
                        {"build", BusValue::string(KAVARO_BUILD_DATE)},
                        {"startDate", BusValue::float64(startDate())}};
        TuvLog::info(proxyLog, "versionInfo", "[%@] cached", oneLine(_versionInfo));
    }
    return _versionInfo;
}

void TuvKavaroProxy::shutdownServer(const std::string& sender) {
    TuvLog::info(proxyLog, "shutdownServer:", "%@", sender);
}

void TuvKavaroProxy::receiveCall(const BusCall& call, const Bus::Answer& answer) {
    answer(handleCall(call));
}

BusReply TuvKavaroProxy::handleCall(const BusCall& call) {
    if (call.member == "versionInfo") return {{BusValue::dictionary(versionInfo())}, {}};
    return {{}, {"org.freedesktop.DBus.Error.UnknownMethod", "no such operation: " + std::string(call.member)}};
}

}  // namespace kavaro
