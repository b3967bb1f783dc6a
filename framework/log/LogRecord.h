// Log levels, group masks and the record handed to log targets.
//
// A level is an unsigned number, 0 OKAY to 3 ALWAYS; groups are a 64-bit mask
// whose bit n is the group at index n of the group table (LogGroups.h).
//
// Ownership: a record borrows its message text for the duration of one
// Write call. Threads: plain values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/platform/Clock.h"

#if defined(__GNUC__)
#define QEL_PRINTF_FORMAT(formatIndex, firstArgIndex) \
    __attribute__((format(printf, formatIndex, firstArgIndex)))
#else
#define QEL_PRINTF_FORMAT(formatIndex, firstArgIndex)
#endif

namespace Orvan::Framework {

inline constexpr uint32_t kOkay = 0;
inline constexpr uint32_t kWarn = 1;
inline constexpr uint32_t kError = 2;
inline constexpr uint32_t kAlways = 3;

inline constexpr uint64_t kGroupDbg = 1;
inline constexpr uint64_t kGroupGen = 2;
inline constexpr uint64_t kGroupXtr = 4;

// Size of the buffers of messages and formatted lines, terminator included.
inline constexpr size_t kLogBufferSize = 4096;

struct LogRecord {
    Platform::LocalTime time;
    uint32_t level = 0;
    uint64_t groups = 0;
    const char* message = "";  // NUL-terminated, at most kLogBufferSize - 1 characters
};

// The six-character name of a level ("  OKAY", "  WARN", " ERROR", "ALWAYS");
// a level outside the table prints as its number, padded to six.
std::string LogLevelName(uint32_t level);

}  // namespace Orvan::Framework
