// The lobby-side records of the team-builder plugin: the game DTO the
// team-builder service pushes and returns (TbdGameDtoV1 with its premade,
// matchmaking and ready-check states), the service's other messages, the
// request bodies of the lobby routes, the published lobby and matchmaking
// resources, and the two resources of other plugins that the plugin follows.
//
// Plain value types: copyable, comparable field by field, with the defaults
// that the intake and the resources rely on (queue -1 marks "no queue", slot
// -1 "no slot"). Members that the service may leave out entirely are
// std::optional and are left out of the output when absent. Field names are
// the wire names; RegisterTypes.h describes each record to the registry.
//
// Ownership: by value everywhere. Threads: the host's thread, like all plugin
// state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "teambuilder/common/ChampSelectRecords.h"

namespace Orvan::Client::LobbyTeamBuilder::Api {

// ---- Request bodies -----------------------------------------------------------------------

struct CreatePremadeV1 {
    int32_t queueId = -1;

    bool operator==(const CreatePremadeV1&) const = default;
};

struct SpecifyPositionPreferencesV1 {
    std::string firstPreference;
    std::string secondPreference;

    bool operator==(const SpecifyPositionPreferencesV1&) const = default;
};

struct SpecifyPositionPreferencesV2 {
    std::string firstPreference;
    std::string secondPreference;
    std::string excludedPreference;

    bool operator==(const SpecifyPositionPreferencesV2&) const = default;
};

// ---- The game DTO -------------------------------------------------------------------------

struct TbLobbySlotResource {
    int32_t slotId = 0;
    std::string summonerName;
    uint64_t summonerId = 0;
    std::vector<std::string> draftPositionPreferences;  // first preference first
    // Absent when the service says nothing about it; a present "" is written.
    std::optional<std::string> excludedPositionPreference;
    bool showPositionExcluder = false;
    bool autoFillEligible = false;
    bool autoFillProtectedForStreaking = false;
    bool autoFillProtectedForPromos = false;
    bool autoFillProtectedForSoloing = false;

    bool operator==(const TbLobbySlotResource&) const = default;
};

// Why the game fell back to the lobby, and whose slots caused it.
struct TbLobbyBackwardsToPremadeTransitionResource {
    std::string backwardsTransitionReason;  // empty when there was no fall-back
    std::vector<int32_t> slotIds;

    bool operator==(const TbLobbyBackwardsToPremadeTransitionResource&) const = default;
};

struct ReadyStateV1 {
    bool readyToMatchmake = false;
    bool premadeSizeAllowed = true;
    bool requiredPositionCoverageMet = true;
    std::vector<int32_t> allowablePremadeSizes;

    bool operator==(const ReadyStateV1&) const = default;
};

struct TbLobbyPremadeStateResource {
    int64_t timer = 0;
    std::string draftPremadeId;
    std::string premadeChatRoomId;
    int32_t captainSlotId = -1;
    bool showPositionSelector = false;
    bool showPositionExcluder = false;
    bool readyToMatchmake = false;
    std::vector<TbLobbySlotResource> draftSlots;
    std::vector<std::string> playableDraftPositions;
    int32_t localPlayerSlotId = -1;
    TbLobbyBackwardsToPremadeTransitionResource backwardsToPremadeTransitionReason;
    bool autoFillEligible = false;
    bool autoFillProtectedForStreaking = false;
    bool autoFillProtectedForPromos = false;
    ReadyStateV1 readyState;

    bool operator==(const TbLobbyPremadeStateResource&) const = default;
};

struct TBDMatchmakingState {
    int64_t estimatedMatchmakingTimeMillis = 0;
    int64_t timeInMatchmakingMillis = 0;
    std::string backwardsTransitionReason;

    bool operator==(const TBDMatchmakingState&) const = default;
};

struct AfkCheckStateV1 {
    uint32_t maxAfkMillis = 0;
    int32_t remainingAfkMillis = 0;
    bool afkReady = false;
    TbdInventory inventoryDraft;

    bool operator==(const AfkCheckStateV1&) const = default;
};

// The player's whole team-builder game. Which sub-states are present follows
// the phase; the champion-select state's presence alone makes it a draft DTO.
struct TbdGameDtoV1 {
    int32_t counter = 0;
    std::string phaseName;  // "DRAFT_PREMADE", "MATCHMAKING", "AFK_CHECK", "CHAMPION_SELECT", ...
    int32_t queueId = -1;   // -1: not a usable DTO
    std::optional<TbLobbyPremadeStateResource> premadeState;
    std::optional<TBDMatchmakingState> matchmakingState;
    std::optional<AfkCheckStateV1> afkCheckState;
    std::optional<ChampionSelectStateV1> championSelectState;

    bool operator==(const TbdGameDtoV1&) const = default;
};

// ---- Other pushed messages ----------------------------------------------------------------

struct BackwardsTransitionInfoV1 {
    std::string backwardsTransitionReason;
    std::vector<uint64_t> initiatorSummonerIds;

    bool operator==(const BackwardsTransitionInfoV1&) const = default;
};

struct RemovedFromServiceV1 {
    std::string reason;
    BackwardsTransitionInfoV1 backwardsTransitionInfo;

    bool operator==(const RemovedFromServiceV1&) const = default;
};

struct GatekeeperRestriction {
    uint64_t summonerId = 0;
    std::string reason;  // "QUITGUARDED", "MAX_PREMADE_SIZE_VIOLATED", ...
    uint32_t remainingMillis = 0;
    std::string payload;  // the quitguard access token, when there is one
    int32_t queueId = 0;

    bool operator==(const GatekeeperRestriction&) const = default;
};

struct GatekeeperRestricted {
    std::vector<GatekeeperRestriction> gatekeeperRestrictions;

    bool operator==(const GatekeeperRestricted&) const = default;
};

struct QuitguardAbandoned {
    std::string abandonerName;

    bool operator==(const QuitguardAbandoned&) const = default;
};

// ---- Published lobby resources ------------------------------------------------------------

struct TbEnabledFeatures {
    std::vector<std::string> enabledFeatures;

    bool operator==(const TbEnabledFeatures&) const = default;
};

struct LobbyPositionPreferences {
    std::string firstPreference;
    std::string secondPreference;

    bool operator==(const LobbyPositionPreferences&) const = default;
};

// Described to API clients only; no route of the plugin uses it.
struct LobbyPositionPreferencesV2 {
    std::string firstPreference;
    std::string secondPreference;
    std::string excludedPreference;

    bool operator==(const LobbyPositionPreferencesV2&) const = default;
};

// Also the body of POST invitations/accept, whose metadata carries
// "draftPremadeId" and "groupFinderId".
struct LobbyInvitation {
    BindingProperty invitationMetaData;

    bool operator==(const LobbyInvitation&) const = default;
};

enum class LobbyRemovedFromGameReason : int32_t {
    None = 0,
    Kicked = 1,
    Disbanded = 2,
    Left = 3,
    ServiceError = 4,
    Other = 5,
    Timeout = 6,
    GameStartError = 7,
    ServiceShutdown = 8,
};

struct LobbyMember {
    uint64_t id = 0;  // summoner id
    bool isOwner = false;
    bool canInviteOthers = false;
    LobbyPositionPreferences positionPreferences;
    std::optional<std::string> excludedPositionPreference;
    bool showPositionExcluder = false;
    bool autoFillEligible = false;
    bool autoFillProtectedForStreaking = false;
    bool autoFillProtectedForPromos = false;
    bool autoFillProtectedForSoloing = false;

    bool operator==(const LobbyMember&) const = default;
};

struct Lobby {
    int32_t queueId = -1;
    std::string invitationId;
    std::string chatRoomId;
    std::string chatRoomKey;
    std::vector<LobbyMember> members;
    LobbyMember localMember;
    std::vector<LobbyInvitation> invitations;
    bool wasKicked = false;
    LobbyRemovedFromGameReason removalReason = LobbyRemovedFromGameReason::None;
    bool canStartMatchmaking = true;
    bool showPositionSelector = false;
    bool showPositionExcluder = false;
    std::vector<std::string> specifiablePositionPreferences;
    bool autoFillEligible = false;
    bool autoFillProtectedForStreaking = false;
    bool autoFillProtectedForPromos = false;
    bool isTeamBuilderManaged = false;
    bool premadeSizeAllowed = true;
    bool requiredPositionCoverageMet = true;
    std::vector<int32_t> allowablePremadeSizes;

    bool operator==(const Lobby&) const = default;
};

struct LobbyCountdownTimer {
    std::string phaseName;
    int64_t timer = 0;
    int32_t counter = 0;

    bool operator==(const LobbyCountdownTimer&) const = default;
};

// ---- Published matchmaking resource -------------------------------------------------------

enum class MatchmakingSearchState : int32_t {
    Invalid = 0,
    AbandonedLowPriorityQueue = 1,
    Canceled = 2,
    Searching = 3,
    Found = 4,
    Error = 5,
    ServiceError = 6,
    ServiceShutdown = 7,
};

// Numbered by the character codes of the digits ('0' onward), as the values
// travel.
enum class MatchmakingDodgeState : int32_t {
    Invalid = '0',
    PartyDodged = '1',
    StrangerDodged = '2',
    TournamentDodged = '3',
};

enum class MatchmakingReadyCheckState : int32_t {
    Invalid = 0,
    InProgress = 1,
    EveryoneReady = 2,
    StrangerNotReady = 3,
    PartyNotReady = 4,
    Error = 5,
};

// One byte wide, numbered by digit character codes.
enum class MatchmakingReadyCheckResponse : uint8_t {
    None = '0',
    Accepted = '1',
    Declined = '2',
};

enum class MatchmakingDodgeWarning : int32_t {
    None = 0,
    Warning = 1,
    Penalty = 2,
};

struct MatchmakingReadyCheckResource {
    MatchmakingReadyCheckState state = MatchmakingReadyCheckState::Invalid;
    MatchmakingReadyCheckResponse playerResponse = MatchmakingReadyCheckResponse::None;
    MatchmakingDodgeWarning dodgeWarning = MatchmakingDodgeWarning::None;
    float timer = 0.0f;
    std::vector<uint64_t> declinerIds;

    bool operator==(const MatchmakingReadyCheckResource&) const = default;
};

struct MatchmakingSearchErrorResource {
    int32_t id = 0;
    std::string errorType;
    uint64_t penalizedSummonerId = 0;
    double penaltyTimeRemaining = 0.0;
    std::string message;

    bool operator==(const MatchmakingSearchErrorResource&) const = default;
};

struct MatchmakingDodgeData {
    MatchmakingDodgeState state = MatchmakingDodgeState::Invalid;
    uint64_t dodgerId = 0;

    bool operator==(const MatchmakingDodgeData&) const = default;
};

struct MatchmakingLowPriorityData {
    std::vector<uint64_t> penalizedSummonerIds;
    double penaltyTime = 0.0;
    double penaltyTimeRemaining = 0.0;
    // Handed back by the search and abandon routes as "quitguardToken".
    std::string quitguardedAccessToken;

    bool operator==(const MatchmakingLowPriorityData&) const = default;
};

struct MatchmakingSearch {
    int32_t queueId = -1;
    bool isCurrentlyInQueue = false;
    std::string lobbyId;
    MatchmakingSearchState searchState = MatchmakingSearchState::Invalid;
    float timeInQueue = 0.0f;
    float estimatedQueueTime = 0.0f;
    MatchmakingReadyCheckResource readyCheck;
    MatchmakingDodgeData dodgeData;
    MatchmakingLowPriorityData lowPriorityData;
    std::vector<MatchmakingSearchErrorResource> errors;

    bool operator==(const MatchmakingSearch&) const = default;
};

// ---- Resources of other plugins -----------------------------------------------------------

struct GameflowGameClient {
    bool running = false;

    bool operator==(const GameflowGameClient&) const = default;
};

struct GameflowSession {
    GameflowGameClient gameClient;

    bool operator==(const GameflowSession&) const = default;
};

// Spelled and numbered as the login plugin publishes it.
enum class LoginSessionState : int32_t {
    IN_PROGRESS = 0,
    SUCCEEDED = 1,
    LOGGING_OUT = 2,
    ERROR = 3,
};

struct LoginSession {
    LoginSessionState state = LoginSessionState::IN_PROGRESS;
    uint64_t summonerId = 0;
    uint64_t accountId = 0;
    bool connected = false;

    bool operator==(const LoginSession&) const = default;
};

}  // namespace Orvan::Client::LobbyTeamBuilder::Api
