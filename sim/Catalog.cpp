#include "sim/Catalog.h"

#include <array>

namespace Orvan::Simulation {

namespace {

constexpr std::array<Champion, 40> kChampions = {{
    {1, "Ashcaller"},   {2, "Bramblejack"},  {3, "Cindervale"},   {4, "Duskwarden"},
    {5, "Emberline"},   {6, "Frostmantle"},  {7, "Gravelord"},    {8, "Hollowmere"},
    {9, "Ironbloom"},   {10, "Jadefang"},    {11, "Kestrelle"},   {12, "Lumenveil"},
    {13, "Mirecrown"},  {14, "Nettlewisp"},  {15, "Oakenshade"},  {16, "Pyrelance"},
    {17, "Quartzhorn"}, {18, "Riftcaller"},  {19, "Saltwhisker"}, {20, "Thornmaw"},
    {21, "Umbravine"},  {22, "Vesperine"},   {23, "Wildmarch"},   {24, "Xyloth"},
    {25, "Yewguard"},   {26, "Zephyrine"},   {27, "Amberclaw"},   {28, "Bellweather"},
    {29, "Coilspire"},  {30, "Driftmourn"},  {31, "Eddybright"},  {32, "Fennicloak"},
    {33, "Glimmerjaw"}, {34, "Hearthbane"},  {35, "Inkwell"},     {36, "Jesterlight"},
    {37, "Knotwood"},   {38, "Lanternfall"}, {39, "Mossgrave"},   {40, "Nightpetal"},
}};

constexpr std::array<std::string_view, 16> kPlayerNames = {
    "Brynja", "Kestrel", "Moss",    "Quill",  "Saffron", "Tamsin", "Vireo", "Wren",
    "Yarrow", "Zephyr",  "Juniper", "Larkin", "Oriel",   "Pell",   "Rook",  "Sable",
};

constexpr std::array<std::string_view, 5> kPositions = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM",
                                                        "UTILITY"};

constexpr std::array<int32_t, 8> kSpells = {1, 3, 4, 6, 7, 11, 12, 14};

constexpr std::array<int64_t, 4> kWardSkins = {1, 2, 7, 12};

}  // namespace

std::span<const Champion> Champions() {
    return kChampions;
}

std::string_view ChampionName(int32_t id) {
    for (const Champion& champion : kChampions) {
        if (champion.id == id) {
            return champion.name;
        }
    }
    return {};
}

std::span<const std::string_view> PlayerNames() {
    return kPlayerNames;
}

std::span<const std::string_view> Positions() {
    return kPositions;
}

std::span<const int32_t> SpellIds() {
    return kSpells;
}

std::span<const int64_t> OwnedWardSkins() {
    return kWardSkins;
}

}  // namespace Orvan::Simulation
