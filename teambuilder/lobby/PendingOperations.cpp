// Lobby, matchmaking and ready-check operations whose routes are registered
// but not served yet, and the handlers of the service's other pushed
// messages. Each route answers 500 "Not implemented" until its operation
// lands; the message handlers ignore their messages.
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

Failure NotImplemented() {
    return Failure("Not implemented", 500);
}

}  // namespace

Maybe<Api::TbEnabledFeatures> LobbyTeamBuilderPlugin::RetrieveFeatureToggles() {
    return NotImplemented();
}

Maybe<Api::Lobby> LobbyTeamBuilderPlugin::CreatePremade(const Api::CreatePremadeV1&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::SetPositionPreferences(const Api::SpecifyPositionPreferencesV1&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::SetPositionPreferencesV2(const Api::SpecifyPositionPreferencesV2&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::QuitLobby() {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::JoinPremade(const Api::LobbyInvitation&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::PromoteMember(uint64_t) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::KickMember(uint64_t) {
    return NotImplemented();
}

Maybe<Api::MatchmakingSearch> LobbyTeamBuilderPlugin::StartMatchmaking(const std::string&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::LeaveMatchmaking() {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::AbandonLowPriorityQueue(const std::string&) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::AcceptReadyCheck() {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::DeclineReadyCheck() {
    return NotImplemented();
}

void LobbyTeamBuilderPlugin::OnRemovedFromService(const Api::RemovedFromServiceV1&) {}

void LobbyTeamBuilderPlugin::OnGameStartFailed() {}

void LobbyTeamBuilderPlugin::OnGatekeeperRestricted(const Api::GatekeeperRestricted&) {}

void LobbyTeamBuilderPlugin::OnLowPriorityQueueAbandoned(const Api::QuitguardAbandoned&) {}

}  // namespace Orvan::Client::LobbyTeamBuilder
