// The event key under which the host routes the events of a resource URI,
// and the test of a resource URI against a handler's pattern.
//
// Key: "OnJsonApiEvent" followed by the URI's non-empty path pieces, at most 4
// elements in all (6 under "qel-platform-config"), joined by "_":
// /qel-gameflow/v1/session/extra -> OnJsonApiEvent_qel-gameflow_v1_session.
// Pattern: a "*" matches the characters up to the next "/" (possibly none) or
// up to the end of the URI (then at least one); every other character must
// be equal.
//
// Pure functions; any thread.
#pragma once

#include <string>
#include <string_view>

namespace Orvan::Framework {

std::string ResourceEventKey(std::string_view uri);

bool ResourcePatternMatches(std::string_view pattern, std::string_view uri);

}  // namespace Orvan::Framework
