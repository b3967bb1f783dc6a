// The local player's champion-select operations: changing and completing
// actions, the personal selection (skin, summoner spells, ward skin) and
// rerolling, and the ward skin fetched when a session starts.
//
// Not served yet: the routes are registered with their final arguments and
// answer 500 until the service calls behind them are wired.
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

constexpr uint32_t kNotImplementedStatus = 500;

Failure NotImplemented() {
    return Failure("Not implemented", kNotImplementedStatus);
}

}  // namespace

Maybe<> LobbyTeamBuilderPlugin::UpdateAction(int32_t, const Api::ChampSelectAction&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::CompleteAction(int32_t) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::Reroll() {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::UpdateMySelection(const Api::ChampSelectMySelection&) {
    return NotImplemented();
}

void LobbyTeamBuilderPlugin::RequestLocalWardSkin() {}

}  // namespace Orvan::Client::LobbyTeamBuilder
