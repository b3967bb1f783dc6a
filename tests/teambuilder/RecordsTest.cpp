// The team-builder records as the registry describes them: names, order and
// nesting of the registration, the optional members, the character-coded
// enumerations, and conversions of realistic service payloads. The default
// search as published is pinned by the intake's tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/NativeConversion.h"
#include "framework/codec/Json.h"
#include "teambuilder/common/ChampSelectRecords.h"
#include "teambuilder/common/LobbyRecords.h"
#include "teambuilder/common/RegisterTypes.h"

namespace Orvan::Client::LobbyTeamBuilder {
namespace {

using namespace Api;
using Framework::BindingKind;
using Framework::BindingProperty;
using Framework::BindingTypeCode;
using Framework::BindingTypeInfo;
using Framework::BindingTypeRegistry;
using Framework::Maybe;
using Framework::StaticType;

class RecordsTest : public ::testing::Test {
protected:
    void SetUp() override { names_ = RegisterTeamBuilderTypes(registry_); }

    BindingProperty Json(std::string_view text) {
        auto value = Framework::ReadJson(text);
        EXPECT_TRUE(value.HasValue()) << text;
        return value.HasValue() ? value.Value() : BindingProperty();
    }

    template <class T>
    T FromJson(std::string_view text) {
        auto result = Framework::ConvertFromProperty<T>(registry_, Json(text), "<value>");
        EXPECT_TRUE(result.HasValue()) << (result ? "" : result.GetFailure().message);
        return result.HasValue() ? result.Value() : T{};
    }

    template <class T>
    BindingProperty ToProperty(const T& record) {
        auto result = Framework::ConvertToProperty(registry_, record);
        EXPECT_TRUE(result.HasValue()) << (result ? "" : result.GetFailure().message);
        return result.HasValue() ? result.Value() : BindingProperty();
    }

    template <class T>
    std::string ToJson(const T& record) {
        return Framework::WriteJson(ToProperty(record), &registry_);
    }

    // The failure's message, "<converted>" when the JSON converts.
    template <class T>
    std::string FailureOf(std::string_view json) {
        T target{};
        Maybe<> result = Framework::AssignFromProperty(registry_, Json(json), "<value>", target);
        return result ? "<converted>" : result.GetFailure().message;
    }

    template <class E>
    std::string EnumName(const BindingProperty& value) {
        EXPECT_EQ(value.Kind(), BindingKind::Enum);
        const char* name = registry_.EnumeratorName(StaticType::Of<E>(), value.GetEnum().value);
        return name != nullptr ? name : "<none>";
    }

    BindingTypeRegistry registry_;
    std::vector<std::string> names_;
};

TEST_F(RecordsTest, RegistersEveryTypeOnceInItsOrder) {
    const std::string expected =
        "CreatePremadeV1 SpecifyPositionPreferencesV1 SpecifyPositionPreferencesV2 "
        "TbLobbyEnabledFeaturesResource TbLobbySlotResource "
        "TbLobbyBackwardsToPremadeTransitionResource ReadyStateV1 "
        "TbLobbyPremadeStateResource TBDMatchmakingState TbdInventory AfkCheckStateV1 "
        "ActionV1 CeremonyV1 CellV1 CellsV1 TradeV1 RerollStateV1 TeamBuilderBoostInfo "
        "TeamBoost ChampionSelectStateV1 TbLobbyStateResource BackwardsTransitionInfoV1 "
        "TbRemovedFromServiceNotification GatekeeperRestriction GatekeeperRestricted "
        "QuitguardAbandoned LobbyPositionPreferences LobbyPositionPreferencesV2 "
        "LobbyInvitation LobbyRemovedFromGameReason LobbyMember Lobby LobbyCountdownTimer "
        "ChampSelectPlayerSelection ChampSelectMySelection ChampSelectTimer "
        "ChampSelectChatRoomDetails ChampSelectTradeState ChampSelectTradeContract "
        "ChampSelectAction ChampSelectSession ChampSelectPickableChampions "
        "ChampSelectBannableChampions ChampSelectDisabledChampions ChampSelectPickableSkins "
        "MatchmakingSearchState MatchmakingDodgeState MatchmakingReadyCheckState "
        "MatchmakingReadyCheckResponse MatchmakingDodgeWarning MatchmakingReadyCheckResource "
        "MatchmakingSearchErrorResource MatchmakingDodgeData MatchmakingLowPriorityData "
        "MatchmakingSearchResource GameflowGameClient GameflowSession LoginSessionState "
        "LoginSession";
    std::string registered;
    for (const std::string& name : names_) {
        ASSERT_EQ(name.rfind("QelLobbyTeamBuilder", 0), 0u) << name;
        EXPECT_NE(registry_.FindByName(name), nullptr) << name;
        registered += (registered.empty() ? "" : " ") + name.substr(19);
    }
    EXPECT_EQ(registered, expected);
    EXPECT_EQ(names_.size(), 59u);
    EXPECT_EQ(registry_.Types().size(), 59u);
    // Native names that differ from the registered ones find their records.
    EXPECT_EQ(registry_.Find(StaticType::Of<TbdGameDtoV1>())->name,
              "QelLobbyTeamBuilderTbLobbyStateResource");
    EXPECT_EQ(registry_.Find(StaticType::Of<MatchmakingSearch>())->name,
              "QelLobbyTeamBuilderMatchmakingSearchResource");
    EXPECT_EQ(registry_.Find(StaticType::Of<RemovedFromServiceV1>())->name,
              "QelLobbyTeamBuilderTbRemovedFromServiceNotification");
    EXPECT_EQ(registry_.Find(StaticType::Of<TbEnabledFeatures>())->name,
              "QelLobbyTeamBuilderTbLobbyEnabledFeaturesResource");

    // A second pass keeps the first registration of every name.
    const size_t lobbyFields = registry_.FindByName("QelLobbyTeamBuilderLobby")->fields.size();
    EXPECT_EQ(RegisterTeamBuilderTypes(registry_), names_);
    EXPECT_EQ(registry_.Types().size(), 59u);
    EXPECT_EQ(registry_.FindByName("QelLobbyTeamBuilderLobby")->fields.size(), lobbyFields);
}

// Every record comes after what its fields use, fields are distinct members
// inside the record, and only std::optional members are omitted when empty.
TEST_F(RecordsTest, FieldsReferToTypesRegisteredBeforeThem) {
    for (const std::string& name : names_) {
        const BindingTypeInfo* info = registry_.FindByName(name);
        ASSERT_NE(info, nullptr);
        std::vector<uint32_t> offsets;
        for (const auto& field : info->fields) {
            SCOPED_TRACE(name + "." + field.name);
            EXPECT_LT(field.offset, info->size);
            EXPECT_EQ(std::count(offsets.begin(), offsets.end(), field.offset), 0);
            offsets.push_back(field.offset);
            const bool named = field.type.type == BindingTypeCode::Struct ||
                               field.type.type == BindingTypeCode::Enum ||
                               field.type.elementType == BindingTypeCode::Struct ||
                               field.type.elementType == BindingTypeCode::Enum;
            if (named) {
                ASSERT_NE(field.type.info, nullptr);
                EXPECT_EQ(field.type.info->name.rfind("QelLobbyTeamBuilder", 0), 0u);
            }
            const bool isOptional = std::string_view(field.staticType->name).find("optional<") !=
                                    std::string_view::npos;
            EXPECT_EQ((field.flags & Framework::kOmitIfEmpty) != 0, isOptional);
            EXPECT_EQ(field.flags & Framework::kRequired, 0u);
        }
    }
}

// What clients read: names and output order of the published records' fields.
TEST_F(RecordsTest, PublishedRecordsListTheirFieldsInOrder) {
    const std::pair<const char*, const char*> cases[] = {
        {"Lobby",
         "queueId invitationId chatRoomId chatRoomKey members localMember invitations wasKicked "
         "removalReason canStartMatchmaking showPositionSelector showPositionExcluder "
         "specifiablePositionPreferences autoFillEligible autoFillProtectedForStreaking "
         "autoFillProtectedForPromos isTeamBuilderManaged premadeSizeAllowed "
         "requiredPositionCoverageMet allowablePremadeSizes"},
        {"MatchmakingSearchResource",
         "queueId isCurrentlyInQueue lobbyId searchState timeInQueue estimatedQueueTime "
         "readyCheck dodgeData lowPriorityData errors"},
        {"ChampSelectSession",
         "timer chatDetails myTeam theirTeam trades actions localPlayerCellId allowSkinSelection "
         "allowBattleBoost allowRerolling rerollsRemaining"},
        {"TbLobbyStateResource",
         "counter phaseName queueId premadeState matchmakingState afkCheckState "
         "championSelectState"},
    };
    for (const auto& [type, expected] : cases) {
        const BindingTypeInfo* info =
            registry_.FindByName("QelLobbyTeamBuilder" + std::string(type));
        ASSERT_NE(info, nullptr) << type;
        std::string fields;
        for (const auto& field : info->fields) {
            fields += (fields.empty() ? "" : " ") + field.name;
        }
        EXPECT_EQ(fields, expected) << type;
    }
}

TEST_F(RecordsTest, EnumerationsCarryTheirWireValuesAndWidths) {
    struct Case {
        const char* type;
        const char* name;
        int32_t value;
    };
    const Case cases[] = {
        {"MatchmakingDodgeState", "Invalid", 48},
        {"MatchmakingDodgeState", "TournamentDodged", 51},
        {"MatchmakingReadyCheckResponse", "None", 48},
        {"MatchmakingReadyCheckResponse", "Accepted", 49},
        {"MatchmakingReadyCheckResponse", "Declined", 50},
        {"MatchmakingSearchState", "ServiceShutdown", 7},
        {"MatchmakingReadyCheckState", "PartyNotReady", 4},
        {"MatchmakingDodgeWarning", "Penalty", 2},
        {"LobbyRemovedFromGameReason", "ServiceShutdown", 8},
        {"LoginSessionState", "ERROR", 3},
        {"LoginSessionState", "LOGGING_OUT", 2},
        {"ChampSelectTradeState", "AVAILABLE", 1},
        {"ChampSelectTradeState", "SENT", 5},
    };
    for (const Case& c : cases) {
        const BindingTypeInfo* info =
            registry_.FindByName("QelLobbyTeamBuilder" + std::string(c.type));
        ASSERT_NE(info, nullptr) << c.type;
        ASSERT_TRUE(info->IsEnum()) << c.type;
        const auto* value = info->FindValue(std::string_view(c.name));
        ASSERT_NE(value, nullptr) << c.type << "." << c.name;
        EXPECT_EQ(value->value, c.value) << c.type << "." << c.name;
    }
    EXPECT_EQ(registry_.FindByName("QelLobbyTeamBuilderMatchmakingReadyCheckResponse")->size, 1u);
    EXPECT_EQ(registry_.FindByName("QelLobbyTeamBuilderMatchmakingDodgeState")->size, 4u);
    EXPECT_EQ(registry_.FindByName("QelLobbyTeamBuilderChampSelectTradeState")->values.size(), 5u);
}

// Absence alone omits an optional member: a present "" or 0 is written, and
// read back present; a null input is absence.
TEST_F(RecordsTest, OptionalsAreLeftOutOnlyWhenAbsent) {
    TbdGameDtoV1 dto;
    dto.matchmakingState.emplace();
    BindingProperty out = ToProperty(dto);
    EXPECT_EQ(out.Field("matchmakingState").Kind(), BindingKind::Structure);
    for (const char* name : {"premadeState", "afkCheckState", "championSelectState"}) {
        EXPECT_FALSE(out.HasField(name)) << name;
    }
    EXPECT_FALSE(ToProperty(LobbyMember{}).HasField("excludedPositionPreference"));
    EXPECT_FALSE(ToProperty(ChampSelectChatRoomDetails{}).HasField("chatRoomPassword"));

    TbLobbySlotResource slot;
    EXPECT_FALSE(ToProperty(slot).HasField("excludedPositionPreference"));
    slot.excludedPositionPreference = "";
    out = ToProperty(slot);
    ASSERT_TRUE(out.HasField("excludedPositionPreference"));
    EXPECT_EQ(out.Field("excludedPositionPreference").Kind(), BindingKind::String);
    ChampSelectMySelection selection;
    selection.selectedSkinId = 0;
    out = ToProperty(selection);
    EXPECT_TRUE(out.HasField("selectedSkinId"));
    EXPECT_FALSE(out.HasField("spell1Id"));
    dto.premadeState.emplace().draftSlots.emplace_back().excludedPositionPreference = "";
    EXPECT_EQ(FromJson<TbdGameDtoV1>(ToJson(dto)), dto);

    const std::pair<const char*, std::optional<std::string>> inputs[] = {
        {R"({"slotId": 2})", std::nullopt},
        {R"({"excludedPositionPreference": null})", std::nullopt},
        {R"({"excludedPositionPreference": ""})", std::string()},
        {R"({"excludedPositionPreference": "JUNGLE"})", std::string("JUNGLE")},
    };
    for (const auto& [json, expected] : inputs) {
        EXPECT_EQ(FromJson<TbLobbySlotResource>(json).excludedPositionPreference, expected) << json;
    }
    selection = FromJson<ChampSelectMySelection>(R"({"spell2Id": 4, "wardSkinId": "-1"})");
    EXPECT_FALSE(selection.selectedSkinId.has_value());
    EXPECT_FALSE(selection.spell1Id.has_value());
    EXPECT_EQ(selection.spell2Id, std::optional<uint64_t>(4));
    EXPECT_EQ(selection.wardSkinId, std::optional<int64_t>(-1));
}

// The character-coded response is written by name and read by name, by its
// code or by its code spelled.
TEST_F(RecordsTest, ReadyCheckResponseTravelsByName) {
    MatchmakingReadyCheckResource check;
    check.playerResponse = MatchmakingReadyCheckResponse::Accepted;
    BindingProperty out = ToProperty(check);
    EXPECT_EQ(out.Field("playerResponse").GetEnum().value, 49);
    EXPECT_EQ(EnumName<MatchmakingReadyCheckResponse>(out.Field("playerResponse")), "Accepted");
    EXPECT_NE(ToJson(check).find(R"("playerResponse":"Accepted")"), std::string::npos);
    for (const char* json : {R"({"playerResponse": "Accepted"})", R"({"playerResponse": 49})",
                             R"({"playerResponse": "49"})"}) {
        EXPECT_EQ(FromJson<MatchmakingReadyCheckResource>(json).playerResponse,
                  MatchmakingReadyCheckResponse::Accepted)
            << json;
    }
}

// A champion-select DTO as the service pushes it, with fields the plugin
// does not know and dynamic action sets and ceremonies.
constexpr std::string_view kChampSelectDto = R"({
  "counter": 57, "phaseName": "CHAMPION_SELECT", "queueId": 420, "unknownField": [1, 2],
  "premadeState": {
    "timer": 0, "draftPremadeId": "7f1c", "captainSlotId": 0, "localPlayerSlotId": 1,
    "playableDraftPositions": ["TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY"],
    "draftSlots": [
      {"slotId": 0, "summonerName": "Ada", "summonerId": 1001,
       "draftPositionPreferences": ["TOP", "MIDDLE"], "autoFillEligible": true},
      {"slotId": 1, "summonerName": "Bo", "summonerId": 1002,
       "draftPositionPreferences": ["UTILITY", "FILL"], "excludedPositionPreference": "JUNGLE"}],
    "backwardsToPremadeTransitionReason": {"backwardsTransitionReason": "", "slotIds": []},
    "readyState": {"readyToMatchmake": true, "allowablePremadeSizes": [1, 2, 5]}
  },
  "championSelectState": {
    "teamId": "b3f0-2", "teamChatRoomId": "c1a2", "subphase": "PLANNING",
    "actionSetList": [
      [{"actionId": 1, "actorCellId": 0, "type": "BAN", "championId": 0, "completed": false}],
      [{"actionId": 2, "actorCellId": 1, "type": "PICK", "championId": 51, "completed": true}]],
    "ceremoniesByActionSetIndex": {"1": [{"name": "BAN_REVEAL", "duration": 3000}]},
    "currentActionSetIndex": 0, "localPlayerCellId": 1,
    "currentTotalTimeMillis": 30000, "currentTimeRemainingMillis": 15999,
    "cells": {
      "alliedTeam": [
        {"teamId": 1, "cellId": 0, "summonerName": "Ada", "championPickIntent": 86,
         "championId": 0, "skinId": 0, "assignedPosition": "TOP", "spell1Id": 4,
         "spell2Id": 12, "summonerId": 1001},
        {"teamId": 1, "cellId": 1, "summonerName": "Bo", "championPickIntent": 0,
         "championId": 51, "skinId": 51003, "assignedPosition": "UTILITY", "spell1Id": 4,
         "spell2Id": 7, "summonerId": 1002}],
      "enemyTeam": [{"teamId": 2, "cellId": 5, "assignedPosition": "NONE"}]},
    "trades": [{"id": 9, "cellId": 0, "state": "AVAILABLE"}],
    "pickIntentClearedReason": "", "allowOptingOutOfBanning": true, "allowSkinSelection": true,
    "rerollState": {"allowRerolling": false, "rerollsRemaining": 0},
    "battleBoostState": {"allowBattleBoost": true, "activatorCellId": -1,
                         "battleBoostActivated": false, "cost": 95,
                         "unlockedSkinIds": [51003, 86002]}
  }
})";

TEST_F(RecordsTest, ServiceDtoConvertsWithNestedChampionSelectState) {
    const TbdGameDtoV1 dto = FromJson<TbdGameDtoV1>(kChampSelectDto);
    EXPECT_EQ(dto.counter, 57);
    EXPECT_EQ(dto.queueId, 420);
    EXPECT_FALSE(dto.matchmakingState.has_value());
    EXPECT_FALSE(dto.afkCheckState.has_value());

    ASSERT_TRUE(dto.premadeState.has_value());
    const TbLobbyPremadeStateResource& premade = *dto.premadeState;
    EXPECT_EQ(premade.captainSlotId, 0);
    ASSERT_EQ(premade.draftSlots.size(), 2u);
    EXPECT_FALSE(premade.draftSlots[0].excludedPositionPreference.has_value());
    EXPECT_EQ(premade.draftSlots[1].excludedPositionPreference,
              std::optional<std::string>("JUNGLE"));
    EXPECT_TRUE(premade.readyState.readyToMatchmake);
    EXPECT_TRUE(premade.readyState.premadeSizeAllowed);  // missing: keeps its default
    EXPECT_EQ(premade.readyState.allowablePremadeSizes, (std::vector<int32_t>{1, 2, 5}));

    ASSERT_TRUE(dto.championSelectState.has_value());
    const ChampionSelectStateV1& state = *dto.championSelectState;
    EXPECT_EQ(state.currentTimeRemainingMillis, 15999);
    ASSERT_EQ(state.actionSetList.size(), 2u);
    EXPECT_EQ(state.actionSetList[1].Element(0).Field("type").GetString(), "PICK");
    ASSERT_EQ(state.ceremoniesByActionSetIndex.count("1"), 1u);
    EXPECT_EQ(state.ceremoniesByActionSetIndex.at("1").Element(0).Field("name").GetString(),
              "BAN_REVEAL");
    ASSERT_EQ(state.cells.alliedTeam.size(), 2u);
    EXPECT_EQ(state.cells.alliedTeam[0].championPickIntent, 86);
    ASSERT_EQ(state.cells.enemyTeam.size(), 1u);
    EXPECT_EQ(state.cells.enemyTeam[0].assignedPosition, "NONE");
    EXPECT_EQ(state.cells.enemyTeam[0].summonerId, 0u);
    ASSERT_EQ(state.trades.size(), 1u);
    EXPECT_EQ(state.trades[0].state, "AVAILABLE");
    EXPECT_EQ(state.battleBoostState.activatorCellId, -1);
    EXPECT_EQ(state.battleBoostState.unlockedSkinIds, (std::vector<int64_t>{51003, 86002}));

    // The dynamic action sets become native actions through the same registry.
    auto action = Framework::ConvertFromProperty<ActionV1>(
        registry_, state.actionSetList[0].Element(0), "<value>");
    ASSERT_TRUE(action.HasValue());
    EXPECT_EQ(action->type, "BAN");
    EXPECT_EQ(action->duration, 0);

    // Written out and read back, the record is unchanged.
    EXPECT_EQ(FromJson<TbdGameDtoV1>(ToJson(dto)), dto);
}

TEST_F(RecordsTest, OtherMessagesAndFollowedResourcesConvert) {
    auto login = FromJson<LoginSession>(
        R"({"state": "ERROR", "summonerId": 1001, "accountId": 77, "connected": true})");
    EXPECT_EQ(login.state, LoginSessionState::ERROR);
    EXPECT_TRUE(login.connected);

    auto removed = FromJson<RemovedFromServiceV1>(
        R"({"reason": "PLAYER_DODGE", "backwardsTransitionInfo":
             {"backwardsTransitionReason": "DODGE", "initiatorSummonerIds": [1002]}})");
    EXPECT_EQ(removed.backwardsTransitionInfo.initiatorSummonerIds, (std::vector<uint64_t>{1002}));

    // Invitation metadata is carried as it came.
    auto invitation = FromJson<LobbyInvitation>(
        R"({"invitationMetaData": {"draftPremadeId": "7f1c", "groupFinderId": 3}})");
    EXPECT_EQ(invitation.invitationMetaData.Field("draftPremadeId").GetString(), "7f1c");
    EXPECT_EQ(ToProperty(invitation).Field("invitationMetaData"), invitation.invitationMetaData);

    // Trade states are accepted by name or by the number of a registered value.
    EXPECT_EQ(FromJson<ChampSelectTradeContract>(R"({"state": "4"})").state,
              ChampSelectTradeState::RECEIVED);
}

// The messages name the records and their members; the framework's own
// message forms are tested with it.
TEST_F(RecordsTest, WrongKindsFailWithTheFirstMessage) {
    const std::function<std::string(std::string_view)> convert[] = {
        [this](std::string_view json) { return FailureOf<TbdGameDtoV1>(json); },
        [this](std::string_view json) { return FailureOf<MatchmakingSearch>(json); },
        [this](std::string_view json) { return FailureOf<ChampSelectTradeContract>(json); },
    };
    const struct {
        int record;  // in convert
        const char* json;
        const char* message;
    } cases[] = {
        {0, "[]",
         "Couldn't assign value to '<value>' of type QelLobbyTeamBuilderTbLobbyStateResource "
         "because the input not a structure."},
        {0, R"({"phaseName": 3, "queueId": true})",
         "Couldn't assign value to 'phaseName' because the input is not a string."},
        {0, R"({"premadeState": [1]})",
         "Couldn't assign value to 'premadeState' of type "
         "QelLobbyTeamBuilderTbLobbyPremadeStateResource because the input not a structure."},
        {0, R"({"championSelectState": {"cells": {"alliedTeam": [{"summonerId": -5}]}}})",
         "Value -5 for 'summonerId' of type uint64 is out of range"},
        {1, R"({"searchState": "Paused"})",
         "Paused is not a valid QelLobbyTeamBuilderMatchmakingSearchState enumeration value for "
         "'searchState'."},
        {1, R"({"readyCheck": {"playerResponse": 1}})",
         "1 is not a valid QelLobbyTeamBuilderMatchmakingReadyCheckResponse enumeration value "
         "for 'playerResponse'."},
        {2, R"({"state": "available"})",
         "available is not a valid QelLobbyTeamBuilderChampSelectTradeState enumeration value "
         "for 'state'."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert[c.record](c.json), c.message) << c.json;
    }
}

}  // namespace
}  // namespace Orvan::Client::LobbyTeamBuilder
