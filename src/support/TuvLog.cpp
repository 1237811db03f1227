#include "support/TuvLog.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>

#include "platform/ByteBuffer.h"
#include "platform/PropertyList.h"
#include "support/LogDestination.h"

namespace kavaro {

namespace {

struct Configuration {
    LogLevel defaultLevel = LogLevel::info;
    std::map<std::string, LogLevel, std::less<>> levels;
    std::shared_ptr<LogDestination> destination;
    bool destinationEnabled = true;
    std::shared_ptr<std::function<void(const TuvLog::Line&)>> observer;
};

std::mutex& mutex() {
    static std::mutex& mutex = *new std::mutex;  // lines may come from detached threads until the very end
    return mutex;
}

Configuration& configuration() {
    static Configuration& configuration = *new Configuration;
    return configuration;
}

constexpr std::size_t kMaximumConfigurationBytes = 1u << 20;

// Null when the file cannot be opened, is empty or too large.
ByteBuffer readFile(const std::string& path) {
    ByteBuffer bytes;
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rbe"), &std::fclose);
    if (!file) return bytes;
    char block[16384];
    std::size_t length;
    while ((length = std::fread(block, 1, sizeof block, file.get())) > 0) {
        if (length > kMaximumConfigurationBytes - bytes.size()) return {};
        bytes.append(block, length);
    }
    return bytes;
}

bool parseLevel(const PropertyList& value, LogLevel& level) {
    static constexpr const char* kNames[] = {"trace", "debug", "info", "error", "off"};
    if (const std::string* text = value.string())
        for (int i = 0; i < 5; ++i)
            if (*text == kNames[i]) {
                level = static_cast<LogLevel>(i);
                return true;
            }
    return false;
}

std::shared_ptr<LogDestination> parseDestination(const PropertyList& root) {
    const PropertyList* path = root.get("file");
    if (!path || !path->string() || path->string()->empty()) return nullptr;
    LogDestination::File file;
    file.path = *path->string();
    if (const PropertyList* bytes = root.get("maximumBytes"); bytes && bytes->intValue() > 0)
        file.maximumBytes = static_cast<std::uint64_t>(bytes->intValue());
    if (const PropertyList* kept = root.get("keptFiles"))
        file.keptFiles = static_cast<int>(std::clamp<std::int64_t>(kept->intValue(), 0, 1000));
    return LogDestination::file(file);
}

}  // namespace

int LogComponent::load() const {
    const int level = static_cast<int>(TuvLog::configuredLevel(*this));
    _level.store(level, std::memory_order_relaxed);
    return level;
}

LogLevel TuvLog::configuredLevel(LogSource source) {
    std::lock_guard lock(mutex());
    if (source.component()) {
        const auto& levels = configuration().levels;
        if (auto found = levels.find(std::string_view(source.component()->name())); found != levels.end())
            return found->second;
    }
    return configuration().defaultLevel;
}

void TuvLog::loadConfigFromPath(const std::string& path) {
    Configuration fresh;
    if (!path.empty()) {
        const ByteBuffer bytes = readFile(path);
        if (const auto root = bytes.isNull() ? std::nullopt : PropertyList::fromBytes(bytes.view())) {
            if (const PropertyList* level = root->get("level")) parseLevel(*level, fresh.defaultLevel);
            const PropertyList* levels = root->get("components");
            if (levels && levels->dictionary())
                for (const auto& [component, value] : *levels->dictionary())
                    if (LogLevel level; parseLevel(value, level)) fresh.levels[component] = level;
            fresh.destination = parseDestination(*root);
        }
    }
    std::lock_guard lock(mutex());
    configuration().defaultLevel = fresh.defaultLevel;
    configuration().levels = std::move(fresh.levels);
    configuration().destination = std::move(fresh.destination);
}

void TuvLog::setDefaultLevel(LogLevel level) {
    std::lock_guard lock(mutex());
    configuration().defaultLevel = level;
}

void TuvLog::setObserver(std::function<void(const Line&)> observer) {
    std::lock_guard lock(mutex());
    configuration().observer =
        observer ? std::make_shared<std::function<void(const Line&)>>(std::move(observer)) : nullptr;
}

void TuvLog::setDestinationEnabled(bool enabled) {
    std::lock_guard lock(mutex());
    configuration().destinationEnabled = enabled;
}

void TuvLog::write(LogLevel level, LogSource source, const char* selector, std::string text) {
    std::shared_ptr<LogDestination> destination;
    std::shared_ptr<std::function<void(const Line&)>> observer;
    {
        std::lock_guard lock(mutex());
        Configuration& current = configuration();
        if (current.destinationEnabled) {
            if (!current.destination) current.destination = LogDestination::standardError();
            destination = current.destination;
        }
        observer = current.observer;
    }
    const Line line{level, source.component() ? source.component()->name() : "", selector ? selector : "", text};
    if (observer) (*observer)(line);
    if (destination) destination->write(line);
}

}  // namespace kavaro
