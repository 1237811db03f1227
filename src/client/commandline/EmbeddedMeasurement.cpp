#include "client/commandline/EmbeddedMeasurement.h"

#include <memory>

#include "client/NotificationReader.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Clock.h"
#include "platform/NotificationCenter.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kProgressInterval = 0.1;

// Feeds a reader from the local centre while it lives.
class LocalObserver {
  public:
    explicit LocalObserver(NotificationReader& reader) {
        _observer = NotificationCenter::defaultCenter().addObserver(
            "", [&reader](const NotificationCenter::Notification& notification) {
                if (notification.name == KavaroUnreadFoldersNotification) {
                    if (const auto* info = std::any_cast<NotificationUserInfo>(&notification.userInfo))
                        reader.readUnread(info->folders.value_or(std::vector<std::string>()), info->reasons);
                    return;
                }
                const auto* data = std::any_cast<std::shared_ptr<const ByteBuffer>>(&notification.object);
                reader.read(notification.name, data && *data ? (*data)->view() : ByteView());
            });
    }
    LocalObserver(const LocalObserver&) = delete;
    LocalObserver& operator=(const LocalObserver&) = delete;
    ~LocalObserver() { NotificationCenter::defaultCenter().removeObserver(_observer); }

  private:
    NotificationCenter::ObserverID _observer;
};

}  // namespace

Measurement EmbeddedMeasurement::measure(const std::string& path, const Callbacks& callbacks) {
    Measurement measurement;
    measurement.path = path;
    const double begin = Clock::system().monotonicSeconds();
    NotificationReader reader(path);
    LocalObserver observer(reader);
    TuvNodeFactory* engine = TuvNodeFactory::sharedInstance();
    engine->setLocalWorker(true);
    engine->startWorkingAtPath(path);
    if (!reader.hasStarted())
        measurement.failure = printable(path) + ": it is no folder any more. Nothing was measured.";
    const auto isOver = [&] { return reader.hasEnded() || !measurement.failure.empty(); };
    while (!RunLoop::main().runUntil([&] { return isOver() || callbacks.interrupted(); }, kProgressInterval)) {
        const TreeAssembler::Counts& counts = reader.assembler().counts();
        if (callbacks.progress)
            callbacks.progress({counts.folders, counts.files, counts.physicalSize, counts.logicalSize,
                                Clock::system().monotonicSeconds() - begin, reader.assembler().lastFolder()});
    }
    if (!isOver()) {
        measurement.interrupted = true;
        engine->stopSizing();
    }
    measurement.seconds = Clock::system().monotonicSeconds() - begin;
    measurement.serverSeconds = engine->lastJobMilliseconds() / 1000;
    reader.finish(measurement);
    return measurement;
}

}  // namespace kavaro
