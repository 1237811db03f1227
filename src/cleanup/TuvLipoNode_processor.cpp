#include <sys/utsname.h>

#include <atomic>

#include "cleanup/LipoLog.h"
#include "cleanup/TuvLipoNode.h"
#include "platform/Mutex.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr const char* kUname = "/usr/bin/uname";

std::atomic<int> family{TuvLipoNode::kUnknownProcessor};

struct Told {
    Mutex mutex;
    std::optional<std::string> name KAVARO_GUARDED_BY(mutex);  // for tests
};
Told& told() {
    static Told* const instance = new Told;
    return *instance;
}

std::optional<std::string> answerOfUname() {
    Told& known = told();
    {
        MutexLock lock(known.mutex);
        if (known.name) return known.name;
    }
    return stringFromTask(kUname, {"-p"});
}

bool contains(std::string_view text, std::string_view part) {
    return findCaseInsensitive(text, part, nullptr) != std::string_view::npos;
}

}  // namespace

void TuvLipoNode::setProcessorName(std::optional<std::string> name) {
    Told& known = told();
    MutexLock lock(known.mutex);
    known.name = std::move(name);
    family = kUnknownProcessor;
}

int TuvLipoNode::processorArchitecture() {
    if (const int known = family; known != kUnknownProcessor) return known;
    const std::optional<std::string> answer = answerOfUname();
    TuvLog::info(tuvLipoNodeLog, "processorArchitecture", "/usr/bin/uname -p returned [%@]", answer);
    std::string name = trimWhiteSpace(trimBadCharacters(answer.value_or("")));
    // Where the program knows no processor, or is not there, the kernel knows the machine.
    struct utsname machine {};
    if ((name.empty() || name == "unknown") && uname(&machine) == 0) name = machine.machine;
    const int found = isProcessorArchitectureOfType(name, kPowerPC) ? kPowerPC
                      : isProcessorArchitectureOfType(name, kIntel) ? kIntel
                                                                    : kUnknownProcessor;
    if (found == kUnknownProcessor)
        TuvLog::error(tuvLipoNodeLog, "processorArchitecture", "No idea what architecture this is !!!");
    family = found;
    TuvLog::info(tuvLipoNodeLog, "processorArchitecture", "[%@] [%d]", name, found);
    TuvLog::info(tuvLipoNodeLog, "processorArchitecture", "[%@]", architectureNameForIndex(found));
    return found;
}

int TuvLipoNode::processorArchitectureToRemove() {
    switch (processorArchitecture()) {
        case kPowerPC:
            return kIntel;
        case kIntel:
            return kPowerPC;
        default:
            return kUnknownProcessor;
    }
}

bool TuvLipoNode::isProcessorArchitectureOfType(std::string_view name, int type) {
    switch (type) {
        case kPowerPC:
            return contains(name, "ppc") || contains(name, "powerpc");
        case kIntel:
            return contains(name, "86");
        default:
            return false;
    }
}

std::string TuvLipoNode::architectureNameForIndex(int type) {
    return type == kPowerPC ? "PowerPC" : type == kIntel ? "Intel" : "Unknown";
}

std::string TuvLipoNode::anArchitectureNameForIndex(int type) {
    const std::string name = architectureNameForIndex(type);
    return type == kPowerPC ? "a " + name : type == kIntel ? "an " + name : name;
}

}  // namespace kavaro
