// The champion-select REST surface under "/qel-lobby-team-builder/champ-select/v1/",
// registered after the lobby routes, and the read routes of the session, its
// timer and the champion lists. The reads derive everything from the stored
// DTO and the draft inventory; nothing is cached for them.
#include "framework/module/EndpointRoutes.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

void LobbyTeamBuilderPlugin::RegisterChampSelectRoutes() {
    using namespace Framework::Routes;
    using Plugin = LobbyTeamBuilderPlugin;

    Framework::EndpointRoutes<Plugin> routes(*this);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/implementation-active",
               &Plugin::GetImplementationActive);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/session",
               &Plugin::GetChampSelectSession);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/session/trades", &Plugin::GetTrades);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}",
               &Plugin::GetTrade, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/request",
               &Plugin::RequestTrade, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/accept",
               &Plugin::AcceptTrade, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/decline",
               &Plugin::DeclineTrade, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/cancel",
               &Plugin::CancelTrade, Path("id"));
    routes.Add(kPatch, "/qel-lobby-team-builder/champ-select/v1/session/actions/{id}",
               &Plugin::UpdateAction, Path("id"), Body("data"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/actions/{id}/complete",
               &Plugin::CompleteAction, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/session/my-selection/reroll",
               &Plugin::Reroll);
    routes.Add(kPost, "/qel-lobby-team-builder/champ-select/v1/team-boost/purchase",
               &Plugin::PurchaseTeamBoost);
    routes.Add(kPatch, "/qel-lobby-team-builder/champ-select/v1/session/my-selection",
               &Plugin::UpdateMySelection, Body("selection"));
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/session/timer",
               &Plugin::GetChampSelectTimer);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/pickable-champions",
               &Plugin::GetPickableChampions);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/bannable-champions",
               &Plugin::GetBannableChampions);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/disabled-champions",
               &Plugin::GetDisabledChampions);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/pickable-skins",
               &Plugin::GetPickableSkins);
    routes.Add(kGet, "/qel-lobby-team-builder/champ-select/v1/team-boost", &Plugin::GetTeamBoost);
}

Maybe<bool> LobbyTeamBuilderPlugin::GetImplementationActive() {
    return IsInChampSelect(storedDto_);
}

Maybe<Api::ChampSelectSession> LobbyTeamBuilderPlugin::GetChampSelectSession() {
    std::optional<Api::ChampSelectSession> session = ReadChampSelectSession(storedDto_);
    if (!session) {
        return Failure(kNoChampSelectSession, 404);
    }
    return std::move(*session);
}

Maybe<Api::ChampSelectTimer> LobbyTeamBuilderPlugin::GetChampSelectTimer() {
    std::optional<Api::ChampSelectTimer> timer = BuildChampSelectTimer(storedDto_);
    if (!timer) {
        return Failure(kNoChampSelectSession, 404);
    }
    return std::move(*timer);
}

Maybe<Api::ChampSelectPickableChampions> LobbyTeamBuilderPlugin::GetPickableChampions() {
    return ComputePickableChampions();
}

Maybe<Api::ChampSelectBannableChampions> LobbyTeamBuilderPlugin::GetBannableChampions() {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(storedDto_);
    if (state == nullptr) {
        return Failure(kNoBannableChampions, 404);
    }
    return ComputeBannableChampions(state->actionSetList);
}

Maybe<Api::ChampSelectDisabledChampions> LobbyTeamBuilderPlugin::GetDisabledChampions() {
    return ComputeDisabledChampions();
}

Maybe<Api::ChampSelectPickableSkins> LobbyTeamBuilderPlugin::GetPickableSkins() {
    return ComputePickableSkins();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
