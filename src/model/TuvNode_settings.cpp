#include "model/ModelLog.h"
#include "model/TuvNode.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

void logFlag(const char* selector, bool flag) {
    TuvLog::info(tuvNodeLog, selector, "[%@]", flag ? "YES" : "NO");
}

bool readFlag(const char* selector, std::string_view key) {
    const auto value = UserDefaults::standard().objectForKey(key);
    const bool flag = value && value->intValue() == 1;
    logFlag(selector, flag);
    return flag;
}

void writeFlag(const char* selector, std::string_view key, bool flag) {
    logFlag(selector, flag);
    const std::string error = UserDefaults::standard().setObject(key, flag ? "1" : "0");
    if (!error.empty()) TuvLog::error(tuvNodeLog, selector, "%@", error);
}

}  // namespace

bool TuvNode::doNotAutoRemeasure() {
    return readFlag("doNotAutoRemeasure", "doNotAutoRemeasure");
}

bool TuvNode::autoRemeasure() {
    return !readFlag("autoRemeasure", "doNotAutoRemeasure");
}

void TuvNode::setDoNotAutoRemeasure(bool flag) {
    writeFlag("setDoNotAutoRemeasure", "doNotAutoRemeasure", flag);
}

bool TuvNode::removeAsSudo() {
    return readFlag("removeAsSudo", "removeAsSudo");
}

void TuvNode::setRemoveAsSudo(bool flag) {
    writeFlag("setRemoveAsSudo", "removeAsSudo", flag);
    writeFlag("setAgreedToRemoveAsSudo", "agreedToRemoveAsSudo", flag);
}

}  // namespace kavaro
