// The requests to show the host application's window during champion
// select: the immediate request when the local player's set becomes
// current, the timers set ten seconds before a phase ends, and what those
// timers do when they fire, with their log lines.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/teambuilder/ChampSelectTestSupport.h"
#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

constexpr const char* kTimerPrefix = "qel-champ-select-legacy.show-ux-";

// Sets 0 and 2 belong to others; the local player (cell 1) acts in 1 and 3.
TbdGameDtoV1 Turn(int32_t counter, std::string subphase, int64_t remainingMillis,
                  int32_t setIndex) {
    TbdGameDtoV1 dto = Draft(counter);
    ChampionSelectStateV1& state = *dto.championSelectState;
    state.subphase = std::move(subphase);
    state.currentTimeRemainingMillis = remainingMillis;
    state.currentActionSetIndex = setIndex;
    state.actionSetList = {
        ArrayOf({Action(1, 6, "BAN")}),
        ArrayOf({Action(2, 2, "PICK"), Action(3, 1, "PICK")}),
        ArrayOf({Action(4, 2, "PICK")}),
        ArrayOf({Action(5, 1, "PICK")}),
    };
    return dto;
}

struct UxHost {
    UxHost() : host(kInProcess) {}

    void Push(const TbdGameDtoV1& dto) {
        NextMillisecond();
        host.Push(dto);
    }
    // "<label> <delay in whole seconds>" of the UX timers set since the last
    // call.
    Strings TakeTimers() {
        Strings timers;
        const std::vector<TestHost::HostCall> calls = host.Host().CallsTo(5);
        for (size_t i = timersSeen; i < calls.size(); ++i) {
            if (calls[i].arguments[0].rfind(kTimerPrefix, 0) == 0) {
                const double delay = std::strtod(calls[i].arguments[1].c_str(), nullptr);
                timers.push_back(calls[i].arguments[0] + " " + std::to_string(std::lround(delay)));
            }
        }
        timersSeen = calls.size();
        return timers;
    }
    // How many show requests were sent since the last call; each must come
    // without a body.
    size_t TakeShows() {
        size_t shows = 0;
        const std::vector<TestHost::Request>& requests = host.Host().Requests();
        for (size_t i = requestsSeen; i < requests.size(); ++i) {
            if (requests[i].methodName == "POST" && requests[i].path == "/orvanclient/ux-show") {
                EXPECT_TRUE(requests[i].arguments.empty());
                ++shows;
            }
        }
        requestsSeen = requests.size();
        return shows;
    }
    // This concern's log lines, "<level> <groups> <text>".
    Strings TakeLogs() {
        Strings lines;
        for (std::string& line : host.TakeLogEntries()) {
            for (const char* marker : {"ux timer", "Ux timer", "Timer phase", "out-of-bounds"}) {
                if (line.find(marker) != std::string::npos) {
                    lines.push_back(std::move(line));
                    break;
                }
            }
        }
        return lines;
    }

    TeamBuilderHost host;
    size_t timersSeen = 0;
    size_t requestsSeen = 0;
};

// The checker alone: what a DTO asks for, with the state it finds and
// without a host. The timer's name takes the next serial.
TEST(UxTimersTest, CheckerTable) {
    using Framework::kAlways;
    using Framework::kGroupDbg;
    using Framework::kGroupGen;
    using Framework::kOkay;
    UxTimers fourSet;
    for (int i = 0; i < 4; ++i) {
        fourSet.Keep(UxStep{false, true});
    }
    const UxTimers fresh;
    const std::string t1 = std::string(kTimerPrefix) + "1";
    const std::string t5 = std::string(kTimerPrefix) + "5";
    const auto phaseLine = [](int64_t millis) {
        return LogLine{kAlways, kGroupDbg,
                       "Timer phase changed, resetting outstanding timer count to 0, phase ends "
                       "in " +
                           std::to_string(millis) + " ms."};
    };
    const auto creating = [](const std::string& name, const std::string& phase, int64_t millis) {
        return LogLine{kAlways, kGroupDbg,
                       "Creating ux timer " + name + " to show for phase " + phase + " in " +
                           std::to_string(millis) + " ms"};
    };
    struct Row {
        const char* name;
        std::optional<TbdGameDtoV1> previous;
        std::optional<TbdGameDtoV1> incoming;
        const UxTimers* timers;
        Effects expected;
        UxStep step;
    };
    const Row rows[] = {
        {"entered on the player's turn",
         std::nullopt,
         Turn(1, "BAN_PICK", 30000, 1),
         &fresh,
         {UxShowRequest(), phaseLine(30000), creating(t1, "BAN_PICK", 20000),
          UxShowTimer{t1, "BAN_PICK", 20000}},
         {true, true}},
        {"the same set again",
         Turn(1, "BAN_PICK", 30000, 1),
         Turn(2, "BAN_PICK", 25000, 1),
         &fresh,
         {},
         {false, false}},
        {"another player's set",
         Turn(1, "BAN_PICK", 30000, 1),
         Turn(2, "BAN_PICK", 25000, 2),
         &fresh,
         {},
         {false, false}},
        {"the player's set with too little left",
         Turn(1, "BAN_PICK", 30000, 2),
         Turn(2, "BAN_PICK", 14999, 3),
         &fresh,
         {UxShowRequest()},
         {false, false}},
        {"an index past the sets",
         Turn(1, "BAN_PICK", 30000, 2),
         Turn(2, "BAN_PICK", 25000, 7),
         &fresh,
         {LogLine{kOkay, kGroupGen,
                  "Received an out-of-bounds action set index in phase BAN_PICK: 7 (out of 4)"}},
         {false, false}},
        {"finalization names the timer by the next serial",
         Turn(1, "BAN_PICK", 30000, 2),
         Turn(2, "FINALIZATION", 40000, 2),
         &fourSet,
         {phaseLine(40000), creating(t5, "FINALIZATION", 30000),
          UxShowTimer{t5, "FINALIZATION", 30000}},
         {true, true}},
        {"the session left",
         Turn(1, "BAN_PICK", 30000, 2),
         std::nullopt,
         &fourSet,
         {phaseLine(0)},
         {true, false}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Effects got;
        const UxStep step =
            CheckUx(GameDtoRecord{row.previous}, GameDtoRecord{row.incoming}, *row.timers, got);
        EXPECT_EQ(got, row.expected);
        EXPECT_EQ(step, row.step);
    }
}

TEST(UxTimersTest, ShowsAtOnceAndSetsTimersWhenDue) {
    struct Step {
        TbdGameDtoV1 dto;
        size_t shows;
        Strings timers;
    };
    struct Case {
        const char* name;
        std::vector<Step> steps;
    };
    const std::string t1 = std::string(kTimerPrefix) + "1";
    const std::string t2 = std::string(kTimerPrefix) + "2";
    const Case cases[] = {
        {"finalization with a minute left", {{Turn(1, "FINALIZATION", 60000, 0), 0, {t1 + " 50"}}}},
        {"finalization with too little left", {{Turn(1, "FINALIZATION", 14999, 0), 0, {}}}},
        {"finalization at the least time for a timer",
         {{Turn(1, "FINALIZATION", 15000, 0), 0, {t1 + " 5"}}}},
        {"entered on the player's turn", {{Turn(1, "BAN_PICK", 30000, 1), 1, {t1 + " 20"}}}},
        {"the player's turn with too little left", {{Turn(1, "BAN_PICK", 14999, 3), 1, {}}}},
        {"the turn moves to the player, then stays",
         {{Turn(1, "BAN_PICK", 30000, 0), 0, {}},
          {Turn(2, "BAN_PICK", 29000, 1), 1, {t1 + " 19"}},
          {Turn(3, "BAN_PICK", 28000, 1), 0, {}},
          {Turn(4, "BAN_PICK", 27000, 2), 0, {}},
          {Turn(5, "BAN_PICK", 26000, 3), 1, {t2 + " 16"}}}},
        {"finalization entered on the player's turn sets one timer",
         {{Turn(1, "BAN_PICK", 30000, 0), 0, {}},
          {Turn(2, "FINALIZATION", 40000, 3), 1, {t1 + " 30"}}}},
        {"an index past the sets still lets the phase set its timer",
         {{Turn(1, "FINALIZATION", 60000, 4), 0, {t1 + " 50"}}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        UxHost ux;
        ux.Push(Premade(0, Slots(1)));
        for (size_t i = 0; i < c.steps.size(); ++i) {
            SCOPED_TRACE(i);
            ux.Push(c.steps[i].dto);
            EXPECT_EQ(ux.TakeShows(), c.steps[i].shows);
            EXPECT_EQ(ux.TakeTimers(), c.steps[i].timers);
        }
    }
}

TEST(UxTimersTest, LogsPhaseChangesTimersAndBadIndexes) {
    UxHost ux;
    ux.Push(Turn(1, "BAN_PICK", 30000, 4));
    ux.Push(Turn(2, "BAN_PICK", 29000, -1));
    ux.Push(Turn(3, "FINALIZATION", 60000, 0));
    EXPECT_EQ(
        ux.TakeLogs(),
        (Strings{"0 2 Received an out-of-bounds action set index in phase BAN_PICK: 4 (out of 4)",
                 "3 1 Timer phase changed, resetting outstanding timer count to 0, phase ends in "
                 "30000 ms.",
                 "0 2 Received an out-of-bounds action set index in phase BAN_PICK: -1 (out of 4)",
                 "3 1 Timer phase changed, resetting outstanding timer count to 0, phase ends in "
                 "60000 ms.",
                 "3 1 Creating ux timer qel-champ-select-legacy.show-ux-1 to show for phase "
                 "FINALIZATION in 50000 ms"}));
    EXPECT_EQ(ux.TakeShows(), 0u);
}

TEST(UxTimersTest, OfTwoTimersInAPhaseOnlyTheLastToFireShows) {
    UxHost ux;
    ux.Push(Turn(1, "BAN_PICK", 30000, 1));
    ux.host.Host().AdvanceSeconds(1);
    ux.Push(Turn(2, "BAN_PICK", 30000, 3));
    EXPECT_EQ(ux.TakeShows(), 2u);
    ux.TakeLogs();

    ux.host.Host().AdvanceSeconds(19.5);
    EXPECT_EQ(ux.TakeShows(), 0u);
    ux.host.Host().AdvanceSeconds(1);
    EXPECT_EQ(ux.TakeShows(), 1u);
    EXPECT_EQ(ux.TakeLogs(),
              (Strings{"3 1 Ux timer qel-champ-select-legacy.show-ux-1 triggered: timer "
                       "phase=BAN_PICK, current phase=BAN_PICK, outstanding timers: 2, should "
                       "show=true",
                       "3 1 Ux timer qel-champ-select-legacy.show-ux-2 triggered: timer "
                       "phase=BAN_PICK, current phase=BAN_PICK, outstanding timers: 1, should "
                       "show=true",
                       "3 1 Showing ux timer: qel-champ-select-legacy.show-ux-2"}));
}

TEST(UxTimersTest, APendingTimerDoesNotShowAfterAPhaseChangeSessionEndOrCompletedAction) {
    const std::string fired =
        "3 1 Ux timer qel-champ-select-legacy.show-ux-1 triggered: timer phase=BAN_PICK, ";
    struct Case {
        const char* name;
        std::function<void(UxHost&)> then;
        std::string line;
    };
    const Case cases[] = {
        {"another phase", [](UxHost& ux) { ux.Push(Turn(2, "FINALIZATION", 12000, 0)); },
         fired + "current phase=FINALIZATION, outstanding timers: 0, should show=true"},
        {"the session ended", [](UxHost& ux) { ux.Push(Premade(2, Slots(1))); },
         fired + "current phase=, outstanding timers: 0, should show=false"},
        {"an action completed",
         [](UxHost& ux) {
             ServiceScript service(ux.host);
             service.Answer("updateActionV1",
                            {"tbdGameDtoV1", JsonOf(Turn(2, "BAN_PICK", 29000, 1))});
             TestHost::CallOptions options;
             options.body = R"({"championId":64,"completed":true})";
             EXPECT_FALSE(
                 ux.host.Host().Call("PATCH", DraftUri("session/actions/3"), options).failed);
         },
         fired + "current phase=BAN_PICK, outstanding timers: 1, should show=false"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        UxHost ux;
        ux.Push(Turn(1, "BAN_PICK", 30000, 1));
        c.then(ux);
        ux.TakeShows();
        ux.TakeLogs();
        ux.host.Host().AdvanceSeconds(30);
        EXPECT_EQ(ux.TakeShows(), 0u);
        EXPECT_EQ(ux.TakeLogs(), (Strings{c.line}));
    }
}

TEST(UxTimersTest, ATimerFiringAfterItsCountWasResetLeavesLaterTimersWorking) {
    UxHost ux;
    // Timer 1 is set in BAN_PICK; leaving and re-entering the phase resets
    // the count and sets timer 2, so timer 1 fires into a count of one.
    ux.Push(Turn(1, "BAN_PICK", 30000, 1));
    ux.Push(Turn(2, "PLANNING", 30000, 1));
    ux.host.Host().AdvanceSeconds(2);
    ux.Push(Turn(3, "BAN_PICK", 30000, 3));
    ux.host.Host().AdvanceSeconds(30);
    ux.TakeShows();
    ux.TakeLogs();

    // Both have fired; the count is back at zero, so the next timer is the
    // only one outstanding and shows.
    ux.Push(Turn(4, "BAN_PICK", 30000, 1));
    EXPECT_EQ(ux.TakeShows(), 1u);
    ux.host.Host().AdvanceSeconds(20);
    EXPECT_EQ(ux.TakeShows(), 1u);
    const Strings logs = ux.TakeLogs();
    ASSERT_FALSE(logs.empty());
    EXPECT_EQ(logs.back(), "3 1 Showing ux timer: qel-champ-select-legacy.show-ux-3");
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
