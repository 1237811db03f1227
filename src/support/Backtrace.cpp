#include "support/Backtrace.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace kavaro {

namespace {

std::string hexadecimal(std::uintptr_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string nameOfCall(void* address) {
    Dl_info info{};
    const auto position = reinterpret_cast<std::uintptr_t>(address);
    if (!dladdr(address, &info)) return hexadecimal(position);
    if (info.dli_sname) {
        char* readable = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr);
        std::string name = readable ? readable : info.dli_sname;
        std::free(readable);
        return name + '+' + hexadecimal(position - reinterpret_cast<std::uintptr_t>(info.dli_saddr));
    }
    const std::string_view file = info.dli_fname ? info.dli_fname : "";
    return std::string(file.substr(file.rfind('/') + 1)) + '+' +
           hexadecimal(position - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
}

}  // namespace

__attribute__((noinline)) std::string backtrace() {
    constexpr int kMaximumCalls = 64;
    void* calls[kMaximumCalls + 1];
    const int count = ::backtrace(calls, kMaximumCalls + 1);
    std::string text;
    for (int i = 1; i < count; ++i) {  // 0 is this function
        if (i > 1) text += ", ";
        text += nameOfCall(calls[i]);
    }
    return text;
}

}  // namespace kavaro
