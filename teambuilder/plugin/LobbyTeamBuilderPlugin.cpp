#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

#include <utility>

#include "framework/module/EndpointRoutes.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/serviceproxy/ServiceProxyClient.h"
#include "teambuilder/common/RegisterTypes.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

constexpr std::string_view kChampSelectDomainNameSetting =
    "/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName";
constexpr std::string_view kLogAllLcdsMessagesSetting =
    "/qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages";
constexpr std::string_view kLoginSessionUri = "/qel-login/v1/session";
constexpr std::string_view kGameflowSessionUri = "/qel-gameflow/v1/session";

}  // namespace

LobbyTeamBuilderPlugin::LobbyTeamBuilderPlugin()
    : teamBuilder_(*this, std::string(kTeamBuilderService)) {}

LobbyTeamBuilderPlugin::~LobbyTeamBuilderPlugin() = default;

void LobbyTeamBuilderPlugin::RegisterEndpoints() {
    using namespace Framework::Routes;
    using Plugin = LobbyTeamBuilderPlugin;

    // Every record a route or resource carries must be known before the
    // routes that name it.
    RegisterTeamBuilderTypes(Registry());

    Framework::EndpointRoutes<Plugin> routes(*this);
    routes.Add(kGet, "/qel-lobby-team-builder/v1/lobby", &Plugin::GetLobby);
    routes.Add(kGet, "/qel-lobby-team-builder/v1/tb-enabled-features",
               &Plugin::RetrieveFeatureToggles);
    routes.Add(kPost, "/qel-lobby-team-builder/v1/lobby", &Plugin::CreatePremade, Body("lobby"));
    routes.Add(kPost, "/qel-lobby-team-builder/v1/position-preferences",
               &Plugin::SetPositionPreferences, Body("positionPreferences"));
    routes.Add(kPost, "/qel-lobby-team-builder/v2/position-preferences",
               &Plugin::SetPositionPreferencesV2, Body("positionPreferences"));
    routes.Add(kDelete, "/qel-lobby-team-builder/v1/lobby", &Plugin::QuitLobby);
    routes.Add(kPost, "/qel-lobby-team-builder/v1/invitations/accept", &Plugin::JoinPremade,
               Body("invitation"));
    routes.Add(kPost, "/qel-lobby-team-builder/v1/lobby/members/{id}/promote",
               &Plugin::PromoteMember, Path("id"));
    routes.Add(kPost, "/qel-lobby-team-builder/v1/lobby/members/{id}/kick", &Plugin::KickMember,
               Path("id"));
    routes.Add(kGet, "/qel-lobby-team-builder/v1/lobby/countdown", &Plugin::GetLobbyCountdown);
    routes.Add(kGet, "/qel-lobby-team-builder/v1/matchmaking", &Plugin::GetMatchmakingSearch);
    routes.Add(kPost, "/qel-lobby-team-builder/v1/matchmaking/search", &Plugin::StartMatchmaking,
               Body("quitguardToken"));
    routes.Add(kDelete, "/qel-lobby-team-builder/v1/matchmaking/search", &Plugin::LeaveMatchmaking);
    routes.Add(kPost, "/qel-lobby-team-builder/v1/matchmaking/low-priority-queue/abandon",
               &Plugin::AbandonLowPriorityQueue, Body("quitguardToken"));
    routes.Add(kPost, "/qel-lobby-team-builder/v1/ready-check/accept", &Plugin::AcceptReadyCheck);
    routes.Add(kPost, "/qel-lobby-team-builder/v1/ready-check/decline", &Plugin::DeclineReadyCheck);
    RegisterChampSelectRoutes();
}

bool LobbyTeamBuilderPlugin::OnStart() {
    using namespace Api;

    AddResourceHandler(kChampSelectDomainNameSetting,
                       ResourceHandler([this](const Framework::Resource& event) {
                           OnChampSelectDomainName(event);
                       }));
    AddResourceHandler(
        kLogAllLcdsMessagesSetting,
        ResourceHandler([this](const Framework::Resource& event) { OnLogAllLcdsMessages(event); }));

    // Converted here rather than by a typed handler so that the DTO is moved
    // into the intake instead of copied; a message that does not convert is
    // dropped alike.
    RegisterServiceProxyHandler(
        kTeamBuilderService, kGameDtoMethod,
        ServiceProxyHandler([this](const Framework::PluginServiceProxyResponse& message) {
            Framework::Maybe<TbdGameDtoV1> dto =
                Framework::ConvertServiceProxyPayload<TbdGameDtoV1>(Registry(), message.payload);
            if (!dto) {
                Trace("%s: Couldn't convert service proxy message %s.%s: %s", ShortName().c_str(),
                      message.serviceName.c_str(), message.methodName.c_str(),
                      dto.GetFailure().message.c_str());
                return;
            }
            LogServiceMessage(*dto);
            OnTbdGameDto(std::move(dto).Value());
        }));
    RegisterServiceProxyHandler<RemovedFromServiceV1>(kTeamBuilderService,
                                                      kRemovedFromServiceMethod,
                                                      [this](const RemovedFromServiceV1& message) {
                                                          LogServiceMessage(message);
                                                          OnRemovedFromService(message);
                                                      });
    RegisterServiceProxyHandler(
        kTeamBuilderService, kGameStartFailedMethod,
        ServiceProxyHandler(
            [this](const Framework::PluginServiceProxyResponse&) { OnGameStartFailed(); }));
    RegisterServiceProxyHandler<GatekeeperRestricted>(kTeamBuilderService,
                                                      kGatekeeperRestrictedMethod,
                                                      [this](const GatekeeperRestricted& message) {
                                                          LogServiceMessage(message);
                                                          OnGatekeeperRestricted(message);
                                                      });
    RegisterServiceProxyHandler<QuitguardAbandoned>(kTeamBuilderService, kQuitguardAbandonedMethod,
                                                    [this](const QuitguardAbandoned& message) {
                                                        LogServiceMessage(message);
                                                        OnLowPriorityQueueAbandoned(message);
                                                    });

    AddResourceHandler<LoginSession>(
        kLoginSessionUri,
        [this](const ResourceEvent<LoginSession>& event) { OnLoginSession(event); });
    AddResourceHandler<GameflowSession>(
        kGameflowSessionUri,
        [this](const ResourceEvent<GameflowSession>& event) { OnGameflowSession(event); });
    return true;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
