// GameDtoRecord: the unit of the game-DTO intake and the form in which the
// plugin keeps the last accepted DTO: an optional TbdGameDtoV1 with its time
// of receipt. An empty record (no DTO) is how the plugin says "the game is
// gone" (game launch, quitting, removal from service). Also the lobby's
// resource paths.
//
// Ownership: a plain value, copied or moved by its users. Threads: the host's
// thread, like all plugin state.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "framework/platform/Clock.h"
#include "teambuilder/common/LobbyRecords.h"
#include "teambuilder/common/TeamBuilderNames.h"

namespace Orvan::Client::LobbyTeamBuilder {

// Resources the plugin publishes for its lobby.
inline constexpr std::string_view kLobbyUri = "/qel-lobby-team-builder/v1/lobby";
inline constexpr std::string_view kLobbyCountdownUri = "/qel-lobby-team-builder/v1/lobby/countdown";
inline constexpr std::string_view kMatchmakingUri = "/qel-lobby-team-builder/v1/matchmaking";

struct GameDtoRecord {
    std::optional<Api::TbdGameDtoV1> dto;
    // 100-nanosecond ticks since 1970-01-01 UTC, by the system clock.
    uint64_t receivedAt = 0;

    // A record received now.
    static GameDtoRecord ReceivedNow(std::optional<Api::TbdGameDtoV1> dto = std::nullopt) {
        return GameDtoRecord{std::move(dto),
                             static_cast<uint64_t>(Framework::Platform::SystemTime100ns())};
    }

    bool HasDto() const { return dto.has_value(); }
    // An absent DTO counts as counter 0 and queue 0 in the intake's checks.
    int32_t Counter() const { return dto ? dto->counter : 0; }
    int32_t QueueId() const { return dto ? dto->queueId : 0; }
    // The phase, or "" without a DTO.
    std::string_view Phase() const {
        return dto ? std::string_view(dto->phaseName) : std::string_view();
    }
    const Api::TbLobbyPremadeStateResource* PremadeState() const {
        return dto && dto->premadeState ? &*dto->premadeState : nullptr;
    }
};

}  // namespace Orvan::Client::LobbyTeamBuilder
