#include "Platform/CallStack.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

namespace tarvik {

namespace {

std::string demangled(const char* symbol) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    return status == 0 && name ? std::string(name.get()) : std::string(symbol);
}

std::string imageName(const char* path) {
    if (!path || !*path) {
        return "???";
    }
    std::string name(path);
    auto slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

}  // namespace

[[gnu::noinline]] std::vector<std::string> callStackSymbols(std::size_t framesToSkip) {
    constexpr int kMaxFrames = 256;
    void* addresses[kMaxFrames];
    int count = ::backtrace(addresses, kMaxFrames);
    // The stack starts at our caller. Found by its return address rather than by position,
    // because a sanitizer's interception of backtrace() adds frames of its own.
    void* caller = __builtin_extract_return_addr(__builtin_return_address(0));
    int first = 1;
    for (int i = 0; i < count; ++i) {
        if (addresses[i] == caller) {
            first = i;
            break;
        }
    }
    std::vector<std::string> frames;
    for (int i = first + static_cast<int>(framesToSkip); i < count; ++i) {
        auto address = reinterpret_cast<std::uintptr_t>(addresses[i]);
        Dl_info info{};
        std::string image = "???";
        std::string symbol;
        std::uintptr_t offset = 0;
        if (::dladdr(addresses[i], &info) != 0) {
            image = imageName(info.dli_fname);
            if (info.dli_sname && info.dli_saddr) {
                symbol = demangled(info.dli_sname);
                offset = address - reinterpret_cast<std::uintptr_t>(info.dli_saddr);
            } else {
                auto base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
                symbol = fmt::format("0x{:x}", base);
                offset = address - base;
            }
        } else {
            symbol = fmt::format("0x{:x}", address);
        }
        // At least one blank after a long image name, so the fields stay apart.
        size_t imageWidth = std::max<size_t>(36, image.size() + 1);
        frames.push_back(fmt::format("{:<4}{:<{}}0x{:016x} {} + {}", frames.size(), image,
                                     imageWidth, address, symbol, offset));
    }
    return frames;
}

}  // namespace tarvik
