// The matchmaking search derived from the previous and the incoming DTO: the
// search state, what the gatekeeper restrictions say, who dodged champion
// select and who did not accept the ready check.
#include <algorithm>
#include <string_view>

#include "teambuilder/lobby/LobbyResources.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

using Api::MatchmakingDodgeState;
using Api::MatchmakingReadyCheckState;
using Api::MatchmakingSearchState;
using Api::TbLobbySlotResource;
using Slots = std::vector<TbLobbySlotResource>;

constexpr std::string_view kPlayerLeftChampionSelect = "PLAYER_LEFT_CHAMPION_SELECT";
constexpr std::string_view kPlayerTimedOut = "PLAYER_TIMED_OUT_ON_REQUIRED_ACTION";
constexpr std::string_view kAfkCheckFailed = "AFK_CHECK_FAILED";
constexpr std::string_view kQuitguarded = "QUITGUARDED";

bool IsDodgeReason(std::string_view reason) {
    return reason == kPlayerLeftChampionSelect || reason == kPlayerTimedOut;
}

// Slots are the same slot when their ids are equal.
bool HasSlot(const Slots& slots, int32_t slotId) {
    return std::any_of(slots.begin(), slots.end(),
                       [slotId](const TbLobbySlotResource& slot) { return slot.slotId == slotId; });
}

// A lobby that lost members since the last premade state seen: the members
// who are gone are the ones who caused the fall-back.
bool LobbyShrank(const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown,
                 const Slots& incoming) {
    return lastKnown && lastKnown->draftSlots.size() != incoming.size();
}

void ApplyRestrictions(const Api::GatekeeperRestricted& restrictions,
                       Api::MatchmakingSearch& search) {
    for (const Api::GatekeeperRestriction& restriction : restrictions.gatekeeperRestrictions) {
        const double seconds = restriction.remainingMillis * 0.001;
        if (restriction.reason == kQuitguarded) {
            search.lowPriorityData.penalizedSummonerIds.push_back(restriction.summonerId);
            search.lowPriorityData.penaltyTime = seconds;
        } else {
            Api::MatchmakingSearchErrorResource error;
            error.id = -1;
            error.errorType = restriction.reason;
            error.penalizedSummonerId = restriction.summonerId;
            error.penaltyTimeRemaining = seconds;
            error.message = restriction.reason;
            search.errors.push_back(std::move(error));
        }
        if (!restriction.payload.empty()) {
            search.lowPriorityData.quitguardedAccessToken = restriction.payload;
        }
    }
}

}  // namespace

Api::MatchmakingSearch DeriveMatchmakingSearch(
    const SearchContext& context, const std::optional<Api::TbdGameDtoV1>& previous,
    const Api::TbdGameDtoV1& incoming,
    const std::optional<Api::GatekeeperRestricted>& restrictions) {
    static const std::optional<Api::TbLobbyPremadeStateResource> kNoPremadeState;
    const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown =
        context.lastKnownPremadeState != nullptr ? *context.lastKnownPremadeState : kNoPremadeState;
    const std::string_view phase = incoming.phaseName;
    const std::string_view previousPhase = previous ? std::string_view(previous->phaseName) : "";
    const Api::TbLobbyPremadeStateResource* premade =
        incoming.premadeState ? &*incoming.premadeState : nullptr;
    const Api::TBDMatchmakingState* matchmaking =
        incoming.matchmakingState ? &*incoming.matchmakingState : nullptr;

    Api::MatchmakingSearch search;
    search.queueId = incoming.queueId;
    search.isCurrentlyInQueue = phase == kPhaseMatchmaking;

    if (phase == kPhaseMatchmaking) {
        search.searchState = MatchmakingSearchState::Searching;
    } else if (phase == kPhaseAfkCheck) {
        search.searchState = MatchmakingSearchState::Found;
    } else if (previous && previousPhase != kPhaseDraftPremade && phase == kPhaseDraftPremade) {
        search.searchState = MatchmakingSearchState::Canceled;
    }

    if (restrictions) {
        ApplyRestrictions(*restrictions, search);
    }

    // Who dodged: a member missing from the lobby, else the slots the
    // service names, else a stranger.
    Api::MatchmakingDodgeData& dodge = search.dodgeData;
    if (phase == kPhaseDraftPremade && premade != nullptr) {
        const Api::TbLobbyBackwardsToPremadeTransitionResource& fallBack =
            premade->backwardsToPremadeTransitionReason;
        if (IsDodgeReason(fallBack.backwardsTransitionReason)) {
            dodge.state = MatchmakingDodgeState::StrangerDodged;
            if (LobbyShrank(lastKnown, premade->draftSlots)) {
                for (const TbLobbySlotResource& slot : lastKnown->draftSlots) {
                    if (!HasSlot(premade->draftSlots, slot.slotId)) {
                        dodge.dodgerId = slot.summonerId;
                        dodge.state = MatchmakingDodgeState::PartyDodged;
                        break;
                    }
                }
            } else {
                const auto named = [&] {
                    for (int32_t slotId : fallBack.slotIds) {
                        for (const TbLobbySlotResource& slot : premade->draftSlots) {
                            if (slot.slotId == slotId) {
                                return &slot;
                            }
                        }
                    }
                    return static_cast<const TbLobbySlotResource*>(nullptr);
                }();
                if (named != nullptr) {
                    dodge.dodgerId = named->summonerId;
                    dodge.state = MatchmakingDodgeState::PartyDodged;
                }
            }
        } else if (previous && previousPhase == kPhaseChampionSelect) {
            // Back from champion select without a reason: after a reconnection
            // it was the local player who dropped out.
            if (context.applyingReconnectDto) {
                dodge.state = MatchmakingDodgeState::PartyDodged;
                dodge.dodgerId = context.localSummonerId;
            } else {
                dodge.state = MatchmakingDodgeState::StrangerDodged;
            }
        }
    } else if (phase == kPhaseMatchmaking && matchmaking != nullptr) {
        if (IsDodgeReason(matchmaking->backwardsTransitionReason) ||
            (previous && previousPhase == kPhaseChampionSelect)) {
            dodge.state = MatchmakingDodgeState::StrangerDodged;
        }
    }

    Api::MatchmakingReadyCheckResource& readyCheck = search.readyCheck;
    if (phase == kPhaseAfkCheck) {
        readyCheck.state = MatchmakingReadyCheckState::InProgress;
    } else if (phase == kPhaseChampionSelect) {
        readyCheck.state = MatchmakingReadyCheckState::EveryoneReady;
    } else if (phase == kPhaseDraftPremade && premade != nullptr &&
               premade->backwardsToPremadeTransitionReason.backwardsTransitionReason ==
                   kAfkCheckFailed) {
        readyCheck.state = MatchmakingReadyCheckState::StrangerNotReady;
        if (LobbyShrank(lastKnown, premade->draftSlots)) {
            for (const TbLobbySlotResource& slot : lastKnown->draftSlots) {
                if (!HasSlot(premade->draftSlots, slot.slotId)) {
                    readyCheck.declinerIds.push_back(slot.summonerId);
                    readyCheck.state = MatchmakingReadyCheckState::PartyNotReady;
                }
            }
        }
        for (int32_t slotId : premade->backwardsToPremadeTransitionReason.slotIds) {
            for (const TbLobbySlotResource& slot : premade->draftSlots) {
                if (slot.slotId == slotId) {
                    readyCheck.declinerIds.push_back(slot.summonerId);
                    readyCheck.state = MatchmakingReadyCheckState::PartyNotReady;
                }
            }
        }
    } else if (phase == kPhaseMatchmaking) {
        // Back in the queue after a ready check that did not complete.
        const bool failedCheck =
            (matchmaking != nullptr && matchmaking->backwardsTransitionReason == kAfkCheckFailed) ||
            (previous && previousPhase == kPhaseAfkCheck && incoming.counter > previous->counter);
        if (failedCheck) {
            readyCheck.state = MatchmakingReadyCheckState::StrangerNotReady;
        }
    }

    if (matchmaking != nullptr) {
        const float seconds = static_cast<float>(
            static_cast<float>(matchmaking->estimatedMatchmakingTimeMillis) * 0.001);
        search.estimatedQueueTime = seconds > 0.0f ? seconds : 0.0f;
    }

    return search;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
