#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

LobbyTeamBuilderPlugin::LobbyTeamBuilderPlugin() = default;

LobbyTeamBuilderPlugin::~LobbyTeamBuilderPlugin() = default;

void LobbyTeamBuilderPlugin::RegisterEndpoints() {}

bool LobbyTeamBuilderPlugin::OnStart() {
    return true;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
