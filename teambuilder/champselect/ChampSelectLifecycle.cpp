// The champion-select session's lifecycle, driven by the DTO intake: every
// accepted DTO reaches OnChampSelectDto (with the stored DTO) and then
// UpdateDraftLists, after the lobby and matchmaking resources and before the
// DTO is stored.
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

void LobbyTeamBuilderPlugin::OnChampSelectDto(const GameDtoRecord&, const GameDtoRecord&) {}

void LobbyTeamBuilderPlugin::UpdateDraftLists(const GameDtoRecord&) {}

}  // namespace Orvan::Client::LobbyTeamBuilder
