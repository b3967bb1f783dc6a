// The champion-select session as published and served: actions with their
// ceremonies and pick substitution, cells, trades, the chat room, the timer,
// the ceremony timers, and drafts whose dynamic parts are malformed.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "framework/platform/Clock.h"
#include "tests/teambuilder/ChampSelectTestSupport.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

BindingProperty GetSession(TeamBuilderHost& host) {
    const TestHost::CallResult got = host.Host().Call("GET", DraftUri("session"));
    EXPECT_EQ(got.status, 200) << got.error;
    return got.body;
}

// A draft whose only timers are its ceremonies' own: too little time is left
// in the phase for a UX show timer.
TbdGameDtoV1 CeremonyDraft(int32_t counter) {
    TbdGameDtoV1 dto = Draft(counter);
    dto.championSelectState->currentTimeRemainingMillis = 10000;
    return dto;
}

// The delayed calls still pending once those due now have run (the failed
// ward-skin request of a new session is delivered on the next turn).
size_t PendingTimers(TeamBuilderHost& host) {
    host.Host().Pump();
    return host.Host().PendingDelayedCalls();
}

// "<id>:<type>" of every action, one text per action set.
Strings ActionIds(const BindingProperty& session) {
    Strings sets;
    for (const BindingProperty& set : session.Field("actions").Elements()) {
        std::string text;
        for (const BindingProperty& action : set.Elements()) {
            text += (text.empty() ? "" : " ") + std::to_string(action.Field("id").AsSigned()) +
                    ":" + std::string(action.Field("type").GetString()) +
                    (action.Field("completed").IsTrue() ? "!" : "");
        }
        sets.push_back(text);
    }
    return sets;
}

TEST(ChampSelectConversionTest, SessionShowsTeamsActionsAndChatRoom) {
    TeamBuilderHost host;
    TbdGameDtoV1 draft = Draft(1);
    ChampionSelectStateV1& state = *draft.championSelectState;
    state.cells.alliedTeam[0].championPickIntent = 64;  // cell 1 intends 64
    state.cells.alliedTeam[1].championId = 157;         // cell 2 has picked 157
    state.cells.enemyTeam[0].championId = 99;           // a ban never shows its actor's champion
    state.actionSetList[0] = ArrayOf({Action(2, 6, "BAN", 5), Action(1, 1, "BAN", 7, true)});
    state.actionSetList.push_back(ArrayOf({Action(5, 9, "PICK", 12), Action(6, 6, "Pick", 13)}));
    state.allowSkinSelection = true;
    state.rerollState = {true, 2};
    host.Push(draft);

    const BindingProperty session = GetSession(host);
    EXPECT_EQ(ActionIds(session), (Strings{"1:ban! 2:ban", "3:pick 4:pick", "5:pick 6:pick"}));
    const auto champion = [&](size_t set, size_t index) {
        return session.Field("actions").Element(set).Element(index).Field("championId").AsSigned();
    };
    EXPECT_EQ(champion(0, 0), 7);
    EXPECT_EQ(champion(0, 1), 5);
    EXPECT_EQ(champion(1, 0), 64);
    EXPECT_EQ(champion(1, 1), 157);
    EXPECT_EQ(champion(2, 0), 12);  // unknown actor
    EXPECT_EQ(champion(2, 1), 13);  // only "PICK" as received is a pick

    EXPECT_EQ(session.Field("chatDetails").Field("chatRoomName").GetString(),
              "room-9@champ-select.chat.orvan.internal");
    EXPECT_FALSE(session.Field("chatDetails").HasField("chatRoomPassword"));
    EXPECT_EQ(session.Field("localPlayerCellId").AsSigned(), 1);
    EXPECT_TRUE(session.Field("allowSkinSelection").IsTrue());
    EXPECT_TRUE(session.Field("allowRerolling").IsTrue());
    EXPECT_EQ(session.Field("rerollsRemaining").AsSigned(), 2);
    EXPECT_FALSE(session.HasField("teamId"));
    ASSERT_EQ(session.Field("myTeam").Size(), 2u);
    ASSERT_EQ(session.Field("theirTeam").Size(), 1u);
    // Only the local player's cell shows the ward skin.
    EXPECT_EQ(session.Field("myTeam").Element(0).Field("wardSkinId").AsSigned(), 1);
    EXPECT_EQ(session.Field("myTeam").Element(1).Field("wardSkinId").AsSigned(), -1);
    EXPECT_EQ(session.Field("theirTeam").Element(0).Field("wardSkinId").AsSigned(), -1);

    // The chat domain follows its platform setting; an empty one restores
    // the default.
    const char* setting = "/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName";
    host.ChangeValue(setting, "Update", BindingProperty("draft-chat"));
    EXPECT_EQ(GetSession(host).Field("chatDetails").Field("chatRoomName").GetString(),
              "room-9@draft-chat.chat.orvan.internal");
    host.ChangeValue(setting, "Update", BindingProperty(""));
    EXPECT_EQ(GetSession(host).Field("chatDetails").Field("chatRoomName").GetString(),
              "room-9@champ-select.chat.orvan.internal");
}

TEST(ChampSelectConversionTest, CellsBecomePlayerSelections) {
    struct Case {
        const char* name;
        CellV1 cell;
        int64_t selectedSkinId;
    };
    const Case cases[] = {
        {"default skin of the champion", Cell(3, 1, 51, 0), 51000},
        {"negative skin", Cell(3, 1, 51, -5), 0},
        {"chosen skin", Cell(3, 1, 51, 51003), 51003},
        {"no champion", Cell(3, 1, 0, 0), 0},
    };
    TeamBuilderHost host;
    int32_t counter = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TbdGameDtoV1 draft = Draft(++counter);
        draft.championSelectState->cells.alliedTeam[1] = c.cell;
        host.Push(draft);
        const BindingProperty player = GetSession(host).Field("myTeam").Element(1);
        EXPECT_EQ(player.Field("selectedSkinId").AsSigned(), c.selectedSkinId);
        EXPECT_EQ(player.Field("assignedPosition").GetString(), "");
    }

    CellV1 cell = Cell(3, 1);
    cell.spell1Id = -4;
    cell.spell2Id = 14;
    cell.assignedPosition = "TOP";
    cell.championPickIntent = -3;
    TbdGameDtoV1 draft = Draft(++counter);
    draft.championSelectState->cells.enemyTeam[0] = cell;
    host.Push(draft);
    EXPECT_EQ(Framework::WriteJson(GetSession(host).Field("theirTeam").Element(0)),
              R"({"assignedPosition":"TOP","cellId":3,"championId":0,"championPickIntent":0,)"
              R"("displayName":"summoner3","playerType":"","selectedSkinId":0,"spell1Id":0,)"
              R"("spell2Id":14,"summonerId":103,"team":1,"wardSkinId":-1})");
}

TEST(ChampSelectConversionTest, TradeStatesOutsideTheEnumerationAreInvalid) {
    TeamBuilderHost host;
    TbdGameDtoV1 draft = Draft(1);
    const std::pair<const char*, const char*> states[] = {
        {"SENT", "SENT"}, {"4", "RECEIVED"},         {"sent", "INVALID"}, {"", "INVALID"},
        {"9", "INVALID"}, {"AVAILABLE ", "INVALID"}, {"BUSY", "BUSY"},
    };
    int32_t id = 0;
    for (const auto& [text, expected] : states) {
        draft.championSelectState->trades.push_back({++id, 2, text});
    }
    host.Push(draft);
    const TestHost::CallResult got = host.Host().Call("GET", DraftUri("session/trades"));
    ASSERT_EQ(got.body.Size(), std::size(states));
    for (size_t i = 0; i < std::size(states); ++i) {
        SCOPED_TRACE(states[i].first);
        EXPECT_EQ(got.body.Element(i).Field("state").AsText(), states[i].second);
        EXPECT_EQ(got.body.Element(i).Field("id").AsSigned(), static_cast<int64_t>(i + 1));
    }
    const TestHost::CallResult trade = host.Host().Call("GET", DraftUri("session/trades/2"));
    EXPECT_EQ(trade.json, R"({"cellId":2,"id":2,"state":"RECEIVED"})");
    const TestHost::CallResult missing = host.Host().Call("GET", DraftUri("session/trades/70"));
    EXPECT_EQ(missing.status, 404);
    EXPECT_EQ(missing.error, "No trade found for id 70");
}

TEST(ChampSelectConversionTest, TimerCountsWholeSecondsFromTheReceiptTime) {
    struct Case {
        int64_t remaining;
        int64_t adjusted;
        int64_t seconds;
        int64_t adjustedSeconds;
    };
    const Case cases[] = {
        {2, 0, 0, 0},
        {15999, 15996, 15, 15},
        {-1, 0, -1, 0},
        {3003, 3000, 3, 3},
    };
    TeamBuilderHost host;
    int32_t counter = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.remaining);
        TbdGameDtoV1 draft = Draft(++counter);
        draft.championSelectState->currentTimeRemainingMillis = c.remaining;
        draft.championSelectState->subphase = "FINALIZATION";
        const uint64_t before = Framework::Platform::SystemTime100ns() / 10000;
        host.Push(draft);
        const uint64_t after = Framework::Platform::SystemTime100ns() / 10000;
        const BindingProperty timer = host.Host().Call("GET", DraftUri("session/timer")).body;
        EXPECT_EQ(timer.Field("timeLeftInPhase").AsSigned(), c.remaining);
        EXPECT_EQ(timer.Field("adjustedTimeLeftInPhase").AsSigned(), c.adjusted);
        EXPECT_EQ(timer.Field("timeLeftInPhaseInSec").AsSigned(), c.seconds);
        EXPECT_EQ(timer.Field("adjustedTimeLeftInPhaseInSec").AsSigned(), c.adjustedSeconds);
        EXPECT_EQ(timer.Field("totalTimeInPhase").AsSigned(), 30000);
        EXPECT_EQ(timer.Field("phase").GetString(), "FINALIZATION");
        EXPECT_FALSE(timer.Field("isInfinite").IsTrue());
        EXPECT_GE(timer.Field("internalNowInEpochMs").AsUnsigned(), before);
        EXPECT_LE(timer.Field("internalNowInEpochMs").AsUnsigned(), after);
        EXPECT_EQ(Framework::WriteJson(GetSession(host).Field("timer")),
                  Framework::WriteJson(timer));
    }
}

TEST(ChampSelectConversionTest, CeremoniesBecomeActionSetsAtTheirIndexes) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, BindingProperty>> ceremonies;
        Strings sets;
    };
    const Case cases[] = {
        {"before the first set and after the last",
         {{"0", ArrayOf({Ceremony("INTRO", 0)})}, {"2", ArrayOf({Ceremony("OUTRO", 0)})}},
         {"100:intro", "1:ban! 2:ban", "3:pick 4:pick", "101:outro"}},
        {"two at one index, one beyond the sets",
         {{"1", ArrayOf({Ceremony("A", 0), Ceremony("B", 0)})}, {"3", ArrayOf({Ceremony("C", 0)})}},
         {"1:ban! 2:ban", "100:a", "101:b", "3:pick 4:pick"}},
        {"keys read as numbers",
         {{" +1x", ArrayOf({Ceremony("ONE", 0)})},
          {"-0", ArrayOf({Ceremony("ZERO", 0)})},
          {"-1", ArrayOf({Ceremony("NEG", 0)})}},
         {"100:zero", "1:ban! 2:ban", "101:one", "3:pick 4:pick"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TeamBuilderHost host;
        TbdGameDtoV1 draft = CeremonyDraft(1);
        for (const auto& [key, value] : c.ceremonies) {
            draft.championSelectState->ceremoniesByActionSetIndex[key] = value;
        }
        host.Push(draft);
        EXPECT_EQ(ActionIds(GetSession(host)), c.sets);
        // No duration, no timer.
        EXPECT_EQ(PendingTimers(host), 0u);
    }
}

TEST(ChampSelectConversionTest, CeremonyTimerCompletesTheCeremonyOnce) {
    TeamBuilderHost host;
    TbdGameDtoV1 draft = CeremonyDraft(1);
    draft.championSelectState->ceremoniesByActionSetIndex["0"] =
        ArrayOf({Ceremony("INTRO", 4000), Ceremony("SPARE", 0)});
    draft.championSelectState->ceremoniesByActionSetIndex["5"] = ArrayOf({Ceremony("LOST", 0)});

    // Planning shows the ceremony but does not run it.
    draft.championSelectState->subphase = "PLANNING";
    host.Push(draft);
    EXPECT_EQ(PendingTimers(host), 0u);

    draft.championSelectState->subphase = "BAN_PICK";
    for (int32_t counter : {2, 3}) {
        draft.counter = counter;
        host.Push(draft);
    }
    EXPECT_EQ(PendingTimers(host), 1u);
    TakeDraftEvents(host);
    host.Host().AdvanceSeconds(3.9);
    EXPECT_TRUE(TakeDraftEvents(host).empty());
    host.Host().AdvanceSeconds(0.2);
    const std::vector<DraftEvent> fired = TakeDraftEvents(host);
    ASSERT_EQ(Lines(fired), (Strings{"Update session"}));
    EXPECT_EQ(ActionIds(fired[0].data),
              (Strings{"100:intro!", "101:spare", "1:ban! 2:ban", "3:pick 4:pick"}));
    // The next ceremony has no duration: no timer.
    EXPECT_EQ(PendingTimers(host), 0u);

    // The next session's ceremonies start after the three of this one.
    host.Push(Premade(4, Slots(1)));
    draft.counter = 5;
    host.Push(draft);
    EXPECT_EQ(ActionIds(GetSession(host)),
              (Strings{"103:intro", "104:spare", "1:ban! 2:ban", "3:pick 4:pick"}));
    EXPECT_EQ(PendingTimers(host), 1u);
}

TEST(ChampSelectConversionTest, MalformedActionSetsAndCeremoniesKeepTheirDefaults) {
    TeamBuilderHost host;
    host.PushJson(
        R"({"counter":1,"phaseName":"CHAMPION_SELECT","queueId":420,"championSelectState":{
        "teamId":"t","subphase":"BAN_PICK","localPlayerCellId":1,
        "actionSetList":["not a set",
                         [1,"x",{"actionId":"abc","type":"PICK"},{"actionId":5,"type":7},
                          {"actionId":4,"actorCellId":1,"type":"ban","completed":"true","duration":"9"}],
                         {}],
        "ceremoniesByActionSetIndex":{"0":{"name":"x"},"1":[{"name":5}],"2":[1],"x":[{"name":"OK"}]},
        "cells":{"alliedTeam":[{"cellId":1,"championPickIntent":3}]}}})");
    EXPECT_EQ(Lines(TakeDraftEvents(host)),
              (Strings{"Update implementation-active", "Create session", "Create team-boost"}));
    EXPECT_EQ(DraftLogs(host), (Strings{
                                   "3 Creating champ select session.",
                                   R"(1 Failed to convert ceremonies: [{"name":"x"}])",
                                   R"(1 Failed to convert ceremonies: [[{"name":5}]])",
                                   R"(1 Failed to convert ceremonies: [[1]])",
                               }));
    const BindingProperty session = GetSession(host);
    EXPECT_EQ(ActionIds(session), (Strings{"100:ok", "", "-1: -1: -1: 4:ban! 5:", ""}));
    const BindingProperty& damaged = session.Field("actions").Element(2);
    EXPECT_EQ(Framework::WriteJson(damaged.Element(0)),
              R"({"actorCellId":-1,"championId":0,"completed":false,"id":-1,"type":""})");
    EXPECT_EQ(damaged.Element(3).Field("actorCellId").AsSigned(), 1);
    // The conversion of a later, well-formed DTO is unaffected.
    host.Push(Draft(2));
    EXPECT_EQ(ActionIds(GetSession(host)), (Strings{"1:ban! 2:ban", "3:pick 4:pick"}));
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
