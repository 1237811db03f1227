#include "support/LogDestination.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "platform/Text.h"

// The one file of this room that is built with exceptions: the logging library throws, and nothing may leave here.

namespace kavaro {

struct LogDestination::Impl {
    spdlog::logger logger;
    explicit Impl(spdlog::sink_ptr sink) : logger("kavaro", std::move(sink)) {
        logger.set_level(spdlog::level::trace);
        logger.flush_on(spdlog::level::trace);
        logger.set_pattern("%Y-%m-%d %H:%M:%S.%e %P.%t %-5l %v");
        logger.set_error_handler([](const std::string&) {});
    }
};

namespace {

spdlog::level::level_enum libraryLevel(LogLevel level) {
    switch (level) {
        case LogLevel::trace:
            return spdlog::level::trace;
        case LogLevel::debug:
            return spdlog::level::debug;
        case LogLevel::info:
            return spdlog::level::info;
        default:
            return spdlog::level::err;
    }
}

}  // namespace

LogDestination::LogDestination(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
LogDestination::~LogDestination() = default;

std::shared_ptr<LogDestination> LogDestination::standardError() try {
    return std::shared_ptr<LogDestination>(
        new LogDestination(std::make_unique<Impl>(std::make_shared<spdlog::sinks::stderr_sink_mt>())));
} catch (...) {
    return nullptr;
}

std::shared_ptr<LogDestination> LogDestination::file(const File& file) try {
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        file.path, file.maximumBytes, static_cast<std::size_t>(file.keptFiles < 0 ? 0 : file.keptFiles));
    return std::shared_ptr<LogDestination>(new LogDestination(std::make_unique<Impl>(std::move(sink))));
} catch (...) {
    return nullptr;
}

void LogDestination::write(const TuvLog::Line& line) try {
    std::string text;
    text.reserve(line.component.size() + line.selector.size() + line.text.size() + 8);
    text.append(line.component);
    if (!line.selector.empty()) {
        if (!text.empty()) text += ' ';
        text.append(line.selector);
    }
    // A selector that takes arguments ends with a colon of its own.
    if (!text.empty()) text += text.back() == ':' ? " " : ": ";
    text += printable(line.text);
    _impl->logger.log(libraryLevel(line.level), spdlog::string_view_t(text.data(), text.size()));
} catch (...) {
}

}  // namespace kavaro
