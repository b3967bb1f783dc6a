// Vocabulary of the champion-select tests: drafts built as records (two
// allied cells, one enemy cell, two action sets), ready checks carrying an
// inventory, actions and ceremonies as the service writes them, and the
// champion-select events the plugin published, one line each with the path
// below the champion-select base ("Create session").
//
// Ownership: values only. Threads: the test's thread.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {

inline constexpr std::string_view kDraftBase = "/qel-lobby-team-builder/champ-select/v1/";

inline std::string DraftUri(std::string_view path) {
    return std::string(kDraftBase) + std::string(path);
}

inline BindingProperty Action(int64_t id, int64_t actor, std::string_view type,
                              int64_t championId = 0, bool completed = false) {
    BindingProperty action;
    action.MutableField("actionId").SetSigned(id);
    action.MutableField("actorCellId").SetSigned(actor);
    action.MutableField("type").SetString(type);
    action.MutableField("championId").SetSigned(championId);
    action.MutableField("completed").SetBool(completed);
    return action;
}

inline BindingProperty ArrayOf(std::vector<BindingProperty> elements) {
    BindingProperty array;
    array.SetEmptyCollection();
    for (BindingProperty& element : elements) {
        array.Append() = std::move(element);
    }
    return array;
}

inline BindingProperty Ceremony(std::string_view name, int64_t duration) {
    BindingProperty ceremony;
    ceremony.MutableField("name").SetString(name);
    ceremony.MutableField("duration").SetSigned(duration);
    return ceremony;
}

inline CellV1 Cell(int32_t cellId, int32_t teamId, int32_t championId = 0, int32_t skinId = 0) {
    CellV1 cell;
    cell.cellId = cellId;
    cell.teamId = teamId;
    cell.summonerName = "summoner" + std::to_string(cellId);
    cell.championId = championId;
    cell.skinId = skinId;
    cell.assignedPosition = "NONE";
    cell.summonerId = 100 + static_cast<uint64_t>(cellId);
    return cell;
}

// A draft in its ban phase: cells 1 and 2 allied (1 is the local player),
// cell 6 enemy; set 0 bans (cell 1 has banned 7), set 1 picks.
inline TbdGameDtoV1 Draft(int32_t counter, std::string teamId = "team-1") {
    TbdGameDtoV1 dto = Dto("CHAMPION_SELECT", counter);
    ChampionSelectStateV1& state = dto.championSelectState.emplace();
    state.teamId = std::move(teamId);
    state.teamChatRoomId = "room-9";
    state.subphase = "BAN_PICK";
    state.actionSetList = {
        ArrayOf({Action(2, 6, "BAN"), Action(1, 1, "BAN", 7, true)}),
        ArrayOf({Action(3, 1, "PICK"), Action(4, 2, "PICK", 22)}),
    };
    state.cells.alliedTeam = {Cell(1, 1), Cell(2, 1)};
    state.cells.enemyTeam = {Cell(6, 2)};
    state.localPlayerCellId = 1;
    state.currentTotalTimeMillis = 30000;
    state.currentTimeRemainingMillis = 30000;
    state.battleBoostState.cost = 250;
    return dto;
}

inline TbdInventory Inventory() {
    TbdInventory inventory;
    inventory.lastSelectedSkinIdByChampionId = {{"7", 7001}};
    inventory.skinIds = {7001, 9002};
    inventory.allChampionIds = {5, 7, 9};
    inventory.disabledChampionIds = {9};
    return inventory;
}

inline TbdGameDtoV1 ReadyCheckWith(int32_t counter, TbdInventory inventory) {
    TbdGameDtoV1 dto = ReadyCheck(counter);
    dto.afkCheckState->inventoryDraft = std::move(inventory);
    return dto;
}

// The receipt time is kept in milliseconds; DTOs pushed closer together
// than that would carry the same time.
inline void NextMillisecond() {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

struct DraftEvent {
    std::string line;  // "<eventType> <path below the base>"
    BindingProperty data;
};

// The champion-select events published since the last call; each reaches
// the host under its key and under "OnJsonApiEvent", and is listed once.
inline std::vector<DraftEvent> TakeDraftEvents(TeamBuilderHost& host) {
    std::vector<DraftEvent> events;
    for (const TestHost::EmittedEvent& event : host.Host().Events()) {
        const std::string_view uri = event.value.Field("uri").GetString();
        if (event.key != "OnJsonApiEvent" || uri.substr(0, kDraftBase.size()) != kDraftBase) {
            continue;
        }
        events.push_back({std::string(event.value.Field("eventType").GetString()) + " " +
                              std::string(uri.substr(kDraftBase.size())),
                          event.value.Field("data")});
    }
    host.Host().ClearEvents();
    return events;
}

inline Strings Lines(const std::vector<DraftEvent>& events) {
    Strings lines;
    for (const DraftEvent& event : events) {
        lines.push_back(event.line);
    }
    return lines;
}

// The game-flow events the plugin posted, by their argument.
inline Strings GameflowEvents(TeamBuilderHost& host) {
    Strings events;
    for (const TestHost::Request& request : host.Host().Requests()) {
        if (request.methodName == "POST" && request.path == "/qel-gameflow/v1/session/event") {
            events.push_back(request.arguments.empty()
                                 ? std::string("<none>")
                                 : Framework::WriteJson(request.arguments[0]));
        }
    }
    return events;
}

// The champion-select log lines since the last call, "<level> <text>".
inline Strings DraftLogs(TeamBuilderHost& host) {
    Strings lines;
    for (std::string& line : host.TakeLogs()) {
        if (line.find("champ select") != std::string::npos ||
            line.find("ceremonies") != std::string::npos) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
