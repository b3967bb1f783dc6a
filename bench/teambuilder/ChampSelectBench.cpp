// A champion-select DTO pushed by the team-builder service, from the host's
// event (the payload as JSON text) to the resource events the plugin emits,
// through the plugin's shared object and its C interface: ten cells, ten
// action sets and the draft inventory of 160 champions. Two DTOs that differ
// in their remaining time alternate, so every push publishes the session and
// the four lists. The reference is RapidJSON's Document::Parse of the same
// payload, measured in the same run.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/teambuilder/PushedDtos.h"
#include "framework/binding/BindingProperty.h"
#include "teambuilder/common/LobbyRecords.h"

namespace {

using namespace Orvan::Client::LobbyTeamBuilder;
using namespace Orvan::Client::LobbyTeamBuilder::Api;
using Orvan::Bench::DtoPayload;
using Orvan::Bench::emittedEvents;
using Orvan::Bench::PushedDtos;
using Orvan::Framework::BindingProperty;

constexpr int kChampions = 160;

BindingProperty ActionValue(int64_t id, int64_t actor, const char* type, int64_t championId,
                            bool completed) {
    BindingProperty action;
    action.MutableField("actionId").SetSigned(id);
    action.MutableField("actorCellId").SetSigned(actor);
    action.MutableField("championId").SetSigned(championId);
    action.MutableField("completed").SetBool(completed);
    action.MutableField("type").SetString(type);
    return action;
}

CellV1 CellOf(int32_t cellId) {
    static const char* const kPositions[] = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY"};
    CellV1 cell;
    cell.teamId = cellId < 5 ? 1 : 2;
    cell.cellId = cellId;
    cell.summonerName = "Summoner Number " + std::to_string(cellId + 1);
    cell.championPickIntent = cellId % 3 == 0 ? 10 + cellId : 0;
    cell.championId = cellId < 4 ? 20 + cellId : 0;
    cell.skinId = cellId < 2 ? (20 + cellId) * 1000 + 3 : 0;
    cell.assignedPosition = kPositions[cellId % 5];
    cell.spell1Id = 4;
    cell.spell2Id = 14;
    cell.summonerId = 2100000000ull + static_cast<uint64_t>(cellId) * 7919;
    return cell;
}

// A draft in its pick phase: three ban sets of two, then seven pick sets
// (ten picks), the first three completed; the local player in cell 2.
std::string DraftPayload(int64_t remainingMillis) {
    TbdGameDtoV1 dto;
    dto.counter = 57;
    dto.phaseName = "CHAMPION_SELECT";
    dto.queueId = 420;

    ChampionSelectStateV1& state = dto.championSelectState.emplace();
    state.teamId = "c3a1e0d2-7b4f-4e25-9a61-0d8f2b7c9e14";
    state.teamChatRoomId = "c3a1e0d2-7b4f-4e25-9a61-0d8f2b7c9e14";
    state.subphase = "BAN_PICK";
    int64_t id = 1;
    for (int set = 0; set < 3; ++set) {
        BindingProperty& actions = state.actionSetList.emplace_back();
        actions.SetEmptyCollection();
        actions.Append() = ActionValue(id++, set, "BAN", 100 + set, true);
        actions.Append() = ActionValue(id++, 5 + set, "BAN", 110 + set, true);
    }
    const int pickSets[][2] = {{0, -1}, {5, 6}, {1, 2}, {7, 8}, {3, 4}, {9, -1}, {-1, -1}};
    for (int set = 0; set < 7; ++set) {
        BindingProperty& actions = state.actionSetList.emplace_back();
        actions.SetEmptyCollection();
        for (int actor : pickSets[set]) {
            if (actor >= 0) {
                actions.Append() = ActionValue(id++, actor, "PICK", 0, set < 3);
            }
        }
    }
    state.currentActionSetIndex = 6;
    for (int32_t cell = 0; cell < 10; ++cell) {
        (cell < 5 ? state.cells.alliedTeam : state.cells.enemyTeam).push_back(CellOf(cell));
    }
    state.localPlayerCellId = 2;
    state.currentTotalTimeMillis = 30000;
    state.currentTimeRemainingMillis = remainingMillis;
    state.trades = {{1, 1, "AVAILABLE"}, {2, 3, "BUSY"}};
    state.allowSkinSelection = true;
    state.rerollState = {false, 0};
    state.battleBoostState.cost = 95;

    // The ready check's inventory comes along unchanged.
    AfkCheckStateV1& check = dto.afkCheckState.emplace();
    TbdInventory& inventory = check.inventoryDraft;
    for (int32_t champion = 1; champion <= kChampions; ++champion) {
        inventory.lastSelectedSkinIdByChampionId[std::to_string(champion)] =
            champion * 1000 + champion % 7;
        inventory.allChampionIds.push_back(champion);
        inventory.skinIds.push_back(champion * 1000);
        inventory.skinIds.push_back(champion * 1000 + 1);
    }
    inventory.disabledChampionIds = {13, 57, 99};
    inventory.spellIds = {1, 3, 4, 6, 7, 11, 12, 14, 21};
    inventory.initialSpellIds = {4, 14};

    return DtoPayload(dto);
}

void BM_RapidJsonParse(benchmark::State& state) {
    const std::string payload = DraftPayload(27000);
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(payload.c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload.size()));
}
BENCHMARK(BM_RapidJsonParse);

void BM_ChampSelectDto(benchmark::State& state) {
    const std::vector<std::string> payloads = {DraftPayload(27000), DraftPayload(26000)};
    PushedDtos dtos(payloads);
    // Enter the draft first; what is measured is the update of a session.
    dtos.Push(0);
    dtos.Push(1);
    emittedEvents = 0;
    size_t next = 0;
    for (auto _ : state) {
        dtos.Push(next);
        next ^= 1;
    }
    state.counters["events"] = benchmark::Counter(static_cast<double>(emittedEvents) / 2,
                                                  benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payloads[0].size()));
}
BENCHMARK(BM_ChampSelectDto);

}  // namespace
