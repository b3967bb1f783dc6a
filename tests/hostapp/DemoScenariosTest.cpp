// Every scenario through the real plugin, as fast as the work allows, with
// its JSON timeline read back and checked. A scenario that stops at an
// operation the plugin does not implement yet is skipped with that reason;
// any other way of not reaching the expected end fails.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/Demo.h"

namespace Orvan::Host {
namespace {

struct Timed {
    DemoResult result;
    std::vector<std::string> lines;
    std::vector<rapidjson::Document> objects;

    // Index of the first line from `from` on for which `test` holds, or -1.
    int Find(const std::function<bool(const rapidjson::Value&)>& test, int from = 0) const {
        for (size_t i = static_cast<size_t>(from); i < objects.size(); ++i) {
            if (test(objects[i])) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    int FindEvent(const std::string& uri, const std::string& type, const std::string& text = "",
                  int from = 0) const {
        return Find(
            [&](const rapidjson::Value& o) {
                return Kind(o) == "event" && std::string(o["uri"].GetString()) == uri &&
                       (type.empty() || std::string(o["eventType"].GetString()) == type) &&
                       std::string(o["summary"].GetString()).find(text) != std::string::npos;
            },
            from);
    }
    int FindNote(const std::string& text, int from = 0) const {
        return Find(
            [&](const rapidjson::Value& o) {
                return Kind(o) == "note" &&
                       std::string(o["text"].GetString()).find(text) != std::string::npos;
            },
            from);
    }
    static std::string Kind(const rapidjson::Value& o) { return o["kind"].GetString(); }
};

Timed Play(const std::string& scenario, uint64_t seed = 1, double malformed = 0.0) {
    DemoOptions options;
    options.scenario = scenario;
    options.speed = 0.0;
    options.seed = seed;
    options.json = true;
    options.detail = 2;
    options.malformedShare = malformed;
    options.plugin.path = DefaultPluginPath();
    std::FILE* out = std::tmpfile();
    options.out = out;
    Timed run;
    run.result = RunDemo(options);
    std::rewind(out);
    std::string line;
    for (int c = std::fgetc(out); c != EOF; c = std::fgetc(out)) {
        if (c == '\n') {
            run.lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(c);
        }
    }
    std::fclose(out);
    for (const std::string& text : run.lines) {
        run.objects.emplace_back();
        run.objects.back().Parse(text.c_str());
    }
    return run;
}

const char* kPlugin = "/qel-lobby-team-builder/";

std::string Uri(const char* rest) {
    return std::string(kPlugin) + rest;
}

void CheckTimelineShape(const Timed& run) {
    ASSERT_FALSE(run.lines.empty());
    double last = 0.0;
    for (size_t i = 0; i < run.objects.size(); ++i) {
        const rapidjson::Document& object = run.objects[i];
        ASSERT_FALSE(object.HasParseError()) << "line " << i << ": " << run.lines[i];
        ASSERT_TRUE(object.IsObject() && object.HasMember("t") && object.HasMember("kind"))
            << run.lines[i];
        EXPECT_GE(object["t"].GetDouble(), last) << "time runs forward at line " << i;
        last = object["t"].GetDouble();
    }
    const rapidjson::Value& outcome = run.objects.back();
    EXPECT_EQ(Timed::Kind(outcome), "outcome");
    EXPECT_EQ(outcome["ok"].GetBool(), run.result.success);
}

#define SKIP_IF_PLUGIN_INCOMPLETE(run)                                                   \
    if (!(run).result.missingEndpoint.empty()) {                                         \
        GTEST_SKIP() << "the plugin does not implement " << (run).result.missingEndpoint \
                     << " yet: " << (run).result.outcome;                                \
    }

TEST(DemoScenarios, Draft) {
    const Timed run = Play("draft");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    // The story in order: a full lobby, a search, a failed and a good ready
    // check, champion select with its ceremony, the game start clearing all.
    const int lobby = run.FindEvent(Uri("v1/lobby"), "Update", "2 members");
    const int searching = run.FindEvent(Uri("v1/matchmaking"), "", "Searching", lobby);
    const int stranger = run.FindEvent(Uri("v1/matchmaking"), "", "StrangerNotReady", searching);
    const int session = run.FindEvent(Uri("champ-select/v1/session"), "Create", "", stranger);
    const int started = run.FindNote("the game client is running", session);
    const int cleared = run.FindEvent(Uri("champ-select/v1/session"), "Delete", "", started);
    for (int index : {lobby, searching, stranger, session, started, cleared}) {
        EXPECT_GE(index, 0);
    }
    EXPECT_GE(run.FindEvent(Uri("v1/lobby"), "Delete", "", started), 0);
    EXPECT_GE(run.FindEvent(Uri("v1/matchmaking"), "Delete", "", started), 0);
    EXPECT_GE(run.FindNote("ban timer run out"), 0) << "an idle stranger lets the ban timer end";
    EXPECT_GE(run.FindNote("brings its window to the front"), 0);
}

TEST(DemoScenarios, Dodge) {
    const Timed run = Play("dodge");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    const int left = run.FindNote("leaves champion select");
    ASSERT_GE(left, 0);
    EXPECT_GE(run.FindEvent(Uri("champ-select/v1/session"), "Delete", "", left), 0);
    EXPECT_GE(run.FindEvent(Uri("v1/matchmaking"), "", "dodge StrangerDodged", left), 0);
}

TEST(DemoScenarios, Decline) {
    const Timed run = Play("decline");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    const int declined = run.FindNote("declines the ready check");
    ASSERT_GE(declined, 0);
    const int named =
        run.FindEvent(Uri("v1/matchmaking"), "", "PartyNotReady (declined by", declined);
    EXPECT_GE(named, 0);
    EXPECT_EQ(run.FindEvent(Uri("champ-select/v1/session"), "Create"), -1);
}

TEST(DemoScenarios, Kicked) {
    const Timed run = Play("kicked");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    const int joined = run.Find([](const rapidjson::Value& o) {
        return Timed::Kind(o) == "rest" &&
               std::string(o["uri"].GetString()).find("invitations/accept") != std::string::npos &&
               o["status"].GetInt() == 200;
    });
    ASSERT_GE(joined, 0);
    const int kicked = run.FindEvent(Uri("v1/lobby"), "Update", "you were KICKED", joined);
    ASSERT_GE(kicked, 0);
    EXPECT_GE(run.FindEvent(Uri("v1/lobby"), "Update", "removal reason Kicked", joined), 0);
    EXPECT_GT(run.FindEvent(Uri("v1/lobby"), "Delete", "", kicked), kicked);
}

TEST(DemoScenarios, LowPriority) {
    const Timed run = Play("low-priority");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    const int penalty = run.FindEvent(Uri("v1/matchmaking"), "", "low-priority penalty 300 s");
    ASSERT_GE(penalty, 0);
    const int searching = run.FindEvent(Uri("v1/matchmaking"), "", "Searching", penalty);
    const int abandoned =
        run.FindEvent(Uri("v1/matchmaking"), "", "AbandonedLowPriorityQueue", searching);
    EXPECT_GE(searching, 0);
    EXPECT_GE(abandoned, 0);
    EXPECT_GE(run.FindEvent(Uri("v1/lobby"), "Delete", "", abandoned), 0);
}

TEST(DemoScenarios, Reconnect) {
    const Timed run = Play("reconnect");
    CheckTimelineShape(run);
    SKIP_IF_PLUGIN_INCOMPLETE(run);
    ASSERT_TRUE(run.result.success) << run.result.outcome;
    const int lost = run.FindNote("connection to the services is lost");
    const int back = run.FindNote("connection to the services is back", lost);
    ASSERT_GE(lost, 0);
    ASSERT_GE(back, 0);
    const int first = run.FindNote("temporary error", back);
    EXPECT_GE(run.FindNote("temporary error", first + 1), 0) << "two temporary errors";
}

TEST(DemoScenarios, SameSeedGivesTheSameTimeline) {
    const Timed first = Play("decline", 5);
    const Timed second = Play("decline", 5);
    ASSERT_EQ(first.lines.size(), second.lines.size());
    for (size_t i = 0; i < first.lines.size(); ++i) {
        // Plugin paths and memory figures aside, every line repeats.
        EXPECT_EQ(first.lines[i], second.lines[i]) << "line " << i;
    }
}

TEST(DemoScenarios, HostAndPluginSurviveMalformedServiceAnswers) {
    for (const char* scenario : {"draft", "kicked", "low-priority"}) {
        for (uint64_t seed : {1u, 2u, 3u}) {
            const Timed run = Play(scenario, seed, 0.35);
            CheckTimelineShape(run);
            EXPECT_TRUE(run.result.success)
                << scenario << " seed " << seed << ": " << run.result.outcome;
            EXPECT_GT(run.result.malformed, 0u) << scenario << " seed " << seed;
        }
    }
}

}  // namespace
}  // namespace Orvan::Host
