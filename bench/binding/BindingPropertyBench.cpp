// Building and deep-copying a tree of 500 records of 20 mixed fields, beside
// the same work on a rapidjson::Document in the same run.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <string>
#include <vector>

#include "framework/binding/BindingProperty.h"

namespace {

using Orvan::Framework::BindingProperty;

constexpr int kRecords = 500;

// The machine's allocator would otherwise hand the reference's 64 KiB chunks
// back to the kernel after every iteration and fault them in again, which
// measures the virtual machine's page tables rather than either library.
#ifdef __GLIBC__
const int kKeepHeap = mallopt(M_TRIM_THRESHOLD, 256 << 20);
#endif

// Wire order, deliberately not sorted.
constexpr const char* kNames[20] = {"queueId",    "counter",      "phase",      "draftPremadeId",
                                    "playerId",   "summonerName", "isLeader",   "ready",
                                    "timeLeft",   "ratio",        "championId", "spellIds",
                                    "position",   "skinId",       "team",       "wardSkinId",
                                    "lastUpdate", "pickTurn",     "readyCheck", "afkCount"};

struct Texts {
    std::vector<std::string> players;
    std::vector<std::string> names;
    Texts() {
        for (int i = 0; i < kRecords; ++i) {
            players.push_back("player-" + std::to_string(1000000 + i * 7919));
            names.push_back("Summoner Name " + std::to_string(i));
        }
    }
};

const Texts& SharedTexts() {
    static const Texts texts;
    return texts;
}

void BuildBinding(BindingProperty& root) {
    const Texts& texts = SharedTexts();
    root.Reserve(kRecords);
    for (int i = 0; i < kRecords; ++i) {
        BindingProperty& item = root.Append();
        item.MutableField(kNames[0]).SetSigned(420);
        item.MutableField(kNames[1]).SetUnsigned(static_cast<uint64_t>(i) * 3);
        item.MutableField(kNames[2]).SetString("CHAMPION_SELECT");
        item.MutableField(kNames[3]).SetString(texts.players[static_cast<size_t>(i)]);
        item.MutableField(kNames[4]).SetUnsigned(1000000u + static_cast<uint64_t>(i));
        item.MutableField(kNames[5]).SetString(texts.names[static_cast<size_t>(i)]);
        item.MutableField(kNames[6]).SetBool(i % 5 == 0);
        item.MutableField(kNames[7]).SetBool(true);
        item.MutableField(kNames[8]).SetFloat(29.5 - i * 0.01);
        item.MutableField(kNames[9]).SetFloat(0.25);
        item.MutableField(kNames[10]).SetSigned(i % 160);
        BindingProperty& spells = item.MutableField(kNames[11]);
        spells.Append().SetSigned(4);
        spells.Append().SetSigned(14);
        item.MutableField(kNames[12]).SetString("MIDDLE");
        item.MutableField(kNames[13]).SetSigned(int64_t{i} * 1000);
        BindingProperty& team = item.MutableField(kNames[14]);
        team.MutableField("side").SetString("BLUE");
        team.MutableField("size").SetSigned(5);
        item.MutableField(kNames[15]).SetSigned(-1);
        item.MutableField(kNames[16]).SetSigned(1700000000000 + i);
        item.MutableField(kNames[17]).SetSigned(i % 10);
        item.MutableField(kNames[18]).MutableField("state").SetString("Invalid");
        item.MutableField(kNames[19]).SetUnsigned(0);
    }
}

void BuildRapidJson(rapidjson::Document& root) {
    using rapidjson::StringRef;
    using rapidjson::Value;
    const Texts& texts = SharedTexts();
    auto& a = root.GetAllocator();
    root.SetArray();
    root.Reserve(kRecords, a);
    for (int i = 0; i < kRecords; ++i) {
        Value item(rapidjson::kObjectType);
        item.AddMember(StringRef(kNames[0]), Value(420), a);
        item.AddMember(StringRef(kNames[1]), Value(static_cast<uint64_t>(i) * 3), a);
        item.AddMember(StringRef(kNames[2]), Value("CHAMPION_SELECT", a), a);
        const std::string& player = texts.players[static_cast<size_t>(i)];
        item.AddMember(StringRef(kNames[3]),
                       Value(player.data(), static_cast<rapidjson::SizeType>(player.size()), a), a);
        item.AddMember(StringRef(kNames[4]), Value(1000000u + static_cast<uint64_t>(i)), a);
        const std::string& name = texts.names[static_cast<size_t>(i)];
        item.AddMember(StringRef(kNames[5]),
                       Value(name.data(), static_cast<rapidjson::SizeType>(name.size()), a), a);
        item.AddMember(StringRef(kNames[6]), Value(i % 5 == 0), a);
        item.AddMember(StringRef(kNames[7]), Value(true), a);
        item.AddMember(StringRef(kNames[8]), Value(29.5 - i * 0.01), a);
        item.AddMember(StringRef(kNames[9]), Value(0.25), a);
        item.AddMember(StringRef(kNames[10]), Value(i % 160), a);
        Value spells(rapidjson::kArrayType);
        spells.PushBack(4, a).PushBack(14, a);
        item.AddMember(StringRef(kNames[11]), spells, a);
        item.AddMember(StringRef(kNames[12]), Value("MIDDLE", a), a);
        item.AddMember(StringRef(kNames[13]), Value(i * 1000), a);
        Value team(rapidjson::kObjectType);
        team.AddMember("side", Value("BLUE", a), a);
        team.AddMember("size", 5, a);
        item.AddMember(StringRef(kNames[14]), team, a);
        item.AddMember(StringRef(kNames[15]), Value(-1), a);
        item.AddMember(StringRef(kNames[16]), Value(int64_t{1700000000000} + i), a);
        item.AddMember(StringRef(kNames[17]), Value(i % 10), a);
        Value check(rapidjson::kObjectType);
        check.AddMember("state", Value("Invalid", a), a);
        item.AddMember(StringRef(kNames[18]), check, a);
        item.AddMember(StringRef(kNames[19]), Value(0u), a);
        root.PushBack(item, a);
    }
}

// The reference with the find-or-add semantics of MutableField: each field
// is looked up before it is added (RapidJSON's AddMember alone never checks).
rapidjson::Value& FindOrAdd(rapidjson::Value& object, const char* name,
                            rapidjson::Document::AllocatorType& allocator) {
    auto found = object.FindMember(name);
    if (found != object.MemberEnd()) {
        return found->value;
    }
    object.AddMember(rapidjson::StringRef(name), rapidjson::Value(), allocator);
    return (object.MemberEnd() - 1)->value;
}

void BuildRapidJsonChecked(rapidjson::Document& root) {
    using rapidjson::Value;
    const Texts& texts = SharedTexts();
    auto& a = root.GetAllocator();
    root.SetArray();
    root.Reserve(kRecords, a);
    for (int i = 0; i < kRecords; ++i) {
        root.PushBack(Value(rapidjson::kObjectType), a);
        Value& item = root[static_cast<rapidjson::SizeType>(i)];
        FindOrAdd(item, kNames[0], a).SetInt(420);
        FindOrAdd(item, kNames[1], a).SetUint64(static_cast<uint64_t>(i) * 3);
        FindOrAdd(item, kNames[2], a).SetString("CHAMPION_SELECT", a);
        const std::string& player = texts.players[static_cast<size_t>(i)];
        FindOrAdd(item, kNames[3], a)
            .SetString(player.data(), static_cast<rapidjson::SizeType>(player.size()), a);
        FindOrAdd(item, kNames[4], a).SetUint64(1000000u + static_cast<uint64_t>(i));
        const std::string& name = texts.names[static_cast<size_t>(i)];
        FindOrAdd(item, kNames[5], a)
            .SetString(name.data(), static_cast<rapidjson::SizeType>(name.size()), a);
        FindOrAdd(item, kNames[6], a).SetBool(i % 5 == 0);
        FindOrAdd(item, kNames[7], a).SetBool(true);
        FindOrAdd(item, kNames[8], a).SetDouble(29.5 - i * 0.01);
        FindOrAdd(item, kNames[9], a).SetDouble(0.25);
        FindOrAdd(item, kNames[10], a).SetInt(i % 160);
        Value& spells = FindOrAdd(item, kNames[11], a).SetArray();
        spells.PushBack(4, a).PushBack(14, a);
        FindOrAdd(item, kNames[12], a).SetString("MIDDLE", a);
        FindOrAdd(item, kNames[13], a).SetInt(i * 1000);
        Value& team = FindOrAdd(item, kNames[14], a).SetObject();
        FindOrAdd(team, "side", a).SetString("BLUE", a);
        FindOrAdd(team, "size", a).SetInt(5);
        FindOrAdd(item, kNames[15], a).SetInt(-1);
        FindOrAdd(item, kNames[16], a).SetInt64(int64_t{1700000000000} + i);
        FindOrAdd(item, kNames[17], a).SetInt(i % 10);
        Value& check = FindOrAdd(item, kNames[18], a).SetObject();
        FindOrAdd(check, "state", a).SetString("Invalid", a);
        FindOrAdd(item, kNames[19], a).SetUint(0);
    }
}

void BM_BuildBindingProperty(benchmark::State& state) {
    SharedTexts();
    for (auto _ : state) {
        BindingProperty root;
        BuildBinding(root);
        benchmark::DoNotOptimize(root);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_BuildBindingProperty);

void BM_BuildRapidJson(benchmark::State& state) {
    SharedTexts();
    for (auto _ : state) {
        rapidjson::Document root;
        BuildRapidJson(root);
        benchmark::DoNotOptimize(root);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_BuildRapidJson);

void BM_BuildRapidJsonChecked(benchmark::State& state) {
    SharedTexts();
    for (auto _ : state) {
        rapidjson::Document root;
        BuildRapidJsonChecked(root);
        benchmark::DoNotOptimize(root);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_BuildRapidJsonChecked);

void BM_CopyBindingProperty(benchmark::State& state) {
    BindingProperty source;
    BuildBinding(source);
    for (auto _ : state) {
        BindingProperty copy(source);
        benchmark::DoNotOptimize(copy);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_CopyBindingProperty);

void BM_CopyRapidJson(benchmark::State& state) {
    rapidjson::Document source;
    BuildRapidJson(source);
    for (auto _ : state) {
        rapidjson::Document copy;
        copy.CopyFrom(source, copy.GetAllocator());
        benchmark::DoNotOptimize(copy);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_CopyRapidJson);

// Copy into a tree that already has a context (an element of a live tree),
// the common case of a converter filling a response.
void BM_CopyBindingPropertyIntoTree(benchmark::State& state) {
    BindingProperty source;
    BuildBinding(source);
    BindingProperty target;
    target.MutableElement(0) = source;
    for (auto _ : state) {
        target.MutableElement(0) = source;
        benchmark::DoNotOptimize(target);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_CopyBindingPropertyIntoTree);

}  // namespace
