// The service's pushed messages besides the DTO: removal from the service, a
// failed game start, gatekeeper restrictions and the abandoned low-priority
// queue. Each turns into what the user interface sees: a last lobby update
// with the reason, a matchmaking state that explains a dodge or a failed
// ready check, a game-flow event, or a recomputed search.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::PluginResourceEventType;

namespace {

using Reason = Api::LobbyRemovedFromGameReason;
using SearchState = Api::MatchmakingSearchState;

constexpr std::string_view kGameStartFailedEvent = "GAMEFLOW_EVENT.GAME_START_FAILED";

// Removals that only say why in the lobby, and those that also tell the
// matchmaking screen the service is gone.
struct RemovalRow {
    std::string_view reason;
    Reason lobbyReason;
    std::optional<SearchState> searchState;
};

constexpr RemovalRow kRemovalRows[] = {
    {"KICKED", Reason::Kicked, std::nullopt},
    {"QUIT", Reason::Left, std::nullopt},
    {"GROUP_DISBANDED", Reason::Disbanded, std::nullopt},
    {"TIMEOUT", Reason::Timeout, std::nullopt},
    {"SERVICE_ERROR", Reason::ServiceError, SearchState::ServiceError},
    {"GAME_START_ERROR", Reason::GameStartError, SearchState::ServiceError},
    {"SERVICE_SHUTDOWN", Reason::ServiceShutdown, SearchState::ServiceShutdown},
};

// The player falls back with a new lobby the service made of the parties
// still willing; the search state tells who spoiled the game.
std::optional<Api::MatchmakingSearch> FallBackSearch(const Api::RemovedFromServiceV1& message,
                                                     uint64_t localSummonerId) {
    const std::string& fallBack = message.backwardsTransitionInfo.backwardsTransitionReason;
    const std::vector<uint64_t>& initiators = message.backwardsTransitionInfo.initiatorSummonerIds;
    Api::MatchmakingSearch search;
    if (fallBack == "AFK_CHECK_FAILED") {
        search.readyCheck.state = Api::MatchmakingReadyCheckState::PartyNotReady;
        search.readyCheck.declinerIds = initiators;
        return search;
    }
    if (fallBack == "PLAYER_LEFT_CHAMPION_SELECT" ||
        fallBack == "PLAYER_TIMED_OUT_ON_REQUIRED_ACTION") {
        search.dodgeData.state = Api::MatchmakingDodgeState::PartyDodged;
        const bool local =
            std::find(initiators.begin(), initiators.end(), localSummonerId) != initiators.end();
        search.dodgeData.dodgerId = local                ? localSummonerId
                                    : initiators.empty() ? 0
                                                         : initiators.front();
        return search;
    }
    if (fallBack == "PLAYER_LEFT_MATCHMAKING") {
        search.searchState = SearchState::Canceled;
        return search;
    }
    return std::nullopt;
}

}  // namespace

void LobbyTeamBuilderPlugin::OnRemovedFromService(const Api::RemovedFromServiceV1& message) {
    if (!storedDto_.HasDto()) {
        Log(kWarn, kGroupDbg, "Did not handle removed from service as we have no tbdGameDto");
        return;
    }
    Api::Lobby lobby = ComputeLobby(*storedDto_.dto);

    const RemovalRow* row = nullptr;
    for (const RemovalRow& candidate : kRemovalRows) {
        if (candidate.reason == message.reason) {
            row = &candidate;
            break;
        }
    }
    std::optional<Api::MatchmakingSearch> search;
    if (row == nullptr && message.reason == "PREMADE_CREATED_BY_PARTIES") {
        search = FallBackSearch(message, localSummonerId_);
    } else if (row == nullptr && message.reason == "CHAMPION_SELECT_CREATED_BY_PARTIES") {
        search.emplace();
        search->dodgeData.state = Api::MatchmakingDodgeState::TournamentDodged;
    }

    if (row != nullptr) {
        lobby.removalReason = row->lobbyReason;
        lobby.wasKicked = row->lobbyReason == Reason::Kicked;
        if (row->searchState) {
            PublishMatchmakingState(*row->searchState);
        }
    } else if (search) {
        // Shown once; neither remembered as published nor as the current
        // search, which the clearing below leaves to the next game.
        PublishResource(kMatchmakingUri, *search, PluginResourceEventType::Update);
    } else {
        lobby.removalReason = Reason::Other;
    }

    PublishResource(kLobbyUri, lobby, PluginResourceEventType::Update);
    PublishCountdown(*storedDto_.dto);
    Log(kOkay, kGroupGen, "Clearing TB dto info on removed from service.");
    ApplyGameDtoRecord(GameDtoRecord::ReceivedNow());
}

void LobbyTeamBuilderPlugin::PublishMatchmakingState(Api::MatchmakingSearchState searchState) {
    Api::MatchmakingSearch search;
    search.searchState = searchState;
    PublishResource(kMatchmakingUri, search, PluginResourceEventType::Update);
}

void LobbyTeamBuilderPlugin::OnGameStartFailed() {
    Log(kWarn, kGroupDbg, "Game failed to start");
    // The game flow shows its own failure; nothing to retry here.
    (void)Request(Framework::HttpMethod::Post, kGameflowEventUri, kGameStartFailedEvent);
}

void LobbyTeamBuilderPlugin::OnGatekeeperRestricted(const Api::GatekeeperRestricted& message) {
    lobbyResources_.KeepCurrentSearch(
        DeriveMatchmakingSearch(CurrentSearchContext(), std::nullopt,
                                storedDto_.dto.value_or(Api::TbdGameDtoV1()), message));
    PublishResource(kMatchmakingUri, lobbyResources_.CurrentSearch(),
                    PluginResourceEventType::Update);
}

void LobbyTeamBuilderPlugin::OnLowPriorityQueueAbandoned(const Api::QuitguardAbandoned&) {
    Api::MatchmakingSearch search =
        DeriveMatchmakingSearch(CurrentSearchContext(), std::nullopt,
                                storedDto_.dto.value_or(Api::TbdGameDtoV1()), std::nullopt);
    search.searchState = SearchState::AbandonedLowPriorityQueue;
    lobbyResources_.KeepCurrentSearch(std::move(search));
    PublishResource(kMatchmakingUri, lobbyResources_.CurrentSearch(),
                    PluginResourceEventType::Update);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
