// The intake's changes and effects as values: what a checker derives from the
// stored and the incoming game DTO, before anything is stored or sent. The
// intake stores what the components keep of them, then carries them out in
// the order they were derived, which is the order the partners see.
//
// Plain values, compared field by field so that tests can state them whole.
// Threads: the host's thread, like all plugin state.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "framework/host/FrameworkTypes.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

using ResourceEventType = Framework::PluginResourceEventType;

// What a published resource carries; nothing for a Delete.
using ResourceValue = std::variant<std::monostate, bool, Api::Lobby, Api::LobbyCountdownTimer,
                                   Api::MatchmakingSearch>;

// A Create, Update or Delete event of one of the plugin's resources.
struct ResourceChange {
    std::string_view uri;
    ResourceEventType type = ResourceEventType::Update;
    ResourceValue value;

    bool operator==(const ResourceChange&) const = default;
};

// A log line, with its level and groups as Log takes them.
struct LogLine {
    uint32_t level = 0;
    uint64_t groups = 0;
    std::string text;

    bool operator==(const LogLine&) const = default;
};

using Effect = std::variant<ResourceChange, LogLine>;
using Effects = std::vector<Effect>;

inline ResourceChange Created(std::string_view uri, ResourceValue value) {
    return {uri, ResourceEventType::Create, std::move(value)};
}
inline ResourceChange Updated(std::string_view uri, ResourceValue value) {
    return {uri, ResourceEventType::Update, std::move(value)};
}
inline ResourceChange Deleted(std::string_view uri) {
    return {uri, ResourceEventType::Delete, std::monostate()};
}

}  // namespace Orvan::Client::LobbyTeamBuilder
