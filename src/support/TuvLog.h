#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "support/LogFormat.h"

namespace kavaro {

enum class LogLevel : std::int8_t { trace, debug, info, error, off };

// The name that log calls are filed under, usually a class's. Each class has one static component, which asks once
// which levels are on and keeps the answer for the life of the process: a call site below the level then costs one
// comparison. Any thread; two first uses at once load the same answer twice.
class LogComponent {
  public:
    constexpr explicit LogComponent(const char* name) : _name(name) {}
    const char* name() const { return _name; }
    bool traceOn() const { return isOn(LogLevel::trace); }
    bool debugOn() const { return isOn(LogLevel::debug); }
    bool infoOn() const { return isOn(LogLevel::info); }
    bool errorOn() const { return isOn(LogLevel::error); }
    bool isOn(LogLevel level) const {
        const int lowest = _level.load(std::memory_order_relaxed);  // kUnknown is below every level
        if (static_cast<int>(level) < lowest) return false;
        return lowest != kUnknown || static_cast<int>(level) >= load();
    }
    // For tests: the next use asks again.
    void forget() const { _level.store(kUnknown, std::memory_order_relaxed); }

  private:
    static constexpr int kUnknown = -1;
    int load() const;

    const char* _name;
    mutable std::atomic<int> _level{kUnknown};
};

// The caller of a log line: a component, or nullptr from the process entry.
class LogSource {
  public:
    LogSource(std::nullptr_t) {}
    LogSource(const LogComponent& component) : _component(&component) {}
    const LogComponent* component() const { return _component; }

  private:
    const LogComponent* _component = nullptr;
};

// The log of the whole process. Every call writes one whole line, from any thread; line ends and control bytes within
// a text are escaped. Logging never fails visibly. Until a configuration is loaded, lines from info up go to standard
// error.
class TuvLog {
  public:
    struct Line {
        LogLevel level;
        std::string_view component;  // empty from the process entry
        std::string_view selector;   // empty when the caller gave none
        std::string_view text;
    };

    // `selector` names the calling method; null when there is none.
    template <class... A>
    static void info(LogSource source, const char* selector, LogFormat<std::type_identity_t<A>...> format,
                     const A&... arguments) {
        if (isOn(source, LogLevel::info)) writeFormatted(LogLevel::info, source, selector, format, arguments...);
    }
    template <class... A>
    static void error(LogSource source, const char* selector, LogFormat<std::type_identity_t<A>...> format,
                      const A&... arguments) {
        if (isOn(source, LogLevel::error)) writeFormatted(LogLevel::error, source, selector, format, arguments...);
    }
    template <class... A>
    static void debug(LogSource source, const char* selector, LogFormat<std::type_identity_t<A>...> format,
                      const A&... arguments) {
        if (isOn(source, LogLevel::debug)) writeFormatted(LogLevel::debug, source, selector, format, arguments...);
    }
    template <class... A>
    static void trace(LogSource source, const char* selector, LogFormat<std::type_identity_t<A>...> format,
                      const A&... arguments) {
        if (isOn(source, LogLevel::trace)) writeFormatted(LogLevel::trace, source, selector, format, arguments...);
    }

    // What the configuration says now, not what a component has cached.
    static bool debugLevel(LogSource source) { return configuredLevel(source) <= LogLevel::debug; }
    static bool traceLevel(LogSource source) { return configuredLevel(source) <= LogLevel::trace; }
    static LogLevel configuredLevel(LogSource source);

    // Reads "TuvLog.plist". An empty path, a missing or a malformed file leaves every component at info and the
    // destination at standard error.
    static void loadConfigFromPath(const std::string& path);
    // Level of every component that the configuration does not name.
    static void setDefaultLevel(LogLevel level);

    // Called with every line that is written, before it goes to the destination; an empty function takes it away.
    // For tests and for programs that show the log themselves.
    static void setObserver(std::function<void(const Line&)> observer);
    // False: nothing goes to the destination any more, the observer still sees every line.
    static void setDestinationEnabled(bool enabled);

  private:
    static bool isOn(LogSource source, LogLevel level) {
        return source.component() ? source.component()->isOn(level) : configuredLevel(source) <= level;
    }
    // Not inline: a call site is a comparison and a call, and functions that log stay small.
    template <class... A>
    __attribute__((noinline)) static void writeFormatted(LogLevel level, LogSource source, const char* selector,
                                                         LogFormat<std::type_identity_t<A>...> format,
                                                         const A&... arguments) {
        write(level, source, selector, formatted(format, arguments...));
    }
    static void write(LogLevel level, LogSource source, const char* selector, std::string text);
};

}  // namespace kavaro
