// ResourceSummary: one line that tells a person what a resource event of
// the team-builder plugin says ("search: Found, ready check InProgress").
// Names of players and champions come from the caller, so the line can say
// "Brynja" instead of a summoner id.
//
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Orvan::Host {

struct NameBook {
    std::function<std::string(uint64_t summonerId)> player;
    std::function<std::string(int64_t championId)> champion;
};

// `data` is the event's data as JSON text (empty or "null" for a Delete).
std::string SummarizeResource(std::string_view uri, std::string_view eventType,
                              std::string_view data, const NameBook& names);

// The short name of a team-builder resource ("lobby", "session", ...), or
// the URI itself for others.
std::string ResourceLabel(std::string_view uri);

}  // namespace Orvan::Host
