#include "framework/host/HostEntries.h"

#include "framework/log/FatalReport.h"

namespace Orvan::Framework {

uint64_t Yield(HostEntries& host) {
    host.BeginWait("Wait: yield");
    host.ServeOnce();
    return host.EndWait();
}

void FailAwait(int code, const char* text) {
    const std::string message =
        Format("Caught std::future_error in AppModule::Await: (%1) %2", code, text);
    QEL_FATAL("ALE-6D828C10", message);
}

}  // namespace Orvan::Framework
