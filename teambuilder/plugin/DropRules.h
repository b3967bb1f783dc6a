// The intake's gate: whether a DTO is taken at all, decided from the stored
// record, the incoming one and the lobbies the player has left, before any
// checker sees it. A refused DTO changes nothing but the line it logs.
//
// Pure functions of their arguments. Threads: any.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "framework/log/LogRecord.h"
#include "teambuilder/common/GameDtoRecord.h"
#include "teambuilder/common/IntakeChanges.h"

namespace Orvan::Client::LobbyTeamBuilder {

enum class DtoRefusal {
    None,
    // Older than the stored DTO, or of a lobby the player has left.
    OutOfDate,
    // Without a queue (a service answer that did not convert whole).
    Invalid,
};

// Counters at or below 0 come from answers that carry no sequence; they are
// never out of date. A lobby the player has left keeps pushing for a while;
// its DTOs must not bring it back.
inline DtoRefusal RefusalOf(const GameDtoRecord& stored, const GameDtoRecord& incoming,
                            const std::set<std::string>& abandonedLobbyIds) {
    const Api::TbLobbyPremadeStateResource* premade = incoming.PremadeState();
    const bool abandoned =
        premade != nullptr && abandonedLobbyIds.count(premade->draftPremadeId) != 0;
    const bool outOfDate =
        stored.HasDto() && incoming.HasDto() && incoming.dto->counter < stored.dto->counter;
    if (incoming.Counter() > 0 && (abandoned || outOfDate)) {
        return DtoRefusal::OutOfDate;
    }
    if (incoming.QueueId() == -1) {
        return DtoRefusal::Invalid;
    }
    return DtoRefusal::None;
}

// What the intake logs for a refusal; nothing for None.
inline std::optional<LogLine> RefusalLine(DtoRefusal refusal) {
    switch (refusal) {
        case DtoRefusal::OutOfDate:
            return LogLine{Framework::kOkay, Framework::kGroupGen, "Received out-of-date TB dto."};
        case DtoRefusal::Invalid:
            return LogLine{Framework::kOkay, Framework::kGroupGen, "Received invalid TB dto."};
        case DtoRefusal::None:
            break;
    }
    return std::nullopt;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
