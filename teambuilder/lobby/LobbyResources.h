// LobbyResources: the lobby, countdown and matchmaking resources derived from
// the game DTO. The derivations and the checkers are pure: given the stored
// and the incoming record (and what the component remembers of its last
// publications) they return the changes to publish; the intake carries them
// out and then hands them to Keep, which adopts what they published (moving
// the values, which are no longer needed).
//
// The component remembers the last lobby and search published by an update
// (a later DTO publishes only when its value differs) and the search last
// derived, which GET serves.
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <cstdint>
#include <optional>

#include "teambuilder/common/GameDtoRecord.h"
#include "teambuilder/common/IntakeChanges.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

// What the matchmaking search reads besides the two DTOs.
struct SearchContext {
    // The lobby as last seen, to find who left it.
    const std::optional<Api::TbLobbyPremadeStateResource>* lastKnownPremadeState = nullptr;
    // While the DTO fetched after a reconnection is applied, a fall-back
    // from champion select was the local player's doing.
    bool applyingReconnectDto = false;
    uint64_t localSummonerId = 0;
};

// The lobby a DTO shows. From the ready check on the service stops sending
// the lobby, and the last known premade state stands in for it.
struct DerivedLobby {
    Api::Lobby lobby;
    bool fromLastKnownPremadeState = false;
};
// The same into `lobby`, whose storage it reuses; true when the last known
// premade state stood in.
bool DeriveLobbyInto(const Api::TbdGameDtoV1& dto,
                     const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown,
                     Api::Lobby& lobby);
DerivedLobby DeriveLobby(const Api::TbdGameDtoV1& dto,
                         const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown);
Api::LobbyCountdownTimer DeriveCountdown(const Api::TbdGameDtoV1& dto);
Api::MatchmakingSearch DeriveMatchmakingSearch(
    const SearchContext& context, const std::optional<Api::TbdGameDtoV1>& previous,
    const Api::TbdGameDtoV1& incoming,
    const std::optional<Api::GatekeeperRestricted>& restrictions);

// The line logged whenever the last known premade state stands in.
LogLine LastKnownPremadeStateLine();

class LobbyResources {
public:
    // The lobby's change from previous to incoming (and the line saying the
    // last known premade state stood in), then the countdown's: once for
    // every DTO, twice after a changed lobby. The first DTO publishes the
    // countdown only; readers that need the lobby at once use GET.
    void CheckLobby(const GameDtoRecord& previous, const GameDtoRecord& incoming,
                    const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown,
                    Effects& out) const;
    // The matchmaking resource's change, given the search derived from the
    // two records (ignored when incoming has no DTO).
    void CheckMatchmakingSearch(const GameDtoRecord& previous, const GameDtoRecord& incoming,
                                const Api::MatchmakingSearch& search, Effects& out) const;

    // Adopts what `changes` publish: an Update of the lobby or the search
    // becomes the value later DTOs are compared with, a Delete resets it. A
    // Create of the search is not adopted, so the next DTO's search is
    // compared with the default one and a search under way is published
    // again as an update.
    void Keep(Effects& changes);
    void Keep(Effects&& changes) { Keep(changes); }
    // The search GET serves and the service's other messages start from.
    void KeepCurrentSearch(Api::MatchmakingSearch search) { currentSearch_ = std::move(search); }

    const Api::MatchmakingSearch& CurrentSearch() const { return currentSearch_; }
    Api::MatchmakingSearch& CurrentSearch() { return currentSearch_; }
    const Api::Lobby& PublishedLobby() const { return publishedLobby_; }
    const Api::MatchmakingSearch& PublishedSearch() const { return publishedSearch_; }

private:
    Api::Lobby publishedLobby_;
    // Storage the lobby is derived into, so that a push does not allocate a
    // lobby's strings and lists afresh; what it holds between calls means
    // nothing.
    mutable Api::Lobby spareLobby_;
    Api::MatchmakingSearch publishedSearch_;
    Api::MatchmakingSearch currentSearch_;
};

}  // namespace Orvan::Client::LobbyTeamBuilder
