#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Bus.h"

namespace kavaro {

// What both ends of a client and server pair share: registering the local end, reaching the remote end, the version
// record. Lives below the server because the sizing engine derives from it too. Main thread.
class TuvKavaroProxy {
  public:
    virtual ~TuvKavaroProxy() = default;

    // The process's connection to the bus; set once, before the first proxy needs it.
    static void setDefaultConnection(std::shared_ptr<Bus> bus);
    static const std::shared_ptr<Bus>& defaultConnection();

    // Publishes this object and takes localName(). False when the name is taken or the bus refuses.
    bool registerLocalEnd();
    bool isRemoteEndAlive();
    // The remote end, looked for when it is not known. Nothing when there is none.
    std::optional<std::string> createRemoteEnd();
    // Unique name of the remote end's connection; nothing when it is unknown or dead.
    const std::optional<std::string>& remoteEnd() const { return _remoteObject; }
    // Empty: none.
    virtual std::string_view localName() const { return {}; }
    virtual std::string_view remoteName() const { return {}; }

    // Built and logged on the first call, then kept.
    const BusValue::Dictionary& versionInfo();
    virtual void shutdownServer(const std::string& sender);

    // Seconds that the remote end has for an answer.
    static constexpr double kAnswerSeconds = 5.0;

  protected:
    // Where and how the local end is published.
    virtual std::string_view localPath() const { return {}; }
    virtual std::string_view localIntrospection() const { return {}; }
    // Of the local end. Answers with what handleCall() gives, now or when it is decided that the caller may.
    virtual void receiveCall(const BusCall& call, const Bus::Answer& answer);
    virtual BusReply handleCall(const BusCall& call);
    virtual std::string_view remotePath() const { return {}; }
    virtual std::string_view remoteInterface() const { return {}; }

    // Gives the name back and takes the object off the bus.
    void unregisterLocalEnd();

    std::shared_ptr<Bus> _rootConnection;  // null: not registered

  private:
    std::shared_ptr<Bus> _remoteConnection;
    std::optional<std::string> _remoteObject;
    BusValue::Dictionary _versionInfo;
};

}  // namespace kavaro
