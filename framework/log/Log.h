// Logging for every caller: the level constants (kOkay, kWarn, kError,
// kAlways), the group masks (kGroupDbg, kGroupGen, kGroupXtr) and printf-style
// calls into the process's logger, which is created on first use.
//
//   Log(kWarn, kGroupDbg, "%s: Couldn't convert %s", shortName, what);
//
// Threads: any thread.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "framework/log/LogRecord.h"

namespace Orvan::Framework {

void Log(uint32_t level, uint64_t groups, const char* format, ...) QEL_PRINTF_FORMAT(3, 4);
void LogV(uint32_t level, uint64_t groups, const char* format, va_list args)
    QEL_PRINTF_FORMAT(3, 0);

}  // namespace Orvan::Framework
