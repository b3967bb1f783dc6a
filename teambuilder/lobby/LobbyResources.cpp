// The lobby and countdown resources derived from the game DTO, the
// publishing rules of the lobby, countdown and matchmaking resources, and the
// three GET routes that serve them.
#include <utility>

#include "framework/log/Log.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestArguments.h"
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;
using Framework::PluginResourceEventType;

namespace {

constexpr const char* kNoLobbyMessage = "No Team Builder Lobby";

Api::LobbyMember MemberOf(const Api::TbLobbySlotResource& slot, int32_t captainSlotId) {
    Api::LobbyMember member;
    member.id = slot.summonerId;
    member.isOwner = slot.slotId == captainSlotId;
    member.canInviteOthers = false;
    const std::vector<std::string>& preferences = slot.draftPositionPreferences;
    if (!preferences.empty()) {
        member.positionPreferences.firstPreference = preferences[0];
    }
    if (preferences.size() > 1) {
        member.positionPreferences.secondPreference = preferences[1];
    }
    member.excludedPositionPreference = slot.excludedPositionPreference;
    member.showPositionExcluder = slot.showPositionExcluder;
    member.autoFillEligible = slot.autoFillEligible;
    member.autoFillProtectedForStreaking = slot.autoFillProtectedForStreaking;
    member.autoFillProtectedForPromos = slot.autoFillProtectedForPromos;
    member.autoFillProtectedForSoloing = slot.autoFillProtectedForSoloing;
    return member;
}

}  // namespace

Api::Lobby LobbyTeamBuilderPlugin::ComputeLobby(const Api::TbdGameDtoV1& dto) const {
    Api::Lobby lobby;
    const Api::TbLobbyPremadeStateResource* premade =
        dto.premadeState ? &*dto.premadeState : nullptr;
    // From the ready check on, the service stops sending the lobby; the
    // members are still the ones last seen.
    if (premade == nullptr &&
        (dto.phaseName == kPhaseAfkCheck || dto.phaseName == kPhaseChampionSelect)) {
        Framework::Log(Framework::kOkay, Framework::kGroupGen,
                       "Using last known premade state for ready check.");
        premade = lastKnownPremadeState_ ? &*lastKnownPremadeState_ : nullptr;
    }
    lobby.queueId = dto.queueId;
    if (premade == nullptr) {
        return lobby;
    }

    lobby.members.reserve(premade->draftSlots.size());
    for (const Api::TbLobbySlotResource& slot : premade->draftSlots) {
        lobby.members.push_back(MemberOf(slot, premade->captainSlotId));
        if (slot.slotId == premade->localPlayerSlotId) {
            lobby.localMember = lobby.members.back();
        }
    }
    lobby.invitationId = premade->draftPremadeId;
    lobby.chatRoomId = premade->premadeChatRoomId;
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
    return lobby;
}

Api::LobbyCountdownTimer LobbyTeamBuilderPlugin::ComputeCountdown(const Api::TbdGameDtoV1& dto) {
    Api::LobbyCountdownTimer countdown;
    countdown.phaseName = dto.phaseName;
    countdown.timer = dto.premadeState ? dto.premadeState->timer : 0;
    countdown.counter = dto.counter;
    return countdown;
}

void LobbyTeamBuilderPlugin::PublishCountdown(const Api::TbdGameDtoV1& dto) {
    PublishResource(kLobbyCountdownUri, ComputeCountdown(dto), PluginResourceEventType::Update);
}

void LobbyTeamBuilderPlugin::UpdateLobbyResource(const GameDtoRecord& previous,
                                                 const GameDtoRecord& incoming) {
    if (!incoming.HasDto()) {
        if (previous.HasDto()) {
            publishedLobby_ = Api::Lobby();
            DeleteResource(kLobbyUri);
        }
        return;
    }
    // The first DTO only publishes the countdown; the lobby resource follows
    // with the next DTO (readers that need it at once use GET).
    if (!previous.HasDto()) {
        PublishCountdown(*incoming.dto);
        return;
    }
    Api::Lobby lobby = ComputeLobby(*incoming.dto);
    const bool changed = lobby != publishedLobby_;
    if (changed) {
        publishedLobby_ = std::move(lobby);
        PublishResource(kLobbyUri, publishedLobby_, PluginResourceEventType::Update);
    }
    // A changed lobby is followed by the countdown twice; both are the same
    // value, converted once.
    const int countdowns = changed ? 2 : 1;
    Framework::Maybe<Framework::BindingProperty> countdown =
        Framework::ToBindingValue(Registry(), ComputeCountdown(*incoming.dto));
    for (int i = 0; i < countdowns; ++i) {
        if (countdown) {
            PublishResourceValue(kLobbyCountdownUri, PluginResourceEventType::Update, *countdown);
        } else {
            PublishCountdown(*incoming.dto);  // reports the failure as before
        }
    }
}

void LobbyTeamBuilderPlugin::UpdateMatchmakingResource(const GameDtoRecord& previous,
                                                       const GameDtoRecord& incoming) {
    if (!incoming.HasDto()) {
        if (previous.HasDto()) {
            publishedMatchmakingSearch_ = Api::MatchmakingSearch();
            DeleteResource(kMatchmakingUri);
        }
        return;
    }
    Api::MatchmakingSearch search =
        ComputeMatchmakingSearch(previous.dto, *incoming.dto, std::nullopt);
    if (!previous.HasDto()) {
        // Not remembered as published: the next DTO's search is compared with
        // the default search, so a search that is already under way is
        // published again as an update.
        PublishResource(kMatchmakingUri, search, PluginResourceEventType::Create);
        return;
    }
    if (search != publishedMatchmakingSearch_) {
        publishedMatchmakingSearch_ = std::move(search);
        PublishResource(kMatchmakingUri, publishedMatchmakingSearch_,
                        PluginResourceEventType::Update);
    }
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
    return ComputeCountdown(*storedDto_.dto);
}

Maybe<Api::MatchmakingSearch> LobbyTeamBuilderPlugin::GetMatchmakingSearch() {
    return matchmakingSearch_;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
