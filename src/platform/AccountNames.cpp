#include "platform/AccountNames.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <vector>

namespace kavaro {

namespace {

// `look` is getpwuid_r or getgrgid_r.
template <class Entry, class Look>
std::string accountName(std::uint32_t number, Look look, char* Entry::*name) {
    std::vector<char> buffer(1024);
    Entry entry{};
    Entry* found = nullptr;
    while (look(number, &entry, buffer.data(), buffer.size(), &found) == ERANGE) buffer.resize(buffer.size() * 2);
    return found && found->*name ? found->*name : "";
}

}  // namespace

std::string userName(std::uint32_t user) {
    return accountName(user, getpwuid_r, &passwd::pw_name);
}

std::string groupName(std::uint32_t number) {
    return accountName(number, getgrgid_r, &group::gr_name);
}

}  // namespace kavaro
