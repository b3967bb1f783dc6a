// The calling thread's identifier as the operating system numbers it
// (GetCurrentThreadId on Windows, gettid here), printed in log lines.
//
// Threads: any thread.
#pragma once

#include <cstdint>

namespace Orvan::Framework::Platform {

uint64_t CurrentThreadId();

}  // namespace Orvan::Framework::Platform
