// The game-DTO intake: the one gate every team-builder DTO passes, and the
// utilities that turn service answers into applied DTOs or failures.
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/codec/Json.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/DropRules.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

std::string PremadeIdOf(const GameDtoRecord& record) {
    const Api::TbLobbyPremadeStateResource* premade = record.PremadeState();
    return premade != nullptr ? premade->draftPremadeId : std::string();
}

}  // namespace

void LobbyTeamBuilderPlugin::ApplyGameDtoRecord(GameDtoRecord incoming) {
    if (const std::optional<LogLine> refused =
            RefusalLine(RefusalOf(storedDto_, incoming, abandonedLobbyIds_))) {
        Log(refused->level, refused->groups, "%s", refused->text.c_str());
        return;
    }

    // The list's storage is reused from one DTO to the next: an effect is
    // large enough (it may hold a whole session) that allocating the list
    // anew showed in every push. Taken out, not borrowed, so that a DTO
    // applied from within the carry-out gets its own.
    Effects effects = std::move(effectsScratch_);
    effects.clear();
    AdvanceLobbySide(incoming, effects);

    if (!incoming.HasDto()) {
        currentDraftPremadeId_.clear();
    } else if (const Api::TbLobbyPremadeStateResource* premade = incoming.PremadeState()) {
        currentDraftPremadeId_ = premade->draftPremadeId;
    }
    actionSetsRead_.Clear();
    applyingDto_ = true;
    const ChampSelectTransition transition = CheckChampSelectSession(storedDto_, incoming, effects);
    KeepChampSelectTransition(transition, storedDto_, incoming);
    CarryOut(effects, storedDto_, incoming);
    if (transition == ChampSelectTransition::Update) {
        // The update path compares the next session with the one it
        // published; the value is no longer needed in the list.
        for (Effect& effect : effects) {
            auto* change = std::get_if<ResourceChange>(&effect);
            if (change != nullptr && change->uri == kChampSelectSessionUri) {
                champSelect_.KeepPublished(
                    std::get<Api::ChampSelectSession>(std::move(change->value)));
            }
        }
    }
    lobbyResources_.Keep(effects);
    effects.clear();
    effectsScratch_ = std::move(effects);
    // After the carry-out: a changed session may have changed the permission
    // to ban nobody that the bannable list follows.
    DraftListsChanges draftChanges = CheckDraftLists(draftLists_, incoming, Registry());
    PublishDraftLists(draftChanges);
    draftLists_.Keep(std::move(draftChanges), incoming);
    applyingDto_ = false;
    actionSetsRead_.Clear();

    // The stored DTO's premade state is the last known one while it has
    // one; it is kept apart only when a DTO without one replaces it, so a
    // lobby's pushes do not copy it each time.
    if (storedDto_.PremadeState() != nullptr && incoming.PremadeState() == nullptr) {
        lastKnownPremadeState_ = std::move(storedDto_.dto->premadeState);
    }
    storedDto_ = std::move(incoming);

    // A fall-back reason is news once: the consumers above saw it with the
    // DTO that brought it, the next DTO is compared against a copy without it.
    if (storedDto_.dto && storedDto_.dto->premadeState) {
        storedDto_.dto->premadeState->backwardsToPremadeTransitionReason.backwardsTransitionReason
            .clear();
    }
}

void LobbyTeamBuilderPlugin::AdvanceLobbySide(const GameDtoRecord& incoming, Effects& effects) {
    // The service may skip the search entirely (a lobby that is matched at
    // once); the matchmaking resource still has to pass through searching so
    // the ready check is shown as a found match.
    const std::string_view storedPhase = storedDto_.Phase();
    if ((!storedDto_.HasDto() ||
         (storedPhase != kPhaseMatchmaking && storedPhase != kPhaseAfkCheck)) &&
        incoming.HasDto() && incoming.dto->phaseName == kPhaseAfkCheck) {
        effects.emplace_back(FormattedLine(
            kWarn, kGroupDbg,
            "Missed MATCHMAKING phase, but found AFK_CHECK.  Artificially creating MATCHMAKING "
            "event\n    previous phase  : %s\n    previous premade: %s\n    current phase   : "
            "%s\n    current premade : %s",
            std::string(storedPhase).c_str(), PremadeIdOf(storedDto_).c_str(),
            incoming.dto->phaseName.c_str(), PremadeIdOf(incoming).c_str()));
        Api::TbdGameDtoV1 searching;
        searching.phaseName = kPhaseMatchmaking;
        searching.queueId = incoming.dto->queueId;
        const size_t first = effects.size();
        AdvanceMatchmaking(storedDto_, GameDtoRecord::ReceivedNow(std::move(searching)), effects);
        // The incoming DTO's search is compared with this one.
        lobbyResources_.Keep(
            Effects(effects.begin() + static_cast<ptrdiff_t>(first), effects.end()));
    }
    lobbyResources_.CheckLobby(storedDto_, incoming, LastKnownPremadeState(), effects);
    AdvanceMatchmaking(storedDto_, incoming, effects);
}

void LobbyTeamBuilderPlugin::AdvanceMatchmaking(const GameDtoRecord& previous,
                                                const GameDtoRecord& incoming, Effects& out) {
    if (!incoming.HasDto()) {
        // The current search keeps its last value for GET and the service's
        // other messages.
        lobbyResources_.CheckMatchmakingSearch(previous, incoming, Api::MatchmakingSearch(), out);
        return;
    }
    Api::MatchmakingSearch search =
        DeriveMatchmakingSearch(CurrentSearchContext(), previous.dto, *incoming.dto, std::nullopt);
    lobbyResources_.CheckMatchmakingSearch(previous, incoming, search, out);
    lobbyResources_.KeepCurrentSearch(std::move(search));
}

SearchContext LobbyTeamBuilderPlugin::CurrentSearchContext() const {
    return SearchContext{&LastKnownPremadeState(), applyingReconnectDto_, localSummonerId_};
}

void LobbyTeamBuilderPlugin::CarryOut(const Effects& effects, const GameDtoRecord& previous,
                                      const GameDtoRecord& incoming) {
    // The countdown published twice after a changed lobby is the same value;
    // it is converted once.
    const ResourceChange* converted = nullptr;
    std::optional<Framework::BindingProperty> convertedValue;
    for (const Effect& effect : effects) {
        if (const auto* line = std::get_if<LogLine>(&effect)) {
            Log(line->level, line->groups, "%s", line->text.c_str());
            continue;
        }
        if (const auto* timer = std::get_if<CeremonyTimer>(&effect)) {
            StartCeremonyTimer(*timer);
            continue;
        }
        if (std::holds_alternative<WardSkinRequest>(effect)) {
            RequestLocalWardSkin();
            continue;
        }
        if (const auto* event = std::get_if<GameflowEvent>(&effect)) {
            static_cast<void>(
                Request(Framework::HttpMethod::Post, kGameflowEventUri, event->event));
            continue;
        }
        if (std::holds_alternative<SessionChangedHook>(effect)) {
            OnChampSelectSessionChanged(previous, incoming);
            continue;
        }
        if (std::holds_alternative<UxShowRequest>(effect)) {
            static_cast<void>(Request(Framework::HttpMethod::Post, kUxShowUri));
            continue;
        }
        if (const auto* timer = std::get_if<UxShowTimer>(&effect)) {
            ScheduleAt(timer->name, Clock::now() + std::chrono::milliseconds(timer->delayMillis),
                       [this, timerPhase = timer->phase, timerName = timer->name] {
                           OnUxTimerFired(timerPhase, timerName);
                       });
            continue;
        }
        const ResourceChange& change = std::get<ResourceChange>(effect);
        if (change.type == ResourceEventType::Delete) {
            DeleteResource(change.uri);
            continue;
        }
        if (converted != nullptr && convertedValue && *converted == change) {
            PublishResourceValue(change.uri, change.type, *convertedValue);
            continue;
        }
        std::visit(
            [&](const auto& value) {
                using T = std::decay_t<decltype(value)>;
                if constexpr (!std::is_same_v<T, std::monostate>) {
                    Maybe<Framework::BindingProperty> data =
                        Framework::ToBindingValue(Registry(), value);
                    if (!data) {
                        PublishResource(change.uri, value, change.type);  // reports the failure
                        convertedValue.reset();
                        return;
                    }
                    PublishResourceValue(change.uri, change.type, *data);
                    converted = &change;
                    convertedValue = std::move(data).Value();
                }
            },
            change.value);
    }
}

void LobbyTeamBuilderPlugin::OnTbdGameDto(Api::TbdGameDtoV1 dto) {
    ApplyGameDtoRecord(GameDtoRecord::ReceivedNow(std::move(dto)));
}

void LobbyTeamBuilderPlugin::AddToAbandonedLobbyIds(const std::string& draftPremadeId) {
    Log(kAlways, kGroupDbg, "AddToAbandonedLobbyInvitationIds: %s", draftPremadeId.c_str());
    abandonedLobbyIds_.insert(draftPremadeId);
}

void LobbyTeamBuilderPlugin::RemoveFromAbandonedLobbyIds(const std::string& draftPremadeId) {
    Log(kAlways, kGroupDbg, "RemoveFromAbandonedLobbyIds: %s", draftPremadeId.c_str());
    abandonedLobbyIds_.erase(draftPremadeId);
}

void LobbyTeamBuilderPlugin::LogServiceMessageValue(Maybe<Framework::BindingProperty> value,
                                                    std::string_view typeName) const {
    if (!value) {
        const Failure failure = Framework::ServiceProxySerializationFailure(typeName);
        Trace("%s: %s", ShortName().c_str(), failure.message.c_str());
        Log(kError, kGroupDbg, "Failed to serialize teambuilder service proxy message.");
        return;
    }
    const std::string json = Framework::WriteJson(*value, &Registry());
    Log(kAlways, kGroupDbg, "Teambuilder service proxy message received: %s", json.c_str());
}

Maybe<> LobbyTeamBuilderPlugin::HandleDtoResponse(std::string_view methodName,
                                                  const Maybe<RawResponse>& response) {
    if (!response) {
        return response.GetFailure();
    }
    if (response->status != kServiceStatusOk) {
        return Failure(Framework::Format(
            "Received status %1 instead of expected status of OK from request to %2:%3",
            response->status, kTeamBuilderService, methodName));
    }
    if (response->methodName != kGameDtoMethod) {
        return Failure(
            Framework::Format("Did not receive the expected method %1, instead received %2",
                              kGameDtoMethod, response->methodName));
    }
    // Whatever converts is taken; a DTO that is left without its queue is
    // refused by the intake as invalid.
    Api::TbdGameDtoV1 dto;
    (void)Framework::AssignFromProperty(Registry(), response->payload, "<value>", dto);
    ApplyGameDtoRecord(GameDtoRecord::ReceivedNow(std::move(dto)));
    return Maybe<>::Success();
}

bool LobbyTeamBuilderPlugin::IsCallFailed(const RawResponse& response) {
    return response.status == "SERVICE UNAVAILABLE" || response.status == "SERVICE UNKNOWN" ||
           response.methodName == "callFailedV1";
}

std::string LobbyTeamBuilderPlugin::DescribeResponse(const Maybe<RawResponse>& result) {
    return Framework::DescribeServiceProxyResponse(result);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
