// The debugger's output channel: OutputDebugStringA on Windows. Here a
// debugger shows the process's standard error in its console, so the text is
// written there.
//
// Threads: any thread; callers serialise whole lines themselves.
#pragma once

namespace Orvan::Framework::Platform {

// Sends a NUL-terminated text to the debugger output; errors are ignored.
void WriteDebuggerOutput(const char* text);

}  // namespace Orvan::Framework::Platform
