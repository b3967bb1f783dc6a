// The plugin's only exported symbol.
#include "framework/host/HostAbi.h"
#include "framework/module/PluginEntry.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

extern "C" QEL_PLUGIN_EXPORT void QEL_HOST_CALL
load_qel_lobby_team_builder(PluginLoadRecord* record) {
    Orvan::Framework::LoadPluginModule<Orvan::Client::LobbyTeamBuilder::LobbyTeamBuilderPlugin>(
        record, Orvan::Client::LobbyTeamBuilder::kShortName);
}
