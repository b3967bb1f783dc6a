// The simulated services on their own: a fake client plays the local player
// through the service methods and reads the pushed game records, on a
// virtual clock. The scenarios' stories as the plugin sees them (dodges,
// declines, kicks, reconnections, same seeds) are checked through the real
// plugin by the demo scenario tests.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "sim/Catalog.h"
#include "sim/ServiceSimulator.h"

namespace Orvan::Simulation {
namespace {

class FakeWorld : public SimEnvironment {
public:
    struct Message {
        std::string method;
        std::string payload;
    };

    double Now() const override { return now_; }
    void After(double seconds, std::string, std::function<void()> task) override {
        tasks_.emplace(std::make_pair(now_ + std::max(0.0, seconds), next_++), std::move(task));
    }
    void Push(std::string_view service, std::string_view method, std::string payload) override {
        EXPECT_EQ(service, kTeamBuilderService);
        inbox_.push_back({std::string(method), std::move(payload)});
    }
    void Narrate(std::string_view actor, std::string text) override {
        story_.push_back(std::string(actor) + ": " + text);
    }
    void StartGame() override { gameStarted_ = true; }
    void InterruptConnection(double) override {}

    // Runs due tasks one at a time until `done` or nothing is left.
    bool RunUntil(const std::function<bool()>& done, double limit = 600.0) {
        while (!done()) {
            if (tasks_.empty() || tasks_.begin()->first.first > limit) {
                return false;
            }
            auto task = tasks_.begin();
            now_ = std::max(now_, task->first.first);
            auto run = std::move(task->second);
            tasks_.erase(task);
            run();
        }
        return true;
    }

    std::vector<Message> inbox_;
    std::vector<std::string> story_;
    bool gameStarted_ = false;

private:
    double now_ = 0.0;
    uint64_t next_ = 0;
    std::map<std::pair<double, uint64_t>, std::function<void()>> tasks_;
};

// Plays the local player the way the plugin and its user would.
class Client {
public:
    Client(const char* scenario, const SimOptions& options = {})
        : services_(world_, *FindScenario(scenario), options) {
        services_.Start();
    }

    ServiceAnswer Call(const std::string& method, const std::string& payload,
                       const std::string& service = std::string(kTeamBuilderService),
                       const std::string& responseMethod = "") {
        ServiceAnswer answer =
            services_.Handle({service, method, payload, responseMethod, "receiveError"});
        if (answer.method == "tbdGameDtoV1") {
            Take(answer.payload);
        }
        return answer;
    }

    // Reads every pushed message; game records become the current one.
    void Drain() {
        for (; read_ < world_.inbox_.size(); ++read_) {
            const FakeWorld::Message& message = world_.inbox_[read_];
            if (message.method == "tbdGameDtoV1") {
                Take(message.payload);
            } else {
                others_.push_back(message);
            }
        }
    }

    bool WaitFor(const std::function<bool()>& condition) {
        return world_.RunUntil([&] {
            Drain();
            return condition();
        });
    }

    std::string Phase() const { return Text(dto_, "phaseName"); }

    // Acts on every champion-select record: bans, then picks when its turn comes.
    void PlayChampSelect() {
        const rapidjson::Value& state = dto_["championSelectState"];
        if (Text(state, "subphase") != "BAN_PICK") {
            return;
        }
        const int local = state["localPlayerCellId"].GetInt();
        const auto& set = state["actionSetList"][state["currentActionSetIndex"].GetUint()];
        for (const auto& action : set.GetArray()) {
            if (action["actorCellId"].GetInt() != local || action["completed"].GetBool()) {
                continue;
            }
            const bool ban = Text(action, "type") == "BAN";
            for (const Champion& champion : Champions()) {
                ServiceAnswer answer = Call(
                    "updateActionV1",
                    "{\"actionId\":" + std::to_string(action["actionId"].GetInt()) +
                        ",\"championId\":" + std::to_string(champion.id) + ",\"completed\":true}");
                if (answer.status == "OK") {
                    (ban ? banned_ : picked_) = champion.id;
                    return;
                }
            }
        }
    }

    static std::string Text(const rapidjson::Value& value, const char* name) {
        auto found = value.FindMember(name);
        return found != value.MemberEnd() && found->value.IsString() ? found->value.GetString()
                                                                     : "";
    }

    FakeWorld world_;
    ServiceSimulator services_;
    rapidjson::Document dto_;
    std::vector<int> counters_;
    std::vector<FakeWorld::Message> others_;
    int banned_ = 0;
    int picked_ = 0;

private:
    void Take(const std::string& payload) {
        dto_.Parse(payload.c_str());
        ASSERT_FALSE(dto_.HasParseError()) << payload;
        counters_.push_back(dto_["counter"].GetInt());
    }

    size_t read_ = 0;
};

void ExpectRisingCounters(const std::vector<int>& counters) {
    for (size_t i = 1; i < counters.size(); ++i) {
        ASSERT_GT(counters[i], counters[i - 1]) << "at record " << i;
    }
}

void CreateLobbyAndQueue(Client& client) {
    ASSERT_EQ(client.Call("createDraftPremadeV1", "62").status, "OK");
    EXPECT_EQ(client.Phase(), "DRAFT_PREMADE");
    ASSERT_EQ(client
                  .Call("specifyDraftPositionPreferencesV2",
                        "{\"firstPreference\":\"MIDDLE\",\"secondPreference\":\"TOP\","
                        "\"excludedPreference\":\"UTILITY\"}")
                  .status,
              "OK");
    const rapidjson::SizeType party =
        static_cast<rapidjson::SizeType>(client.services_.Scenario().partySize);
    ASSERT_TRUE(client.WaitFor([&] {
        const rapidjson::Value& premade = client.dto_["premadeState"];
        return premade["draftSlots"].Size() == party && premade["readyToMatchmake"].GetBool();
    }));
    ASSERT_EQ(client.Call("startMatchmakingV1", "{\"accessTokenStr\":\"\"}").method,
              "tbdGameDtoV1");
    EXPECT_EQ(client.Phase(), "MATCHMAKING");
}

TEST(ServiceSimulator, DraftRunsFromLobbyToGameStartWithRisingCounters) {
    Client client("draft");
    CreateLobbyAndQueue(client);
    // First ready check: a stranger declines, the party searches again.
    ASSERT_TRUE(client.WaitFor([&] { return client.Phase() == "AFK_CHECK"; }));
    EXPECT_FALSE(client.dto_.HasMember("premadeState"));
    ASSERT_EQ(client.Call("indicateAfkReadinessV1", "{\"afkReady\":true}").status, "OK");
    EXPECT_TRUE(client.dto_["afkCheckState"]["afkReady"].GetBool());
    ASSERT_TRUE(client.WaitFor([&] { return client.Phase() == "MATCHMAKING"; }))
        << ::testing::PrintToString(client.world_.story_);
    EXPECT_EQ(Client::Text(client.dto_["matchmakingState"], "backwardsTransitionReason"),
              "AFK_CHECK_FAILED");
    ASSERT_TRUE(client.WaitFor([&] { return client.Phase() == "AFK_CHECK"; }));
    client.Call("indicateAfkReadinessV1", "{\"afkReady\":true}");
    ASSERT_TRUE(client.WaitFor([&] { return client.Phase() == "CHAMPION_SELECT"; }));
    EXPECT_EQ(Client::Text(client.dto_["championSelectState"], "subphase"), "PLANNING");
    EXPECT_TRUE(client.dto_["championSelectState"]["ceremoniesByActionSetIndex"].HasMember("1"));

    bool ranOut = false;
    ASSERT_TRUE(client.world_.RunUntil([&] {
        client.Drain();
        if (client.Phase() == "CHAMPION_SELECT") {
            client.PlayChampSelect();
        }
        return client.world_.gameStarted_;
    }));
    for (const std::string& line : client.world_.story_) {
        ranOut = ranOut || line.find("ban timer run out") != std::string::npos;
    }
    EXPECT_TRUE(ranOut) << "the idle stranger lets the ban timer run out";
    EXPECT_NE(client.banned_, 0);
    EXPECT_NE(client.picked_, 0);
    const rapidjson::Value& state = client.dto_["championSelectState"];
    EXPECT_EQ(Client::Text(state, "subphase"), "FINALIZATION");
    EXPECT_TRUE(state["battleBoostState"]["battleBoostActivated"].GetBool());
    ExpectRisingCounters(client.counters_);
}

TEST(ServiceSimulator, LeaverPenaltyAsksForTheLowPriorityToken) {
    Client client("low-priority");
    ASSERT_EQ(client.Call("createDraftPremadeV1", "62").status, "OK");
    client.Call("specifyDraftPositionPreferencesV1",
                "{\"firstPreference\":\"MIDDLE\",\"secondPreference\":\"TOP\"}");
    ASSERT_TRUE(client.WaitFor([&] {
        const rapidjson::Value& premade = client.dto_["premadeState"];
        return premade["draftSlots"].Size() == 2 && premade["readyToMatchmake"].GetBool();
    }));
    ServiceAnswer refused = client.Call("startMatchmakingV1", "{\"accessTokenStr\":\"\"}");
    ASSERT_EQ(refused.method, "gatekeeperRestrictedV2");
    rapidjson::Document restriction;
    restriction.Parse(refused.payload.c_str());
    const rapidjson::Value& first = restriction["gatekeeperRestrictions"][0];
    EXPECT_EQ(Client::Text(first, "reason"), "QUITGUARDED");
    const std::string token = Client::Text(first, "payload");
    ASSERT_FALSE(token.empty());
    EXPECT_EQ(client.Call("startMatchmakingV1", "{\"accessTokenStr\":\"wrong\"}").method,
              "gatekeeperRestrictedV2");
    ASSERT_EQ(client.Call("startMatchmakingV1", "{\"accessTokenStr\":\"" + token + "\"}").method,
              "tbdGameDtoV1");
    EXPECT_EQ(client.Phase(), "MATCHMAKING");
    EXPECT_EQ(client.dto_["matchmakingState"]["estimatedMatchmakingTimeMillis"].GetInt(), 300000);
    EXPECT_EQ(
        client.Call("abandonQuitguardLowPriorityQueueV1", "{\"accessTokenStr\":\"x\"}").method,
        "callFailedV1");
    EXPECT_EQ(
        client.Call("abandonQuitguardLowPriorityQueueV1", "{\"accessTokenStr\":\"" + token + "\"}")
            .status,
        "OK");
    ASSERT_TRUE(client.WaitFor([&] { return client.Phase() == "DRAFT_PREMADE"; }));
    ASSERT_EQ(client.others_.size(), 1u);
    EXPECT_EQ(client.others_[0].method, "quitguardLowPriorityQueueAbandonedV1");
}

TEST(ServiceSimulator, RefusesActionsOutOfTurnAndUnknownCalls) {
    Client client("draft");
    struct Case {
        const char* method;
        const char* payload;
        const char* answerMethod;
        const char* status;
    };
    const Case cases[] = {
        {"startMatchmakingV1", "{}", "tbdGameDtoV1", "Error: INVALID_CONTEXT"},
        {"indicateAfkReadinessV1", "{\"afkReady\":true}", "tbdGameDtoV1", "Error: INVALID_CONTEXT"},
        {"updateActionV1", "{\"actionId\":1}", "tbdGameDtoV1", "Error: INVALID_CONTEXT"},
        {"rerollV1", "{}", "tbdGameDtoV1", "Error: REROLL_NOT_ALLOWED"},
        {"noSuchMethodV9", "{}", "callFailedV1", "OK"},
        {"createDraftPremadeV1", "{not json", "callFailedV1", "OK"},
        {"createDraftPremadeV1", "63", "gatekeeperRestrictedV2", "OK"},
    };
    for (const Case& c : cases) {
        ServiceAnswer answer = client.Call(c.method, c.payload);
        EXPECT_EQ(answer.method, c.answerMethod) << c.method << " " << c.payload;
        EXPECT_EQ(answer.status, c.status) << c.method << " " << c.payload;
    }
    EXPECT_EQ(client.Call("whatever", "{}", "elsewhere").status, "SERVICE UNKNOWN");
}

TEST(ServiceSimulator, WardSkinsAnswerWithTheSelectionOrTheErrorMethod) {
    Client client("draft");
    ServiceAnswer current =
        client.Call("requestSelectedWardSkin", "{}", "wardSkins", "receiveSelectedWardSkin");
    EXPECT_EQ(current.method, "receiveSelectedWardSkin");
    EXPECT_EQ(current.payload, "{\"selectedWardSkinId\":1}");
    ServiceAnswer chosen = client.Call("selectWardSkin", "{\"wardSkinId\":7}", "wardSkins",
                                       "receiveSelectionConfirmation");
    EXPECT_EQ(chosen.payload, "{\"selectedWardSkinId\":7}");
    ServiceAnswer refused = client.Call("selectWardSkin", "{\"wardSkinId\":3}", "wardSkins",
                                        "receiveSelectionConfirmation");
    EXPECT_EQ(refused.method, "receiveError");
    EXPECT_NE(refused.error.find("WARD_SKIN_NOT_OWNED"), std::string::npos);
}

TEST(ServiceSimulator, MalformedShareDamagesAnswersInEveryWay) {
    SimOptions options;
    options.malformedShare = 1.0;
    Client client("draft", options);
    std::set<std::string> kinds;
    for (int i = 0; i < 60; ++i) {
        ServiceAnswer answer = client.services_.Handle(
            {std::string(kTeamBuilderService), "retrieveFeatureToggles", "{}", "", ""});
        rapidjson::Document parsed;
        parsed.Parse(answer.payload.c_str());
        if (answer.method != "featureTogglesRetrieved") {
            kinds.insert("method");
        } else if (parsed.HasParseError()) {
            kinds.insert(answer.payload.size() > 9000 ? "nesting" : "cut");
        } else if (parsed.IsNull()) {
            kinds.insert("null");
        } else {
            kinds.insert("fields");
        }
    }
    EXPECT_EQ(client.services_.Statistics().malformed, 60u);
    EXPECT_GE(kinds.size(), 4u);
}

}  // namespace
}  // namespace Orvan::Simulation
