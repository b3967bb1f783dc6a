// The lobby and countdown resources derived from the game DTO, the checkers
// that decide when the lobby, countdown and matchmaking resources are
// published, and the three GET routes that serve them.
#include "teambuilder/lobby/LobbyResources.h"

#include <utility>

#include "framework/log/Log.h"
#include "framework/resources/ResourceEvents.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

constexpr const char* kNoLobbyMessage = "No Team Builder Lobby";

// Assigns every field, so that storage a member had keeps serving.
void AssignMember(const Api::TbLobbySlotResource& slot, int32_t captainSlotId,
                  Api::LobbyMember& member) {
    member.id = slot.summonerId;
    member.isOwner = slot.slotId == captainSlotId;
    member.canInviteOthers = false;
    const std::vector<std::string>& preferences = slot.draftPositionPreferences;
    if (!preferences.empty()) {
        member.positionPreferences.firstPreference = preferences[0];
    } else {
        member.positionPreferences.firstPreference.clear();
    }
    if (preferences.size() > 1) {
        member.positionPreferences.secondPreference = preferences[1];
    } else {
        member.positionPreferences.secondPreference.clear();
    }
    member.excludedPositionPreference = slot.excludedPositionPreference;
    member.showPositionExcluder = slot.showPositionExcluder;
    member.autoFillEligible = slot.autoFillEligible;
    member.autoFillProtectedForStreaking = slot.autoFillProtectedForStreaking;
    member.autoFillProtectedForPromos = slot.autoFillProtectedForPromos;
    member.autoFillProtectedForSoloing = slot.autoFillProtectedForSoloing;
}

}  // namespace

LogLine LastKnownPremadeStateLine() {
    return {Framework::kOkay, Framework::kGroupGen,
            "Using last known premade state for ready check."};
}

bool DeriveLobbyInto(const Api::TbdGameDtoV1& dto,
                     const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown,
                     Api::Lobby& lobby) {
    bool fromLastKnownPremadeState = false;
    const Api::TbLobbyPremadeStateResource* premade =
        dto.premadeState ? &*dto.premadeState : nullptr;
    if (premade == nullptr &&
        (dto.phaseName == kPhaseAfkCheck || dto.phaseName == kPhaseChampionSelect)) {
        fromLastKnownPremadeState = true;
        premade = lastKnown ? &*lastKnown : nullptr;
    }
    if (premade == nullptr) {
        lobby = Api::Lobby();
        lobby.queueId = dto.queueId;
        return fromLastKnownPremadeState;
    }

    lobby.queueId = dto.queueId;
    lobby.invitationId = premade->draftPremadeId;
    lobby.chatRoomId = premade->premadeChatRoomId;
    lobby.chatRoomKey.clear();
    lobby.members.resize(premade->draftSlots.size());
    const Api::LobbyMember* local = nullptr;
    for (size_t i = 0; i < premade->draftSlots.size(); ++i) {
        const Api::TbLobbySlotResource& slot = premade->draftSlots[i];
        AssignMember(slot, premade->captainSlotId, lobby.members[i]);
        if (slot.slotId == premade->localPlayerSlotId) {
            local = &lobby.members[i];
        }
    }
    if (local != nullptr) {
        lobby.localMember = *local;
    } else {
        lobby.localMember = Api::LobbyMember();
    }
    lobby.invitations.clear();
    lobby.wasKicked = false;
    lobby.removalReason = Api::LobbyRemovedFromGameReason::None;
    lobby.canStartMatchmaking = premade->readyToMatchmake;
    lobby.showPositionSelector = premade->showPositionSelector;
    lobby.showPositionExcluder = premade->showPositionExcluder;
    lobby.specifiablePositionPreferences = premade->playableDraftPositions;
    lobby.autoFillEligible = premade->autoFillEligible;
    lobby.autoFillProtectedForStreaking = premade->autoFillProtectedForStreaking;
    lobby.autoFillProtectedForPromos = premade->autoFillProtectedForPromos;
    lobby.isTeamBuilderManaged = true;
    lobby.premadeSizeAllowed = premade->readyState.premadeSizeAllowed;
    lobby.requiredPositionCoverageMet = premade->readyState.requiredPositionCoverageMet;
    lobby.allowablePremadeSizes = premade->readyState.allowablePremadeSizes;
    return fromLastKnownPremadeState;
}

DerivedLobby DeriveLobby(const Api::TbdGameDtoV1& dto,
                         const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown) {
    DerivedLobby derived;
    derived.fromLastKnownPremadeState = DeriveLobbyInto(dto, lastKnown, derived.lobby);
    return derived;
}

Api::LobbyCountdownTimer DeriveCountdown(const Api::TbdGameDtoV1& dto) {
    Api::LobbyCountdownTimer countdown;
    countdown.phaseName = dto.phaseName;
    countdown.timer = dto.premadeState ? dto.premadeState->timer : 0;
    countdown.counter = dto.counter;
    return countdown;
}

void LobbyResources::CheckLobby(const GameDtoRecord& previous, const GameDtoRecord& incoming,
                                const std::optional<Api::TbLobbyPremadeStateResource>& lastKnown,
                                Effects& out) const {
    if (!incoming.HasDto()) {
        if (previous.HasDto()) {
            out.emplace_back(Deleted(kLobbyUri));
        }
        return;
    }
    if (!previous.HasDto()) {
        out.emplace_back(Updated(kLobbyCountdownUri, DeriveCountdown(*incoming.dto)));
        return;
    }
    if (DeriveLobbyInto(*incoming.dto, lastKnown, spareLobby_)) {
        out.emplace_back(LastKnownPremadeStateLine());
    }
    const bool changed = spareLobby_ != publishedLobby_;
    if (changed) {
        // Built in place: a lobby is large enough for each move to count.
        auto& change =
            std::get<ResourceChange>(out.emplace_back(std::in_place_type<ResourceChange>));
        change.uri = kLobbyUri;
        change.type = ResourceEventType::Update;
        change.value.emplace<Api::Lobby>(std::move(spareLobby_));
    }
    Api::LobbyCountdownTimer countdown = DeriveCountdown(*incoming.dto);
    if (changed) {
        out.emplace_back(Updated(kLobbyCountdownUri, countdown));
    }
    out.emplace_back(Updated(kLobbyCountdownUri, std::move(countdown)));
}

void LobbyResources::CheckMatchmakingSearch(const GameDtoRecord& previous,
                                            const GameDtoRecord& incoming,
                                            const Api::MatchmakingSearch& search,
                                            Effects& out) const {
    if (!incoming.HasDto()) {
        if (previous.HasDto()) {
            out.emplace_back(Deleted(kMatchmakingUri));
        }
    } else if (!previous.HasDto()) {
        out.emplace_back(Created(kMatchmakingUri, search));
    } else if (search != publishedSearch_) {
        out.emplace_back(Updated(kMatchmakingUri, search));
    }
}

void LobbyResources::Keep(Effects& changes) {
    for (Effect& effect : changes) {
        auto* change = std::get_if<ResourceChange>(&effect);
        if (change == nullptr || change->type == ResourceEventType::Create) {
            continue;
        }
        const bool deleted = change->type == ResourceEventType::Delete;
        if (change->uri == kLobbyUri) {
            if (deleted) {
                publishedLobby_ = Api::Lobby();
                continue;
            }
            // The lobby published before becomes the next derivation's
            // storage.
            auto& lobby = std::get<Api::Lobby>(change->value);
            std::swap(publishedLobby_, lobby);
            spareLobby_ = std::move(lobby);
        } else if (change->uri == kMatchmakingUri) {
            publishedSearch_ = deleted ? Api::MatchmakingSearch()
                                       : std::get<Api::MatchmakingSearch>(std::move(change->value));
        }
    }
}

Api::Lobby LobbyTeamBuilderPlugin::ComputeLobby(const Api::TbdGameDtoV1& dto) const {
    DerivedLobby derived = DeriveLobby(dto, LastKnownPremadeState());
    if (derived.fromLastKnownPremadeState) {
        const LogLine line = LastKnownPremadeStateLine();
        Framework::Log(line.level, line.groups, "%s", line.text.c_str());
    }
    return std::move(derived.lobby);
}

void LobbyTeamBuilderPlugin::PublishCountdown(const Api::TbdGameDtoV1& dto) {
    PublishResource(kLobbyCountdownUri, DeriveCountdown(dto), ResourceEventType::Update);
}

Maybe<Api::Lobby> LobbyTeamBuilderPlugin::GetLobby() {
    if (!storedDto_.dto || !storedDto_.dto->premadeState) {
        return Failure(kNoLobbyMessage, 404);
    }
    return ComputeLobby(*storedDto_.dto);
}

Maybe<Api::LobbyCountdownTimer> LobbyTeamBuilderPlugin::GetLobbyCountdown() {
    if (!storedDto_.dto) {
        return Failure(kNoLobbyMessage, 404);
    }
    return DeriveCountdown(*storedDto_.dto);
}

Maybe<Api::MatchmakingSearch> LobbyTeamBuilderPlugin::GetMatchmakingSearch() {
    return lobbyResources_.CurrentSearch();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
