// LobbyTeamBuilderPlugin: the team-builder plugin's module object. The entry
// creates it; the host starts it, drives it through events, delayed calls and
// endpoint requests on its one thread, and destroys it.
//
// Every game DTO, pushed by the service, returned by a call or fetched after
// a reconnection, passes through one intake (ApplyGameDtoRecord) that drops
// stale and invalid ones, keeps the last accepted one and derives the
// published resources from the change between the stored and the incoming
// record: checkers derive the changes and effects (the lobby side's are
// pure, in lobby/LobbyResources), the intake keeps what the components
// remember and carries the effects out in order. Where things are:
//   plugin/      this module: construction, endpoint registration, start
//                (LobbyTeamBuilderPlugin.cpp), the intake and the response
//                utilities (DtoIntake.cpp), the followed sessions, settings
//                and the reconnect retrieval (SessionHandlers.cpp)
//   common/      what every part shares: the service's and the plugin's
//                records, their registration, the game-DTO record, the
//                fixed names, the intake's changes and effects as values
//   lobby/       lobby, countdown and matchmaking resources and their
//                checkers (LobbyResources), the matchmaking search
//                (MatchmakingSearch.cpp), lobby, matchmaking and ready-check
//                actions, removal from service, feature toggles
//   champselect/ champion select: session model and ceremonies, lifecycle,
//                draft lists, actions and ward skin, trades, team boost, UX
//                show timers; the state each remembers between DTOs is a
//                component of its own (ChampSelectState.h with the
//                ceremonies, DraftLists.h, TeamBoost.h, UxTimers.h)
//
// Ownership: owns the components by value for the life of the module. Threads: the host's thread
// (see AppModule); waits inside service calls give the host turns, so handlers re-read state after
// a call.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "framework/binding/Failure.h"
#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/module/AppModule.h"
#include "framework/module/ServiceCaller.h"
#include "framework/resources/TypedResource.h"
#include "teambuilder/champselect/ChampSelectState.h"
#include "teambuilder/champselect/DraftLists.h"
#include "teambuilder/champselect/TeamBoost.h"
#include "teambuilder/champselect/UxTimers.h"
#include "teambuilder/common/GameDtoRecord.h"
#include "teambuilder/common/IntakeChanges.h"
#include "teambuilder/common/LobbyRecords.h"
#include "teambuilder/lobby/LobbyResources.h"

namespace Orvan::Client::LobbyTeamBuilder {

// The name the host loads the plugin under.
inline constexpr const char* kShortName = "qel-lobby-team-builder";

// Name of the delayed retry of the reconnect retrieval.
inline constexpr std::string_view kRetrieveLatestDtoTask =
    "qel-lobby-team-builder.retrieve-latest-tbd-game-dto";

// What a DTO does to the champion-select session.
enum class ChampSelectTransition {
    None,
    // A late DTO of a draft that is over: logged, nothing created.
    StaleTeam,
    Enter,
    Update,
    Leave,
};

struct ChampSelectView {
    std::optional<Api::ChampSelectSession> session;
    std::optional<CeremonyTimer> dueCeremony;
};

class LobbyTeamBuilderPlugin : public Framework::AppModule {
public:
    using RawResponse = Framework::AppModule::ServiceProxyRawResponse;
    template <class T>
    using ResourceEvent = Framework::TypedResource<T>;

    LobbyTeamBuilderPlugin();
    ~LobbyTeamBuilderPlugin() override;

    void RegisterEndpoints() override;
    bool OnStart() override;

    // ---- DTO intake ------------------------------------------------------

    // The single gate of every game DTO: drops stale, abandoned and invalid
    // ones, runs the consumers with the stored and the incoming record, then
    // stores the incoming one. An empty record clears the game.
    void ApplyGameDtoRecord(GameDtoRecord incoming);
    // Applies a DTO received now.
    void OnTbdGameDto(Api::TbdGameDtoV1 dto);
    // Logs a received service message whole when the platform setting asks
    // for it; runs before each typed service-message handler.
    template <class T>
    void LogServiceMessage(const T& message);
    // DTOs of a lobby the player has left are stale until the player joins
    // it again.
    void AddToAbandonedLobbyIds(const std::string& draftPremadeId);
    void RemoveFromAbandonedLobbyIds(const std::string& draftPremadeId);

    // The raw answer of a call that must answer with a DTO: applied (no
    // value), or the failure to report.
    Framework::Maybe<> HandleDtoResponse(std::string_view methodName,
                                         const Framework::Maybe<RawResponse>& response);
    static bool IsCallFailed(const RawResponse& response);
    // "methodName=..., status=..." or the failure's message.
    static std::string DescribeResponse(const Framework::Maybe<RawResponse>& result);

    // ---- Followed resources and the reconnect retrieval --------------------

    void OnLogAllLcdsMessages(const Framework::Resource& event);
    void OnChampSelectDomainName(const Framework::Resource& event);
    void OnLoginSession(const ResourceEvent<Api::LoginSession>& event);
    void OnGameflowSession(const ResourceEvent<Api::GameflowSession>& event);
    // Asks the service for the latest DTO after a reconnection; retried on a
    // timer while the service reports a temporary error.
    void RetrieveLatestGameDto();

    // ---- Lobby, countdown and matchmaking resources -----------------------

    // The lobby of a DTO; logs when the last known premade state stands in.
    Api::Lobby ComputeLobby(const Api::TbdGameDtoV1& dto) const;
    void PublishCountdown(const Api::TbdGameDtoV1& dto);
    // What the matchmaking search reads of the plugin's state now.
    SearchContext CurrentSearchContext() const;
    // The lobby side of the intake for one incoming record: checks the
    // lobby, countdown and matchmaking resources (with the search step the
    // service skipped, if it did, kept at once since the incoming record's
    // step compares with it) and returns the effects to carry out, in order;
    // the intake keeps them once they are carried out.
    void AdvanceLobbySide(const GameDtoRecord& incoming, Effects& effects);
    // One matchmaking step from previous to incoming: the search derived and
    // kept as the current one; the change of the resource goes to `out`.
    void AdvanceMatchmaking(const GameDtoRecord& previous, const GameDtoRecord& incoming,
                            Effects& out);
    // Publishes, deletes, logs, requests and runs the hooks as the effects
    // say, in their order; previous and incoming are the records the effects
    // were derived from.
    void CarryOut(const Effects& effects, const GameDtoRecord& previous = GameDtoRecord(),
                  const GameDtoRecord& incoming = GameDtoRecord());
    const LobbyResources& LobbySide() const { return lobbyResources_; }

    // ---- Champion select (consumers of the intake) --------------------------

    // The session's transition from previous to incoming; its changes and
    // effects go to `out`. Changes nothing.
    ChampSelectTransition CheckChampSelectSession(const GameDtoRecord& previous,
                                                  const GameDtoRecord& incoming,
                                                  Effects& out) const;
    // Keeps what the transition changes of the plugin's champion-select
    // state, before its effects are carried out: the recent team ids on
    // entering; the UX timers, the ceremony bookkeeping and the team boost on
    // leaving (the team boost a session starts with is kept on entering).
    void KeepChampSelectTransition(ChampSelectTransition transition, const GameDtoRecord& previous,
                                   const GameDtoRecord& incoming);
    // Publishes the four lists' changes in their order; the kept values they
    // point at must still be kept.
    void PublishDraftLists(const DraftListsChanges& changes);

    // ---- Champion select: session model (champselect/ChampSelectConversion.cpp,
    // ChampSelectTimer.cpp) ----------------------------------------------------

    // The session of a record in champion select (or none) and the timer
    // the ceremony it shows needs. Changes nothing; the lines it has to log
    // go to `lines` when given.
    ChampSelectView BuildChampSelectSession(const GameDtoRecord& record,
                                            Effects* lines = nullptr) const;
    // Reading a session starts the timer of the ceremony it shows: the
    // intake, GET session and every republication read it this way.
    std::optional<Api::ChampSelectSession> ReadChampSelectSession(const GameDtoRecord& record);
    // The timer the ceremony now shown needs, unless one is running or the
    // ceremony is over.
    std::optional<CeremonyTimer> DueCeremonyTimer(
        const std::vector<std::vector<Api::ActionV1>>& sets) const;
    void StartCeremonyTimer(const CeremonyTimer& timer);
    std::optional<Api::ChampSelectTimer> BuildChampSelectTimer(const GameDtoRecord& record) const;
    static Api::ChampSelectTimer TimerOf(const Api::ChampionSelectStateV1& state,
                                         uint64_t receivedAt);
    // The action sets as received, with each ceremony made an action set of
    // its own at its index.
    std::vector<std::vector<Api::ActionV1>> ExpandActionSets(
        const Api::ChampionSelectStateV1& state, Effects* lines = nullptr) const;
    // The elements of one action set as received; what does not convert
    // keeps its default, and a set that is not an array has no actions.
    std::vector<Api::ActionV1> ReadActionSet(const Framework::BindingProperty& set) const;
    std::vector<Api::ActionV1> ReadActionSetOnce(const Framework::BindingProperty& set) const;
    static Api::ChampSelectPlayerSelection ConvertCell(const Api::CellV1& cell, int64_t wardSkinId);
    std::optional<Api::ChampSelectPlayerSelection> FindPlayerSelection(
        const Api::ChampionSelectStateV1& state, int64_t cellId) const;
    // Unknown states become INVALID.
    std::vector<Api::ChampSelectTradeContract> ConvertTrades(
        const std::vector<Api::TradeV1>& trades) const;
    void OnCeremonyTimerFired(int32_t actionId);

    // ---- Champion select: lifecycle and lists (champselect/ChampSelectLifecycle.cpp,
    // DraftLists.cpp) ------------------------------------------------------------

    // Runs when a session is created and whenever a changed session is
    // published.
    void OnChampSelectSessionChanged(const GameDtoRecord& previous, const GameDtoRecord& incoming);
    Framework::Maybe<Api::ChampSelectPickableChampions> ComputePickableChampions() const;
    Framework::Maybe<Api::ChampSelectDisabledChampions> ComputeDisabledChampions() const;
    Framework::Maybe<Api::ChampSelectPickableSkins> ComputePickableSkins() const;
    // With the permission to ban nobody kept, or with the one given.
    Framework::Maybe<Api::ChampSelectBannableChampions> ComputeBannableChampions(
        const std::vector<Framework::BindingProperty>& actionSetList) const;
    Framework::Maybe<Api::ChampSelectBannableChampions> ComputeBannableChampions(
        const std::vector<Framework::BindingProperty>& actionSetList, bool allowOptingOut) const;
    // The bannable list's update when the incoming record changes the
    // permission to ban nobody, and the new permission; nothing when it
    // stays. Changes nothing.
    std::optional<bool> CheckBannableOptOut(const GameDtoRecord& incoming, Effects& out) const;

    // ---- Champion select: actions, trades, team boost, UX timers
    // (champselect/ChampSelectActions.cpp, ChampSelectTrades.cpp, TeamBoost.cpp,
    // UxTimers.cpp) ----------------------------------------------------------------

    void RequestLocalWardSkin();
    // The team boost a session starts with: only the price is known.
    static Api::TeamBoost InitialTeamBoost(const GameDtoRecord& incoming);
    // The team boost's update when the incoming record unlocks skins or
    // activates the boost and a session's boost exists. Changes nothing.
    void CheckTeamBoost(const GameDtoRecord& previous, const GameDtoRecord& incoming,
                        Effects& out) const;
    // Keeps and publishes what CheckTeamBoost finds.
    void RefreshTeamBoost(const GameDtoRecord& previous, const GameDtoRecord& incoming);
    void DestroyTeamBoost();
    void HandleUx(const GameDtoRecord& previous, const GameDtoRecord& incoming);
    // A UX show timer set by HandleUx in `timerPhase` is due.
    void OnUxTimerFired(const std::string& timerPhase, const std::string& name);

    // ---- Pushed service messages besides the DTO --------------------------

    void OnRemovedFromService(const Api::RemovedFromServiceV1& message);
    void OnGameStartFailed();
    void OnGatekeeperRestricted(const Api::GatekeeperRestricted& message);
    void OnLowPriorityQueueAbandoned(const Api::QuitguardAbandoned& message);
    // A default search with that state, shown once: neither the current nor
    // the published search changes.
    void PublishMatchmakingState(Api::MatchmakingSearchState searchState);

    // ---- Routes -------------------------------------------------------------

    Framework::Maybe<Api::Lobby> GetLobby();
    Framework::Maybe<Api::TbEnabledFeatures> RetrieveFeatureToggles();
    Framework::Maybe<Api::Lobby> CreatePremade(const Api::CreatePremadeV1& lobby);
    Framework::Maybe<> SetPositionPreferences(
        const Api::SpecifyPositionPreferencesV1& positionPreferences);
    Framework::Maybe<> SetPositionPreferencesV2(
        const Api::SpecifyPositionPreferencesV2& positionPreferences);
    Framework::Maybe<> QuitLobby();
    Framework::Maybe<> JoinPremade(const Api::LobbyInvitation& invitation);
    Framework::Maybe<> PromoteMember(uint64_t id);
    Framework::Maybe<> KickMember(uint64_t id);
    Framework::Maybe<Api::LobbyCountdownTimer> GetLobbyCountdown();
    Framework::Maybe<Api::MatchmakingSearch> GetMatchmakingSearch();
    Framework::Maybe<Api::MatchmakingSearch> StartMatchmaking(const std::string& quitguardToken);
    Framework::Maybe<> LeaveMatchmaking();
    Framework::Maybe<> AbandonLowPriorityQueue(const std::string& quitguardToken);
    Framework::Maybe<> AcceptReadyCheck();
    Framework::Maybe<> DeclineReadyCheck();
    Framework::Maybe<> IndicateAfkReadiness(bool ready);

    // ---- Champion-select routes (champselect/ChampSelectRoutes.cpp and the
    // files of each concern) ---------------------------------------------------

    void RegisterChampSelectRoutes();
    Framework::Maybe<bool> GetImplementationActive();
    Framework::Maybe<Api::ChampSelectSession> GetChampSelectSession();
    Framework::Maybe<std::vector<Api::ChampSelectTradeContract>> GetTrades();
    Framework::Maybe<Api::ChampSelectTradeContract> GetTrade(int64_t id);
    Framework::Maybe<Api::ChampSelectTradeContract> RequestTrade(int32_t id);
    Framework::Maybe<> AcceptTrade(int32_t id);
    Framework::Maybe<> DeclineTrade(int32_t id);
    Framework::Maybe<> CancelTrade(int32_t id);
    Framework::Maybe<> UpdateAction(int32_t id, const Api::ChampSelectAction& data);
    Framework::Maybe<> CompleteAction(int32_t id);
    Framework::Maybe<> Reroll();
    Framework::Maybe<> PurchaseTeamBoost();
    Framework::Maybe<> UpdateMySelection(const Api::ChampSelectMySelection& selection);
    Framework::Maybe<Api::ChampSelectTimer> GetChampSelectTimer();
    Framework::Maybe<Api::ChampSelectPickableChampions> GetPickableChampions();
    Framework::Maybe<Api::ChampSelectBannableChampions> GetBannableChampions();
    Framework::Maybe<Api::ChampSelectDisabledChampions> GetDisabledChampions();
    Framework::Maybe<Api::ChampSelectPickableSkins> GetPickableSkins();
    Framework::Maybe<Api::TeamBoost> GetTeamBoost();

    // ---- State, read-only ---------------------------------------------------

    const GameDtoRecord& StoredDto() const { return storedDto_; }
    // The premade state of the last stored DTO that had one (without its
    // fall-back reason).
    const std::optional<Api::TbLobbyPremadeStateResource>& LastKnownPremadeState() const {
        return storedDto_.PremadeState() != nullptr ? storedDto_.dto->premadeState
                                                    : lastKnownPremadeState_;
    }
    const std::string& CurrentDraftPremadeId() const { return currentDraftPremadeId_; }
    uint64_t LocalSummonerId() const { return localSummonerId_; }
    bool LogsAllServiceMessages() const { return logAllLcdsMessages_; }
    uint32_t LatestDtoRetryCount() const { return latestDtoRetryCount_; }
    const std::string& ChampSelectDomainName() const { return champSelect_.DomainName(); }
    uint32_t ServiceCallsInProgress() const { return teamBuilder_.CallsInProgress(); }

private:
    // Status 500; an empty message says "Internal server error".
    static Framework::Failure InternalError(std::string message);
    // A service answer's payload as a DTO; what does not convert keeps its
    // default (and a DTO left without a queue is refused by the intake).
    Api::TbdGameDtoV1 ReadGameDto(const Framework::BindingProperty& payload) const;
    // {"slotId": ...} of the stored lobby's member, or 400 without a lobby,
    // 404 without that member.
    Framework::Maybe<Framework::BindingProperty> MemberSlotPayload(uint64_t summonerId) const;

    void LogServiceMessageValue(Framework::Maybe<Framework::BindingProperty> value,
                                std::string_view typeName) const;
    // ---- Champion-select actions and trades (ChampSelectActions.cpp) ----
    // Completion of the ward-skin request made when a session starts; runs
    // under the service-proxy mutex, so it sends nothing.
    void OnSelectedWardSkinReply(const Framework::PluginServiceProxyResponse& answer);
    // A team-builder call that answers with a DTO, applied before it
    // returns; the failure is HandleDtoResponse's.
    Framework::Maybe<> CallForDto(std::string_view method,
                                  const Framework::BindingProperty& payload);
    // Takes the ward skin the ward-skin service reports and shows it in the
    // session at once.
    void AdoptLocalWardSkin(int64_t wardSkinId);

    // Lobby ids the player has left; DTOs of them are stale.
    std::set<std::string> abandonedLobbyIds_;
    LobbyResources lobbyResources_;
    // Storage for the intake's list of effects, kept between DTOs.
    Effects effectsScratch_;
    // The last known premade state once the stored DTO has none.
    std::optional<Api::TbLobbyPremadeStateResource> lastKnownPremadeState_;
    bool logAllLcdsMessages_ = false;
    GameDtoRecord storedDto_;
    std::string currentDraftPremadeId_;
    // Service calls to the team-builder service, with their count in flight.
    Framework::ServiceCaller teamBuilder_;
    uint32_t latestDtoRetryCount_ = 0;
    uint64_t localSummonerId_ = 0;
    bool loginConnected_ = false;
    bool loginSucceeded_ = false;
    bool gameClientRunning_ = false;
    bool applyingReconnectDto_ = false;

    // ---- Champion select's components -------------------------------------
    ChampSelectState champSelect_;
    Ceremonies ceremonies_;
    DraftLists draftLists_;
    SessionTeamBoost teamBoost_;
    UxTimers uxTimers_;
    // Filled while a DTO is applied (applyingDto_), by reads that change
    // nothing else.
    mutable ActionSetsRead actionSetsRead_;
    bool applyingDto_ = false;
};

// ---- Template definitions -------------------------------------------------------

template <class T>
void LobbyTeamBuilderPlugin::LogServiceMessage(const T& message) {
    if (!logAllLcdsMessages_) {
        return;
    }
    LogServiceMessageValue(Framework::ConvertToProperty(Registry(), message),
                           Framework::StaticType::Of<T>().name);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
