// Trades between the local player and the players of other cells. The
// service owns them and lists them in every DTO; the plugin shows them as
// contracts inside the session and through two read routes, and forwards the
// four trade operations to the service.
//
// The four operations are not served yet: their routes are registered with
// their final arguments and answer 500 until the service calls are wired.
#include "framework/binding/MessageFormat.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/lobby/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

constexpr uint32_t kNotImplementedStatus = 500;

Failure NotImplemented() {
    return Failure("Not implemented", kNotImplementedStatus);
}

}  // namespace

Maybe<std::vector<Api::ChampSelectTradeContract>> LobbyTeamBuilderPlugin::GetTrades() {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(storedDto_);
    if (state == nullptr) {
        return Failure(kNoChampSelectSession, 404);
    }
    return ConvertTrades(state->trades);
}

Maybe<Api::ChampSelectTradeContract> LobbyTeamBuilderPlugin::GetTrade(int64_t id) {
    std::optional<Api::ChampSelectSession> session = BuildChampSelectSession(storedDto_);
    if (!session) {
        return Failure(kNoChampSelectSession, 404);
    }
    for (const Api::ChampSelectTradeContract& contract : session->trades) {
        if (contract.id == id) {
            return contract;
        }
    }
    return Failure(Framework::Format("No trade found for id %1", id), 404);
}

Maybe<Api::ChampSelectTradeContract> LobbyTeamBuilderPlugin::RequestTrade(int32_t) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::AcceptTrade(int32_t) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::DeclineTrade(int32_t) {
    return NotImplemented();
}

Maybe<> LobbyTeamBuilderPlugin::CancelTrade(int32_t) {
    return NotImplemented();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
