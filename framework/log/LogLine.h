// Line formats of the log targets and the time format of log file names.
//
// A line format is copied with its tokens replaced:
//   #D  the record's local time, 2024-05-01T13:07:09.042
//   #E  the executable's file name
//   #G  the record's group names, lowest bit first, joined by ";"
//   #H  seconds since the high-resolution clock's first use, 000012.345
//   #L  the level's six-character name
//   #M  the message text
//   #T  the writing thread's id, as "%p" prints it
//   #x  for any other character x: x itself ("##" is "#")
// The line always ends in exactly one line feed and is at most 4095 bytes.
//
// Pure functions apart from the clock and thread id; any thread.
#pragma once

#include <string>
#include <string_view>

#include "framework/log/LogRecord.h"
#include "framework/platform/Clock.h"

namespace Orvan::Framework {

inline constexpr std::string_view kDefaultLineFormat = "#D| #L| #G| #M";

std::string FormatLogLine(std::string_view format, const LogRecord& record,
                          std::string_view executableName);

// "2024-05-01T13-07-09": a local time usable in a file name.
std::string FormatFileNameTime(const Platform::LocalTime& time);

}  // namespace Orvan::Framework
