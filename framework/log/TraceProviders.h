// The plugin's four event-tracing providers. They are registered when the
// library is loaded and unregistered when it is unloaded; if a trace session
// has the second provider enabled at registration, it receives one
// thread-name event naming the loading thread "Main thread". Where the system
// offers no event tracing (here, or an old Windows) nothing happens.
//
// Event layout of the thread-name event (id 1, level 4): the thread id as an
// unsigned 32-bit field, then the name as a NUL-terminated text.
//
// Ownership: the providers are process-wide. Threads: load and unload only.
#pragma once

#include "framework/platform/EventTracing.h"

namespace Orvan::Framework {

inline constexpr unsigned kTraceProviderCount = 4;

// Registers the providers that are not registered yet.
void RegisterTraceProviders();
void UnregisterTraceProviders();

// A provider by index (0..3), for code that writes its own trace events.
Platform::TraceProvider& TraceProviderAt(unsigned index);

}  // namespace Orvan::Framework
