// The local player's champion-select operations through the plugin's shared
// object, with the test as the team-builder and ward-skin services: what each
// operation sends, what it makes of the answer, and what a refused request or
// a bad answer leaves behind.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/teambuilder/ChampSelectTestSupport.h"
#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using Reply = ServiceScript::Reply;

ServiceScript::Reply DtoReply(const TbdGameDtoV1& dto) {
    return {"tbdGameDtoV1", JsonOf(dto)};
}

ServiceScript::Reply WardSkinReply(int64_t wardSkinId) {
    return {"", R"({"selectedWardSkinId":)" + std::to_string(wardSkinId) + "}"};
}

// The draft of the tests: the local player (cell 1) hovers 157, plays 51 in
// its default skin with spells 4 and 14; an extra pick set holds action 5 of
// a cell nobody occupies.
TbdGameDtoV1 MyDraft(int32_t counter) {
    TbdGameDtoV1 dto = Draft(counter);
    ChampionSelectStateV1& state = *dto.championSelectState;
    CellV1& mine = state.cells.alliedTeam[0];
    mine.championPickIntent = 157;
    mine.championId = 51;
    mine.spell1Id = 4;
    mine.spell2Id = 14;
    state.actionSetList.push_back(ArrayOf({Action(5, 9, "PICK")}));
    return dto;
}

// The action sets as the session shows them, with the ids, champions and
// completion of every action.
std::string ActionsOf(const BindingProperty& session) {
    std::string text;
    for (const BindingProperty& set : session.Field("actions").Elements()) {
        text += "[";
        for (const BindingProperty& action : set.Elements()) {
            text += std::to_string(action.Field("id").AsSigned()) + ":" +
                    std::to_string(action.Field("championId").AsSigned()) +
                    (action.Field("completed").IsTrue() ? "+" : "") + " ";
        }
        text += "]";
    }
    return text;
}

// The ward skin shown on each cell of the session, allied then enemy.
std::vector<int64_t> WardSkinsOf(const BindingProperty& session) {
    std::vector<int64_t> wardSkins;
    for (const char* team : {"myTeam", "theirTeam"}) {
        for (const BindingProperty& cell : session.Field(team).Elements()) {
            wardSkins.push_back(cell.Field("wardSkinId").AsSigned());
        }
    }
    return wardSkins;
}

// A host in the draft, the ward-skin service having reported ward skin 3 at
// its start; what entering sent, published and logged is taken.
class DraftHost {
public:
    explicit DraftHost(std::optional<TbdGameDtoV1> dto = MyDraft(1)) {
        if (dto) {
            service.Answer("requestSelectedWardSkin", WardSkinReply(3));
            host.Push(*dto);
            host.Host().Pump();
        }
        Clear();
    }
    void Clear() {
        TakeDraftEvents(host);
        service.Sent();
        host.TakeLogs();
    }
    TestHost::CallResult Call(const char* method, const std::string& path, std::string body = {}) {
        return host.Host().Call(method, DraftUri(path), std::move(body));
    }
    std::string SessionJson() { return Call("GET", "session").json; }

    TeamBuilderHost host;
    ServiceScript service{host};
};

struct Case {
    const char* name;
    const char* method;
    std::string path;
    std::string body;
    // The service method answered and its answer; none: the call fails at
    // the proxy with "no answer".
    std::vector<std::pair<std::string, Reply>> replies;
    uint16_t status;
    std::string error;
    Strings sent;
    // A failure after an earlier step of the same request succeeded.
    bool earlierStepApplied = false;
};

// Runs each case against a fresh draft. A failed operation leaves the
// session as it was; a successful one applies the answered DTO.
void RunCases(const std::vector<Case>& cases, std::optional<TbdGameDtoV1> dto = MyDraft(1)) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DraftHost draft(dto);
        for (const auto& [method, reply] : c.replies) {
            draft.service.Answer(method, reply);
        }
        const std::string before = draft.SessionJson();
        NextMillisecond();
        const TestHost::CallResult result = draft.Call(c.method, c.path, c.body);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.error, c.error);
        EXPECT_EQ(draft.service.Sent(), c.sent);
        if (c.status != 200 && !c.earlierStepApplied) {
            EXPECT_EQ(draft.SessionJson(), before);
        }
    }
}

const std::string kDtoAnswerMissing =
    "Did not receive the expected method tbdGameDtoV1, instead received callFailedV1";

TEST(ChampSelectActionsTest, ActionChangesSendTheResolvedAction) {
    const Reply answer = DtoReply(MyDraft(2));
    const std::vector<std::pair<std::string, Reply>> answered = {{"updateActionV1", answer}};
    RunCases({
        {"completing a pick without a champion locks in the pick intent",
         "POST",
         "session/actions/3/complete",
         "",
         answered,
         200,
         "",
         {R"(updateActionV1 {"actionId":3,"championId":157,"completed":true})"}},
        {"a champion named replaces the action's",
         "PATCH",
         "session/actions/3",
         R"({"championId":64,"completed":false})",
         answered,
         200,
         "",
         {R"(updateActionV1 {"actionId":3,"championId":64,"completed":false})"}},
        {"champion 0 keeps the action's own champion",
         "PATCH",
         "session/actions/4",
         R"({"championId":0})",
         answered,
         200,
         "",
         {R"(updateActionV1 {"actionId":4,"championId":22,"completed":false})"}},
        {"a completed action stays completed",
         "PATCH",
         "session/actions/1",
         R"({"completed":false})",
         answered,
         200,
         "",
         {R"(updateActionV1 {"actionId":1,"championId":7,"completed":true})"}},
        {"an enemy's ban without a champion takes the enemy's pick intent (none)",
         "POST",
         "session/actions/2/complete",
         "",
         answered,
         200,
         "",
         {R"(updateActionV1 {"actionId":2,"championId":0,"completed":true})"}},
        {"unknown action",
         "POST",
         "session/actions/99/complete",
         "",
         answered,
         404,
         "Could not find action.",
         {}},
        {"actor in no cell",
         "POST",
         "session/actions/5/complete",
         "",
         answered,
         500,
         "Could not find player selection to match actor id.",
         {}},
        {"the proxy fails",
         "POST",
         "session/actions/3/complete",
         "",
         {},
         500,
         "Unable to process action change: no answer",
         {R"(updateActionV1 {"actionId":3,"championId":157,"completed":true})"}},
        {"the service answers another method",
         "POST",
         "session/actions/4/complete",
         "",
         {{"updateActionV1", {"callFailedV1", "{}"}}},
         500,
         "Unable to process action change: " + kDtoAnswerMissing,
         {R"(updateActionV1 {"actionId":4,"championId":22,"completed":true})"}},
        {"the service answers another status",
         "POST",
         "session/actions/4/complete",
         "",
         {{"updateActionV1", {"tbdGameDtoV1", JsonOf(MyDraft(2)), "SERVICE UNAVAILABLE"}}},
         500,
         "Unable to process action change: Received status SERVICE UNAVAILABLE instead of "
         "expected status of OK from request to teambuilder-draft:updateActionV1",
         {R"(updateActionV1 {"actionId":4,"championId":22,"completed":true})"}},
    });
    RunCases({{"no draft",
               "POST",
               "session/actions/3/complete",
               "",
               {},
               404,
               "No champ select session in progress.",
               {}}},
             Premade(1, Slots(1)));
}

TEST(ChampSelectActionsTest, ActionsAreFoundByIdInSetsAsReceived) {
    TbdGameDtoV1 dto = MyDraft(1);
    // Elements that are not action objects, an id given as text, and a
    // ceremony (which the session shows as an action of its own) before the
    // picks.
    std::vector<BindingProperty>& sets = dto.championSelectState->actionSetList;
    sets[0] = ArrayOf({BindingProperty("x"), BindingProperty(int64_t{3}), Action(1, 1, "BAN", 7)});
    sets[1].MutableElement(1).MutableField("actionId").SetString("4");
    sets.insert(sets.begin(), BindingProperty("not a set"));
    dto.championSelectState->ceremoniesByActionSetIndex["1"] = ArrayOf({Ceremony("intro", 5000)});
    const Reply answer = DtoReply(MyDraft(2));
    RunCases({{"id given as text",
               "PATCH",
               "session/actions/4",
               R"({"championId":12})",
               {{"updateActionV1", answer}},
               200,
               "",
               {R"(updateActionV1 {"actionId":4,"championId":12,"completed":false})"}},
              {"the ceremony's synthetic id is no action",
               "PATCH",
               "session/actions/100",
               R"({"championId":12})",
               {},
               404,
               "Could not find action.",
               {}}},
             dto);
}

TEST(ChampSelectActionsTest, BadRequestsSendNothing) {
    const struct {
        const char* path;
        const char* body;
        const char* error;
    } requests[] = {
        {"session/actions/3", R"("pick")",
         "Couldn't assign value to 'data' of type QelLobbyTeamBuilderChampSelectAction because "
         "the input not a structure."},
        {"session/actions/3", R"({"championId":"sixty"})",
         "Value sixty for 'championId' of type int32 is in an incorrect format"},
        {"session/actions/three", R"({"championId":1})",
         "Value three for 'id' of type int32 is in an incorrect format"},
        {"session/my-selection", "[1,2]",
         "Couldn't assign value to 'selection' of type QelLobbyTeamBuilderChampSelectMySelection "
         "because the input not a structure."},
        {"session/my-selection", R"({"spell1Id":-4})",
         "Value -4 for 'spell1Id' of type uint64 is out of range"},
    };
    std::vector<Case> cases;
    for (const auto& request : requests) {
        cases.push_back(
            {request.path, "PATCH", request.path, request.body, {}, 400, request.error, {}});
    }
    RunCases(cases);
}

TEST(ChampSelectActionsTest, AnAnsweredDtoIsAppliedBeforeTheReply) {
    DraftHost draft;
    TbdGameDtoV1 answer = MyDraft(2);
    answer.championSelectState->actionSetList[1] =
        ArrayOf({Action(3, 1, "PICK", 157, true), Action(4, 2, "PICK", 22)});
    answer.championSelectState->cells.alliedTeam[0].championId = 157;
    draft.service.Answer("updateActionV1", DtoReply(answer));
    NextMillisecond();
    ASSERT_EQ(draft.Call("POST", "session/actions/3/complete").status, 200);
    const std::vector<DraftEvent> events = TakeDraftEvents(draft.host);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0].line, "Update session");
    EXPECT_EQ(ActionsOf(events[0].data), "[1:7+ 2:0 ][3:157+ 4:22 ][5:0 ]");
}

TEST(ChampSelectActionsTest, SelectionChangesOnlyWhatDiffers) {
    const Reply dto = DtoReply(MyDraft(2));
    const std::pair<std::string, Reply> spells = {"pickSpellsV1", dto};
    const std::pair<std::string, Reply> skin = {"pickSkinV2", dto};
    const std::pair<std::string, Reply> ward = {"selectWardSkin", WardSkinReply(7)};
    RunCases({
        {"nothing differs",
         "PATCH",
         "session/my-selection",
         R"({"spell1Id":4,"spell2Id":14,"selectedSkinId":51000,"wardSkinId":3})",
         {},
         200,
         "",
         {}},
        {"one spell",
         "PATCH",
         "session/my-selection",
         R"({"spell2Id":12})",
         {spells},
         200,
         "",
         {R"(pickSpellsV1 {"spell1Id":4,"spell2Id":12})"}},
        {"a default skin is sent as none",
         "PATCH",
         "session/my-selection",
         R"({"selectedSkinId":7000})",
         {skin},
         200,
         "",
         {R"(pickSkinV2 {"skinId":0})"}},
        {"another skin",
         "PATCH",
         "session/my-selection",
         R"({"selectedSkinId":51001})",
         {skin},
         200,
         "",
         {R"(pickSkinV2 {"skinId":51001})"}},
        {"all three, in order",
         "PATCH",
         "session/my-selection",
         R"({"selectedSkinId":51002,"wardSkinId":7,"spell1Id":32})",
         {skin, ward, spells},
         200,
         "",
         {R"(pickSpellsV1 {"spell1Id":32,"spell2Id":14})", R"(selectWardSkin {"wardSkinId":7})",
          R"(pickSkinV2 {"skinId":51002})"}},
    });
}

TEST(ChampSelectActionsTest, ASelectionStopsAtItsFirstFailure) {
    const Reply dto = DtoReply(MyDraft(2));
    const std::pair<std::string, Reply> spells = {"pickSpellsV1", dto};
    const std::string all = R"({"selectedSkinId":51002,"wardSkinId":7,"spell1Id":32})";
    const Strings sentUpToWard = {R"(pickSpellsV1 {"spell1Id":32,"spell2Id":14})",
                                  R"(selectWardSkin {"wardSkinId":7})"};
    RunCases({
        {"spells refused",
         "PATCH",
         "session/my-selection",
         all,
         {{"pickSpellsV1", {"callFailedV1", "{}"}}},
         500,
         "ChampSelect: could not select requested spells: " + kDtoAnswerMissing,
         {R"(pickSpellsV1 {"spell1Id":32,"spell2Id":14})"}},
        {"ward skin refused by the service",
         "PATCH",
         "session/my-selection",
         all,
         {spells, {"selectWardSkin", {"", "", "OK", "ward skin 7 not owned"}}},
         500,
         "ChampSelect: could not select requested ward skin: ward skin 7 not owned",
         sentUpToWard,
         true},
        {"ward skin answer without the selection",
         "PATCH",
         "session/my-selection",
         all,
         {spells, {"selectWardSkin", {"", R"({"wardSkinId":7})"}}},
         500,
         "Invalid ward skin payload",
         sentUpToWard,
         true},
        {"ward skin answer with a selection that is no number",
         "PATCH",
         "session/my-selection",
         all,
         {spells, {"selectWardSkin", {"", R"({"selectedWardSkinId":{"id":7}})"}}},
         500,
         "Invalid ward skin payload",
         sentUpToWard,
         true},
        {"ward skin answer that is no JSON",
         "PATCH",
         "session/my-selection",
         all,
         {spells, {"selectWardSkin", {"", "{"}}},
         500,
         "ChampSelect: could not select requested ward skin: Failed to deserialize response "
         "payload \"{\" to a Orvan::Framework::BindingProperty",
         sentUpToWard,
         true},
        {"skin refused",
         "PATCH",
         "session/my-selection",
         R"({"selectedSkinId":51002})",
         {},
         500,
         "ChampSelect: could not select requested skin: no answer",
         {R"(pickSkinV2 {"skinId":51002})"}},
    });
    TbdGameDtoV1 elsewhere = MyDraft(1);
    elsewhere.championSelectState->localPlayerCellId = 4;
    const Case notParticipant = {"",
                                 "PATCH",
                                 "session/my-selection",
                                 R"({"spell1Id":32})",
                                 {},
                                 400,
                                 "Not an active participant in a champ select session",
                                 {}};
    RunCases({notParticipant}, elsewhere);
    RunCases({notParticipant}, Premade(1, Slots(1)));
}

TEST(ChampSelectActionsTest, AConfirmedWardSkinIsShownOnTheLocalCellAtOnce) {
    DraftHost draft;
    draft.service.Answer("selectWardSkin", WardSkinReply(7));
    draft.service.Answer("pickSkinV2", {"callFailedV1", "{}"});
    const TestHost::CallResult result =
        draft.Call("PATCH", "session/my-selection", R"({"wardSkinId":7,"selectedSkinId":1})");
    EXPECT_EQ(result.status, 500);
    // The skin failed; the ward skin taken before it stays.
    const std::vector<DraftEvent> events = TakeDraftEvents(draft.host);
    ASSERT_EQ(Lines(events), (Strings{"Update session"}));
    EXPECT_EQ(WardSkinsOf(events[0].data), (std::vector<int64_t>{7, -1, -1}));
    EXPECT_EQ(draft.SessionJson(), Framework::WriteJson(events[0].data));

    // The same ward skin again is no change.
    draft.service.Sent();
    EXPECT_EQ(draft.Call("PATCH", "session/my-selection", R"({"wardSkinId":7})").status, 200);
    EXPECT_EQ(draft.service.Sent(), Strings{});
}

TEST(ChampSelectActionsTest, TheWardSkinIsAskedForWhenASessionStarts) {
    const struct {
        const char* name;
        std::optional<Reply> reply;
        Strings events;
        std::vector<int64_t> wardSkins;
        Strings logs;
    } cases[] = {
        {"reported", WardSkinReply(12), {"Create session", "Update session"}, {12, -1, -1}, {}},
        {"the service fails",
         Reply{"", "", "OK", "ward skins unavailable"},
         {"Create session"},
         {1, -1, -1},
         {"1 Failed to get ward skin id: ward skins unavailable"}},
        {"an answer without the selection",
         Reply{"", R"({"selected":12})"},
         {"Create session"},
         {1, -1, -1},
         {"1 Failed to get ward skin id: Invalid ward skin payload."}},
        {"an answer that is no JSON",
         Reply{"", "]"},
         {"Create session"},
         {1, -1, -1},
         {"1 Failed to get ward skin id: Invalid ward skin payload."}},
        {"no answer yet", std::nullopt, {"Create session"}, {1, -1, -1}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DraftHost draft(std::nullopt);
        if (c.reply) {
            draft.service.Answer("requestSelectedWardSkin", *c.reply);
        } else {
            // The request goes out; its answer never comes.
            draft.host.Host().OnRequest("POST", kMethodRequests, [](const TestHost::Request&) {
                return TestHost::Reply::Body(BindingProperty());
            });
        }
        draft.host.Push(MyDraft(1));
        draft.host.Host().Pump();
        EXPECT_EQ(draft.service.Sent(),
                  c.reply ? Strings{"requestSelectedWardSkin {}"} : Strings{});
        Strings sessionLines;
        BindingProperty last;
        for (const DraftEvent& event : TakeDraftEvents(draft.host)) {
            if (event.line.find(" session") != std::string::npos) {
                sessionLines.push_back(event.line);
                last = event.data;
            }
        }
        EXPECT_EQ(sessionLines, c.events);
        EXPECT_EQ(WardSkinsOf(last), c.wardSkins);
        Strings wardLines;
        for (const std::string& line : draft.host.TakeLogs()) {
            if (line.find("ward skin") != std::string::npos) {
                wardLines.push_back(line);
            }
        }
        EXPECT_EQ(wardLines, c.logs);
    }
}

TEST(ChampSelectActionsTest, RerollAsksTheServiceWhateverTheState) {
    RunCases({{"in a draft",
               "POST",
               "session/my-selection/reroll",
               "",
               {{"rerollV1", DtoReply(MyDraft(2))}},
               200,
               "",
               {"rerollV1 {}"}},
              {"refused",
               "POST",
               "session/my-selection/reroll",
               "",
               {{"rerollV1", {"tbdGameDtoV1", "{}", "NO_REROLLS"}}},
               500,
               "Unable to reroll: Received status NO_REROLLS instead of expected status of OK "
               "from request to teambuilder-draft:rerollV1",
               {"rerollV1 {}"}}});
    RunCases({{"outside a draft",
               "POST",
               "session/my-selection/reroll",
               "",
               {},
               500,
               "Unable to reroll: no answer",
               {"rerollV1 {}"}}},
             Premade(1, Slots(1)));
}

// In process, for the log groups: completing an action takes back the
// window the draft's UX timer would show, once.
TEST(ChampSelectActionsTest, CompletingAnActionCancelsTheUxShow) {
    {
        TeamBuilderHost host(kInProcess);
        ServiceScript service(host);
        service.Answer("requestSelectedWardSkin", {"", "{}"});
        host.Push(MyDraft(1));
        host.Host().Pump();
        const auto uxShows = [&] {
            size_t count = 0;
            for (const TestHost::Request& request : host.Host().Requests()) {
                count += request.path == "/orvanclient/ux-show" ? 1 : 0;
            }
            return count;
        };
        const size_t shownAtStart = uxShows();
        host.TakeLogEntries();

        for (int i = 0; i < 2; ++i) {
            service.Answer("updateActionV1", DtoReply(MyDraft(1)));
            ASSERT_EQ(host.Host().Call("POST", DraftUri("session/actions/3/complete")).status, 200);
        }
        host.Host().AdvanceSeconds(30);
        EXPECT_EQ(uxShows(), shownAtStart);
        Strings lines;
        for (const std::string& line : host.TakeLogEntries()) {
            if (line.find("show ux") != std::string::npos) {
                lines.push_back(line);
            }
        }
        EXPECT_EQ(lines, (Strings{"3 1 Action completed, setting show ux to false."}));
    }

    TeamBuilderHost failing(kInProcess);
    ServiceScript silent(failing);
    failing.Push(MyDraft(1));
    failing.Host().Pump();
    Strings wardLines;
    for (const std::string& line : failing.TakeLogEntries()) {
        if (line.find("ward skin") != std::string::npos) {
            wardLines.push_back(line);
        }
    }
    EXPECT_EQ(wardLines, (Strings{"1 1 Failed to get ward skin id: no answer"}));
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
