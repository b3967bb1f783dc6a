// The matchmaking and ready-check operations: enter and leave the queue,
// leave the low-priority queue a leaver penalty imposes, and answer the
// ready check. Answers that carry a DTO go through the intake before the
// route replies.
#include <string>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/log/Log.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::BindingProperty;
using Framework::Format;
using Framework::Maybe;

namespace {

// Named by the ready-check refusals when there is no game at all.
constexpr std::string_view kNoPhase = "Not in a phase";

BindingProperty AccessTokenPayload(const std::string& quitguardToken) {
    BindingProperty payload;
    payload.MutableField("accessTokenStr").SetString(quitguardToken);
    return payload;
}

}  // namespace

Maybe<Api::MatchmakingSearch> LobbyTeamBuilderPlugin::StartMatchmaking(
    const std::string& quitguardToken) {
    if (storedDto_.Phase() != kPhaseDraftPremade || !storedDto_.HasDto()) {
        return InternalError("Lobby needs to be in premade state before entering matchmaking");
    }
    const Maybe<RawResponse> response =
        teamBuilder_.CallRaw("startMatchmakingV1", AccessTokenPayload(quitguardToken));
    if (!response || IsCallFailed(*response)) {
        return InternalError(
            Format("Error starting team builder matchmaking: %1", DescribeResponse(response)));
    }
    if (response->methodName == kGatekeeperRestrictedMethod) {
        // A refusal to queue reads like the pushed restriction: the search
        // shows who is penalized and for how long.
        Api::GatekeeperRestricted restricted;
        (void)Framework::AssignFromProperty(Registry(), response->payload, "<value>", restricted);
        OnGatekeeperRestricted(restricted);
        return lobbyResources_.CurrentSearch();
    }
    OnTbdGameDto(ReadGameDto(response->payload));
    return lobbyResources_.CurrentSearch();
}

Maybe<> LobbyTeamBuilderPlugin::LeaveMatchmaking() {
    const Maybe<RawResponse> response = teamBuilder_.CallRaw("leaveMatchmakingV1");
    if (!response || IsCallFailed(*response)) {
        return InternalError(
            Format("Failed to leave team builder matchmaking: %1", DescribeResponse(response)));
    }
    if (response->status == kServiceStatusOk) {
        OnTbdGameDto(ReadGameDto(response->payload));
    } else {
        Framework::Log(Framework::kOkay, Framework::kGroupGen,
                       "Ignoring TB dto because of leaveMatchmakingV1 response: %s",
                       response->status.c_str());
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::AbandonLowPriorityQueue(const std::string& quitguardToken) {
    const Maybe<RawResponse> response = teamBuilder_.CallRaw("abandonQuitguardLowPriorityQueueV1",
                                                             AccessTokenPayload(quitguardToken));
    if (!response || IsCallFailed(*response)) {
        return InternalError(Format("Failed to leave team builder low priority queue: %1",
                                    DescribeResponse(response)));
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::AcceptReadyCheck() {
    if (storedDto_.Phase() != kPhaseAfkCheck || !storedDto_.HasDto()) {
        return InternalError(
            Format("Cannot accept team builder AFK check because the current phase is: %s",
                   storedDto_.HasDto() ? storedDto_.Phase() : kNoPhase));
    }
    return IndicateAfkReadiness(true);
}

Maybe<> LobbyTeamBuilderPlugin::DeclineReadyCheck() {
    if (storedDto_.Phase() != kPhaseAfkCheck || !storedDto_.HasDto()) {
        return InternalError(
            Format("Cannot decline team builder AFK check because the current phase is: %s",
                   storedDto_.HasDto() ? storedDto_.Phase() : kNoPhase));
    }
    return IndicateAfkReadiness(false);
}

Maybe<> LobbyTeamBuilderPlugin::IndicateAfkReadiness(bool ready) {
    BindingProperty payload;
    payload.MutableField("afkReady").SetBool(ready);
    const Maybe<RawResponse> response = teamBuilder_.CallRaw("indicateAfkReadinessV1", payload);
    if (response && !IsCallFailed(*response)) {
        OnTbdGameDto(ReadGameDto(response->payload));
        return Maybe<>::Success();
    }
    return InternalError(Format("Failed to indicate team builder ready check readiness: %1",
                                DescribeResponse(response)));
}

}  // namespace Orvan::Client::LobbyTeamBuilder
