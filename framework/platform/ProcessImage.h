// The file name of the process's executable, shown in log lines: the image
// path (GetModuleFileNameA(nullptr) on Windows, /proc/self/exe here) after
// its last path separator ("\" on Windows, "/" here).
//
// Threads: any thread.
#pragma once

#include <string>
#include <string_view>

namespace Orvan::Framework::Platform {

// The name shown while the executable's name is not known.
inline constexpr std::string_view kUnknownExecutable = "<unknown>";

// The executable's file name, or kUnknownExecutable when the system does not tell.
std::string ExecutableFileName();

// The part of a path after its last separator of this platform.
std::string_view FileNameOfPath(std::string_view path);

}  // namespace Orvan::Framework::Platform
