// The local player's champion-select operations: changing and completing
// actions, the personal selection (summoner spells, ward skin, skin) and
// rerolling, and the ward skin fetched when a session starts.
//
// Every team-builder call here answers with a DTO that the intake applies
// before the call returns, so the session is already republished when a
// route answers. The ward skin lives with a separate service that answers
// with the selection only; the plugin keeps it and republishes the session.
//
// The operations read everything they compare against before their first
// call: a call yields to the host, which may apply other DTOs meanwhile.
#include <optional>
#include <string>
#include <string_view>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/champselect/RawActionFields.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::BindingProperty;
using Framework::Failure;
using Framework::Format;
using Framework::Maybe;

namespace {

constexpr std::string_view kWardSkinService = "wardSkins";
constexpr std::string_view kSelectWardSkin = "selectWardSkin";
constexpr std::string_view kSelectionConfirmation = "receiveSelectionConfirmation";
constexpr std::string_view kWardSkinServiceError = "receiveWardSkinServiceError";
constexpr std::string_view kRequestSelectedWardSkin = "requestSelectedWardSkin";
constexpr std::string_view kSelectedWardSkin = "receiveSelectedWardSkin";
constexpr std::string_view kSelectedWardSkinField = "selectedWardSkinId";

constexpr const char* kActionNotFound = "Could not find action.";
constexpr const char* kNoActorSelection = "Could not find player selection to match actor id.";
constexpr const char* kNotParticipant = "Not an active participant in a champ select session";
constexpr const char* kInvalidWardSkinPayload = "Invalid ward skin payload";

// A champion's default skin is numbered by the champion's id times 1000; the
// service takes it as "no skin".
constexpr int32_t kSkinsPerChampion = 1000;

// The first action object, across the sets as received, carrying that id.
// Elements that are not objects, or have no id, never match.
const BindingProperty* FindActionObject(const std::vector<BindingProperty>& actionSets,
                                        int64_t actionId) {
    for (const BindingProperty& set : actionSets) {
        for (const BindingProperty& element : set.Elements()) {
            if (element.HasField("actionId") && element.Field("actionId").AsSigned() == actionId) {
                return &element;
            }
        }
    }
    return nullptr;
}

// The ward skin an answer of the ward-skin service reports: the payload's
// "selectedWardSkinId" as an integer, or none when it is missing or is not
// one.
std::optional<int64_t> SelectedWardSkinOf(const Framework::BindingTypeRegistry& registry,
                                          const BindingProperty& payload) {
    const BindingProperty& selected = payload.Field(kSelectedWardSkinField);
    int64_t wardSkinId = 0;
    if (selected.IsEmpty() ||
        !Framework::AssignFromProperty(registry, selected, kSelectedWardSkinField, wardSkinId)) {
        return std::nullopt;
    }
    return wardSkinId;
}

BindingProperty EmptyObject() {
    BindingProperty payload;
    payload.SetEmptyStructure();
    return payload;
}

}  // namespace

Maybe<> LobbyTeamBuilderPlugin::CallForDto(std::string_view method,
                                           const BindingProperty& payload) {
    return HandleDtoResponse(method, teamBuilder_.CallRaw(method, payload));
}

void LobbyTeamBuilderPlugin::AdoptLocalWardSkin(int64_t wardSkinId) {
    champSelect_.SetLocalWardSkinId(wardSkinId);
    // The ward skin is not part of any DTO, so no DTO would bring it to the
    // session; it is shown at once. Outside a session there is nothing to
    // show, and the next session starts with it.
    if (std::optional<Api::ChampSelectSession> session = ReadChampSelectSession(storedDto_)) {
        PublishResource(kChampSelectSessionUri, *session,
                        Framework::PluginResourceEventType::Update);
    }
}

Maybe<> LobbyTeamBuilderPlugin::UpdateAction(int32_t id, const Api::ChampSelectAction& change) {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(storedDto_);
    if (state == nullptr) {
        return Failure(kNoChampSelectSession, 404);
    }
    const BindingProperty* found = FindActionObject(state->actionSetList, id);
    if (found == nullptr) {
        return Failure(kActionNotFound, 404);
    }
    // Only the fields the change needs, each read on its own: one that does
    // not convert keeps its default and hides none of the others.
    const Framework::BindingTypeRegistry& registry = Registry();
    int32_t championId = ReadActionField(registry, *found, "championId", int32_t{0});
    bool completed = ReadActionField(registry, *found, "completed", false);

    if (change.championId != 0) {
        championId = change.championId;
    }
    if (championId == 0) {
        // Completing without naming a champion locks in what the actor has
        // been hovering.
        const int64_t actorCellId = ReadActionField(registry, *found, "actorCellId", int64_t{-1});
        const std::optional<Api::ChampSelectPlayerSelection> actor =
            FindPlayerSelection(*state, actorCellId);
        if (!actor) {
            return InternalError(kNoActorSelection);
        }
        championId = actor->championPickIntent;
    }
    // A completed action stays completed.
    completed = completed || change.completed;

    BindingProperty payload;
    payload.MutableField("actionId").SetSigned(id);
    payload.MutableField("championId").SetSigned(championId);
    payload.MutableField("completed").SetBool(completed);

    if (completed && uxTimers_.ShowWanted()) {
        uxTimers_.ShowDone();
        Log(kAlways, kGroupDbg, "Action completed, setting show ux to false.");
    }

    const Maybe<> applied = CallForDto("updateActionV1", payload);
    if (!applied) {
        return InternalError(
            Format("Unable to process action change: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::CompleteAction(int32_t id) {
    Api::ChampSelectAction change;
    change.championId = 0;
    change.completed = true;
    return UpdateAction(id, change);
}

Maybe<> LobbyTeamBuilderPlugin::UpdateMySelection(const Api::ChampSelectMySelection& selection) {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(storedDto_);
    std::optional<Api::ChampSelectPlayerSelection> found;
    if (state != nullptr) {
        found = FindPlayerSelection(*state, state->localPlayerCellId);
    }
    if (!found) {
        return Failure(kNotParticipant, 400);
    }
    // Later steps compare with the selection as it was when the request
    // came, whatever DTOs the earlier calls brought in.
    const Api::ChampSelectPlayerSelection current = std::move(*found);

    if ((selection.spell1Id && *selection.spell1Id != current.spell1Id) ||
        (selection.spell2Id && *selection.spell2Id != current.spell2Id)) {
        BindingProperty payload;
        payload.MutableField("spell1Id").SetUnsigned(selection.spell1Id.value_or(current.spell1Id));
        payload.MutableField("spell2Id").SetUnsigned(selection.spell2Id.value_or(current.spell2Id));
        const Maybe<> applied = CallForDto("pickSpellsV1", payload);
        if (!applied) {
            return InternalError(Format("ChampSelect: could not select requested spells: %1",
                                        applied.GetFailure().message));
        }
    }

    if (selection.wardSkinId && *selection.wardSkinId != current.wardSkinId) {
        BindingProperty payload;
        payload.MutableField("wardSkinId").SetSigned(*selection.wardSkinId);
        const Maybe<BindingProperty> answer =
            Await(CallServiceProxy<BindingProperty>(kWardSkinService, kSelectWardSkin, payload,
                                                    kSelectionConfirmation, kWardSkinServiceError));
        if (!answer) {
            return InternalError(Format("ChampSelect: could not select requested ward skin: %s",
                                        answer.GetFailure().message));
        }
        const std::optional<int64_t> wardSkinId = SelectedWardSkinOf(Registry(), *answer);
        if (!wardSkinId) {
            return InternalError(kInvalidWardSkinPayload);
        }
        AdoptLocalWardSkin(*wardSkinId);
    }

    if (selection.selectedSkinId && *selection.selectedSkinId != current.selectedSkinId) {
        const int32_t skinId = *selection.selectedSkinId;
        BindingProperty payload;
        payload.MutableField("skinId").SetSigned(skinId % kSkinsPerChampion == 0 ? 0 : skinId);
        const Maybe<> applied = CallForDto("pickSkinV2", payload);
        if (!applied) {
            return InternalError(Format("ChampSelect: could not select requested skin: %1",
                                        applied.GetFailure().message));
        }
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::Reroll() {
    // The service knows whether rerolls are left; nothing is checked here.
    const Maybe<> applied = CallForDto("rerollV1", EmptyObject());
    if (!applied) {
        return InternalError(Format("Unable to reroll: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

void LobbyTeamBuilderPlugin::RequestLocalWardSkin() {
    InvokeServiceProxy(kWardSkinService, kRequestSelectedWardSkin, EmptyObject(), kSelectedWardSkin,
                       std::string_view(),
                       [this](const Framework::PluginServiceProxyResponse& answer) {
                           OnSelectedWardSkinReply(answer);
                       });
}

void LobbyTeamBuilderPlugin::OnSelectedWardSkinReply(
    const Framework::PluginServiceProxyResponse& answer) {
    if (!answer.error.empty()) {
        Log(kWarn, kGroupDbg, "Failed to get ward skin id: %s", answer.error.c_str());
        return;
    }
    const Maybe<BindingProperty> payload = Framework::ParseServiceProxyPayload(
        answer.payload, Framework::StaticType::Of<BindingProperty>().name);
    const std::optional<int64_t> wardSkinId =
        payload ? SelectedWardSkinOf(Registry(), *payload) : std::nullopt;
    if (wardSkinId) {
        AdoptLocalWardSkin(*wardSkinId);
        return;
    }
    Log(kWarn, kGroupDbg, "Failed to get ward skin id: %s", "Invalid ward skin payload.");
}

}  // namespace Orvan::Client::LobbyTeamBuilder
