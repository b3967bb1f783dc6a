#include "framework/platform/ProcessImage.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Orvan::Framework::Platform {

namespace {

#if defined(_WIN32)
constexpr char kSeparator = '\\';
#else
constexpr char kSeparator = '/';
#endif

}  // namespace

std::string_view FileNameOfPath(std::string_view path) {
    size_t slash = path.rfind(kSeparator);
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string ExecutableFileName() {
    char path[4096];
#if defined(_WIN32)
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    if (n == 0 || n >= sizeof path) {
        return std::string(kUnknownExecutable);
    }
    size_t length = n;
#else
    ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof path) {
        return std::string(kUnknownExecutable);
    }
    size_t length = static_cast<size_t>(n);
#endif
    std::string_view name = FileNameOfPath(std::string_view(path, length));
    return name.empty() ? std::string(kUnknownExecutable) : std::string(name);
}

}  // namespace Orvan::Framework::Platform
