// LobbyTeamBuilderPlugin: the team-builder plugin's module object. The entry
// creates it; the host starts it, drives it through events, delayed calls and
// endpoint requests on its one thread, and destroys it.
//
// Ownership: owns all of the plugin's state by value for the life of the
// module. Threads: the host's thread (see AppModule).
#pragma once

#include "framework/host/AppModule.h"

namespace Orvan::Client::LobbyTeamBuilder {

// The name the host loads the plugin under.
inline constexpr const char* kShortName = "qel-lobby-team-builder";

class LobbyTeamBuilderPlugin : public Framework::AppModule {
public:
    LobbyTeamBuilderPlugin();
    ~LobbyTeamBuilderPlugin() override;

    void RegisterEndpoints() override;
    bool OnStart() override;
};

}  // namespace Orvan::Client::LobbyTeamBuilder
