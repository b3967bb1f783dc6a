// The game record the service sends (the "tbdGameDtoV1" payload), written
// from the simulated game. Every record takes the next counter value.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>

#include "sim/Catalog.h"
#include "sim/internal/Game.h"

namespace Orvan::Simulation {

namespace {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void Key(JsonWriter& w, const char* name) {
    w.Key(name);
}

void Text(JsonWriter& w, const char* name, std::string_view value) {
    w.Key(name);
    w.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void Int(JsonWriter& w, const char* name, int64_t value) {
    w.Key(name);
    w.Int64(value);
}

void Uint(JsonWriter& w, const char* name, uint64_t value) {
    w.Key(name);
    w.Uint64(value);
}

void Bool(JsonWriter& w, const char* name, bool value) {
    w.Key(name);
    w.Bool(value);
}

template <class Range>
void IntArray(JsonWriter& w, const char* name, const Range& values) {
    w.Key(name);
    w.StartArray();
    for (auto value : values) {
        w.Int64(static_cast<int64_t>(value));
    }
    w.EndArray();
}

const char* WirePhaseName(GamePhase phase) {
    switch (phase) {
        case GamePhase::Premade:
            return "DRAFT_PREMADE";
        case GamePhase::Matchmaking:
            return "MATCHMAKING";
        case GamePhase::AfkCheck:
            return "AFK_CHECK";
        case GamePhase::ChampSelect:
        case GamePhase::InGame:
            return "CHAMPION_SELECT";
        case GamePhase::None:
            break;
    }
    return "";
}

int64_t Remaining(double start, int64_t totalMs, double now) {
    const double left = static_cast<double>(totalMs) - (now - start) * 1000.0;
    return std::max<int64_t>(0, static_cast<int64_t>(std::llround(left)));
}

}  // namespace

std::string ServiceSimulator::Game::GameRecordJson() {
    ++counter_;
    ++stats_.gameRecords;
    const double now = env_.Now();
    rapidjson::StringBuffer buffer;
    JsonWriter w(buffer);
    w.StartObject();
    Int(w, "counter", counter_);
    Text(w, "phaseName", WirePhaseName(phase_));
    Int(w, "queueId", phase_ == GamePhase::None ? -1 : options_.queueId);

    // The lobby travels while the party is in it or searches; the ready
    // check and champion select leave it out, as the service does.
    if (phase_ == GamePhase::Premade || phase_ == GamePhase::Matchmaking) {
        Key(w, "premadeState");
        w.StartObject();
        Int(w, "timer", 0);
        Text(w, "draftPremadeId", premadeId_);
        Text(w, "premadeChatRoomId", chatRoomId_);
        Int(w, "captainSlotId", captainSlotId_);
        Bool(w, "showPositionSelector", true);
        Bool(w, "showPositionExcluder", true);
        Bool(w, "readyToMatchmake", ReadyToMatchmake());
        Key(w, "draftSlots");
        w.StartArray();
        int32_t localSlot = -1;
        for (const LobbySlot& slot : slots_) {
            const SimPlayer& player = players_[slot.player];
            if (player.local) {
                localSlot = slot.slotId;
            }
            w.StartObject();
            Int(w, "slotId", slot.slotId);
            Text(w, "summonerName", player.name);
            Uint(w, "summonerId", player.summonerId);
            Key(w, "draftPositionPreferences");
            w.StartArray();
            if (positionsChosen_[slot.player]) {
                for (const std::string& preference : player.preferences) {
                    w.String(preference.c_str());
                }
            }
            w.EndArray();
            if (positionsChosen_[slot.player] && !player.excluded.empty()) {
                Text(w, "excludedPositionPreference", player.excluded);
            }
            Bool(w, "showPositionExcluder", true);
            Bool(w, "autoFillEligible", false);
            Bool(w, "autoFillProtectedForStreaking", false);
            Bool(w, "autoFillProtectedForPromos", false);
            Bool(w, "autoFillProtectedForSoloing", false);
            w.EndObject();
        }
        w.EndArray();
        Key(w, "playableDraftPositions");
        w.StartArray();
        for (std::string_view position : Positions()) {
            w.String(position.data(), static_cast<rapidjson::SizeType>(position.size()));
        }
        w.EndArray();
        Int(w, "localPlayerSlotId", localSlot);
        Key(w, "backwardsToPremadeTransitionReason");
        w.StartObject();
        Text(w, "backwardsTransitionReason", premadeReason_);
        IntArray(w, "slotIds", premadeReasonSlots_);
        w.EndObject();
        Bool(w, "autoFillEligible", false);
        Bool(w, "autoFillProtectedForStreaking", false);
        Bool(w, "autoFillProtectedForPromos", false);
        Key(w, "readyState");
        w.StartObject();
        Bool(w, "readyToMatchmake", ReadyToMatchmake());
        Bool(w, "premadeSizeAllowed", true);
        Bool(w, "requiredPositionCoverageMet", ReadyToMatchmake());
        IntArray(w, "allowablePremadeSizes", std::vector<int32_t>{1, 2, 3, 5});
        w.EndObject();
        w.EndObject();
    }

    if (phase_ == GamePhase::Matchmaking) {
        Key(w, "matchmakingState");
        w.StartObject();
        Int(w, "estimatedMatchmakingTimeMillis", estimateMs_);
        Int(w, "timeInMatchmakingMillis",
            static_cast<int64_t>(std::llround((now - searchStart_) * 1000.0)));
        Text(w, "backwardsTransitionReason", searchReason_);
        w.EndObject();
    }

    if (phase_ == GamePhase::AfkCheck) {
        Key(w, "afkCheckState");
        w.StartObject();
        Uint(w, "maxAfkMillis", kReadyCheckMs);
        Int(w, "remainingAfkMillis", Remaining(checkStart_, kReadyCheckMs, now));
        Bool(w, "afkReady", localReady_);
        Key(w, "inventoryDraft");
        w.StartObject();
        Key(w, "lastSelectedSkinIdByChampionId");
        w.StartObject();
        for (const auto& [champion, skin] : inventory_.lastSelectedSkin) {
            w.Key(std::to_string(champion).c_str());
            w.Int(skin);
        }
        w.EndObject();
        IntArray(w, "skinIds", inventory_.skinIds);
        IntArray(w, "spellIds", SpellIds());
        IntArray(w, "initialSpellIds", std::vector<int32_t>{4, 14});
        std::vector<int32_t> all;
        for (const Champion& champion : Champions()) {
            all.push_back(champion.id);
        }
        IntArray(w, "allChampionIds", all);
        IntArray(w, "disabledChampionIds", inventory_.disabledChampions);
        w.EndObject();
        w.EndObject();
    }

    if (phase_ == GamePhase::ChampSelect || phase_ == GamePhase::InGame) {
        Key(w, "championSelectState");
        w.StartObject();
        Text(w, "teamId", cs_.teamId);
        Text(w, "teamChatRoomId", cs_.chatRoomId);
        Text(w, "subphase", cs_.subphase);
        Key(w, "actionSetList");
        w.StartArray();
        for (const auto& set : cs_.actionSets) {
            w.StartArray();
            for (const SimAction& action : set) {
                w.StartObject();
                Int(w, "actionId", action.id);
                Int(w, "actorCellId", action.actorCellId);
                Text(w, "type", action.type);
                Int(w, "championId", action.champion);
                Bool(w, "completed", action.completed);
                w.EndObject();
            }
            w.EndArray();
        }
        w.EndArray();
        Key(w, "ceremoniesByActionSetIndex");
        w.StartObject();
        for (const auto& [index, ceremonies] : cs_.ceremonies) {
            w.Key(std::to_string(index).c_str());
            w.StartArray();
            for (const SimCeremony& ceremony : ceremonies) {
                w.StartObject();
                Text(w, "name", ceremony.name);
                Int(w, "duration", ceremony.durationMs);
                w.EndObject();
            }
            w.EndArray();
        }
        w.EndObject();
        Int(w, "currentActionSetIndex", cs_.currentSet);
        Key(w, "cells");
        w.StartObject();
        for (int team = 1; team <= 2; ++team) {
            Key(w, team == 1 ? "alliedTeam" : "enemyTeam");
            w.StartArray();
            for (const SimCell& cell : cs_.cells) {
                if (cell.teamId != team) {
                    continue;
                }
                const SimPlayer& player = players_[cell.player];
                // The other team stays anonymous, and so do its intentions.
                w.StartObject();
                Int(w, "teamId", cell.teamId);
                Int(w, "cellId", cell.cellId);
                Text(w, "summonerName", team == 1 ? std::string_view(player.name) : "");
                Int(w, "championPickIntent", team == 1 ? cell.intent : 0);
                Int(w, "championId", cell.champion);
                Int(w, "skinId", cell.skin);
                Text(w, "assignedPosition", team == 1 ? cell.position : "NONE");
                Int(w, "spell1Id", cell.spell1);
                Int(w, "spell2Id", cell.spell2);
                Uint(w, "summonerId", team == 1 ? player.summonerId : 0);
                w.EndObject();
            }
            w.EndArray();
        }
        w.EndObject();
        Int(w, "localPlayerCellId", cs_.localCellId);
        Int(w, "currentTotalTimeMillis", cs_.phaseTotalMs);
        Int(w, "currentTimeRemainingMillis", Remaining(cs_.phaseStart, cs_.phaseTotalMs, now));
        Key(w, "trades");
        w.StartArray();
        for (const SimTrade& trade : cs_.trades) {
            w.StartObject();
            Int(w, "id", trade.id);
            Int(w, "cellId", trade.cellId);
            Text(w, "state", trade.state);
            w.EndObject();
        }
        w.EndArray();
        Text(w, "pickIntentClearedReason", "");
        Bool(w, "allowOptingOutOfBanning", true);
        Bool(w, "allowSkinSelection", true);
        Key(w, "rerollState");
        w.StartObject();
        Bool(w, "allowRerolling", false);
        Uint(w, "rerollsRemaining", 0);
        w.EndObject();
        Key(w, "battleBoostState");
        w.StartObject();
        Bool(w, "allowBattleBoost", true);
        Int(w, "activatorCellId", cs_.boostActivatorCellId);
        Bool(w, "battleBoostActivated", cs_.boostActivated);
        Int(w, "cost", cs_.boostCost);
        IntArray(w, "unlockedSkinIds", cs_.unlockedSkins);
        w.EndObject();
        w.EndObject();
    }
    w.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace Orvan::Simulation
