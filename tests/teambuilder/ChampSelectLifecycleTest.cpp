// The champion-select session's lifecycle as the host sees it: DTOs pushed
// into the plugin's shared object, and the champion-select events, requests
// and GET answers that follow; the draft inventory and its four lists; the
// read routes without a session; the four lists' checker without a host.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/champselect/DraftLists.h"
#include "tests/teambuilder/ChampSelectTestSupport.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {
namespace {

constexpr const char* kEnteredEvent = "\"GAMEFLOW_EVENT.ENTERED_CHAMP_SELECT\"";

std::string Json(const BindingProperty& value) {
    return Framework::WriteJson(value);
}

// ---- The four lists' checker, host-free -----------------------------------

using ListStep = DraftListsChanges::InventoryStep;

struct KeptLists {
    std::optional<TbdInventory> inventory;
    bool converted = false;  // the three lists converted for it are kept
    bool optOut = false;
};

// The kept converted lists are deliberately not what the inventory gives: a
// change published from them shows the conversion was not repeated.
constexpr int32_t kKeptMarker = 4242;

DraftLists Lists(const KeptLists& kept) {
    DraftLists lists;
    lists.SetInventory(kept.inventory);
    lists.KeepAllowsOptingOutOfBanning(kept.optOut);
    if (kept.converted) {
        ChampSelectPickableChampions pickable;
        pickable.championIds = {kKeptMarker};
        ChampSelectDisabledChampions disabled;
        disabled.championIds = {kKeptMarker};
        ChampSelectPickableSkins skins;
        skins.skinIds = {kKeptMarker};
        lists.ConvertedLists() = {ValueOf(pickable), ValueOf(disabled), ValueOf(skins)};
    }
    return lists;
}

DraftListChange Pickable(ResourceEventType type, std::vector<int32_t> ids) {
    ChampSelectPickableChampions list;
    list.championIds = std::move(ids);
    return {kPickableChampionsUri, type, ValueOf(list)};
}
DraftListChange Disabled(ResourceEventType type, std::vector<int32_t> ids) {
    ChampSelectDisabledChampions list;
    list.championIds = std::move(ids);
    return {kDisabledChampionsUri, type, ValueOf(list)};
}
DraftListChange Skins(ResourceEventType type, std::vector<int32_t> ids) {
    ChampSelectPickableSkins list;
    list.skinIds = std::move(ids);
    return {kPickableSkinsUri, type, ValueOf(list)};
}
DraftListChange Bannable(ResourceEventType type, std::vector<int32_t> ids) {
    ChampSelectBannableChampions list;
    list.championIds = std::move(ids);
    return {kBannableChampionsUri, type, list};
}
DraftListChange Gone(std::string_view uri) {
    return {uri, ResourceEventType::Delete, std::monostate()};
}

// The lists whose value was converted with the DTO (and is to be kept).
Strings NewlyConverted(const DraftListsChanges& changes) {
    Strings uris;
    for (const DraftListChange& change : changes.changes) {
        if (std::holds_alternative<BindingProperty>(change.value)) {
            uris.emplace_back(change.uri);
        }
    }
    return uris;
}

TEST(DraftListsCheckTest, ChangesFromTheKeptListsToTheIncomingRecord) {
    constexpr auto kCreate = ResourceEventType::Create;
    constexpr auto kUpdate = ResourceEventType::Update;
    TbdInventory other = Inventory();
    other.lastSelectedSkinIdByChampionId = {{"5", 5001}, {"9", 9001}};
    other.skinIds = {5001};
    TbdInventory badKey = Inventory();
    badKey.lastSelectedSkinIdByChampionId = {{"x7", 7001}};
    const std::string pickable(kPickableChampionsUri);
    const std::string disabled(kDisabledChampionsUri);
    const std::string skins(kPickableSkinsUri);
    struct Row {
        const char* name;
        KeptLists previous;
        std::optional<TbdGameDtoV1> incoming;
        ListStep step;
        std::vector<DraftListChange> expected;
        Strings converted;
    };
    const std::vector<Row> rows = {
        {"a ready check brings the first inventory",
         {},
         ReadyCheckWith(1, Inventory()),
         ListStep::Adopt,
         {Pickable(kCreate, {7}), Gone(kBannableChampionsUri), Disabled(kCreate, {9}),
          Skins(kCreate, {7001, 9002})},
         {pickable, disabled, skins}},
        {"the same inventory repeated publishes what was kept",
         {Inventory(), true},
         ReadyCheckWith(2, Inventory()),
         ListStep::Keep,
         {Pickable(kUpdate, {kKeptMarker}), Gone(kBannableChampionsUri),
          Disabled(kUpdate, {kKeptMarker}), Skins(kUpdate, {kKeptMarker})},
         {}},
        {"a ready check without a skin map keeps the inventory",
         {Inventory(), true},
         ReadyCheck(2),
         ListStep::Keep,
         {Pickable(kUpdate, {kKeptMarker}), Gone(kBannableChampionsUri),
          Disabled(kUpdate, {kKeptMarker}), Skins(kUpdate, {kKeptMarker})},
         {}},
        {"kept but never converted lists are converted now",
         {Inventory(), false},
         ReadyCheck(2),
         ListStep::Keep,
         {Pickable(kUpdate, {7}), Gone(kBannableChampionsUri), Disabled(kUpdate, {9}),
          Skins(kUpdate, {7001, 9002})},
         {pickable, disabled, skins}},
        {"a different inventory converts its lists again",
         {Inventory(), true},
         ReadyCheckWith(2, other),
         ListStep::Adopt,
         {Pickable(kUpdate, {5}), Gone(kBannableChampionsUri), Disabled(kUpdate, {9}),
          Skins(kUpdate, {5001})},
         {pickable, disabled, skins}},
        {"a draft adds its bans and the choice of banning nobody",
         {Inventory(), true, true},
         Draft(3),
         ListStep::Keep,
         {Pickable(kUpdate, {kKeptMarker}), Bannable(kUpdate, {5, -1}),
          Disabled(kUpdate, {kKeptMarker}), Skins(kUpdate, {kKeptMarker})},
         {}},
        {"a draft bringing the first inventory creates the bannable list",
         {},
         [] {
             TbdGameDtoV1 draft = Draft(3);
             draft.afkCheckState.emplace().inventoryDraft = Inventory();
             return draft;
         }(),
         ListStep::Adopt,
         {Pickable(kCreate, {7}), Bannable(kCreate, {5}), Disabled(kCreate, {9}),
          Skins(kCreate, {7001, 9002})},
         {pickable, disabled, skins}},
        {"a draft without an inventory publishes nothing", {}, Draft(3), ListStep::Keep, {}, {}},
        {"a champion id that is not a number leaves its list out",
         {},
         ReadyCheckWith(1, badKey),
         ListStep::Adopt,
         {Gone(kBannableChampionsUri), Disabled(kCreate, {9}), Skins(kCreate, {7001, 9002})},
         {disabled, skins}},
        {"a search drops the inventory and its lists",
         {Inventory(), true},
         Searching(4),
         ListStep::Drop,
         {Gone(kPickableChampionsUri), Gone(kBannableChampionsUri), Gone(kDisabledChampionsUri),
          Gone(kPickableSkinsUri)},
         {}},
        {"the lobby with nothing kept only deletes the bannable list",
         {},
         Premade(5, Slots(1)),
         ListStep::Drop,
         {Gone(kBannableChampionsUri)},
         {}},
        {"no DTO drops the inventory",
         {Inventory(), true},
         std::nullopt,
         ListStep::Drop,
         {Gone(kPickableChampionsUri), Gone(kBannableChampionsUri), Gone(kDisabledChampionsUri),
          Gone(kPickableSkinsUri)},
         {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const DraftLists previous = Lists(row.previous);
        const DraftListsChanges changes =
            CheckDraftLists(previous, GameDtoRecord{row.incoming, 7}, Types());
        EXPECT_EQ(changes.inventory, row.step);
        EXPECT_EQ(changes.changes, row.expected);
        EXPECT_EQ(NewlyConverted(changes), row.converted);
    }
}

TEST(DraftListsCheckTest, KeepAdoptsTheInventoryAndConvertsOncePerInventory) {
    DraftLists lists;
    const GameDtoRecord readyCheck{ReadyCheckWith(1, Inventory()), 7};
    lists.Keep(CheckDraftLists(lists, readyCheck, Types()), readyCheck);
    ASSERT_TRUE(lists.Inventory().has_value());
    EXPECT_EQ(*lists.Inventory(), Inventory());
    EXPECT_EQ(
        lists.ConvertedLists().pickableChampions,
        std::optional(std::get<BindingProperty>(Pickable(ResourceEventType::Create, {7}).value)));

    // Repeated: every list is published from what was kept.
    const GameDtoRecord repeated{ReadyCheckWith(2, Inventory()), 7};
    DraftListsChanges again = CheckDraftLists(lists, repeated, Types());
    EXPECT_EQ(NewlyConverted(again), Strings());
    EXPECT_EQ(again.changes.size(), 4U);
    lists.Keep(std::move(again), repeated);
    EXPECT_TRUE(lists.ConvertedLists().disabledChampions.has_value());

    const GameDtoRecord searching{Searching(3), 7};
    lists.Keep(CheckDraftLists(lists, searching, Types()), searching);
    EXPECT_FALSE(lists.Inventory().has_value());
    EXPECT_FALSE(lists.ConvertedLists().pickableChampions.has_value());
    EXPECT_FALSE(lists.ConvertedLists().pickableSkins.has_value());
}

TEST(ChampSelectLifecycleTest, EnteringUpdatingAndLeavingPublishTheirEventsInOrder) {
    TeamBuilderHost host;
    host.Push(Premade(1, Slots(2)));
    host.Push(ReadyCheckWith(2, Inventory()));
    TakeDraftEvents(host);
    host.Host().OnRequest("POST", "/qel-gameflow/v1/session/event", [](const TestHost::Request&) {
        return TestHost::Reply::Body(BindingProperty());
    });

    struct Step {
        const char* name;
        TbdGameDtoV1 dto;
        Strings events;
    };
    TbdGameDtoV1 draft = Draft(3);
    TbdGameDtoV1 sameDraftLater = draft;
    sameDraftLater.counter = 4;
    const Step steps[] = {
        {"entering",
         draft,
         {"Update implementation-active", "Create session", "Create team-boost",
          "Update pickable-champions", "Update bannable-champions", "Update disabled-champions",
          "Update pickable-skins"}},
        {"the same draft received later: the timer's receipt time differs",
         sameDraftLater,
         {"Update session", "Update pickable-champions", "Update bannable-champions",
          "Update disabled-champions", "Update pickable-skins"}},
        {"leaving for the lobby",
         Premade(5, Slots(2)),
         {"Delete team-boost", "Delete session", "Update implementation-active",
          "Delete pickable-champions", "Delete bannable-champions", "Delete disabled-champions",
          "Delete pickable-skins"}},
    };
    std::vector<DraftEvent> events;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        NextMillisecond();
        host.Push(step.dto);
        events = TakeDraftEvents(host);
        EXPECT_EQ(Lines(events), step.events);
        if (std::string(step.name) == "entering") {
            EXPECT_EQ(Json(events[0].data), "true");
            EXPECT_EQ(events[2].data.Field("price").AsSigned(), 250);
            EXPECT_EQ(Json(events[3].data), R"({"championIds":[7]})");
            // 7 is banned, 9 disabled.
            EXPECT_EQ(Json(events[4].data), R"({"championIds":[5]})");
            EXPECT_EQ(GameflowEvents(host), (Strings{kEnteredEvent}));
        }
    }
    EXPECT_EQ(Json(events[2].data), "false");
    EXPECT_EQ(GameflowEvents(host).size(), 1u);
    EXPECT_EQ(host.Host().Call("GET", DraftUri("implementation-active")).json, "false");
}

TEST(ChampSelectLifecycleTest, TeamsOfTheLastFiveSessionsCreateNothing) {
    TeamBuilderHost host;
    int32_t counter = 0;
    auto enterAndLeave = [&](const std::string& teamId) {
        host.Push(Draft(++counter, teamId));
        const Strings events = Lines(TakeDraftEvents(host));
        host.Push(Premade(++counter, Slots(1)));
        TakeDraftEvents(host);
        return events.size() > 1 && events[1] == "Create session";
    };
    for (const char* team : {"t1", "t2", "t3", "t4", "t5", "t6"}) {
        ASSERT_TRUE(enterAndLeave(team)) << team;
    }
    DraftLogs(host);
    EXPECT_EQ(GameflowEvents(host).size(), 6u);

    // t1 was pushed out by t6; t2 is still among the last five.
    EXPECT_FALSE(enterAndLeave("t2"));
    EXPECT_EQ(DraftLogs(host),
              (Strings{"3 Received out-of-date TB champ select dto while in matchmaking.",
                       "3 Deleting champ select session."}));
    EXPECT_EQ(GameflowEvents(host).size(), 6u);
    EXPECT_TRUE(enterAndLeave("t1"));
    // Entering t1 pushed t2 out.
    EXPECT_TRUE(enterAndLeave("t2"));
}

TEST(ChampSelectLifecycleTest, AnIgnoredDraftStillTakesTheUpdateAndLeavePaths) {
    TeamBuilderHost host;
    host.Push(Draft(1, "old"));
    host.Push(Premade(2, Slots(1)));
    host.Push(Draft(3, "old"));
    TakeDraftEvents(host);
    NextMillisecond();
    host.Push(Draft(4, "old"));
    EXPECT_EQ(Lines(TakeDraftEvents(host)), (Strings{"Update session"}));
    host.Push(Premade(5, Slots(1)));
    EXPECT_EQ(Lines(TakeDraftEvents(host)),
              (Strings{"Delete team-boost", "Delete session", "Update implementation-active",
                       "Delete bannable-champions"}));
}

TEST(ChampSelectLifecycleTest, LogLinesCarryTheirLevelAndGroup) {
    TeamBuilderHost host(kInProcess);
    host.Push(Draft(1));
    host.Push(Premade(2, Slots(1)));
    host.Push(Draft(3));
    Strings draftLines;
    for (const std::string& line : host.TakeLogEntries()) {
        if (line.find("champ select") != std::string::npos) {
            draftLines.push_back(line);
        }
    }
    EXPECT_EQ(draftLines,
              (Strings{"3 1 Creating champ select session.", "3 1 Deleting champ select session.",
                       "3 1 Received out-of-date TB champ select dto while in matchmaking."}));
}

TEST(ChampSelectLifecycleTest, InventoryIsKeptUntilTheLobbyOrASearch) {
    TeamBuilderHost host;
    struct Step {
        const char* name;
        TbdGameDtoV1 dto;
        Strings events;
        int pickableStatus;
    };
    const Step steps[] = {
        {"ready check with an inventory",
         ReadyCheckWith(1, Inventory()),
         {"Create pickable-champions", "Delete bannable-champions", "Create disabled-champions",
          "Create pickable-skins"},
         200},
        {"ready check with an empty skin map keeps it",
         ReadyCheck(2),
         {"Update pickable-champions", "Delete bannable-champions", "Update disabled-champions",
          "Update pickable-skins"},
         200},
        {"a draft keeps it",
         Draft(3),
         {"Update implementation-active", "Create session", "Create team-boost",
          "Update pickable-champions", "Update bannable-champions", "Update disabled-champions",
          "Update pickable-skins"},
         200},
        {"matchmaking drops it",
         Searching(4),
         {"Delete team-boost", "Delete session", "Update implementation-active",
          "Delete pickable-champions", "Delete bannable-champions", "Delete disabled-champions",
          "Delete pickable-skins"},
         404},
        {"nothing to drop", Searching(5), {"Delete bannable-champions"}, 404},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        host.Push(step.dto);
        EXPECT_EQ(Lines(TakeDraftEvents(host)), step.events);
        EXPECT_EQ(host.Host().Call("GET", DraftUri("pickable-champions")).status,
                  step.pickableStatus);
    }
}

TEST(ChampSelectLifecycleTest, ListsFollowTheInventoryAndTheBans) {
    TeamBuilderHost host;
    TbdInventory inventory = Inventory();
    inventory.lastSelectedSkinIdByChampionId = {{"9", 9001}};
    host.Push(ReadyCheckWith(1, inventory));
    TbdGameDtoV1 draft = Draft(2);
    // An incomplete ban does not take its champion away.
    draft.championSelectState->actionSetList[0] =
        ArrayOf({Action(2, 6, "BAN", 5), Action(1, 1, "BAN", 7, true)});
    draft.championSelectState->allowOptingOutOfBanning = true;
    host.Push(draft);

    EXPECT_EQ(host.Host().Call("GET", DraftUri("pickable-champions")).json,
              R"({"championIds":[]})");
    EXPECT_EQ(host.Host().Call("GET", DraftUri("disabled-champions")).json,
              R"({"championIds":[9]})");
    EXPECT_EQ(host.Host().Call("GET", DraftUri("pickable-skins")).json,
              R"({"skinIds":[7001,9002]})");
    EXPECT_EQ(host.Host().Call("GET", DraftUri("bannable-champions")).json,
              R"({"championIds":[5,-1]})");

    // Opting out no longer allowed: the hook publishes the list without -1
    // before the list update of the same DTO.
    TakeDraftEvents(host);
    NextMillisecond();
    draft.counter = 3;
    draft.championSelectState->allowOptingOutOfBanning = false;
    host.Push(draft);
    const std::vector<DraftEvent> events = TakeDraftEvents(host);
    ASSERT_EQ(Lines(events), (Strings{"Update session", "Update bannable-champions",
                                      "Update pickable-champions", "Update bannable-champions",
                                      "Update disabled-champions", "Update pickable-skins"}));
    EXPECT_EQ(Json(events[1].data), R"({"championIds":[5]})");
}

// Each ban is read field by field from the object as received: a field that
// does not fit its record type (an actor beyond 32 bits, a champion given as
// text) hides nothing after it.
TEST(ChampSelectLifecycleTest, BansAreReadFieldByField) {
    constexpr int64_t kWideActor = int64_t{1} << 40;
    BindingProperty textChampion = Action(2, 6, "BAN", 0, true);
    textChampion.MutableField("championId").SetString("5");
    BindingProperty wideChampion = Action(2, 6, "BAN", 0, true);
    wideChampion.MutableField("championId").SetSigned(int64_t{5} + (int64_t{1} << 32));
    BindingProperty noType = Action(2, 6, "BAN", 5, true);
    noType.MutableField("type").SetSigned(3);
    BindingProperty completedAsText = Action(2, 6, "BAN", 5);
    completedAsText.MutableField("completed").SetString("yes");
    struct Case {
        const char* name;
        BindingProperty ban;
        const char* bannable;
    };
    const std::vector<Case> cases = {
        {"wide actor", Action(2, kWideActor, "BAN", 5, true), R"({"championIds":[]})"},
        {"wide actor, incomplete", Action(2, kWideActor, "BAN", 5), R"({"championIds":[5]})"},
        {"wide action id", Action(kWideActor, 6, "BAN", 5, true), R"({"championIds":[]})"},
        {"champion as text", textChampion, R"({"championIds":[]})"},
        {"champion beyond 32 bits", wideChampion, R"({"championIds":[5]})"},
        {"type not a text", noType, R"({"championIds":[5]})"},
        {"completion not a flag", completedAsText, R"({"championIds":[5]})"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TeamBuilderHost host;
        host.Push(ReadyCheckWith(1, Inventory()));
        TbdGameDtoV1 draft = Draft(2);
        draft.championSelectState->actionSetList[0] =
            ArrayOf({c.ban, Action(1, 1, "BAN", 7, true)});
        host.Push(draft);
        EXPECT_EQ(host.Host().Call("GET", DraftUri("bannable-champions")).json, c.bannable);
    }
}

// The session and the bannable list share what was read of one DTO's
// action sets; the next DTO's sets, which may sit where the last ones were,
// are read anew.
TEST(ChampSelectLifecycleTest, BannableListFollowsTheBansOfEachDraftDto) {
    TeamBuilderHost host;
    host.Push(ReadyCheckWith(1, Inventory()));
    const struct {
        const char* name;
        BindingProperty bans;
        const char* bannable;
    } steps[] = {
        {"nothing banned yet", ArrayOf({Action(1, 1, "BAN", 5)}), R"({"championIds":[5,7]})"},
        {"5 banned", ArrayOf({Action(1, 1, "BAN", 5, true)}), R"({"championIds":[7]})"},
        {"7 banned instead", ArrayOf({Action(1, 1, "BAN", 7, true)}), R"({"championIds":[5]})"},
        {"a pick bans nothing", ArrayOf({Action(1, 1, "PICK", 7, true)}),
         R"({"championIds":[5,7]})"},
    };
    int32_t counter = 2;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        NextMillisecond();
        TbdGameDtoV1 draft = Draft(counter++);
        draft.championSelectState->actionSetList[0] = step.bans;
        host.Push(draft);
        EXPECT_EQ(host.Host().Call("GET", DraftUri("bannable-champions")).json, step.bannable);
        std::string published;
        for (const DraftEvent& event : TakeDraftEvents(host)) {
            if (event.line.find("bannable") != std::string::npos) {
                published = Json(event.data);
            }
        }
        EXPECT_EQ(published, step.bannable);
    }
}

// The lists are converted once per inventory and republished from that; a
// changed inventory, or one that comes back after a search, must not be
// published from what the previous one left.
TEST(ChampSelectLifecycleTest, RepublishedListsFollowEachNewInventory) {
    TeamBuilderHost host;
    TbdInventory other = Inventory();
    other.lastSelectedSkinIdByChampionId = {{"5", 5001}, {"9", 9001}};
    other.skinIds = {5001};
    other.disabledChampionIds = {5};
    TbdInventory moreSkins = other;  // the same skin map, a list beside it changed
    moreSkins.skinIds = {5001, 5002};
    struct Step {
        const char* name;
        TbdGameDtoV1 dto;
        Strings data;  // pickable champions, disabled champions, pickable skins
    };
    const Step steps[] = {
        {"first inventory",
         ReadyCheckWith(1, Inventory()),
         {R"({"championIds":[7]})", R"({"championIds":[9]})", R"({"skinIds":[7001,9002]})"}},
        {"the same inventory again",
         ReadyCheckWith(2, Inventory()),
         {R"({"championIds":[7]})", R"({"championIds":[9]})", R"({"skinIds":[7001,9002]})"}},
        {"a changed inventory",
         ReadyCheckWith(3, other),
         {R"({"championIds":[9]})", R"({"championIds":[5]})", R"({"skinIds":[5001]})"}},
        {"a changed list beside the same skin map",
         ReadyCheckWith(4, moreSkins),
         {R"({"championIds":[9]})", R"({"championIds":[5]})", R"({"skinIds":[5001,5002]})"}},
        {"a search drops it", Searching(5), {}},
        {"the first inventory back",
         ReadyCheckWith(6, Inventory()),
         {R"({"championIds":[7]})", R"({"championIds":[9]})", R"({"skinIds":[7001,9002]})"}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        host.Push(step.dto);
        Strings data;
        for (const DraftEvent& event : TakeDraftEvents(host)) {
            if (event.line.rfind("Delete", 0) != 0 &&
                event.line.find("bannable") == std::string::npos) {
                data.push_back(Json(event.data));
            }
        }
        EXPECT_EQ(data, step.data);
    }
}

TEST(ChampSelectLifecycleTest, ChampionIdsThatAreNotNumbersFailThePickableList) {
    struct Case {
        const char* key;
        const char* json;
        const char* error;
    };
    const Case cases[] = {
        {" +12abc", R"({"championIds":[12]})", nullptr},
        {"-2147483648", R"({"championIds":[-2147483648]})", nullptr},
        {"abc", nullptr, "invalid stoi argument"},
        {"2147483648", nullptr, "stoi argument out of range"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key);
        TeamBuilderHost host;
        TbdInventory inventory = Inventory();
        inventory.lastSelectedSkinIdByChampionId = {{c.key, 1}};
        host.Push(ReadyCheckWith(1, inventory));
        const Strings events = Lines(TakeDraftEvents(host));
        const TestHost::CallResult got = host.Host().Call("GET", DraftUri("pickable-champions"));
        if (c.json != nullptr) {
            EXPECT_EQ(got.json, c.json);
            EXPECT_EQ(events.front(), "Create pickable-champions");
        } else {
            EXPECT_EQ(got.status, 500);
            EXPECT_EQ(got.error, c.error);
            EXPECT_EQ(events.front(), "Delete bannable-champions");
        }
    }
}

TEST(ChampSelectLifecycleTest, ReadRoutesWithoutASessionAnswerTheirMessages) {
    TeamBuilderHost host;
    const char* const noSession = "No champ select session in progress.";
    const std::pair<const char*, const char*> routes[] = {
        {"session", noSession},
        {"session/timer", noSession},
        {"session/trades", noSession},
        {"session/trades/3", noSession},
        {"pickable-champions",
         "There is no available pickable champion data for a current team builder session"},
        {"bannable-champions",
         "There is no available bannable champion data for a current team builder session"},
        {"disabled-champions",
         "There is no available disabled champion data for a current team builder session"},
        {"pickable-skins",
         "There is no available pickable skin data for a current team builder session"},
        {"team-boost", "No team boost available for this game, or summoner is not in a game."},
    };
    for (const auto& [path, message] : routes) {
        SCOPED_TRACE(path);
        const TestHost::CallResult got = host.Host().Call("GET", DraftUri(path));
        EXPECT_TRUE(got.endpointFound);
        EXPECT_EQ(got.status, 404);
        EXPECT_EQ(got.error, message);
    }
    EXPECT_EQ(host.Host().Call("GET", DraftUri("implementation-active")).json, "false");

    // With an inventory but no draft, the bannable list still needs a draft.
    host.Push(ReadyCheckWith(1, Inventory()));
    EXPECT_EQ(host.Host().Call("GET", DraftUri("bannable-champions")).status, 404);
    EXPECT_EQ(host.Host().Call("GET", DraftUri("pickable-champions")).status, 200);
    // Action ids are int32: a larger one is refused before the operation.
    const TestHost::CallResult wide =
        host.Host().Call("POST", DraftUri("session/actions/4294967296/complete"));
    EXPECT_TRUE(wide.endpointFound);
    EXPECT_EQ(wide.status, 400);
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
