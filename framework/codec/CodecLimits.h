// Limits shared by the wire readers.
//
// The host runs module code on a thread with a small stack, and the JSON
// reader underneath recurses once per open container; every reader therefore
// refuses input nested deeper than kMaxNestingDepth containers (a container at
// that depth is still read). The same bound keeps every tree a reader builds
// shallow enough for the recursive parts of the value model.
//
// Pure constants; any thread.
#pragma once

#include <cstddef>

namespace Orvan::Framework {

inline constexpr size_t kMaxNestingDepth = 512;

}  // namespace Orvan::Framework
