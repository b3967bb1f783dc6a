// Catalog: the invented world the simulator plays in: champions with their
// ids and names, the names of the simulated players, positions, summoner
// spells and ward skins. Ids follow the service's conventions: a champion's
// default skin is its id times 1000, its other skins follow that number.
//
// Ownership: static tables. Threads: any.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace Orvan::Simulation {

struct Champion {
    int32_t id = 0;
    std::string_view name;
};

std::span<const Champion> Champions();

// The champion's name, or the empty text for an unknown id.
std::string_view ChampionName(int32_t id);

// Names the simulated players draw from (more than nine, so seeds differ).
std::span<const std::string_view> PlayerNames();

// The five positions, in the service's spelling.
std::span<const std::string_view> Positions();

// Summoner spell ids the service accepts.
std::span<const int32_t> SpellIds();

// Ward skins the local player owns.
std::span<const int64_t> OwnedWardSkins();

}  // namespace Orvan::Simulation
