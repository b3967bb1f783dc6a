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

// Trade 7 with cell 2 in the given state, trade 8 with cell 6 busy, and
// trade 9 with a state the service gave as a number.
TbdGameDtoV1 TradingDraft(int32_t counter, std::string state7 = "AVAILABLE") {
    TbdGameDtoV1 dto = Draft(counter);
    dto.championSelectState->trades = {{7, 2, std::move(state7)}, {8, 6, "BUSY"}, {9, 1, "4"}};
    return dto;
}

TbdGameDtoV1 WithoutTrades(TbdGameDtoV1 dto) {
    dto.championSelectState->trades.clear();
    return dto;
}

Reply DtoReply(const TbdGameDtoV1& dto) {
    return {"tbdGameDtoV1", JsonOf(dto)};
}

TEST(TradesTest, OperationsForwardTheTradeAndApplyTheAnswer) {
    const Reply busy = {"tbdGameDtoV1", "{}", "BUSY"};
    const std::string notOk =
        "Received status BUSY instead of expected status of OK from request to teambuilder-draft:";
    const std::string accept = "Unable to accept trade: ";
    const std::string sent7 = R"(acceptTradeV1 {"tradeId":7})";
    const std::string decline7 = R"(declineTradeV1 {"tradeId":7})";
    const struct {
        TbdGameDtoV1 stored;
        std::string operation;
        const char* method;  // the service method answered
        Reply reply;         // an empty method: the call fails at the proxy
        uint16_t status;
        std::string result;  // the JSON body, or the error text
        std::string sent;
    } cases[] = {
        // clang-format off
        {TradingDraft(1), "7/request", "acceptTradeV1", DtoReply(TradingDraft(2, "SENT")), 200, R"({"cellId":2,"id":7,"state":"SENT"})", sent7},
        {TradingDraft(1), "7/request", "acceptTradeV1", DtoReply(WithoutTrades(TradingDraft(2))), 404, "No trade found for id 7", sent7},
        {TradingDraft(1), "7/request", "acceptTradeV1", DtoReply(Premade(2, Slots(2))), 404, "No champ select session in progress.", sent7},
        {TradingDraft(1), "7/request", "acceptTradeV1", busy, 500, accept + notOk + "acceptTradeV1", sent7},
        {TradingDraft(1), "8/accept", "acceptTradeV1", DtoReply(TradingDraft(2)), 200, "", R"(acceptTradeV1 {"tradeId":8})"},
        {TradingDraft(1), "8/accept", "", {}, 500, accept + "no answer", R"(acceptTradeV1 {"tradeId":8})"},
        {TradingDraft(1, "RECEIVED"), "7/decline", "declineTradeV1", DtoReply(TradingDraft(2)), 200, "", decline7},
        {TradingDraft(1, "RECEIVED"), "7/decline", "declineTradeV1", busy, 500, "Unable to decline trade: " + notOk + "declineTradeV1", decline7},
        {TradingDraft(1, "SENT"), "7/cancel", "declineTradeV1", DtoReply(TradingDraft(2)), 200, "", decline7},
        {TradingDraft(1, "SENT"), "7/cancel", "declineTradeV1", busy, 500, "Unable to cancel trade: " + notOk + "declineTradeV1", decline7},
        {Premade(1, Slots(2)), "3/cancel", "declineTradeV1", {"callFailedV1", "{}"}, 500, "Unable to cancel trade: Did not receive the expected method tbdGameDtoV1, instead received callFailedV1", R"(declineTradeV1 {"tradeId":3})"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.operation + " " + c.reply.status);
        TeamBuilderHost host;
        ServiceScript service(host);
        host.Push(c.stored);
        host.Host().Pump();
        service.Sent();
        if (*c.method != '\0') {
            service.Answer(c.method, c.reply);
        }
        const std::string before = host.Host().Call("GET", DraftUri("session/trades")).json;

        const TestHost::CallResult got =
            host.Host().Call("POST", DraftUri("session/trades/" + c.operation));
        EXPECT_EQ(got.status, c.status);
        EXPECT_EQ(got.status == 200 ? (got.json == "null" ? "" : got.json) : got.error, c.result);
        EXPECT_EQ(service.Sent(), Strings{c.sent});
        if (c.status == 500) {
            // A refused operation leaves the stored DTO as it was.
            EXPECT_EQ(host.Host().Call("GET", DraftUri("session/trades")).json, before);
        }
    }
}

TEST(TradesTest, ReadsServeTheStoredContracts) {
    TeamBuilderHost host;
    ServiceScript service(host);
    const char* const noSession = "No champ select session in progress.";
    const struct {
        bool inDraft;
        const char* path;
        uint16_t status;
        const char* result;  // the JSON body, or the error text
    } reads[] = {
        {false, "session/trades", 404, noSession},
        {false, "session/trades/7", 404, noSession},
        {true, "session/trades", 200,
         R"([{"cellId":2,"id":7,"state":"INVALID"},{"cellId":6,"id":8,"state":"BUSY"},)"
         R"({"cellId":1,"id":9,"state":"RECEIVED"}])"},
        {true, "session/trades/8", 200, R"({"cellId":6,"id":8,"state":"BUSY"})"},
        {true, "session/trades/12", 404, "No trade found for id 12"},
        {true, "session/trades/4294967303", 404, "No trade found for id 4294967303"},
        // The operations take 32-bit ids.
        {true, "session/trades/4294967303/request", 400,
         "Value 4294967303 for 'id' of type int32 is out of range"},
    };
    bool entered = false;
    for (const auto& read : reads) {
        SCOPED_TRACE(read.path);
        if (read.inDraft && !entered) {
            entered = true;
            host.Push(TradingDraft(1, "sent"));
        }
        const bool isRead = std::string(read.path).find("request") == std::string::npos;
        const TestHost::CallResult got =
            host.Host().Call(isRead ? "GET" : "POST", DraftUri(read.path));
        EXPECT_EQ(got.status, read.status);
        EXPECT_EQ(read.status == 200 ? got.json : got.error, read.result);
    }
    EXPECT_EQ(service.Sent(), Strings{"requestSelectedWardSkin {}"});
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
