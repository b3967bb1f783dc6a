// What a plugin's shared object does when the system loads and unloads it
// (DllMain's process attach and detach on Windows): register and unregister
// the event-tracing providers. Compiled only into the shared object.
#include "framework/log/TraceProviders.h"

namespace {

struct LibraryLifetime {
    LibraryLifetime() { Orvan::Framework::RegisterTraceProviders(); }
    ~LibraryLifetime() { Orvan::Framework::UnregisterTraceProviders(); }
    LibraryLifetime(const LibraryLifetime&) = delete;
    LibraryLifetime& operator=(const LibraryLifetime&) = delete;
};

const LibraryLifetime gLibraryLifetime;

}  // namespace
