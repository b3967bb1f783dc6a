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
#include "framework/log/LogRecord.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

using ResourceEventType = Framework::PluginResourceEventType;

// What a published resource carries; nothing for a Delete.
using ResourceValue =
    std::variant<std::monostate, bool, Api::Lobby, Api::LobbyCountdownTimer, Api::MatchmakingSearch,
                 Api::ChampSelectSession, Api::TeamBoost, Api::ChampSelectBannableChampions>;

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

// A line formatted as Log formats its arguments.
LogLine FormattedLine(uint32_t level, uint64_t groups, const char* format, ...)
    QEL_PRINTF_FORMAT(3, 4);

// A ceremony whose display time is to be timed: the action that shows it,
// the label of its delayed call and how long it lasts.
struct CeremonyTimer {
    int32_t actionId = 0;
    std::string label;
    int64_t durationMillis = 0;

    bool operator==(const CeremonyTimer&) const = default;
};

// The request for the local player's selected ward skin; the answer arrives
// later and is shown in the session then.
struct WardSkinRequest {
    bool operator==(const WardSkinRequest&) const = default;
};

// An event posted to the game flow; its answer is not waited for.
struct GameflowEvent {
    std::string_view event;

    bool operator==(const GameflowEvent&) const = default;
};

// The hook that runs whenever a session is created or a changed one is
// published: the team boost's refresh, the bannable list's opt-out and the
// UX show timers. Its own effects depend on the state they change as they
// run, so it is carried out in its place in the list.
struct SessionChangedHook {
    bool operator==(const SessionChangedHook&) const = default;
};

// The request to show the host application's window; its answer is not
// waited for.
struct UxShowRequest {
    bool operator==(const UxShowRequest&) const = default;
};

// A timer that shows the window when it fires, unless its phase is over by
// then: its name (also the delayed call's label), the phase it was set in
// and its delay.
struct UxShowTimer {
    std::string name;
    std::string phase;
    int64_t delayMillis = 0;

    bool operator==(const UxShowTimer&) const = default;
};

using Effect = std::variant<ResourceChange, LogLine, CeremonyTimer, WardSkinRequest, GameflowEvent,
                            SessionChangedHook, UxShowRequest, UxShowTimer>;
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
