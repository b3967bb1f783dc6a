// The requests to the host application to show its window during champion
// select: at once when the local player has an action in the set that just
// became current, and from timers ten seconds before a phase ends.
//
// Not wired yet: the session-changed hook calls HandleUx, which does nothing
// so far; the timer state it will drive lives in the plugin object.
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

void LobbyTeamBuilderPlugin::HandleUx(const GameDtoRecord&, const GameDtoRecord&) {}

}  // namespace Orvan::Client::LobbyTeamBuilder
