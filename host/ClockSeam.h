// ClockSeam: the host program's side of the plugin's clock seam (see
// framework/platform/Clock.h). The program exports kClockSeamSymbol; the
// plugin's platform layer finds it in the process and asks it for every
// reading of its monotonic clock and of the system time. Without a handler
// the real reading goes back unchanged, so a plugin in a host that neither
// records nor replays sees the real clocks.
//
// Ownership: the handler is the caller's and must outlive its installation.
// Threads: the plugin reads its clocks on the host's thread; the handler is
// called there.
#pragma once

#include <cstdint>

#include "framework/platform/Clock.h"

namespace Orvan::Host {

class ClockSeamHandler {
public:
    virtual ~ClockSeamHandler() = default;
    // The reading to give the plugin, given the real one.
    virtual int64_t Reading(Framework::Platform::ClockReading reading, int64_t real) = 0;
};

// Installs `handler` (null: the real clocks again).
void SetClockSeamHandler(ClockSeamHandler* handler);
// True when the plugin could find the seam: the program exports it.
bool ClockSeamExported();

}  // namespace Orvan::Host
