// The process-wide table of log group names: 64 three-character names, bit n
// of a group mask standing for entry n. Entries 0 to 7 are preset ("DBG",
// "GEN", "XTR", "PRF", "MEM", "DSK", "NET", "TST"); the others read "???"
// until a new name takes them, in order.
//
// Ownership: the table lives for the life of the process.
// Threads: lock-free; new names take their index from an atomic counter. Two
// threads adding the same new name at once may give it two entries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Orvan::Framework {

inline constexpr unsigned kLogGroupCount = 64;

// The mask of the group whose name matches the first three characters of
// `name`, adding the name at the next free index when it is unknown. Returns
// 0 for an empty name or when the table is full.
uint64_t LookUpLogGroup(std::string_view name);

// The name at an index ("???" for an unused one, "" outside the table).
std::string LogGroupName(unsigned index);

// The names of the groups of a mask, lowest bit first, joined by ";".
std::string LogGroupNames(uint64_t mask);

}  // namespace Orvan::Framework
