// The local player's champion-select operations through the plugin's shared
// object, with the test as the team-builder and ward-skin services: what each
// operation sends, what it makes of the answer, and what a refused request or
// a bad answer leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/teambuilder/ChampSelectTestSupport.h"
#include "tests/teambuilder/support/ServiceScript.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

using Reply = ServiceScript::Reply;
using Replies = std::vector<std::pair<std::string, Reply>>;

Reply DtoReply(const TbdGameDtoV1& dto) {
    return {"tbdGameDtoV1", JsonOf(dto)};
}

Reply WardSkinReply(int64_t wardSkinId) {
    return {"", R"({"selectedWardSkinId":)" + std::to_string(wardSkinId) + "}"};
}

// The local player (cell 1) hovers 157 and plays 51 in its default skin with
// spells 4 and 14; an extra pick set holds action 5 of a cell nobody has.
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

// Action 4's id as text, things that are no actions, a ceremony (shown as
// action 100) before the picks.
TbdGameDtoV1 OddDraft() {
    TbdGameDtoV1 dto = MyDraft(1);
    std::vector<BindingProperty>& sets = dto.championSelectState->actionSetList;
    sets[1].MutableElement(1).MutableField("actionId").SetString("4");
    sets[0] = ArrayOf({BindingProperty("x"), BindingProperty(int64_t{3}), Action(1, 1, "BAN", 7)});
    sets.insert(sets.begin(), BindingProperty("not a set"));
    dto.championSelectState->ceremoniesByActionSetIndex["1"] = ArrayOf({Ceremony("intro", 5000)});
    return dto;
}

std::vector<int64_t> WardSkinsOf(const BindingProperty& session) {
    std::vector<int64_t> wardSkins;
    for (const char* team : {"myTeam", "theirTeam"}) {
        for (const BindingProperty& cell : session.Field(team).Elements()) {
            wardSkins.push_back(cell.Field("wardSkinId").AsSigned());
        }
    }
    return wardSkins;
}

// A host in a draft whose start the ward-skin service answered with 3.
struct DraftHost {
    explicit DraftHost(std::optional<TbdGameDtoV1> dto = MyDraft(1)) {
        if (dto) {
            service.Answer("requestSelectedWardSkin", WardSkinReply(3));
            host.Push(*dto);
            host.Host().Pump();
        }
        TakeDraftEvents(host);
        service.Sent();
        host.TakeLogs();
    }
    TestHost::CallResult Call(const char* method, const std::string& path, std::string body = {}) {
        return host.Host().Call(method, DraftUri(path), std::move(body));
    }

    TeamBuilderHost host;
    ServiceScript service{host};
};

struct Case {
    const char* method;
    std::string path;
    std::string body;
    Replies replies;  // none: the call fails at the proxy with "no answer"
    uint16_t status;
    std::string error;
    Strings sent;
    std::optional<TbdGameDtoV1> stored = MyDraft(1);
    bool earlierStepApplied = false;  // a failure after a step that succeeded
};

// Each case against a fresh host. A failed operation leaves the session as
// it was.
void RunCases(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path + " " + c.body);
        DraftHost draft(c.stored);
        for (const auto& [method, reply] : c.replies) {
            draft.service.Answer(method, reply);
        }
        const std::string before = draft.Call("GET", "session").json;
        NextMillisecond();
        const TestHost::CallResult result = draft.Call(c.method, c.path, c.body);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.error, c.error);
        EXPECT_EQ(draft.service.Sent(), c.sent);
        if (c.status != 200 && !c.earlierStepApplied) {
            EXPECT_EQ(draft.Call("GET", "session").json, before);
        }
    }
}

const std::string kNotDto =
    "Did not receive the expected method tbdGameDtoV1, instead received callFailedV1";
const std::string kNotOk =
    "Received status SERVICE UNAVAILABLE instead of expected status of OK "
    "from request to teambuilder-draft:";
const char* const kNoSession = "No champ select session in progress.";

std::string Update(int id, int championId, bool completed) {
    return "updateActionV1 {\"actionId\":" + std::to_string(id) +
           ",\"championId\":" + std::to_string(championId) +
           ",\"completed\":" + (completed ? "true" : "false") + "}";
}

TEST(ChampSelectActionsTest, ActionChangesSendTheResolvedActionAndReroll) {
    const Replies ok = {{"updateActionV1", DtoReply(MyDraft(2))}};
    const Replies refused = {{"updateActionV1", {"callFailedV1", "{}"}}};
    const Replies unavailable = {
        {"updateActionV1", {"tbdGameDtoV1", JsonOf(MyDraft(2)), "SERVICE UNAVAILABLE"}}};
    const char* const notObject =
        "Couldn't assign value to 'data' of type "
        "QelLobbyTeamBuilderChampSelectAction because the input not a "
        "structure.";
    // clang-format off
    RunCases({
        {"POST", "session/actions/3/complete", "", ok, 200, "", {Update(3, 157, true)}},
        {"PATCH", "session/actions/3", R"({"championId":64,"completed":false})", ok, 200, "", {Update(3, 64, false)}},
        {"PATCH", "session/actions/4", R"({"championId":0})", ok, 200, "", {Update(4, 22, false)}},
        {"PATCH", "session/actions/1", R"({"completed":false})", ok, 200, "", {Update(1, 7, true)}},
        {"POST", "session/actions/2/complete", "", ok, 200, "", {Update(2, 0, true)}},
        {"POST", "session/actions/99/complete", "", ok, 404, "Could not find action.", {}},
        {"POST", "session/actions/5/complete", "", ok, 500, "Could not find player selection to match actor id.", {}},
        {"POST", "session/actions/3/complete", "", {}, 500, "Unable to process action change: no answer", {Update(3, 157, true)}},
        {"POST", "session/actions/4/complete", "", refused, 500, "Unable to process action change: " + kNotDto, {Update(4, 22, true)}},
        {"POST", "session/actions/4/complete", "", unavailable, 500, "Unable to process action change: " + kNotOk + "updateActionV1", {Update(4, 22, true)}},
        {"POST", "session/actions/3/complete", "", ok, 404, kNoSession, {}, Premade(1, Slots(1))},
        {"PATCH", "session/actions/4", R"({"championId":12})", ok, 200, "", {Update(4, 12, false)}, OddDraft()},
        {"PATCH", "session/actions/100", R"({"championId":12})", ok, 404, "Could not find action.", {}, OddDraft()},
        {"PATCH", "session/actions/3", R"("pick")", ok, 400, notObject, {}},
        {"PATCH", "session/actions/3", R"({"championId":"sixty"})", ok, 400, "Value sixty for 'championId' of type int32 is in an incorrect format", {}},
        {"PATCH", "session/actions/three", "{}", ok, 400, "Value three for 'id' of type int32 is in an incorrect format", {}},
        {"POST", "session/my-selection/reroll", "", {{"rerollV1", DtoReply(MyDraft(2))}}, 200, "", {"rerollV1 {}"}},
        {"POST", "session/my-selection/reroll", "", {}, 500, "Unable to reroll: no answer", {"rerollV1 {}"}, Premade(1, Slots(1))},
    });
    // clang-format on
}

// Actions whose actor does not fit 32 bits: 4 picks 22 for cell 2^40, 6 is a
// completed pick without a champion for that cell, 7 one in progress.
TbdGameDtoV1 WideActorDraft() {
    constexpr int64_t kWideActor = int64_t{1} << 40;
    TbdGameDtoV1 dto = MyDraft(1);
    std::vector<BindingProperty>& sets = dto.championSelectState->actionSetList;
    sets[1].MutableElement(1).MutableField("actorCellId").SetSigned(kWideActor);
    sets.push_back(
        ArrayOf({Action(6, kWideActor, "PICK", 0, true), Action(7, kWideActor, "PICK")}));
    return dto;
}

// The action changed is read field by field as it stands: a field that does
// not convert keeps its default and hides none of the others.
TEST(ChampSelectActionsTest, ActionFieldsAreReadOneByOne) {
    const Replies ok = {{"updateActionV1", DtoReply(MyDraft(2))}};
    TbdGameDtoV1 textChampion = MyDraft(1);
    BindingProperty& damaged = textChampion.championSelectState->actionSetList[1].MutableElement(1);
    damaged.MutableField("championId").SetString("x");
    damaged.MutableField("completed").SetBool(true);
    // clang-format off
    RunCases({
        {"POST", "session/actions/4/complete", "", ok, 200, "", {Update(4, 22, true)}, WideActorDraft()},
        {"PATCH", "session/actions/4", R"({"championId":64})", ok, 200, "", {Update(4, 64, false)}, WideActorDraft()},
        {"PATCH", "session/actions/6", R"({"completed":false})", ok, 500, "Could not find player selection to match actor id.", {}, WideActorDraft()},
        {"PATCH", "session/actions/6", R"({"championId":64,"completed":false})", ok, 200, "", {Update(6, 64, true)}, WideActorDraft()},
        {"POST", "session/actions/7/complete", "", ok, 500, "Could not find player selection to match actor id.", {}, WideActorDraft()},
        {"PATCH", "session/actions/4", R"({"championId":64,"completed":false})", ok, 200, "", {Update(4, 64, true)}, textChampion},
    });
    // clang-format on
}

TEST(ChampSelectActionsTest, SelectionChangesWhatDiffersInOrderAndStopsAtAFailure) {
    const Replies dto = {{"pickSpellsV1", DtoReply(MyDraft(2))},
                         {"pickSkinV2", DtoReply(MyDraft(2))}};
    Replies all = dto;
    all.push_back({"selectWardSkin", WardSkinReply(7)});
    const auto withWard = [&](Reply ward) {
        Replies replies = dto;
        replies.push_back({"selectWardSkin", std::move(ward)});
        return replies;
    };
    const std::string three = R"({"selectedSkinId":51002,"wardSkinId":7,"spell1Id":32})";
    const Strings spells = {R"(pickSpellsV1 {"spell1Id":32,"spell2Id":14})"};
    const Strings upToWard = {spells[0], R"(selectWardSkin {"wardSkinId":7})"};
    const Strings allSent = {upToWard[0], upToWard[1], R"(pickSkinV2 {"skinId":51002})"};
    const char* const selection = "session/my-selection";
    TbdGameDtoV1 elsewhere = MyDraft(1);
    elsewhere.championSelectState->localPlayerCellId = 4;
    const char* const notParticipant = "Not an active participant in a champ select session";
    // clang-format off
    RunCases({
        {"PATCH", selection, R"({"spell1Id":4,"spell2Id":14,"selectedSkinId":51000,"wardSkinId":3})", {}, 200, "", {}},
        {"PATCH", selection, R"({"spell2Id":12})", dto, 200, "", {R"(pickSpellsV1 {"spell1Id":4,"spell2Id":12})"}},
        {"PATCH", selection, R"({"selectedSkinId":7000})", dto, 200, "", {R"(pickSkinV2 {"skinId":0})"}},
        {"PATCH", selection, R"({"selectedSkinId":51001})", dto, 200, "", {R"(pickSkinV2 {"skinId":51001})"}},
        {"PATCH", selection, three, all, 200, "", allSent},
        {"PATCH", selection, three, {{"pickSpellsV1", {"callFailedV1", "{}"}}}, 500, "ChampSelect: could not select requested spells: " + kNotDto, spells},
        {"PATCH", selection, three, withWard({"", "", "OK", "not owned"}), 500, "ChampSelect: could not select requested ward skin: not owned", upToWard, MyDraft(1), true},
        {"PATCH", selection, three, withWard({"", R"({"wardSkinId":7})"}), 500, "Invalid ward skin payload", upToWard, MyDraft(1), true},
        {"PATCH", selection, three, withWard({"", R"({"selectedWardSkinId":{"id":7}})"}), 500, "Invalid ward skin payload", upToWard, MyDraft(1), true},
        {"PATCH", selection, three, withWard({"", "{"}), 500, "ChampSelect: could not select requested ward skin: Failed to deserialize response payload \"{\" to a Orvan::Framework::BindingProperty", upToWard, MyDraft(1), true},
        {"PATCH", selection, R"({"selectedSkinId":51002})", {}, 500, "ChampSelect: could not select requested skin: no answer", {R"(pickSkinV2 {"skinId":51002})"}},
        {"PATCH", selection, R"({"spell1Id":32})", dto, 400, notParticipant, {}, elsewhere},
        {"PATCH", selection, R"({"spell1Id":32})", dto, 400, notParticipant, {}, Premade(1, Slots(1))},
        {"PATCH", selection, "[1,2]", dto, 400, "Couldn't assign value to 'selection' of type QelLobbyTeamBuilderChampSelectMySelection because the input not a structure.", {}},
        {"PATCH", selection, R"({"spell1Id":-4})", dto, 400, "Value -4 for 'spell1Id' of type uint64 is out of range", {}},
    });
    // clang-format on
}

TEST(ChampSelectActionsTest, AnswersShowInTheSessionBeforeTheReply) {
    DraftHost draft;
    TbdGameDtoV1 answer = MyDraft(2);
    answer.championSelectState->actionSetList[1] =
        ArrayOf({Action(3, 1, "PICK", 157, true), Action(4, 2, "PICK", 22)});
    draft.service.Answer("updateActionV1", DtoReply(answer));
    NextMillisecond();
    ASSERT_EQ(draft.Call("POST", "session/actions/3/complete").status, 200);
    std::vector<DraftEvent> events = TakeDraftEvents(draft.host);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0].line, "Update session");
    EXPECT_TRUE(events[0].data.Field("actions").Element(1).Element(0).Field("completed").IsTrue());

    // The skin fails; the ward skin confirmed before it is shown, on the
    // local player's cell only, and a second request for it is no change.
    draft.service.Answer("selectWardSkin", WardSkinReply(7));
    const char* const change = R"({"wardSkinId":7,"selectedSkinId":1})";
    EXPECT_EQ(draft.Call("PATCH", "session/my-selection", change).status, 500);
    events = TakeDraftEvents(draft.host);
    ASSERT_EQ(Lines(events), (Strings{"Update session"}));
    EXPECT_EQ(WardSkinsOf(events[0].data), (std::vector<int64_t>{7, -1, -1}));
    EXPECT_EQ(draft.Call("GET", "session").json, Framework::WriteJson(events[0].data));
    draft.service.Sent();
    EXPECT_EQ(draft.Call("PATCH", "session/my-selection", R"({"wardSkinId":7})").status, 200);
    EXPECT_EQ(draft.service.Sent(), Strings{});
}

TEST(ChampSelectActionsTest, TheWardSkinIsAskedForWhenASessionStarts) {
    const std::string invalid = "1 Failed to get ward skin id: Invalid ward skin payload.";
    const struct {
        Reply reply;
        size_t sessionUpdates;
        int64_t wardSkin;
        Strings logs;
    } cases[] = {
        {WardSkinReply(12), 1, 12, {}},
        {{"", "", "OK", "unavailable"}, 0, 1, {"1 Failed to get ward skin id: unavailable"}},
        {{"", R"({"selected":12})"}, 0, 1, {invalid}},
        {{"", "]"}, 0, 1, {invalid}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply.payload + c.reply.error);
        DraftHost draft(std::nullopt);
        draft.service.Answer("requestSelectedWardSkin", c.reply);
        draft.host.Push(MyDraft(1));
        draft.host.Host().Pump();
        EXPECT_EQ(draft.service.Sent(), Strings{"requestSelectedWardSkin {}"});
        const std::vector<DraftEvent> events = TakeDraftEvents(draft.host);
        EXPECT_EQ(std::count_if(events.begin(), events.end(),
                                [](const DraftEvent& e) { return e.line == "Update session"; }),
                  static_cast<std::ptrdiff_t>(c.sessionUpdates));
        EXPECT_EQ(WardSkinsOf(draft.Call("GET", "session").body),
                  (std::vector<int64_t>{c.wardSkin, -1, -1}));
        Strings lines;
        for (const std::string& line : draft.host.TakeLogs()) {
            if (line.find("ward skin") != std::string::npos) {
                lines.push_back(line);
            }
        }
        EXPECT_EQ(lines, c.logs);
    }
}

// In process, for the log groups: completing an action takes back, once, the
// window the draft's UX timer would show.
TEST(ChampSelectActionsTest, CompletingAnActionCancelsTheUxShow) {
    TeamBuilderHost host(kInProcess);
    ServiceScript service(host);
    host.Push(MyDraft(1));
    host.Host().Pump();
    const auto uxShows = [&] {
        return std::count_if(host.Host().Requests().begin(), host.Host().Requests().end(),
                             [](const TestHost::Request& request) {
                                 return request.path == "/orvanclient/ux-show";
                             });
    };
    const auto shownAtStart = uxShows();
    const auto takeLines = [&](const char* part) {
        Strings lines;
        for (const std::string& line : host.TakeLogEntries()) {
            if (line.find(part) != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    };
    EXPECT_EQ(takeLines("ward skin"), (Strings{"1 1 Failed to get ward skin id: no answer"}));

    for (int i = 0; i < 2; ++i) {
        service.Answer("updateActionV1", DtoReply(MyDraft(1)));
        ASSERT_EQ(host.Host().Call("POST", DraftUri("session/actions/3/complete")).status, 200);
    }
    host.Host().AdvanceSeconds(30);
    EXPECT_EQ(uxShows(), shownAtStart);
    EXPECT_EQ(takeLines("show ux"), (Strings{"3 1 Action completed, setting show ux to false."}));
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
