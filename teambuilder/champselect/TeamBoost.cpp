// The team boost: a purchase by one player of the team that unlocks skins
// for everyone, published as "team-boost" for the life of a session.
//
// The refresh from the service's boost state and the purchase are not served
// yet: the purchase route answers 500 until the service call is wired.
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

void LobbyTeamBuilderPlugin::CreateTeamBoost(const GameDtoRecord& incoming) {
    teamBoost_ = Api::TeamBoost();
    if (incoming.dto && incoming.dto->championSelectState) {
        teamBoost_->price = incoming.dto->championSelectState->battleBoostState.cost;
    }
}

void LobbyTeamBuilderPlugin::RefreshTeamBoost(const GameDtoRecord&, const GameDtoRecord&) {}

void LobbyTeamBuilderPlugin::DestroyTeamBoost() {
    teamBoost_.reset();
}

Maybe<Api::TeamBoost> LobbyTeamBuilderPlugin::GetTeamBoost() {
    if (!teamBoost_) {
        return Failure("No team boost available for this game, or summoner is not in a game.", 404);
    }
    return *teamBoost_;
}

Maybe<> LobbyTeamBuilderPlugin::PurchaseTeamBoost() {
    return Failure("Not implemented", 500);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
