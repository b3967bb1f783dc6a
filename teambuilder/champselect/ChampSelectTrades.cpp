// Trades between the local player and the players of other cells. The
// service owns them and lists them in every DTO; the plugin shows them as
// contracts inside the session and through two read routes, and forwards the
// four trade operations to the service without checking a contract's state
// first: the service answers for that, with a DTO the intake applies before
// the operation returns.
#include "framework/binding/MessageFormat.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Format;
using Framework::Maybe;

namespace {

// Requesting a trade is accepting the offer the service lists; cancelling
// one's own request is declining it.
constexpr std::string_view kAcceptTradeMethod = "acceptTradeV1";
constexpr std::string_view kDeclineTradeMethod = "declineTradeV1";

Framework::BindingProperty TradePayload(int32_t id) {
    Framework::BindingProperty payload;
    payload.MutableField("tradeId").SetSigned(id);
    return payload;
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
    // A GET of a trade changes nothing: the session is built without
    // starting the timer of the ceremony it shows.
    std::optional<Api::ChampSelectSession> session = BuildChampSelectSession(storedDto_).session;
    if (!session) {
        return Failure(kNoChampSelectSession, 404);
    }
    for (const Api::ChampSelectTradeContract& contract : session->trades) {
        if (contract.id == id) {
            return contract;
        }
    }
    return Failure(Format("No trade found for id %1", id), 404);
}

Maybe<Api::ChampSelectTradeContract> LobbyTeamBuilderPlugin::RequestTrade(int32_t id) {
    QEL_RETURN_IF_FAILED(AcceptTrade(id));
    // The answer's DTO is stored by now; the contract is read from it.
    return GetTrade(id);
}

Maybe<> LobbyTeamBuilderPlugin::AcceptTrade(int32_t id) {
    const Maybe<> applied = CallForDto(kAcceptTradeMethod, TradePayload(id));
    if (!applied) {
        return InternalError(Format("Unable to accept trade: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::DeclineTrade(int32_t id) {
    const Maybe<> applied = CallForDto(kDeclineTradeMethod, TradePayload(id));
    if (!applied) {
        return InternalError(Format("Unable to decline trade: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

Maybe<> LobbyTeamBuilderPlugin::CancelTrade(int32_t id) {
    const Maybe<> applied = CallForDto(kDeclineTradeMethod, TradePayload(id));
    if (!applied) {
        return InternalError(Format("Unable to cancel trade: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
