// The lobby operations: create a lobby, join one through an invitation,
// state position preferences, promote or kick a member, quit. Each forwards
// one team-builder method and passes the answered DTO through the intake, so
// the published resources follow before the route answers.
#include <string>
#include <utility>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::BindingProperty;
using Framework::Failure;
using Framework::Format;
using Framework::Maybe;

namespace {

// The service refuses a new lobby while it still counts the player in an
// old one; quitting that one first lets the request through.
constexpr std::string_view kInvalidContextStatus = "Error: INVALID_CONTEXT";
constexpr std::string_view kMaxPremadeSizeViolated = "MAX_PREMADE_SIZE_VIOLATED";
constexpr const char* kLobbyFull = "LobbyFullException";
constexpr const char* kNoLobby = "No lobby in progress";
constexpr const char* kPlayerNotFound = "Team Builder Player Not Found";

}  // namespace

Failure LobbyTeamBuilderPlugin::InternalError(std::string message) {
    if (message.empty()) {
        message = "Internal server error";
    }
    return Failure(std::move(message), 500);
}

Api::TbdGameDtoV1 LobbyTeamBuilderPlugin::ReadGameDto(const BindingProperty& payload) const {
    // Whatever converts is taken; a DTO that is left without its queue is
    // refused by the intake as invalid.
    Api::TbdGameDtoV1 dto;
    (void)Framework::AssignFromProperty(Registry(), payload, "<value>", dto);
    return dto;
}

Maybe<Api::Lobby> LobbyTeamBuilderPlugin::CreatePremade(const Api::CreatePremadeV1& lobby) {
    // Only warms the toggles up for the lobby screen; a lobby can be made
    // without them.
    (void)RetrieveFeatureToggles();

    const Maybe<RawResponse> response = teamBuilder_.CallRaw(
        "createDraftPremadeV1", BindingProperty(static_cast<int64_t>(lobby.queueId)));
    if (!response) {
        return InternalError(
            Format("Error creating Team Builder Premade: %1", response.GetFailure().message));
    }
    if (response->status == kInvalidContextStatus) {
        (void)QuitLobby();
    }
    if (IsCallFailed(*response)) {
        return InternalError(
            Format("Error creating Team Builder Premade: %1", DescribeResponse(response)));
    }
    if (response->methodName == kGameDtoMethod) {
        OnTbdGameDto(ReadGameDto(response->payload));
        if (!storedDto_.HasDto()) {
            return Api::Lobby();
        }
        PublishCountdown(*storedDto_.dto);
        return ComputeLobby(*storedDto_.dto);
    }
    if (response->methodName == kGatekeeperRestrictedMethod) {
        return Failure(Format("Error: Didn't create lobby. Server returned Gatekeeper Restricted "
                              "for queueId %1",
                              lobby.queueId),
                       403);
    }
    return InternalError(
        Format("Error: Didn't create lobby. Server returned a non-lobby result: %1",
               DescribeResponse(response)));
}

Maybe<> LobbyTeamBuilderPlugin::JoinPremade(const Api::LobbyInvitation& invitation) {
    BindingProperty payload;
    payload.MutableField("draftPremadeId")
        .SetString(invitation.invitationMetaData.Field("groupFinderId").AsText());

    const Maybe<RawResponse> response = teamBuilder_.CallRaw("joinDraftPremadeV1", payload);
    if (!response) {
        return InternalError(
            Format("Error joining Team Builder Premade: %1", response.GetFailure().message));
    }
    if (response->status == kInvalidContextStatus) {
        (void)QuitLobby();
    }
    if (IsCallFailed(*response)) {
        return InternalError(
            Format("Error joining Team Builder Premade: %1", DescribeResponse(response)));
    }
    if (response->methodName == kGameDtoMethod) {
        Api::TbdGameDtoV1 dto = ReadGameDto(response->payload);
        // Joining again a lobby the player once left makes its DTOs current.
        if (dto.premadeState) {
            RemoveFromAbandonedLobbyIds(dto.premadeState->draftPremadeId);
        }
        OnTbdGameDto(dto);
        return Maybe<>::Success();
    }

    Api::GatekeeperRestricted restricted;
    (void)Framework::AssignFromProperty(Registry(), response->payload, "<value>", restricted);
    for (const Api::GatekeeperRestriction& restriction : restricted.gatekeeperRestrictions) {
        if (restriction.reason == kMaxPremadeSizeViolated) {
            return Failure(kLobbyFull, 403);
        }
    }
    return InternalError(Format("Error: Didn't join lobby. Server returned a non-lobby result: %1",
                                DescribeResponse(response)));
}

Maybe<> LobbyTeamBuilderPlugin::SetPositionPreferences(
    const Api::SpecifyPositionPreferencesV1& positionPreferences) {
    Maybe<Api::TbdGameDtoV1> dto = teamBuilder_.Call<Api::TbdGameDtoV1>(
        "specifyDraftPositionPreferencesV1", positionPreferences);
    if (!dto) {
        return InternalError(Format("Error changing position preferences to [%1, %2]",
                                    positionPreferences.firstPreference,
                                    positionPreferences.secondPreference));
    }
    OnTbdGameDto(*dto);
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::SetPositionPreferencesV2(
    const Api::SpecifyPositionPreferencesV2& positionPreferences) {
    Maybe<Api::TbdGameDtoV1> dto = teamBuilder_.Call<Api::TbdGameDtoV1>(
        "specifyDraftPositionPreferencesV2", positionPreferences);
    if (!dto) {
        return InternalError(Format("Error changing position preferences to [%1, %2, %3]",
                                    positionPreferences.firstPreference,
                                    positionPreferences.secondPreference,
                                    positionPreferences.excludedPreference));
    }
    OnTbdGameDto(*dto);
    return Maybe<>::Success();
}

Maybe<BindingProperty> LobbyTeamBuilderPlugin::MemberSlotPayload(uint64_t summonerId) const {
    const Api::TbLobbyPremadeStateResource* premade = storedDto_.PremadeState();
    if (premade == nullptr) {
        return Failure(kNoLobby, 400);
    }
    for (const Api::TbLobbySlotResource& slot : premade->draftSlots) {
        if (slot.summonerId == summonerId) {
            BindingProperty payload;
            payload.MutableField("slotId").SetSigned(slot.slotId);
            return payload;
        }
    }
    return Failure(kPlayerNotFound, 404);
}

Maybe<> LobbyTeamBuilderPlugin::PromoteMember(uint64_t id) {
    Maybe<BindingProperty> payload = MemberSlotPayload(id);
    if (!payload) {
        return std::move(payload).GetFailure();
    }
    Maybe<Api::TbdGameDtoV1> dto =
        teamBuilder_.Call<Api::TbdGameDtoV1>("promoteToCaptainV1", *payload);
    if (!dto) {
        return InternalError(
            Format("Unable to promote Team Builder player: %1", dto.GetFailure().message));
    }
    OnTbdGameDto(*dto);
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::KickMember(uint64_t id) {
    Maybe<BindingProperty> payload = MemberSlotPayload(id);
    if (!payload) {
        return std::move(payload).GetFailure();
    }
    Maybe<Api::TbdGameDtoV1> dto = teamBuilder_.Call<Api::TbdGameDtoV1>("kickPlayerV1", *payload);
    if (!dto) {
        return InternalError("Unable to kick Team Builder player");
    }
    OnTbdGameDto(*dto);
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::QuitLobby() {
    const std::string id = currentDraftPremadeId_;
    // The player is out of the lobby from now on, whatever the service says;
    // its late DTOs must not bring it back.
    ApplyGameDtoRecord(GameDtoRecord::ReceivedNow());
    AddToAbandonedLobbyIds(id);
    InvokeServiceProxy(kTeamBuilderService, "quitV2", BindingProperty(), {}, {},
                       ServiceProxyHandler([](const Framework::PluginServiceProxyResponse&) {
                           Log(kAlways, kGroupDbg, "Successfully quit TB.");
                       }));
    return Maybe<>::Success();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
