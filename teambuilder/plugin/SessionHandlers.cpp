// Reactions to the resources the plugin follows (the login and game-flow
// sessions, two platform settings) and the retrieval of the latest DTO after
// a reconnection.
#include <chrono>
#include <string>
#include <utility>

#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::PluginResourceEventType;

namespace {

// The service's way of saying "ask again later".
constexpr std::string_view kTemporaryError = "TEMPORARY_ERROR_CONSIDER_RETRY";
constexpr std::chrono::seconds kRetrieveRetryDelay{3};

}  // namespace

void LobbyTeamBuilderPlugin::OnLogAllLcdsMessages(const Framework::Resource& event) {
    logAllLcdsMessages_ = !event.data.AsText().empty() && event.data.IsTrue();
}

void LobbyTeamBuilderPlugin::OnChampSelectDomainName(const Framework::Resource& event) {
    champSelect_.SetDomainName(event.data.AsText());
}

void LobbyTeamBuilderPlugin::OnGameflowSession(const ResourceEvent<Api::GameflowSession>& event) {
    // The value read when the subscription is made arrives as a Create; only
    // a change tells that the game client was just launched.
    if (event.eventType != PluginResourceEventType::Update) {
        return;
    }
    const bool running = event.value.gameClient.running;
    if (storedDto_.HasDto() && !gameClientRunning_ && running) {
        Log(kOkay, kGroupGen, "Clearing TB dto info on game launch.");
        ApplyGameDtoRecord(GameDtoRecord::ReceivedNow());
    }
    gameClientRunning_ = running;
}

void LobbyTeamBuilderPlugin::OnLoginSession(const ResourceEvent<Api::LoginSession>& event) {
    switch (event.eventType) {
        case PluginResourceEventType::Delete:
            localSummonerId_ = 0;
            loginConnected_ = false;
            loginSucceeded_ = false;
            return;
        case PluginResourceEventType::Create:
        case PluginResourceEventType::Update:
            break;
        default:
            return;
    }
    const Api::LoginSession& session = event.value;
    const bool succeeded = session.state == Api::LoginSessionState::SUCCEEDED &&
                           session.accountId != 0 && session.summonerId != 0;
    if (!loginSucceeded_ && succeeded) {
        localSummonerId_ = session.summonerId;
    }
    loginSucceeded_ = succeeded;

    const bool wasConnected = loginConnected_;
    loginConnected_ = session.connected;
    // Pushed DTOs may have been missed while the connection was down.
    if (storedDto_.HasDto() && !wasConnected && session.connected) {
        latestDtoRetryCount_ = 0;
        RetrieveLatestGameDto();
    }
}

void LobbyTeamBuilderPlugin::RetrieveLatestGameDto() {
    if (!storedDto_.HasDto()) {
        return;
    }
    Framework::Maybe<Api::TbdGameDtoV1> dto =
        teamBuilder_.Call<Api::TbdGameDtoV1>("retrieveLatestTbdGameDtoV1");
    if (dto) {
        Log(kAlways, kGroupDbg, "Successfully retrieved latest TB dto on reconnect.");
        applyingReconnectDto_ = true;
        OnTbdGameDto(std::move(dto).Value());
        applyingReconnectDto_ = false;
        return;
    }

    const std::string& text = dto.GetFailure().message;
    bool retry = true;
    if (text.find(kTemporaryError) == std::string::npos) {
        Log(kWarn, kGroupDbg, "Failed to get latest TB dto: %s", text.c_str());
        // Any other error gets one second chance per series.
        retry = latestDtoRetryCount_ == 0;
    }
    ++latestDtoRetryCount_;
    if (retry) {
        ScheduleAt(kRetrieveLatestDtoTask, Clock::now() + kRetrieveRetryDelay,
                   [this] { RetrieveLatestGameDto(); });
    }
}

}  // namespace Orvan::Client::LobbyTeamBuilder
