#include "framework/module/ServiceCaller.h"

#include "framework/log/Log.h"

namespace Orvan::Framework {

void ServiceCaller::Enter() {
    const uint32_t count = inProgress_.fetch_add(1, std::memory_order_acq_rel) + 1;
    Log(kAlways, kGroupDbg, "%s: Concurrent requests: %u", module_.ShortName().c_str(), count);
}

void ServiceCaller::Leave() {
    const uint32_t count = inProgress_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    Log(kAlways, kGroupDbg, "%s: Concurrent requests: %u", module_.ShortName().c_str(), count);
}

}  // namespace Orvan::Framework
