#include "framework/platform/DebuggerOutput.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <cstdio>
#endif

namespace Orvan::Framework::Platform {

void WriteDebuggerOutput(const char* text) {
    if (text == nullptr) {
        return;
    }
#if defined(_WIN32)
    OutputDebugStringA(text);
#else
    std::fputs(text, stderr);
#endif
}

}  // namespace Orvan::Framework::Platform
