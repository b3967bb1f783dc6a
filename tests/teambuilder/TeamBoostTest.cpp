// The team boost through the host: what a session publishes as "team-boost"
// while the service's boost state changes, the GET route, and the purchase
// against a scripted service.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/teambuilder/ChampSelectTestSupport.h"
#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

constexpr const char* kNoBoost =
    "No team boost available for this game, or summoner is not in a game.";

TbdGameDtoV1 Boosted(int32_t counter, int64_t cost, bool activated, int64_t activator,
                     std::vector<int64_t> skins, std::string teamId = "team-1") {
    TbdGameDtoV1 dto = Draft(counter, std::move(teamId));
    TeamBuilderBoostInfo& boost = dto.championSelectState->battleBoostState;
    boost.allowBattleBoost = true;
    boost.cost = cost;
    boost.battleBoostActivated = activated;
    boost.activatorCellId = activator;
    boost.unlockedSkinIds = std::move(skins);
    return dto;
}

// The team-boost events since the last call, with their data as JSON.
Strings BoostEvents(TeamBuilderHost& host) {
    Strings lines;
    for (const DraftEvent& event : TakeDraftEvents(host)) {
        if (event.line.find("team-boost") != std::string::npos) {
            lines.push_back(event.line + " " + Framework::WriteJson(event.data));
        }
    }
    return lines;
}

std::string Boost(const char* name, const char* mode, int64_t price, const char* skins,
                  bool unlocked) {
    return std::string(R"({"availableSkins":)") + skins +
           R"(,"ipReward":0,"ipRewardForPurchaser":0,"price":)" + std::to_string(price) +
           R"(,"skinUnlockMode":")" + mode + R"(","summonerName":")" + name + R"(","unlocked":)" +
           (unlocked ? "true" : "false") + "}";
}

TEST(TeamBoostTest, RefreshesOnlyWhenSkinsChangeOrTheBoostBecomesActive) {
    TeamBuilderHost host;
    struct Step {
        const char* name;
        TbdGameDtoV1 dto;
        Strings events;
    };
    const Step steps[] = {
        {"creation carries only the price",
         Boosted(1, 250, false, 0, {}),
         {"Create team-boost " + Boost("", "", 250, "[]", false)}},
        {"a price change alone", Boosted(2, 300, false, 0, {}), {}},
        {"activated by an allied cell",
         Boosted(3, 300, true, 2, {}),
         {"Update team-boost " + Boost("summoner2", "SINGLE", 300, "[]", true)}},
        {"still active, nothing else", Boosted(4, 300, true, 2, {}), {}},
        {"inactive again with the same skins", Boosted(5, 300, false, 2, {}), {}},
        {"a skin unlocked, activator unknown",
         Boosted(6, 300, false, 42, {1001}),
         {"Update team-boost " + Boost("", "SINGLE", 300, "[1001]", false)}},
        {"same length, another skin",
         Boosted(7, 310, false, 6, {1002}),
         {"Update team-boost " + Boost("summoner6", "SINGLE", 310, "[1002]", false)}},
        {"reactivated",
         Boosted(8, 320, true, 2, {1002}),
         {"Update team-boost " + Boost("summoner2", "SINGLE", 320, "[1002]", true)}},
    };
    std::string published;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        NextMillisecond();
        host.Push(step.dto);
        const Strings events = BoostEvents(host);
        EXPECT_EQ(events, step.events);
        if (!events.empty()) {
            published = events.back().substr(events.back().find('{'));
        }
        const TestHost::CallResult got = host.Host().Call("GET", DraftUri("team-boost"));
        EXPECT_EQ(got.status, 200);
        EXPECT_EQ(got.json, published);
    }
}

TEST(TeamBoostTest, ExistsOnlyDuringASession) {
    TeamBuilderHost host;
    auto get = [&] { return host.Host().Call("GET", DraftUri("team-boost")); };
    TestHost::CallResult got = get();
    EXPECT_EQ(got.status, 404);
    EXPECT_EQ(got.error, kNoBoost);

    // A session entered with the boost already active is refreshed at once.
    host.Push(Boosted(1, 95, true, 1, {5}));
    EXPECT_EQ(BoostEvents(host),
              (Strings{"Create team-boost " + Boost("", "", 95, "[]", false),
                       "Update team-boost " + Boost("summoner1", "SINGLE", 95, "[5]", true)}));

    host.Push(Premade(2, Slots(1)));
    EXPECT_EQ(BoostEvents(host), (Strings{"Delete team-boost "}));
    EXPECT_EQ(get().status, 404);

    // The next session starts from the defaults again.
    host.Push(Boosted(3, 120, false, 0, {}, "team-2"));
    EXPECT_EQ(BoostEvents(host), (Strings{"Create team-boost " + Boost("", "", 120, "[]", false)}));
}

TEST(TeamBoostTest, PurchaseAppliesTheAnsweredDtoOrFailsWithoutChangingState) {
    const std::string kPrefix = "Unable to purchase team boost: ";
    struct Case {
        const char* name;
        ServiceScript::Reply reply;
        std::string error;  // empty: success
        Strings events;
    };
    const Case cases[] = {
        {"the answer carries the activated boost",
         {"tbdGameDtoV1", JsonOf(Boosted(5, 250, true, 1, {77}))},
         "",
         {"Update team-boost " + Boost("summoner1", "SINGLE", 250, "[77]", true)}},
        {"refused by the service",
         {"tbdGameDtoV1", JsonOf(Boosted(5, 250, true, 1, {77})), "SERVICE UNAVAILABLE"},
         kPrefix + "Received status SERVICE UNAVAILABLE instead of expected status of OK from "
                   "request to teambuilder-draft:activateBattleBoostV1",
         {}},
        {"another message in answer",
         {"callFailedV1", R"({"counter":5})"},
         kPrefix +
             "Did not receive the expected method tbdGameDtoV1, instead received callFailedV1",
         {}},
        {"no answer from the proxy", {"", "", "", "no answer"}, kPrefix + "no answer", {}},
        {"a DTO of the wrong kinds is refused by the intake",
         {"tbdGameDtoV1", R"({"counter":9,"queueId":"none","championSelectState":7})"},
         "",
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TeamBuilderHost host;
        ServiceScript service(host);
        const TbdGameDtoV1 before = Boosted(4, 250, false, 0, {});
        host.Push(before);
        TakeDraftEvents(host);
        service.Sent();  // the ward-skin request of the new session
        const std::string boostBefore = host.Host().Call("GET", DraftUri("team-boost")).json;

        service.Answer("activateBattleBoostV1", c.reply);
        const TestHost::CallResult got = host.Host().Call("POST", DraftUri("team-boost/purchase"));
        EXPECT_EQ(service.Sent(), (Strings{"activateBattleBoostV1 {}"}));
        EXPECT_EQ(got.failed, !c.error.empty());
        if (!c.error.empty()) {
            EXPECT_EQ(got.status, 500);
            EXPECT_EQ(got.error, c.error);
        }
        EXPECT_EQ(BoostEvents(host), c.events);
        if (c.events.empty()) {
            EXPECT_EQ(host.Host().Call("GET", DraftUri("team-boost")).json, boostBefore);
            EXPECT_EQ(host.Host().Call("GET", DraftUri("session/timer")).status, 200);
        }
    }
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
