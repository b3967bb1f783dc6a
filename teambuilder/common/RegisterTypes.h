// Registration of every team-builder record and enumeration (the lobby-side
// records and the champion-select ones) with the module's type registry, so
// that service messages, request bodies and published resources convert
// through it.
//
// Each type is registered under the module's route base "QelLobbyTeamBuilder"
// followed by its wire name, fields in output order. Members that the service
// may leave out (std::optional) are registered with kOmitIfEmpty, so an
// absent one is left out of the output.
//
// Ownership: the registry owns what is registered. Threads: the start-up
// path, before the module serves anything. Registering twice changes nothing
// (the registry keeps the first registration of a name).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Orvan::Framework {
class BindingTypeRegistry;
}

namespace Orvan::Client::LobbyTeamBuilder {

// The prefix of every registered team-builder type name.
inline constexpr std::string_view kTypeNamePrefix = "QelLobbyTeamBuilder";

// Registers all team-builder types in one fixed order in which every type
// comes after the records and enumerations its fields use, so each field's
// type identifier refers to a registered record at once. Returns the full
// registered names in registration order.
std::vector<std::string> RegisterTeamBuilderTypes(Framework::BindingTypeRegistry& registry);

}  // namespace Orvan::Client::LobbyTeamBuilder
