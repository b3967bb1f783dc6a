// Registry conversion of a lobby-sized record (about 30 fields: nested
// records, vectors, a map, optional fields, enums) to and from BindingProperty,
// beside the same work written by hand against a rapidjson::Document: building
// the equivalent document from the record, and reading the record back from it
// with the type checks a careful hand-written reader makes.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "framework/binding/NativeConversion.h"
#include "framework/binding/TypeRegistration.h"

namespace {

using namespace Orvan::Framework;

enum class Position : int32_t { TOP = 0, JUNGLE = 1, MIDDLE = 2, BOTTOM = 3, UTILITY = 4 };
enum class Phase : int32_t {
    DRAFT_PREMADE = 0,
    MATCHMAKING = 1,
    AFK_CHECK = 2,
    CHAMPION_SELECT = 3
};

const char* const kPositionNames[] = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY"};
const char* const kPhaseNames[] = {"DRAFT_PREMADE", "MATCHMAKING", "AFK_CHECK", "CHAMPION_SELECT"};

struct Slot {
    int32_t slotId = 0;
    std::string summonerName;
    uint64_t summonerId = 0;
    std::vector<std::string> preferences;
    std::optional<std::string> excluded;
    bool showExcluder = false;
    bool autoFillEligible = false;
    Position position = Position::TOP;
};

struct ReadyState {
    bool readyToMatchmake = false;
    bool premadeSizeAllowed = true;
    std::vector<int32_t> allowablePremadeSizes;
};

struct Game {
    int32_t counter = 0;
    std::string phaseName;
    int32_t queueId = -1;
    Phase phase = Phase::DRAFT_PREMADE;
    int64_t timer = 0;
    std::string draftPremadeId;
    std::string premadeChatRoomId;
    int32_t captainSlotId = -1;
    bool showPositionSelector = false;
    bool showPositionExcluder = false;
    bool readyToMatchmake = false;
    std::vector<Slot> draftSlots;
    std::vector<std::string> playableDraftPositions;
    int32_t localPlayerSlotId = -1;
    std::string backwardsTransitionReason;
    std::vector<int32_t> backwardsSlotIds;
    bool autoFillEligible = false;
    bool autoFillProtectedForStreaking = false;
    bool autoFillProtectedForPromos = false;
    ReadyState readyState;
    std::optional<int64_t> estimatedMatchmakingTimeMillis;
    std::optional<int64_t> timeInMatchmakingMillis;
    std::optional<std::string> gameMode;
    uint32_t maxAfkMillis = 0;
    int32_t remainingAfkMillis = 0;
    bool afkReady = false;
    std::map<std::string, int32_t> lastSelectedSkinIdByChampionId;
    std::vector<int32_t> skinIds;
    std::vector<int32_t> allChampionIds;
    double progress = 0.0;
    Position assignedPosition = Position::TOP;
};

void Register(BindingTypeRegistry& registry) {
    RegisterEnum<Position>(registry, "BenchPosition")
        .Value("TOP", Position::TOP)
        .Value("JUNGLE", Position::JUNGLE)
        .Value("MIDDLE", Position::MIDDLE)
        .Value("BOTTOM", Position::BOTTOM)
        .Value("UTILITY", Position::UTILITY);
    RegisterEnum<Phase>(registry, "BenchPhase")
        .Value("DRAFT_PREMADE", Phase::DRAFT_PREMADE)
        .Value("MATCHMAKING", Phase::MATCHMAKING)
        .Value("AFK_CHECK", Phase::AFK_CHECK)
        .Value("CHAMPION_SELECT", Phase::CHAMPION_SELECT);
    RegisterStruct<Slot>(registry, "BenchSlot")
        .Field("slotId", &Slot::slotId)
        .Field("summonerName", &Slot::summonerName)
        .Field("summonerId", &Slot::summonerId)
        .Field("draftPositionPreferences", &Slot::preferences)
        .Field("excludedPositionPreference", &Slot::excluded, kOmitIfEmpty)
        .Field("showPositionExcluder", &Slot::showExcluder)
        .Field("autoFillEligible", &Slot::autoFillEligible)
        .Field("position", &Slot::position);
    RegisterStruct<ReadyState>(registry, "BenchReadyState")
        .Field("readyToMatchmake", &ReadyState::readyToMatchmake)
        .Field("premadeSizeAllowed", &ReadyState::premadeSizeAllowed)
        .Field("allowablePremadeSizes", &ReadyState::allowablePremadeSizes);
    RegisterStruct<Game>(registry, "BenchGame")
        .Field("counter", &Game::counter)
        .Field("phaseName", &Game::phaseName)
        .Field("queueId", &Game::queueId)
        .Field("phase", &Game::phase)
        .Field("timer", &Game::timer)
        .Field("draftPremadeId", &Game::draftPremadeId)
        .Field("premadeChatRoomId", &Game::premadeChatRoomId)
        .Field("captainSlotId", &Game::captainSlotId)
        .Field("showPositionSelector", &Game::showPositionSelector)
        .Field("showPositionExcluder", &Game::showPositionExcluder)
        .Field("readyToMatchmake", &Game::readyToMatchmake)
        .Field("draftSlots", &Game::draftSlots)
        .Field("playableDraftPositions", &Game::playableDraftPositions)
        .Field("localPlayerSlotId", &Game::localPlayerSlotId)
        .Field("backwardsTransitionReason", &Game::backwardsTransitionReason)
        .Field("slotIds", &Game::backwardsSlotIds)
        .Field("autoFillEligible", &Game::autoFillEligible)
        .Field("autoFillProtectedForStreaking", &Game::autoFillProtectedForStreaking)
        .Field("autoFillProtectedForPromos", &Game::autoFillProtectedForPromos)
        .Field("readyState", &Game::readyState)
        .Field("estimatedMatchmakingTimeMillis", &Game::estimatedMatchmakingTimeMillis,
               kOmitIfEmpty)
        .Field("timeInMatchmakingMillis", &Game::timeInMatchmakingMillis, kOmitIfEmpty)
        .Field("gameMode", &Game::gameMode, kOmitIfEmpty)
        .Field("maxAfkMillis", &Game::maxAfkMillis)
        .Field("remainingAfkMillis", &Game::remainingAfkMillis)
        .Field("afkReady", &Game::afkReady)
        .Field("lastSelectedSkinIdByChampionId", &Game::lastSelectedSkinIdByChampionId)
        .Field("skinIds", &Game::skinIds)
        .Field("allChampionIds", &Game::allChampionIds)
        .Field("progress", &Game::progress)
        .Field("assignedPosition", &Game::assignedPosition);
}

Game MakeGame() {
    Game game;
    game.counter = 42;
    game.phaseName = "MATCHMAKING";
    game.queueId = 400;
    game.phase = Phase::MATCHMAKING;
    game.timer = 90000;
    game.draftPremadeId = "5f0c2a9e-8f7b-4d8e-9c1a-3b2d1e0f4a5b";
    game.premadeChatRoomId = "c1~5f0c2a9e8f7b4d8e9c1a3b2d1e0f4a5b";
    game.captainSlotId = 0;
    game.showPositionSelector = true;
    game.readyToMatchmake = true;
    for (int32_t i = 0; i < 5; ++i) {
        Slot slot;
        slot.slotId = i;
        slot.summonerName = "Summoner " + std::to_string(i);
        slot.summonerId = 2000000000ull + static_cast<uint64_t>(i);
        slot.preferences = {"MIDDLE", "UTILITY"};
        if (i % 2 == 0) {
            slot.excluded = "JUNGLE";
        }
        slot.autoFillEligible = i == 3;
        slot.position = static_cast<Position>(i);
        game.draftSlots.push_back(slot);
    }
    game.playableDraftPositions = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY", "FILL"};
    game.localPlayerSlotId = 2;
    game.backwardsSlotIds = {1, 3};
    game.autoFillEligible = true;
    game.readyState.readyToMatchmake = true;
    game.readyState.allowablePremadeSizes = {1, 2, 5};
    game.estimatedMatchmakingTimeMillis = 120000;
    game.gameMode = "CLASSIC";
    game.maxAfkMillis = 12000;
    game.remainingAfkMillis = 9000;
    for (int32_t champion = 1; champion <= 20; ++champion) {
        game.lastSelectedSkinIdByChampionId[std::to_string(champion)] = champion * 1000 + 3;
        game.allChampionIds.push_back(champion);
    }
    game.skinIds = {1001, 1002, 2001, 3004, 5005, 7007, 9009, 11011};
    game.progress = 0.75;
    game.assignedPosition = Position::MIDDLE;
    return game;
}

// ---- The same work by hand on a rapidjson::Document -------------------------

using Allocator = rapidjson::Document::AllocatorType;

rapidjson::Value Text(const std::string& text, Allocator& allocator) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
}

template <class T>
rapidjson::Value IntList(const std::vector<T>& values, Allocator& allocator) {
    rapidjson::Value list(rapidjson::kArrayType);
    list.Reserve(static_cast<rapidjson::SizeType>(values.size()), allocator);
    for (T v : values) {
        list.PushBack(v, allocator);
    }
    return list;
}

rapidjson::Value TextList(const std::vector<std::string>& values, Allocator& allocator) {
    rapidjson::Value list(rapidjson::kArrayType);
    list.Reserve(static_cast<rapidjson::SizeType>(values.size()), allocator);
    for (const std::string& v : values) {
        list.PushBack(Text(v, allocator), allocator);
    }
    return list;
}

void BuildDocument(const Game& game, rapidjson::Document& document) {
    Allocator& a = document.GetAllocator();
    document.SetObject();
    auto add = [&](const char* name, rapidjson::Value value) {
        document.AddMember(rapidjson::StringRef(name), value, a);
    };
    add("counter", rapidjson::Value(game.counter));
    add("phaseName", Text(game.phaseName, a));
    add("queueId", rapidjson::Value(game.queueId));
    add("phase", rapidjson::Value(rapidjson::StringRef(kPhaseNames[static_cast<int>(game.phase)])));
    add("timer", rapidjson::Value(game.timer));
    add("draftPremadeId", Text(game.draftPremadeId, a));
    add("premadeChatRoomId", Text(game.premadeChatRoomId, a));
    add("captainSlotId", rapidjson::Value(game.captainSlotId));
    add("showPositionSelector", rapidjson::Value(game.showPositionSelector));
    add("showPositionExcluder", rapidjson::Value(game.showPositionExcluder));
    add("readyToMatchmake", rapidjson::Value(game.readyToMatchmake));
    rapidjson::Value slots(rapidjson::kArrayType);
    for (const Slot& slot : game.draftSlots) {
        rapidjson::Value s(rapidjson::kObjectType);
        s.AddMember("slotId", slot.slotId, a);
        s.AddMember("summonerName", Text(slot.summonerName, a), a);
        s.AddMember("summonerId", slot.summonerId, a);
        s.AddMember("draftPositionPreferences", TextList(slot.preferences, a), a);
        if (slot.excluded && !slot.excluded->empty()) {
            s.AddMember("excludedPositionPreference", Text(*slot.excluded, a), a);
        }
        s.AddMember("showPositionExcluder", slot.showExcluder, a);
        s.AddMember("autoFillEligible", slot.autoFillEligible, a);
        s.AddMember("position",
                    rapidjson::StringRef(kPositionNames[static_cast<int>(slot.position)]), a);
        slots.PushBack(s, a);
    }
    add("draftSlots", std::move(slots));
    add("playableDraftPositions", TextList(game.playableDraftPositions, a));
    add("localPlayerSlotId", rapidjson::Value(game.localPlayerSlotId));
    add("backwardsTransitionReason", Text(game.backwardsTransitionReason, a));
    add("slotIds", IntList(game.backwardsSlotIds, a));
    add("autoFillEligible", rapidjson::Value(game.autoFillEligible));
    add("autoFillProtectedForStreaking", rapidjson::Value(game.autoFillProtectedForStreaking));
    add("autoFillProtectedForPromos", rapidjson::Value(game.autoFillProtectedForPromos));
    rapidjson::Value ready(rapidjson::kObjectType);
    ready.AddMember("readyToMatchmake", game.readyState.readyToMatchmake, a);
    ready.AddMember("premadeSizeAllowed", game.readyState.premadeSizeAllowed, a);
    ready.AddMember("allowablePremadeSizes", IntList(game.readyState.allowablePremadeSizes, a), a);
    add("readyState", std::move(ready));
    if (game.estimatedMatchmakingTimeMillis && *game.estimatedMatchmakingTimeMillis != 0) {
        add("estimatedMatchmakingTimeMillis",
            rapidjson::Value(*game.estimatedMatchmakingTimeMillis));
    }
    if (game.timeInMatchmakingMillis && *game.timeInMatchmakingMillis != 0) {
        add("timeInMatchmakingMillis", rapidjson::Value(*game.timeInMatchmakingMillis));
    }
    if (game.gameMode && !game.gameMode->empty()) {
        add("gameMode", Text(*game.gameMode, a));
    }
    add("maxAfkMillis", rapidjson::Value(game.maxAfkMillis));
    add("remainingAfkMillis", rapidjson::Value(game.remainingAfkMillis));
    add("afkReady", rapidjson::Value(game.afkReady));
    rapidjson::Value skins(rapidjson::kObjectType);
    for (const auto& [champion, skin] : game.lastSelectedSkinIdByChampionId) {
        skins.AddMember(Text(champion, a), rapidjson::Value(skin), a);
    }
    add("lastSelectedSkinIdByChampionId", std::move(skins));
    add("skinIds", IntList(game.skinIds, a));
    add("allChampionIds", IntList(game.allChampionIds, a));
    add("progress", rapidjson::Value(game.progress));
    add("assignedPosition", rapidjson::Value(rapidjson::StringRef(
                                kPositionNames[static_cast<int>(game.assignedPosition)])));
}

// Hand-written reader: checks each member's type and keeps what is missing.
bool ReadInt(const rapidjson::Value& object, const char* name, int32_t& target) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!it->value.IsInt()) {
        return false;
    }
    target = it->value.GetInt();
    return true;
}

template <class T, class Get>
bool ReadScalar(const rapidjson::Value& object, const char* name, T& target,
                bool (rapidjson::Value::*is)() const, Get get) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!(it->value.*is)()) {
        return false;
    }
    target = static_cast<T>((it->value.*get)());
    return true;
}

bool ReadBool(const rapidjson::Value& object, const char* name, bool& target) {
    return ReadScalar(object, name, target, &rapidjson::Value::IsBool, &rapidjson::Value::GetBool);
}

bool ReadText(const rapidjson::Value& object, const char* name, std::string& target) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!it->value.IsString()) {
        return false;
    }
    target.assign(it->value.GetString(), it->value.GetStringLength());
    return true;
}

bool ReadIntList(const rapidjson::Value& object, const char* name, std::vector<int32_t>& target) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!it->value.IsArray()) {
        return false;
    }
    target.clear();
    target.reserve(it->value.Size());
    for (const auto& v : it->value.GetArray()) {
        if (!v.IsInt()) {
            return false;
        }
        target.push_back(v.GetInt());
    }
    return true;
}

bool ReadTextList(const rapidjson::Value& object, const char* name,
                  std::vector<std::string>& target) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!it->value.IsArray()) {
        return false;
    }
    target.clear();
    target.reserve(it->value.Size());
    for (const auto& v : it->value.GetArray()) {
        if (!v.IsString()) {
            return false;
        }
        target.emplace_back(v.GetString(), v.GetStringLength());
    }
    return true;
}

template <class E, size_t N>
bool ReadEnum(const rapidjson::Value& object, const char* name, const char* const (&names)[N],
              E& target) {
    auto it = object.FindMember(name);
    if (it == object.MemberEnd()) {
        return true;
    }
    if (!it->value.IsString()) {
        return false;
    }
    for (size_t i = 0; i < N; ++i) {
        if (std::strcmp(names[i], it->value.GetString()) == 0) {
            target = static_cast<E>(i);
            return true;
        }
    }
    return false;
}

bool ReadGame(const rapidjson::Value& d, Game& game) {
    bool ok = d.IsObject();
    ok = ok && ReadInt(d, "counter", game.counter);
    ok = ok && ReadText(d, "phaseName", game.phaseName);
    ok = ok && ReadInt(d, "queueId", game.queueId);
    ok = ok && ReadEnum(d, "phase", kPhaseNames, game.phase);
    ok = ok && ReadScalar(d, "timer", game.timer, &rapidjson::Value::IsInt64,
                          &rapidjson::Value::GetInt64);
    ok = ok && ReadText(d, "draftPremadeId", game.draftPremadeId);
    ok = ok && ReadText(d, "premadeChatRoomId", game.premadeChatRoomId);
    ok = ok && ReadInt(d, "captainSlotId", game.captainSlotId);
    ok = ok && ReadBool(d, "showPositionSelector", game.showPositionSelector);
    ok = ok && ReadBool(d, "showPositionExcluder", game.showPositionExcluder);
    ok = ok && ReadBool(d, "readyToMatchmake", game.readyToMatchmake);
    if (auto it = d.FindMember("draftSlots"); ok && it != d.MemberEnd()) {
        ok = it->value.IsArray();
        game.draftSlots.clear();
        for (rapidjson::SizeType i = 0; ok && i < it->value.Size(); ++i) {
            const rapidjson::Value& s = it->value[i];
            Slot& slot = game.draftSlots.emplace_back();
            ok = s.IsObject() && ReadInt(s, "slotId", slot.slotId) &&
                 ReadText(s, "summonerName", slot.summonerName) &&
                 ReadScalar(s, "summonerId", slot.summonerId, &rapidjson::Value::IsUint64,
                            &rapidjson::Value::GetUint64) &&
                 ReadTextList(s, "draftPositionPreferences", slot.preferences) &&
                 ReadBool(s, "showPositionExcluder", slot.showExcluder) &&
                 ReadBool(s, "autoFillEligible", slot.autoFillEligible) &&
                 ReadEnum(s, "position", kPositionNames, slot.position);
            if (auto e = s.FindMember("excludedPositionPreference"); ok && e != s.MemberEnd()) {
                ok = e->value.IsString();
                if (ok) {
                    slot.excluded.emplace(e->value.GetString(), e->value.GetStringLength());
                }
            }
        }
    }
    ok = ok && ReadTextList(d, "playableDraftPositions", game.playableDraftPositions);
    ok = ok && ReadInt(d, "localPlayerSlotId", game.localPlayerSlotId);
    ok = ok && ReadText(d, "backwardsTransitionReason", game.backwardsTransitionReason);
    ok = ok && ReadIntList(d, "slotIds", game.backwardsSlotIds);
    ok = ok && ReadBool(d, "autoFillEligible", game.autoFillEligible);
    ok = ok && ReadBool(d, "autoFillProtectedForStreaking", game.autoFillProtectedForStreaking);
    ok = ok && ReadBool(d, "autoFillProtectedForPromos", game.autoFillProtectedForPromos);
    if (auto it = d.FindMember("readyState"); ok && it != d.MemberEnd()) {
        const rapidjson::Value& r = it->value;
        ok = r.IsObject() && ReadBool(r, "readyToMatchmake", game.readyState.readyToMatchmake) &&
             ReadBool(r, "premadeSizeAllowed", game.readyState.premadeSizeAllowed) &&
             ReadIntList(r, "allowablePremadeSizes", game.readyState.allowablePremadeSizes);
    }
    for (auto [name, target] :
         {std::pair{"estimatedMatchmakingTimeMillis", &game.estimatedMatchmakingTimeMillis},
          std::pair{"timeInMatchmakingMillis", &game.timeInMatchmakingMillis}}) {
        if (auto it = d.FindMember(name); ok && it != d.MemberEnd()) {
            ok = it->value.IsInt64();
            if (ok) {
                *target = it->value.GetInt64();
            }
        }
    }
    if (auto it = d.FindMember("gameMode"); ok && it != d.MemberEnd()) {
        ok = it->value.IsString();
        if (ok) {
            game.gameMode.emplace(it->value.GetString(), it->value.GetStringLength());
        }
    }
    ok = ok && ReadScalar(d, "maxAfkMillis", game.maxAfkMillis, &rapidjson::Value::IsUint,
                          &rapidjson::Value::GetUint);
    ok = ok && ReadInt(d, "remainingAfkMillis", game.remainingAfkMillis);
    ok = ok && ReadBool(d, "afkReady", game.afkReady);
    if (auto it = d.FindMember("lastSelectedSkinIdByChampionId"); ok && it != d.MemberEnd()) {
        ok = it->value.IsObject();
        game.lastSelectedSkinIdByChampionId.clear();
        for (auto m = it->value.MemberBegin(); ok && m != it->value.MemberEnd(); ++m) {
            ok = m->value.IsInt();
            if (ok) {
                game.lastSelectedSkinIdByChampionId.emplace(
                    std::string(m->name.GetString(), m->name.GetStringLength()), m->value.GetInt());
            }
        }
    }
    ok = ok && ReadIntList(d, "skinIds", game.skinIds);
    ok = ok && ReadIntList(d, "allChampionIds", game.allChampionIds);
    ok = ok && ReadScalar(d, "progress", game.progress, &rapidjson::Value::IsNumber,
                          &rapidjson::Value::GetDouble);
    ok = ok && ReadEnum(d, "assignedPosition", kPositionNames, game.assignedPosition);
    return ok;
}

// ---- Benchmarks --------------------------------------------------------------

const BindingTypeRegistry& Registry() {
    static BindingTypeRegistry* registry = [] {
        auto* r = new BindingTypeRegistry;
        Register(*r);
        return r;
    }();
    return *registry;
}

void BM_NativeToProperty(benchmark::State& state) {
    const Game game = MakeGame();
    for (auto _ : state) {
        Maybe<BindingProperty> value = ConvertToProperty(Registry(), game);
        benchmark::DoNotOptimize(value);
        if (!value) {
            state.SkipWithError("conversion failed");
        }
    }
}
BENCHMARK(BM_NativeToProperty);

void BM_NativeToRapidJsonByHand(benchmark::State& state) {
    const Game game = MakeGame();
    for (auto _ : state) {
        rapidjson::Document document;
        BuildDocument(game, document);
        benchmark::DoNotOptimize(document);
    }
}
BENCHMARK(BM_NativeToRapidJsonByHand);

void BM_PropertyToNative(benchmark::State& state) {
    Maybe<BindingProperty> value = ConvertToProperty(Registry(), MakeGame());
    for (auto _ : state) {
        Maybe<Game> game = ConvertFromProperty<Game>(Registry(), *value, "<value>");
        benchmark::DoNotOptimize(game);
        if (!game) {
            state.SkipWithError(game.GetFailure().message.c_str());
        }
    }
}
BENCHMARK(BM_PropertyToNative);

void BM_RapidJsonToNativeByHand(benchmark::State& state) {
    rapidjson::Document document;
    BuildDocument(MakeGame(), document);
    for (auto _ : state) {
        Game game;
        const bool ok = ReadGame(document, game);
        benchmark::DoNotOptimize(game);
        if (!ok) {
            state.SkipWithError("reading failed");
        }
    }
}
BENCHMARK(BM_RapidJsonToNativeByHand);

}  // namespace
