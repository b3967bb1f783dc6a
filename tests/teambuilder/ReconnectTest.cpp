// The retrieval of the latest DTO after a reconnection, through the plugin's
// shared object: when it is made, what a success applies, and the 3-second
// retries on the host's virtual clock.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kLoginUri = "/qel-login/v1/session";
constexpr const char* kTemporary = "Error: TEMPORARY_ERROR_CONSIDER_RETRY (busy)";

class ReconnectTest : public ::testing::Test {
protected:
    void SetUp() override { host_.Change(kLoginUri, "Create", Session(false)); }

    // The next retrieval answers with this DTO payload or fails with `error`.
    void Answer(std::string payload, std::string error = {}) {
        service_.Answer("retrieveLatestTbdGameDtoV1",
                        {"tbdGameDtoV1", std::move(payload), "OK", std::move(error)});
    }
    // Retrievals made so far.
    size_t Requests() {
        requests_ += service_.Sent().size();
        return requests_;
    }

    static LoginSession Session(bool connected) {
        LoginSession session;
        session.state = LoginSessionState::SUCCEEDED;
        session.summonerId = 77;
        session.accountId = 5;
        session.connected = connected;
        return session;
    }
    void Reconnect() {
        host_.Change(kLoginUri, "Update", Session(false));
        host_.Change(kLoginUri, "Update", Session(true));
    }
    // Only the plugin's own lines; the service-proxy client logs its requests.
    Strings TeamBuilderLogs() {
        Strings lines;
        for (std::string& line : host_.TakeLogs()) {
            if (line.find("qel-lobby-team-builder: ") == std::string::npos) {
                lines.push_back(std::move(line));
            }
        }
        return lines;
    }
    size_t Retries() { return host_.Host().PendingDelayedCalls(); }

    TeamBuilderHost host_;
    ServiceScript service_{host_};
    size_t requests_ = 0;
};

TEST_F(ReconnectTest, TheRetrievedDtoIsApplied) {
    Reconnect();  // nothing stored: nothing retrieved
    EXPECT_EQ(Requests(), 0u);
    host_.Push(Premade(1, Slots(2)));
    host_.Change(kLoginUri, "Update", Session(true));  // no change of connection
    EXPECT_EQ(Requests(), 0u);
    host_.Change(kLoginUri, "Update", Session(false));
    host_.TakeLobbyEvents();
    TeamBuilderLogs();
    Answer(JsonOf(Premade(2, Slots(3))));
    host_.Change(kLoginUri, "Update", Session(true));
    ASSERT_EQ(Requests(), 1u);
    const TestHost::Request& request = host_.Host().Requests().back();
    ASSERT_EQ(request.arguments.size(), 4u);
    EXPECT_EQ(request.arguments[0].GetString(), "teambuilder-draft");
    EXPECT_EQ(request.arguments[1].GetString(), "retrieveLatestTbdGameDtoV1");
    EXPECT_EQ(request.arguments[3].GetString(), "");

    EXPECT_EQ(TeamBuilderLogs(), (Strings{"3 Successfully retrieved latest TB dto on reconnect."}));
    EXPECT_EQ(host_.TakeLobbyEvents(), (Strings{"Update lobby", "Update countdown",
                                                "Update countdown", "Update matchmaking"}));
    EXPECT_EQ(Retries(), 0u);
}

TEST_F(ReconnectTest, TheLocalPlayerDodgedWhenTheReconnectDtoLeavesChampionSelect) {
    for (const TbdGameDtoV1& dto : {Premade(1, Slots(3)), Premade(2, Slots(3)), ChampSelect(3)}) {
        host_.Push(dto);
    }
    host_.TakeLobbyEvents();
    Answer(JsonOf(Premade(4, Slots(3))));
    Reconnect();
    const Strings events = host_.TakeLobbyEvents();
    ASSERT_FALSE(events.empty());
    ASSERT_EQ(events.back(), "Update matchmaking");
    const BindingProperty& dodge = host_.Published().back().Field("dodgeData");
    EXPECT_EQ(dodge.Field("state").GetString(), "PartyDodged");
    EXPECT_EQ(dodge.Field("dodgerId").AsUnsigned(), 77u);

    // The same fall-back pushed by the service is a stranger's dodge.
    host_.Push(ChampSelect(5));
    host_.TakeLobbyEvents();
    host_.Push(Premade(6, Slots(3)));
    ASSERT_EQ(host_.TakeLobbyEvents().back(), "Update matchmaking");
    EXPECT_EQ(host_.Published().back().Field("dodgeData").Field("state").GetString(),
              "StrangerDodged");
}

TEST_F(ReconnectTest, TemporaryErrorsAreRetriedEveryThreeSeconds) {
    host_.Push(Premade(1, Slots(2)));
    TeamBuilderLogs();
    for (int i = 0; i < 3; ++i) {
        Answer("", kTemporary);
    }
    Answer(JsonOf(Premade(2, Slots(2))));

    host_.Change(kLoginUri, "Update", Session(true));
    EXPECT_EQ(Requests(), 1u);
    ASSERT_EQ(Retries(), 1u);
    const std::vector<TestHost::HostCall> scheduled = host_.Host().CallsTo(5);
    ASSERT_FALSE(scheduled.empty());
    EXPECT_EQ(scheduled.back().arguments.at(0),
              "qel-lobby-team-builder.retrieve-latest-tbd-game-dto");

    host_.Host().Advance(2900ms);
    EXPECT_EQ(Requests(), 1u);
    host_.Host().Advance(100ms);
    EXPECT_EQ(Requests(), 2u);
    host_.Host().Advance(3s);
    host_.Host().Advance(3s);
    EXPECT_EQ(Requests(), 4u);
    EXPECT_EQ(Retries(), 0u);
    // Temporary errors are not worth a warning.
    EXPECT_EQ(TeamBuilderLogs(), (Strings{"3 Successfully retrieved latest TB dto on reconnect."}));
}

TEST_F(ReconnectTest, OtherErrorsAreRetriedOncePerReconnection) {
    host_.Push(Premade(1, Slots(2)));
    TeamBuilderLogs();
    Answer("", "Error: SERVICE_DOWN");
    Answer("", "Error: SERVICE_DOWN");
    Answer("[1]");

    host_.Change(kLoginUri, "Update", Session(true));
    EXPECT_EQ(Retries(), 1u);
    host_.Host().Advance(3s);
    EXPECT_EQ(Requests(), 2u);
    EXPECT_EQ(Retries(), 0u);
    host_.Host().Advance(60s);
    EXPECT_EQ(Requests(), 2u);
    EXPECT_EQ(TeamBuilderLogs(), (Strings{"1 Failed to get latest TB dto: Error: SERVICE_DOWN",
                                          "1 Failed to get latest TB dto: Error: SERVICE_DOWN"}));

    // A payload that is not a DTO fails like any error; a new reconnection
    // starts a new series with its own retry.
    Reconnect();
    EXPECT_EQ(Requests(), 3u);
    const Strings logs = TeamBuilderLogs();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(
        logs[0].rfind("1 Failed to get latest TB dto: Failed to deserialize response payload", 0),
        0u)
        << logs[0];
    EXPECT_EQ(Retries(), 1u);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
