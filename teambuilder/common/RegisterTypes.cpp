#include "teambuilder/common/RegisterTypes.h"

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/TypeRegistration.h"
#include "teambuilder/common/ChampSelectRecords.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

using namespace Api;
using Framework::BindingTypeRegistry;
using Framework::EnumRegistration;
using Framework::kOmitIfEmpty;
using Framework::StructRegistration;

// Begins each registration under the prefixed name and remembers the order.
class Registrar {
public:
    explicit Registrar(BindingTypeRegistry& registry) : registry_(registry) {}

    template <class T>
    StructRegistration<T> Struct(std::string_view name) {
        return Framework::RegisterStruct<T>(registry_, FullName(name));
    }

    template <class E>
    EnumRegistration<E> Enum(std::string_view name) {
        return Framework::RegisterEnum<E>(registry_, FullName(name));
    }

    std::vector<std::string> TakeNames() { return std::move(names_); }

private:
    std::string FullName(std::string_view name) {
        std::string full(kTypeNamePrefix);
        full.append(name);
        names_.push_back(full);
        return full;
    }

    BindingTypeRegistry& registry_;
    std::vector<std::string> names_;
};

// Bodies of the lobby actions and the feature toggles' answer.
void RegisterLobbyRequestTypes(Registrar& r) {
    r.Struct<CreatePremadeV1>("CreatePremadeV1")  //
        .Field("queueId", &CreatePremadeV1::queueId);

    r.Struct<SpecifyPositionPreferencesV1>("SpecifyPositionPreferencesV1")
        .Field("firstPreference", &SpecifyPositionPreferencesV1::firstPreference)
        .Field("secondPreference", &SpecifyPositionPreferencesV1::secondPreference);

    r.Struct<SpecifyPositionPreferencesV2>("SpecifyPositionPreferencesV2")
        .Field("firstPreference", &SpecifyPositionPreferencesV2::firstPreference)
        .Field("secondPreference", &SpecifyPositionPreferencesV2::secondPreference)
        .Field("excludedPreference", &SpecifyPositionPreferencesV2::excludedPreference);

    r.Struct<TbEnabledFeatures>("TbLobbyEnabledFeaturesResource")
        .Field("enabledFeatures", &TbEnabledFeatures::enabledFeatures);
}

// The lobby side of the game DTO: slots, the premade, the search and the ready check.
void RegisterPremadeStateTypes(Registrar& r) {
    r.Struct<TbLobbySlotResource>("TbLobbySlotResource")
        .Field("slotId", &TbLobbySlotResource::slotId)
        .Field("summonerName", &TbLobbySlotResource::summonerName)
        .Field("summonerId", &TbLobbySlotResource::summonerId)
        .Field("draftPositionPreferences", &TbLobbySlotResource::draftPositionPreferences)
        .Field("excludedPositionPreference", &TbLobbySlotResource::excludedPositionPreference,
               kOmitIfEmpty)
        .Field("showPositionExcluder", &TbLobbySlotResource::showPositionExcluder)
        .Field("autoFillEligible", &TbLobbySlotResource::autoFillEligible)
        .Field("autoFillProtectedForStreaking", &TbLobbySlotResource::autoFillProtectedForStreaking)
        .Field("autoFillProtectedForPromos", &TbLobbySlotResource::autoFillProtectedForPromos)
        .Field("autoFillProtectedForSoloing", &TbLobbySlotResource::autoFillProtectedForSoloing);

    r.Struct<TbLobbyBackwardsToPremadeTransitionResource>(
         "TbLobbyBackwardsToPremadeTransitionResource")
        .Field("backwardsTransitionReason",
               &TbLobbyBackwardsToPremadeTransitionResource::backwardsTransitionReason)
        .Field("slotIds", &TbLobbyBackwardsToPremadeTransitionResource::slotIds);

    r.Struct<ReadyStateV1>("ReadyStateV1")
        .Field("readyToMatchmake", &ReadyStateV1::readyToMatchmake)
        .Field("premadeSizeAllowed", &ReadyStateV1::premadeSizeAllowed)
        .Field("requiredPositionCoverageMet", &ReadyStateV1::requiredPositionCoverageMet)
        .Field("allowablePremadeSizes", &ReadyStateV1::allowablePremadeSizes);

    using Premade = TbLobbyPremadeStateResource;
    r.Struct<Premade>("TbLobbyPremadeStateResource")
        .Field("timer", &Premade::timer)
        .Field("draftPremadeId", &Premade::draftPremadeId)
        .Field("premadeChatRoomId", &Premade::premadeChatRoomId)
        .Field("captainSlotId", &Premade::captainSlotId)
        .Field("showPositionSelector", &Premade::showPositionSelector)
        .Field("showPositionExcluder", &Premade::showPositionExcluder)
        .Field("readyToMatchmake", &Premade::readyToMatchmake)
        .Field("draftSlots", &Premade::draftSlots)
        .Field("playableDraftPositions", &Premade::playableDraftPositions)
        .Field("localPlayerSlotId", &Premade::localPlayerSlotId)
        .Field("backwardsToPremadeTransitionReason", &Premade::backwardsToPremadeTransitionReason)
        .Field("autoFillEligible", &Premade::autoFillEligible)
        .Field("autoFillProtectedForStreaking", &Premade::autoFillProtectedForStreaking)
        .Field("autoFillProtectedForPromos", &Premade::autoFillProtectedForPromos)
        .Field("readyState", &Premade::readyState);

    r.Struct<TBDMatchmakingState>("TBDMatchmakingState")
        .Field("estimatedMatchmakingTimeMillis",
               &TBDMatchmakingState::estimatedMatchmakingTimeMillis)
        .Field("timeInMatchmakingMillis", &TBDMatchmakingState::timeInMatchmakingMillis)
        .Field("backwardsTransitionReason", &TBDMatchmakingState::backwardsTransitionReason);

    r.Struct<TbdInventory>("TbdInventory")
        .Field("lastSelectedSkinIdByChampionId", &TbdInventory::lastSelectedSkinIdByChampionId)
        .Field("skinIds", &TbdInventory::skinIds)
        .Field("spellIds", &TbdInventory::spellIds)
        .Field("initialSpellIds", &TbdInventory::initialSpellIds)
        .Field("allChampionIds", &TbdInventory::allChampionIds)
        .Field("disabledChampionIds", &TbdInventory::disabledChampionIds);

    r.Struct<AfkCheckStateV1>("AfkCheckStateV1")
        .Field("maxAfkMillis", &AfkCheckStateV1::maxAfkMillis)
        .Field("remainingAfkMillis", &AfkCheckStateV1::remainingAfkMillis)
        .Field("afkReady", &AfkCheckStateV1::afkReady)
        .Field("inventoryDraft", &AfkCheckStateV1::inventoryDraft);
}

// The champion-select side of the game DTO, then the DTO itself, which holds both sides.
void RegisterChampionSelectStateTypes(Registrar& r) {
    r.Struct<ActionV1>("ActionV1")
        .Field("actionId", &ActionV1::actionId)
        .Field("actorCellId", &ActionV1::actorCellId)
        .Field("type", &ActionV1::type)
        .Field("championId", &ActionV1::championId)
        .Field("completed", &ActionV1::completed)
        .Field("duration", &ActionV1::duration);

    r.Struct<CeremonyV1>("CeremonyV1")
        .Field("name", &CeremonyV1::name)
        .Field("duration", &CeremonyV1::duration);

    r.Struct<CellV1>("CellV1")
        .Field("teamId", &CellV1::teamId)
        .Field("cellId", &CellV1::cellId)
        .Field("summonerName", &CellV1::summonerName)
        .Field("championPickIntent", &CellV1::championPickIntent)
        .Field("championId", &CellV1::championId)
        .Field("skinId", &CellV1::skinId)
        .Field("assignedPosition", &CellV1::assignedPosition)
        .Field("spell1Id", &CellV1::spell1Id)
        .Field("spell2Id", &CellV1::spell2Id)
        .Field("summonerId", &CellV1::summonerId);

    r.Struct<CellsV1>("CellsV1")
        .Field("alliedTeam", &CellsV1::alliedTeam)
        .Field("enemyTeam", &CellsV1::enemyTeam);

    r.Struct<TradeV1>("TradeV1")
        .Field("id", &TradeV1::id)
        .Field("cellId", &TradeV1::cellId)
        .Field("state", &TradeV1::state);

    r.Struct<RerollStateV1>("RerollStateV1")
        .Field("allowRerolling", &RerollStateV1::allowRerolling)
        .Field("rerollsRemaining", &RerollStateV1::rerollsRemaining);

    r.Struct<TeamBuilderBoostInfo>("TeamBuilderBoostInfo")
        .Field("allowBattleBoost", &TeamBuilderBoostInfo::allowBattleBoost)
        .Field("activatorCellId", &TeamBuilderBoostInfo::activatorCellId)
        .Field("battleBoostActivated", &TeamBuilderBoostInfo::battleBoostActivated)
        .Field("cost", &TeamBuilderBoostInfo::cost)
        .Field("unlockedSkinIds", &TeamBuilderBoostInfo::unlockedSkinIds);

    r.Struct<TeamBoost>("TeamBoost")
        .Field("summonerName", &TeamBoost::summonerName)
        .Field("skinUnlockMode", &TeamBoost::skinUnlockMode)
        .Field("price", &TeamBoost::price)
        .Field("ipReward", &TeamBoost::ipReward)
        .Field("ipRewardForPurchaser", &TeamBoost::ipRewardForPurchaser)
        .Field("availableSkins", &TeamBoost::availableSkins)
        .Field("unlocked", &TeamBoost::unlocked);

    using ChampSelect = ChampionSelectStateV1;
    r.Struct<ChampSelect>("ChampionSelectStateV1")
        .Field("teamId", &ChampSelect::teamId)
        .Field("teamChatRoomId", &ChampSelect::teamChatRoomId)
        .Field("subphase", &ChampSelect::subphase)
        .Field("actionSetList", &ChampSelect::actionSetList)
        .Field("ceremoniesByActionSetIndex", &ChampSelect::ceremoniesByActionSetIndex)
        .Field("currentActionSetIndex", &ChampSelect::currentActionSetIndex)
        .Field("cells", &ChampSelect::cells)
        .Field("localPlayerCellId", &ChampSelect::localPlayerCellId)
        .Field("currentTotalTimeMillis", &ChampSelect::currentTotalTimeMillis)
        .Field("currentTimeRemainingMillis", &ChampSelect::currentTimeRemainingMillis)
        .Field("trades", &ChampSelect::trades)
        .Field("pickIntentClearedReason", &ChampSelect::pickIntentClearedReason)
        .Field("allowOptingOutOfBanning", &ChampSelect::allowOptingOutOfBanning)
        .Field("allowSkinSelection", &ChampSelect::allowSkinSelection)
        .Field("rerollState", &ChampSelect::rerollState)
        .Field("battleBoostState", &ChampSelect::battleBoostState);

    r.Struct<TbdGameDtoV1>("TbLobbyStateResource")
        .Field("counter", &TbdGameDtoV1::counter)
        .Field("phaseName", &TbdGameDtoV1::phaseName)
        .Field("queueId", &TbdGameDtoV1::queueId)
        .Field("premadeState", &TbdGameDtoV1::premadeState, kOmitIfEmpty)
        .Field("matchmakingState", &TbdGameDtoV1::matchmakingState, kOmitIfEmpty)
        .Field("afkCheckState", &TbdGameDtoV1::afkCheckState, kOmitIfEmpty)
        .Field("championSelectState", &TbdGameDtoV1::championSelectState, kOmitIfEmpty);
}

// The service's pushed messages besides the DTO.
void RegisterServiceNotificationTypes(Registrar& r) {
    r.Struct<BackwardsTransitionInfoV1>("BackwardsTransitionInfoV1")
        .Field("backwardsTransitionReason", &BackwardsTransitionInfoV1::backwardsTransitionReason)
        .Field("initiatorSummonerIds", &BackwardsTransitionInfoV1::initiatorSummonerIds);

    r.Struct<RemovedFromServiceV1>("TbRemovedFromServiceNotification")
        .Field("reason", &RemovedFromServiceV1::reason)
        .Field("backwardsTransitionInfo", &RemovedFromServiceV1::backwardsTransitionInfo);

    r.Struct<GatekeeperRestriction>("GatekeeperRestriction")
        .Field("summonerId", &GatekeeperRestriction::summonerId)
        .Field("reason", &GatekeeperRestriction::reason)
        .Field("remainingMillis", &GatekeeperRestriction::remainingMillis)
        .Field("payload", &GatekeeperRestriction::payload)
        .Field("queueId", &GatekeeperRestriction::queueId);

    r.Struct<GatekeeperRestricted>("GatekeeperRestricted")
        .Field("gatekeeperRestrictions", &GatekeeperRestricted::gatekeeperRestrictions);

    r.Struct<QuitguardAbandoned>("QuitguardAbandoned")
        .Field("abandonerName", &QuitguardAbandoned::abandonerName);
}

// The lobby and countdown resources.
void RegisterLobbyResourceTypes(Registrar& r) {
    r.Struct<LobbyPositionPreferences>("LobbyPositionPreferences")
        .Field("firstPreference", &LobbyPositionPreferences::firstPreference)
        .Field("secondPreference", &LobbyPositionPreferences::secondPreference);

    r.Struct<LobbyPositionPreferencesV2>("LobbyPositionPreferencesV2")
        .Field("firstPreference", &LobbyPositionPreferencesV2::firstPreference)
        .Field("secondPreference", &LobbyPositionPreferencesV2::secondPreference)
        .Field("excludedPreference", &LobbyPositionPreferencesV2::excludedPreference);

    r.Struct<LobbyInvitation>("LobbyInvitation")
        .Field("invitationMetaData", &LobbyInvitation::invitationMetaData);

    using Removal = LobbyRemovedFromGameReason;
    r.Enum<Removal>("LobbyRemovedFromGameReason")
        .Value("None", Removal::None)
        .Value("Kicked", Removal::Kicked)
        .Value("Disbanded", Removal::Disbanded)
        .Value("Left", Removal::Left)
        .Value("ServiceError", Removal::ServiceError)
        .Value("Other", Removal::Other)
        .Value("Timeout", Removal::Timeout)
        .Value("GameStartError", Removal::GameStartError)
        .Value("ServiceShutdown", Removal::ServiceShutdown);

    r.Struct<LobbyMember>("LobbyMember")
        .Field("id", &LobbyMember::id)
        .Field("isOwner", &LobbyMember::isOwner)
        .Field("canInviteOthers", &LobbyMember::canInviteOthers)
        .Field("positionPreferences", &LobbyMember::positionPreferences)
        .Field("excludedPositionPreference", &LobbyMember::excludedPositionPreference, kOmitIfEmpty)
        .Field("showPositionExcluder", &LobbyMember::showPositionExcluder)
        .Field("autoFillEligible", &LobbyMember::autoFillEligible)
        .Field("autoFillProtectedForStreaking", &LobbyMember::autoFillProtectedForStreaking)
        .Field("autoFillProtectedForPromos", &LobbyMember::autoFillProtectedForPromos)
        .Field("autoFillProtectedForSoloing", &LobbyMember::autoFillProtectedForSoloing);

    r.Struct<Lobby>("Lobby")
        .Field("queueId", &Lobby::queueId)
        .Field("invitationId", &Lobby::invitationId)
        .Field("chatRoomId", &Lobby::chatRoomId)
        .Field("chatRoomKey", &Lobby::chatRoomKey)
        .Field("members", &Lobby::members)
        .Field("localMember", &Lobby::localMember)
        .Field("invitations", &Lobby::invitations)
        .Field("wasKicked", &Lobby::wasKicked)
        .Field("removalReason", &Lobby::removalReason)
        .Field("canStartMatchmaking", &Lobby::canStartMatchmaking)
        .Field("showPositionSelector", &Lobby::showPositionSelector)
        .Field("showPositionExcluder", &Lobby::showPositionExcluder)
        .Field("specifiablePositionPreferences", &Lobby::specifiablePositionPreferences)
        .Field("autoFillEligible", &Lobby::autoFillEligible)
        .Field("autoFillProtectedForStreaking", &Lobby::autoFillProtectedForStreaking)
        .Field("autoFillProtectedForPromos", &Lobby::autoFillProtectedForPromos)
        .Field("isTeamBuilderManaged", &Lobby::isTeamBuilderManaged)
        .Field("premadeSizeAllowed", &Lobby::premadeSizeAllowed)
        .Field("requiredPositionCoverageMet", &Lobby::requiredPositionCoverageMet)
        .Field("allowablePremadeSizes", &Lobby::allowablePremadeSizes);

    r.Struct<LobbyCountdownTimer>("LobbyCountdownTimer")
        .Field("phaseName", &LobbyCountdownTimer::phaseName)
        .Field("timer", &LobbyCountdownTimer::timer)
        .Field("counter", &LobbyCountdownTimer::counter);
}

// The champion-select resources and request bodies.
void RegisterChampSelectResourceTypes(Registrar& r) {
    using Player = ChampSelectPlayerSelection;
    r.Struct<Player>("ChampSelectPlayerSelection")
        .Field("cellId", &Player::cellId)
        .Field("displayName", &Player::displayName)
        .Field("championId", &Player::championId)
        .Field("selectedSkinId", &Player::selectedSkinId)
        .Field("wardSkinId", &Player::wardSkinId)
        .Field("spell1Id", &Player::spell1Id)
        .Field("spell2Id", &Player::spell2Id)
        .Field("team", &Player::team)
        .Field("assignedPosition", &Player::assignedPosition)
        .Field("championPickIntent", &Player::championPickIntent)
        .Field("playerType", &Player::playerType)
        .Field("summonerId", &Player::summonerId);

    r.Struct<ChampSelectMySelection>("ChampSelectMySelection")
        .Field("selectedSkinId", &ChampSelectMySelection::selectedSkinId, kOmitIfEmpty)
        .Field("spell1Id", &ChampSelectMySelection::spell1Id, kOmitIfEmpty)
        .Field("spell2Id", &ChampSelectMySelection::spell2Id, kOmitIfEmpty)
        .Field("wardSkinId", &ChampSelectMySelection::wardSkinId, kOmitIfEmpty);

    r.Struct<ChampSelectTimer>("ChampSelectTimer")
        .Field("timeLeftInPhase", &ChampSelectTimer::timeLeftInPhase)
        .Field("adjustedTimeLeftInPhase", &ChampSelectTimer::adjustedTimeLeftInPhase)
        .Field("timeLeftInPhaseInSec", &ChampSelectTimer::timeLeftInPhaseInSec)
        .Field("adjustedTimeLeftInPhaseInSec", &ChampSelectTimer::adjustedTimeLeftInPhaseInSec)
        .Field("totalTimeInPhase", &ChampSelectTimer::totalTimeInPhase)
        .Field("phase", &ChampSelectTimer::phase)
        .Field("isInfinite", &ChampSelectTimer::isInfinite)
        .Field("internalNowInEpochMs", &ChampSelectTimer::internalNowInEpochMs);

    r.Struct<ChampSelectChatRoomDetails>("ChampSelectChatRoomDetails")
        .Field("chatRoomName", &ChampSelectChatRoomDetails::chatRoomName)
        .Field("chatRoomPassword", &ChampSelectChatRoomDetails::chatRoomPassword, kOmitIfEmpty);

    using Trade = ChampSelectTradeState;
    r.Enum<Trade>("ChampSelectTradeState")
        .Value("AVAILABLE", Trade::AVAILABLE)
        .Value("BUSY", Trade::BUSY)
        .Value("INVALID", Trade::INVALID)
        .Value("RECEIVED", Trade::RECEIVED)
        .Value("SENT", Trade::SENT);

    r.Struct<ChampSelectTradeContract>("ChampSelectTradeContract")
        .Field("id", &ChampSelectTradeContract::id)
        .Field("cellId", &ChampSelectTradeContract::cellId)
        .Field("state", &ChampSelectTradeContract::state);

    r.Struct<ChampSelectAction>("ChampSelectAction")
        .Field("id", &ChampSelectAction::id)
        .Field("actorCellId", &ChampSelectAction::actorCellId)
        .Field("championId", &ChampSelectAction::championId)
        .Field("type", &ChampSelectAction::type)
        .Field("completed", &ChampSelectAction::completed);

    // The session's team id is compared but never written, so it is not registered.
    using Session = ChampSelectSession;
    r.Struct<Session>("ChampSelectSession")
        .Field("timer", &Session::timer)
        .Field("chatDetails", &Session::chatDetails)
        .Field("myTeam", &Session::myTeam)
        .Field("theirTeam", &Session::theirTeam)
        .Field("trades", &Session::trades)
        .Field("actions", &Session::actions)
        .Field("localPlayerCellId", &Session::localPlayerCellId)
        .Field("allowSkinSelection", &Session::allowSkinSelection)
        .Field("allowBattleBoost", &Session::allowBattleBoost)
        .Field("allowRerolling", &Session::allowRerolling)
        .Field("rerollsRemaining", &Session::rerollsRemaining);

    r.Struct<ChampSelectPickableChampions>("ChampSelectPickableChampions")
        .Field("championIds", &ChampSelectPickableChampions::championIds);

    r.Struct<ChampSelectBannableChampions>("ChampSelectBannableChampions")
        .Field("championIds", &ChampSelectBannableChampions::championIds);

    r.Struct<ChampSelectDisabledChampions>("ChampSelectDisabledChampions")
        .Field("championIds", &ChampSelectDisabledChampions::championIds);

    r.Struct<ChampSelectPickableSkins>("ChampSelectPickableSkins")
        .Field("skinIds", &ChampSelectPickableSkins::skinIds);
}

// The matchmaking search resource with its enumerations.
void RegisterMatchmakingResourceTypes(Registrar& r) {
    using SearchState = MatchmakingSearchState;
    r.Enum<SearchState>("MatchmakingSearchState")
        .Value("Invalid", SearchState::Invalid)
        .Value("AbandonedLowPriorityQueue", SearchState::AbandonedLowPriorityQueue)
        .Value("Canceled", SearchState::Canceled)
        .Value("Searching", SearchState::Searching)
        .Value("Found", SearchState::Found)
        .Value("Error", SearchState::Error)
        .Value("ServiceError", SearchState::ServiceError)
        .Value("ServiceShutdown", SearchState::ServiceShutdown);

    using DodgeState = MatchmakingDodgeState;
    r.Enum<DodgeState>("MatchmakingDodgeState")
        .Value("Invalid", DodgeState::Invalid)
        .Value("PartyDodged", DodgeState::PartyDodged)
        .Value("StrangerDodged", DodgeState::StrangerDodged)
        .Value("TournamentDodged", DodgeState::TournamentDodged);

    using CheckState = MatchmakingReadyCheckState;
    r.Enum<CheckState>("MatchmakingReadyCheckState")
        .Value("Invalid", CheckState::Invalid)
        .Value("InProgress", CheckState::InProgress)
        .Value("EveryoneReady", CheckState::EveryoneReady)
        .Value("StrangerNotReady", CheckState::StrangerNotReady)
        .Value("PartyNotReady", CheckState::PartyNotReady)
        .Value("Error", CheckState::Error);

    using Response = MatchmakingReadyCheckResponse;
    r.Enum<Response>("MatchmakingReadyCheckResponse")
        .Value("None", Response::None)
        .Value("Accepted", Response::Accepted)
        .Value("Declined", Response::Declined);

    using DodgeWarning = MatchmakingDodgeWarning;
    r.Enum<DodgeWarning>("MatchmakingDodgeWarning")
        .Value("None", DodgeWarning::None)
        .Value("Warning", DodgeWarning::Warning)
        .Value("Penalty", DodgeWarning::Penalty);

    r.Struct<MatchmakingReadyCheckResource>("MatchmakingReadyCheckResource")
        .Field("state", &MatchmakingReadyCheckResource::state)
        .Field("playerResponse", &MatchmakingReadyCheckResource::playerResponse)
        .Field("dodgeWarning", &MatchmakingReadyCheckResource::dodgeWarning)
        .Field("timer", &MatchmakingReadyCheckResource::timer)
        .Field("declinerIds", &MatchmakingReadyCheckResource::declinerIds);

    using SearchError = MatchmakingSearchErrorResource;
    r.Struct<SearchError>("MatchmakingSearchErrorResource")
        .Field("id", &SearchError::id)
        .Field("errorType", &SearchError::errorType)
        .Field("penalizedSummonerId", &SearchError::penalizedSummonerId)
        .Field("penaltyTimeRemaining", &SearchError::penaltyTimeRemaining)
        .Field("message", &SearchError::message);

    r.Struct<MatchmakingDodgeData>("MatchmakingDodgeData")
        .Field("state", &MatchmakingDodgeData::state)
        .Field("dodgerId", &MatchmakingDodgeData::dodgerId);

    using LowPriority = MatchmakingLowPriorityData;
    r.Struct<LowPriority>("MatchmakingLowPriorityData")
        .Field("penalizedSummonerIds", &LowPriority::penalizedSummonerIds)
        .Field("penaltyTime", &LowPriority::penaltyTime)
        .Field("penaltyTimeRemaining", &LowPriority::penaltyTimeRemaining)
        .Field("quitguardedAccessToken", &LowPriority::quitguardedAccessToken);

    r.Struct<MatchmakingSearch>("MatchmakingSearchResource")
        .Field("queueId", &MatchmakingSearch::queueId)
        .Field("isCurrentlyInQueue", &MatchmakingSearch::isCurrentlyInQueue)
        .Field("lobbyId", &MatchmakingSearch::lobbyId)
        .Field("searchState", &MatchmakingSearch::searchState)
        .Field("timeInQueue", &MatchmakingSearch::timeInQueue)
        .Field("estimatedQueueTime", &MatchmakingSearch::estimatedQueueTime)
        .Field("readyCheck", &MatchmakingSearch::readyCheck)
        .Field("dodgeData", &MatchmakingSearch::dodgeData)
        .Field("lowPriorityData", &MatchmakingSearch::lowPriorityData)
        .Field("errors", &MatchmakingSearch::errors);
}

// The other plugins' sessions this plugin follows.
void RegisterFollowedSessionTypes(Registrar& r) {
    r.Struct<GameflowGameClient>("GameflowGameClient")  //
        .Field("running", &GameflowGameClient::running);

    r.Struct<GameflowSession>("GameflowSession")  //
        .Field("gameClient", &GameflowSession::gameClient);

    // Registered in the login plugin's order, which is not the numeric one.
    using LoginState = LoginSessionState;
    r.Enum<LoginState>("LoginSessionState")
        .Value("IN_PROGRESS", LoginState::IN_PROGRESS)
        .Value("ERROR", LoginState::ERROR)
        .Value("SUCCEEDED", LoginState::SUCCEEDED)
        .Value("LOGGING_OUT", LoginState::LOGGING_OUT);

    r.Struct<LoginSession>("LoginSession")
        .Field("state", &LoginSession::state)
        .Field("summonerId", &LoginSession::summonerId)
        .Field("accountId", &LoginSession::accountId)
        .Field("connected", &LoginSession::connected);
}

}  // namespace

std::vector<std::string> RegisterTeamBuilderTypes(BindingTypeRegistry& registry) {
    Registrar r(registry);
    // Each family comes after the records its fields use.
    RegisterLobbyRequestTypes(r);
    RegisterPremadeStateTypes(r);
    RegisterChampionSelectStateTypes(r);
    RegisterServiceNotificationTypes(r);
    RegisterLobbyResourceTypes(r);
    RegisterChampSelectResourceTypes(r);
    RegisterMatchmakingResourceTypes(r);
    RegisterFollowedSessionTypes(r);
    return r.TakeNames();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
