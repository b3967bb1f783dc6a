// The champion-select records: what the team-builder service sends inside a
// game DTO while the draft is on (ChampionSelectStateV1 and the records below
// it, the draft inventory), and the resources and request bodies the plugin
// publishes and accepts under the champion-select routes.
//
// Plain value types: copyable, comparable field by field, with the defaults
// the service and the resources assume for anything a message leaves out.
// Field names are the wire names; the registry (RegisterTypes.h) describes
// each of them once, in output order.
//
// Ownership: by value everywhere. Threads: the host's thread, like all plugin
// state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "framework/binding/BindingProperty.h"

namespace Orvan::Client::LobbyTeamBuilder::Api {

using Orvan::Framework::BindingProperty;

// ---- Service records ----------------------------------------------------------------------

// One element of an action set. Ceremonies are merged in as actions of their
// own, which is why an action carries a duration and why every id defaults to
// "none" rather than to a valid cell or action.
struct ActionV1 {
    int32_t actionId = -1;
    int32_t actorCellId = -1;
    std::string type;  // upper case on the wire: "PICK", "BAN", ...
    int32_t championId = 0;
    bool completed = false;
    int64_t duration = 0;  // milliseconds; non-zero only for ceremonies

    bool operator==(const ActionV1&) const = default;
};

// A pause the service wants shown between two action sets.
struct CeremonyV1 {
    std::string name;
    int64_t duration = 0;  // milliseconds

    bool operator==(const CeremonyV1&) const = default;
};

struct CellV1 {
    int32_t teamId = 0;
    int32_t cellId = 0;
    std::string summonerName;
    int32_t championPickIntent = 0;
    int32_t championId = 0;
    int32_t skinId = 0;
    std::string assignedPosition;  // "NONE" when the player has no position
    int32_t spell1Id = 0;
    int32_t spell2Id = 0;
    uint64_t summonerId = 0;

    bool operator==(const CellV1&) const = default;
};

struct CellsV1 {
    std::vector<CellV1> alliedTeam;
    std::vector<CellV1> enemyTeam;

    bool operator==(const CellsV1&) const = default;
};

struct TradeV1 {
    int32_t id = 0;
    int32_t cellId = 0;
    std::string state;  // a ChampSelectTradeState name, kept as text until published

    bool operator==(const TradeV1&) const = default;
};

struct RerollStateV1 {
    bool allowRerolling = false;
    uint32_t rerollsRemaining = 0;

    bool operator==(const RerollStateV1&) const = default;
};

struct TeamBuilderBoostInfo {
    bool allowBattleBoost = false;
    int64_t activatorCellId = 0;
    bool battleBoostActivated = false;
    int64_t cost = 0;
    std::vector<int64_t> unlockedSkinIds;

    bool operator==(const TeamBuilderBoostInfo&) const = default;
};

// The draft state inside a game DTO. Action sets and ceremonies stay dynamic
// values because ceremonies are spliced into the action sets before either is
// read as native records.
struct ChampionSelectStateV1 {
    std::string teamId;
    std::string teamChatRoomId;
    std::string subphase;                        // "PLANNING", "FINALIZATION", ...
    std::vector<BindingProperty> actionSetList;  // each an array of ActionV1-shaped objects
    // Decimal action-set index -> array of CeremonyV1-shaped objects.
    std::unordered_map<std::string, BindingProperty> ceremoniesByActionSetIndex;
    int32_t currentActionSetIndex = 0;
    CellsV1 cells;
    int32_t localPlayerCellId = 0;
    int64_t currentTotalTimeMillis = 0;
    int64_t currentTimeRemainingMillis = 0;
    std::vector<TradeV1> trades;
    std::string pickIntentClearedReason;
    bool allowOptingOutOfBanning = false;
    bool allowSkinSelection = false;
    RerollStateV1 rerollState;
    TeamBuilderBoostInfo battleBoostState;

    bool operator==(const ChampionSelectStateV1&) const = default;
};

// What the player may use in the coming draft; delivered with the ready check.
struct TbdInventory {
    std::unordered_map<std::string, int32_t>
        lastSelectedSkinIdByChampionId;  // decimal champion id -> skin
    std::vector<int32_t> skinIds;
    std::vector<int32_t> spellIds;
    std::vector<int32_t> initialSpellIds;
    std::vector<int32_t> allChampionIds;
    std::vector<int32_t> disabledChampionIds;

    bool operator==(const TbdInventory&) const = default;
};

// ---- Published resources and request bodies ------------------------------------------------

struct ChampSelectPlayerSelection {
    int64_t cellId = 0;
    std::string displayName;
    int32_t championId = 0;
    int32_t selectedSkinId = 0;
    int64_t wardSkinId = -1;  // only the local player's cell shows a ward skin
    uint64_t spell1Id = 0;
    uint64_t spell2Id = 0;
    int32_t team = 0;
    std::string assignedPosition;
    int32_t championPickIntent = 0;
    std::string playerType;
    uint64_t summonerId = 0;

    bool operator==(const ChampSelectPlayerSelection&) const = default;
};

// Body of PATCH session/my-selection: only the members sent are applied.
struct ChampSelectMySelection {
    std::optional<int32_t> selectedSkinId;
    std::optional<uint64_t> spell1Id;
    std::optional<uint64_t> spell2Id;
    std::optional<int64_t> wardSkinId;

    bool operator==(const ChampSelectMySelection&) const = default;
};

struct ChampSelectTimer {
    int64_t timeLeftInPhase = 0;
    int64_t adjustedTimeLeftInPhase = 0;
    int32_t timeLeftInPhaseInSec = 0;
    int32_t adjustedTimeLeftInPhaseInSec = 0;
    int64_t totalTimeInPhase = 0;
    std::string phase;
    bool isInfinite = false;
    uint64_t internalNowInEpochMs = 0;

    bool operator==(const ChampSelectTimer&) const = default;
};

struct ChampSelectChatRoomDetails {
    std::string chatRoomName;
    std::optional<std::string> chatRoomPassword;

    bool operator==(const ChampSelectChatRoomDetails&) const = default;
};

// Numbered from 1: a zero on the wire names no state.
enum class ChampSelectTradeState : int32_t {
    AVAILABLE = 1,
    BUSY = 2,
    INVALID = 3,
    RECEIVED = 4,
    SENT = 5,
};

struct ChampSelectTradeContract {
    int64_t id = 0;
    int64_t cellId = 0;
    // A contract nobody has filled in yet is not a usable trade.
    ChampSelectTradeState state = ChampSelectTradeState::INVALID;

    bool operator==(const ChampSelectTradeContract&) const = default;
};

// One action as published, and the body of PATCH session/actions/{id}.
struct ChampSelectAction {
    int64_t id = 0;
    int64_t actorCellId = 0;
    int32_t championId = 0;
    std::string type;  // lower case
    bool completed = false;

    bool operator==(const ChampSelectAction&) const = default;
};

struct ChampSelectSession {
    // Not registered and never written: identifies the draft so that two
    // sessions of different teams never compare equal.
    std::string teamId;

    ChampSelectTimer timer;
    ChampSelectChatRoomDetails chatDetails;
    std::vector<ChampSelectPlayerSelection> myTeam;
    std::vector<ChampSelectPlayerSelection> theirTeam;
    std::vector<ChampSelectTradeContract> trades;
    std::vector<BindingProperty> actions;  // one array of ChampSelectAction values per action set
    int64_t localPlayerCellId = 0;
    bool allowSkinSelection = false;
    bool allowBattleBoost = false;
    bool allowRerolling = false;
    uint32_t rerollsRemaining = 0;

    bool operator==(const ChampSelectSession&) const = default;
};

struct TeamBoost {
    std::string summonerName;
    std::string skinUnlockMode;
    int64_t price = 95;
    int64_t ipReward = 0;
    int64_t ipRewardForPurchaser = 0;
    std::vector<int64_t> availableSkins;
    bool unlocked = false;

    bool operator==(const TeamBoost&) const = default;
};

struct ChampSelectPickableChampions {
    std::vector<int32_t> championIds;

    bool operator==(const ChampSelectPickableChampions&) const = default;
};

struct ChampSelectBannableChampions {
    std::vector<int32_t> championIds;  // a trailing -1 offers banning nobody

    bool operator==(const ChampSelectBannableChampions&) const = default;
};

struct ChampSelectDisabledChampions {
    std::vector<int32_t> championIds;

    bool operator==(const ChampSelectDisabledChampions&) const = default;
};

struct ChampSelectPickableSkins {
    std::vector<int32_t> skinIds;

    bool operator==(const ChampSelectPickableSkins&) const = default;
};

}  // namespace Orvan::Client::LobbyTeamBuilder::Api
