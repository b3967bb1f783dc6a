// Trades through the plugin's shared object, with the test as the
// team-builder service: the two reads, and the four operations forwarded to
// the service with the contract a request answers with.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/teambuilder/ChampSelectTestSupport.h"
#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using Reply = ServiceScript::Reply;

TradeV1 Trade(int32_t id, int32_t cellId, std::string state) {
    TradeV1 trade;
    trade.id = id;
    trade.cellId = cellId;
    trade.state = std::move(state);
    return trade;
}

// The draft with trade 7 offered by cell 2 and trade 8 by cell 6 (who could
// not trade in a real draft; the plugin does not care).
TbdGameDtoV1 TradingDraft(int32_t counter, std::string state7 = "AVAILABLE") {
    TbdGameDtoV1 dto = Draft(counter);
    dto.championSelectState->trades = {Trade(7, 2, std::move(state7)), Trade(8, 6, "BUSY")};
    return dto;
}

Reply DtoReply(const TbdGameDtoV1& dto) {
    return {"tbdGameDtoV1", JsonOf(dto)};
}

TbdGameDtoV1 WithoutTrades(TbdGameDtoV1 dto) {
    dto.championSelectState->trades.clear();
    return dto;
}

const std::string kNotOk =
    "Received status BUSY instead of expected status of OK from request to teambuilder-draft:";

TEST(TradesTest, OperationsForwardTheTradeAndApplyTheAnswer) {
    const struct {
        const char* name;
        TbdGameDtoV1 stored;
        const char* operation;
        std::vector<std::pair<std::string, Reply>> replies;
        uint16_t status;
        std::string error;
        std::string json;
        const char* sent;
    } cases[] = {
        {"request answered with the contract as the answer lists it",
         TradingDraft(1),
         "7/request",
         {{"acceptTradeV1", DtoReply(TradingDraft(2, "SENT"))}},
         200,
         "",
         R"({"cellId":2,"id":7,"state":"SENT"})",
         R"(acceptTradeV1 {"tradeId":7})"},
        {"request whose trade the answer no longer lists",
         TradingDraft(1),
         "7/request",
         {{"acceptTradeV1", DtoReply(WithoutTrades(TradingDraft(2)))}},
         404,
         "No trade found for id 7",
         "",
         R"(acceptTradeV1 {"tradeId":7})"},
        {"request answered with a DTO outside the draft",
         TradingDraft(1),
         "7/request",
         {{"acceptTradeV1", DtoReply(Premade(2, Slots(2)))}},
         404,
         "No champ select session in progress.",
         "",
         R"(acceptTradeV1 {"tradeId":7})"},
        {"request refused keeps the accept's failure",
         TradingDraft(1),
         "7/request",
         {{"acceptTradeV1", {"tbdGameDtoV1", "{}", "BUSY"}}},
         500,
         "Unable to accept trade: " + kNotOk + "acceptTradeV1",
         "",
         R"(acceptTradeV1 {"tradeId":7})"},
        {"accept",
         TradingDraft(1),
         "8/accept",
         {{"acceptTradeV1", DtoReply(TradingDraft(2))}},
         200,
         "",
         "",
         R"(acceptTradeV1 {"tradeId":8})"},
        {"accept failed at the proxy",
         TradingDraft(1),
         "8/accept",
         {},
         500,
         "Unable to accept trade: no answer",
         "",
         R"(acceptTradeV1 {"tradeId":8})"},
        {"decline",
         TradingDraft(1, "RECEIVED"),
         "7/decline",
         {{"declineTradeV1", DtoReply(TradingDraft(2))}},
         200,
         "",
         "",
         R"(declineTradeV1 {"tradeId":7})"},
        {"decline refused",
         TradingDraft(1, "RECEIVED"),
         "7/decline",
         {{"declineTradeV1", {"tbdGameDtoV1", "{}", "BUSY"}}},
         500,
         "Unable to decline trade: " + kNotOk + "declineTradeV1",
         "",
         R"(declineTradeV1 {"tradeId":7})"},
        {"cancel is a decline",
         TradingDraft(1, "SENT"),
         "7/cancel",
         {{"declineTradeV1", DtoReply(TradingDraft(2))}},
         200,
         "",
         "",
         R"(declineTradeV1 {"tradeId":7})"},
        {"cancel refused",
         TradingDraft(1, "SENT"),
         "7/cancel",
         {{"declineTradeV1", {"tbdGameDtoV1", "{}", "BUSY"}}},
         500,
         "Unable to cancel trade: " + kNotOk + "declineTradeV1",
         "",
         R"(declineTradeV1 {"tradeId":7})"},
        {"outside a draft the service still decides",
         Premade(1, Slots(2)),
         "3/cancel",
         {{"declineTradeV1", {"callFailedV1", "{}"}}},
         500,
         "Unable to cancel trade: Did not receive the expected method tbdGameDtoV1, instead "
         "received callFailedV1",
         "",
         R"(declineTradeV1 {"tradeId":3})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TeamBuilderHost host;
        ServiceScript service(host);
        host.Push(c.stored);
        host.Host().Pump();
        service.Sent();
        for (const auto& [method, reply] : c.replies) {
            service.Answer(method, reply);
        }
        const std::string before = host.Host().Call("GET", DraftUri("session/trades")).json;

        const TestHost::CallResult result =
            host.Host().Call("POST", DraftUri("session/trades/") + c.operation);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.error, c.error);
        if (!c.json.empty()) {
            EXPECT_EQ(result.json, c.json);
        }
        EXPECT_EQ(service.Sent(), Strings{c.sent});
        if (c.status == 500) {
            // A refused operation leaves the stored DTO as it was.
            EXPECT_EQ(host.Host().Call("GET", DraftUri("session/trades")).json, before);
        }
    }
}

TEST(TradesTest, ReadsServeTheStoredContracts) {
    TeamBuilderHost host;
    TbdGameDtoV1 dto = TradingDraft(1, "sent");
    dto.championSelectState->trades.push_back(Trade(9, 1, "4"));
    const struct {
        const char* path;
        uint16_t status;
        const char* result;  // the JSON body, or the error text
    } beforeDraft[] =
        {
            {"session/trades", 404, "No champ select session in progress."},
            {"session/trades/7", 404, "No champ select session in progress."},
        },
      inDraft[] = {
          {"session/trades", 200,
           R"([{"cellId":2,"id":7,"state":"INVALID"},{"cellId":6,"id":8,"state":"BUSY"},)"
           R"({"cellId":1,"id":9,"state":"RECEIVED"}])"},
          {"session/trades/8", 200, R"({"cellId":6,"id":8,"state":"BUSY"})"},
          {"session/trades/12", 404, "No trade found for id 12"},
          {"session/trades/-7", 404, "No trade found for id -7"},
          {"session/trades/4294967303", 404, "No trade found for id 4294967303"},
      };
    const auto check = [&](const auto& reads) {
        for (const auto& read : reads) {
            SCOPED_TRACE(read.path);
            const TestHost::CallResult result = host.Host().Call("GET", DraftUri(read.path));
            EXPECT_EQ(result.status, read.status);
            EXPECT_EQ(read.status == 200 ? result.json : result.error, read.result);
        }
    };
    check(beforeDraft);
    host.Push(dto);
    check(inDraft);
}

TEST(TradesTest, OperationIdsOutsideThirtyTwoBitsAreRefused) {
    TeamBuilderHost host;
    ServiceScript service(host);
    host.Push(TradingDraft(1));
    host.Host().Pump();
    service.Sent();
    const TestHost::CallResult result =
        host.Host().Call("POST", DraftUri("session/trades/4294967303/request"));
    EXPECT_TRUE(result.failed);
    EXPECT_NE(result.status, 200);
    EXPECT_EQ(service.Sent(), Strings{});
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
