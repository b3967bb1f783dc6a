// Inputs of the codec benchmarks, generated deterministically: a lobby record
// (about 1.5 KB of JSON: three members), a champion-select record (about 12 KB: ten cells,
// six action sets, an inventory of 160 champions) and an array of
// champion-select records (about 2 MB), and generated documents of four
// DTO shapes at 1 KB, 32 KB and 2 MB (see Shaped). Each comes as JSON text, as
// MessagePack bytes and as block-style YAML text holding the same value.
//
// Header-only; each benchmark executable includes it once. Not thread-safe
// during the first call of Inputs().
#pragma once

#include <msgpack.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace Orvan::Framework::Bench {

struct CodecInput {
    std::string name;
    std::string json;
    std::vector<uint8_t> msgpack;
    std::string yaml;
};

namespace Detail {

class Random {
public:
    uint32_t Next() {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state_ >> 33);
    }
    uint32_t Below(uint32_t n) { return Next() % n; }
    bool Flip() { return (Next() & 1) != 0; }
    std::string Word(size_t length) {
        std::string w;
        for (size_t i = 0; i < length; ++i) {
            w.push_back(static_cast<char>('a' + Below(26)));
        }
        return w;
    }

private:
    uint64_t state_ = 0x2545F4914F6CDD1Dull;
};

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

inline void Member(Writer& w, Random& r, int index) {
    w.StartObject();
    w.Key("allowedChangeActivity");
    w.Bool(r.Flip());
    w.Key("allowedInviteOthers");
    w.Bool(r.Flip());
    w.Key("allowedKickOthers");
    w.Bool(index == 0);
    w.Key("allowedStartActivity");
    w.Bool(index == 0);
    w.Key("firstPositionPreference");
    w.String(r.Flip() ? "MIDDLE" : "BOTTOM");
    w.Key("isLeader");
    w.Bool(index == 0);
    w.Key("isSpectator");
    w.Bool(false);
    w.Key("playerSlots");
    w.StartArray();
    w.EndArray();
    w.Key("puuid");
    w.String((r.Word(8) + "-" + r.Word(4) + "-" + r.Word(4) + "-" + r.Word(12)).c_str());
    w.Key("ready");
    w.Bool(r.Flip());
    w.Key("secondPositionPreference");
    w.String("UTILITY");
    w.Key("summonerIconId");
    w.Uint(r.Below(5000));
    w.Key("summonerId");
    w.Uint64(2000000000ull + r.Next());
    w.Key("summonerInternalName");
    w.String(r.Word(10).c_str());
    w.Key("summonerLevel");
    w.Uint(r.Below(500));
    w.Key("teamId");
    w.Int(index < 5 ? 100 : 200);
    w.EndObject();
}

inline void Lobby(Writer& w, Random& r) {
    w.StartObject();
    w.Key("canStartActivity");
    w.Bool(true);
    w.Key("chatRoomId");
    w.String((r.Word(24) + "@chat.lobby").c_str());
    w.Key("gameConfig");
    w.StartObject();
    w.Key("allowablePremadeSizes");
    w.StartArray();
    for (int i = 1; i <= 5; ++i) {
        w.Int(i);
    }
    w.EndArray();
    w.Key("gameMode");
    w.String("CLASSIC");
    w.Key("isCustom");
    w.Bool(false);
    w.Key("maxLobbySize");
    w.Int(5);
    w.Key("queueId");
    w.Int(420);
    w.Key("showPositionSelector");
    w.Bool(true);
    w.EndObject();
    w.Key("members");
    w.StartArray();
    for (int i = 0; i < 3; ++i) {
        Member(w, r, i);
    }
    w.EndArray();
    w.Key("partyId");
    w.String(r.Word(32).c_str());
    w.Key("partyType");
    w.String("open");
    w.Key("estimatedWaitTime");
    w.Double(93.25);
    w.EndObject();
}

inline void Cell(Writer& w, Random& r, int cellId) {
    w.StartObject();
    w.Key("assignedPosition");
    w.String(cellId % 5 == 0 ? "top" : "jungle");
    w.Key("cellId");
    w.Int(cellId);
    w.Key("championId");
    w.Int(static_cast<int>(r.Below(900)));
    w.Key("championPickIntent");
    w.Int(static_cast<int>(r.Below(900)));
    w.Key("entitledFeatureType");
    w.String("NONE");
    w.Key("nameVisibilityType");
    w.String("VISIBLE");
    w.Key("obfuscatedPuuid");
    w.String(r.Word(24).c_str());
    w.Key("obfuscatedSummonerId");
    w.Int(0);
    w.Key("puuid");
    w.String(r.Word(36).c_str());
    w.Key("selectedSkinId");
    w.Int(static_cast<int>(r.Below(900000)));
    w.Key("spell1Id");
    w.Int(4);
    w.Key("spell2Id");
    w.Int(14);
    w.Key("summonerId");
    w.Uint64(2000000000ull + r.Next());
    w.Key("team");
    w.Int(cellId < 5 ? 1 : 2);
    w.Key("wardSkinId");
    w.Int(-1);
    w.EndObject();
}

inline void ChampSelect(Writer& w, Random& r) {
    w.StartObject();
    w.Key("actions");
    w.StartArray();
    int actionId = 0;
    for (int set = 0; set < 6; ++set) {
        w.StartArray();
        for (int a = 0; a < 5; ++a) {
            w.StartObject();
            w.Key("actorCellId");
            w.Int(static_cast<int>(r.Below(10)));
            w.Key("championId");
            w.Int(static_cast<int>(r.Below(900)));
            w.Key("completed");
            w.Bool(set < 4);
            w.Key("id");
            w.Int(actionId++);
            w.Key("isAllyAction");
            w.Bool(r.Flip());
            w.Key("isInProgress");
            w.Bool(set == 4);
            w.Key("pickTurn");
            w.Int(set + 1);
            w.Key("type");
            w.String(set < 2 ? "ban" : "pick");
            w.EndObject();
        }
        w.EndArray();
    }
    w.EndArray();
    w.Key("allowBattleBoost");
    w.Bool(true);
    w.Key("allowRerolling");
    w.Bool(false);
    w.Key("bans");
    w.StartObject();
    w.Key("myTeamBans");
    w.StartArray();
    for (int i = 0; i < 5; ++i) {
        w.Int(static_cast<int>(r.Below(900)));
    }
    w.EndArray();
    w.Key("numBans");
    w.Int(10);
    w.Key("theirTeamBans");
    w.StartArray();
    for (int i = 0; i < 5; ++i) {
        w.Int(static_cast<int>(r.Below(900)));
    }
    w.EndArray();
    w.EndObject();
    w.Key("benchChampions");
    w.StartArray();
    w.EndArray();
    w.Key("chatDetails");
    w.StartObject();
    w.Key("multiUserChatId");
    w.String((r.Word(36) + "@champ-select").c_str());
    w.Key("multiUserChatPassword");
    w.String(r.Word(20).c_str());
    w.EndObject();
    w.Key("gameId");
    w.Uint64(6000000000ull + r.Next());
    w.Key("inventory");
    w.StartObject();
    w.Key("champions");
    w.StartArray();
    for (int i = 0; i < 160; ++i) {
        w.StartObject();
        w.Key("id");
        w.Int(static_cast<int>(r.Below(950)));
        w.Key("owned");
        w.Bool(r.Below(10) != 0);
        w.EndObject();
    }
    w.EndArray();
    w.Key("skinCount");
    w.Int(1234);
    w.EndObject();
    w.Key("localPlayerCellId");
    w.Int(3);
    w.Key("myTeam");
    w.StartArray();
    for (int i = 0; i < 5; ++i) {
        Cell(w, r, i);
    }
    w.EndArray();
    w.Key("theirTeam");
    w.StartArray();
    for (int i = 5; i < 10; ++i) {
        Cell(w, r, i);
    }
    w.EndArray();
    w.Key("timer");
    w.StartObject();
    w.Key("adjustedTimeLeftInPhase");
    w.Int(27345);
    w.Key("internalNowInEpochMs");
    w.Uint64(1700000000000ull + r.Below(1000000));
    w.Key("isInfinite");
    w.Bool(false);
    w.Key("phase");
    w.String("BAN_PICK");
    w.Key("totalTimeInPhase");
    w.Double(30000.5);
    w.EndObject();
    w.EndObject();
}

// MessagePack of a parsed JSON value, with msgpack-c's packer (integers in
// their shortest form, as a typical producer writes them).
inline void Pack(msgpack_packer& pk, const rapidjson::Value& v) {
    switch (v.GetType()) {
        case rapidjson::kNullType:
            msgpack_pack_nil(&pk);
            break;
        case rapidjson::kFalseType:
            msgpack_pack_false(&pk);
            break;
        case rapidjson::kTrueType:
            msgpack_pack_true(&pk);
            break;
        case rapidjson::kNumberType:
            if (v.IsUint64()) {
                msgpack_pack_uint64(&pk, v.GetUint64());
            } else if (v.IsInt64()) {
                msgpack_pack_int64(&pk, v.GetInt64());
            } else {
                msgpack_pack_double(&pk, v.GetDouble());
            }
            break;
        case rapidjson::kStringType:
            msgpack_pack_str(&pk, v.GetStringLength());
            msgpack_pack_str_body(&pk, v.GetString(), v.GetStringLength());
            break;
        case rapidjson::kArrayType:
            msgpack_pack_array(&pk, v.Size());
            for (const auto& e : v.GetArray()) {
                Pack(pk, e);
            }
            break;
        case rapidjson::kObjectType:
            msgpack_pack_map(&pk, v.MemberCount());
            for (const auto& m : v.GetObject()) {
                Pack(pk, m.name);
                Pack(pk, m.value);
            }
            break;
    }
}

// Block-style YAML of a parsed JSON value; strings are double-quoted only when
// they would otherwise read as another type.
inline void Yaml(std::string& out, const rapidjson::Value& v, int indent, bool inlineStart);

inline void YamlScalar(std::string& out, const rapidjson::Value& v) {
    char number[40];
    switch (v.GetType()) {
        case rapidjson::kNullType:
            out += "~";
            break;
        case rapidjson::kFalseType:
            out += "false";
            break;
        case rapidjson::kTrueType:
            out += "true";
            break;
        case rapidjson::kNumberType:
            if (v.IsUint64()) {
                out += std::to_string(v.GetUint64());
            } else if (v.IsInt64()) {
                out += std::to_string(v.GetInt64());
            } else {
                std::snprintf(number, sizeof number, "%.17g", v.GetDouble());
                out += number;
            }
            break;
        default: {
            std::string s = v.GetString();
            bool plain = !s.empty() &&
                         ((s[0] >= 'a' && s[0] <= 'z') || (s[0] >= 'A' && s[0] <= 'Z')) &&
                         s.find_first_of(":#@'\"") == std::string::npos && s != "true" &&
                         s != "false" && s != "null" && s != "NONE" && s != "ON";
            if (plain && s.find('\n') == std::string::npos) {
                out += s;
                break;
            }
            out += '"';
            for (char c : s) {
                if (c == '"' || c == '\\') {
                    out += '\\';
                    out += c;
                } else if (c == '\n') {
                    out += "\\n";
                } else {
                    out += c;
                }
            }
            out += '"';
        }
    }
}

inline void Yaml(std::string& out, const rapidjson::Value& v, int indent, bool inlineStart) {
    std::string pad(static_cast<size_t>(indent), ' ');
    if (v.IsArray() && !v.Empty()) {
        bool first = true;
        for (const auto& e : v.GetArray()) {
            if (!(first && inlineStart)) {
                out += pad;
            }
            first = false;
            out += "- ";
            if (e.IsArray() && !e.Empty()) {
                out += "\n";
                Yaml(out, e, indent + 2, false);
            } else {
                Yaml(out, e, indent + 2, true);
            }
        }
        return;
    }
    if (v.IsObject() && v.MemberCount() != 0) {
        bool first = true;
        for (const auto& m : v.GetObject()) {
            if (!(first && inlineStart)) {
                out += pad;
            }
            first = false;
            out += m.name.GetString();
            out += ":";
            const rapidjson::Value& e = m.value;
            if ((e.IsObject() && e.MemberCount() != 0) || (e.IsArray() && !e.Empty())) {
                out += "\n";
                Yaml(out, e, indent + 2, false);
            } else {
                out += " ";
                Yaml(out, e, indent + 2, true);
            }
        }
        return;
    }
    if (v.IsArray()) {
        out += "[]\n";
    } else if (v.IsObject()) {
        out += "{}\n";
    } else {
        YamlScalar(out, v);
        out += "\n";
    }
}

inline CodecInput Make(std::string name, std::string json) {
    CodecInput input;
    input.name = std::move(name);
    input.json = std::move(json);
    rapidjson::Document document;
    document.Parse(input.json.c_str());
    msgpack_sbuffer buffer;
    msgpack_sbuffer_init(&buffer);
    msgpack_packer pk;
    msgpack_packer_init(&pk, &buffer, msgpack_sbuffer_write);
    Pack(pk, document);
    input.msgpack.assign(buffer.data, buffer.data + buffer.size);
    msgpack_sbuffer_destroy(&buffer);
    Yaml(input.yaml, document, 0, true);
    return input;
}

// Generated DTO-shaped documents, each an object holding one array of items
// and grown item by item until it reaches its size. Names are written in byte
// order, as every record the services send arrives.
//   records: flat records of a dozen scalars (arrays of records);
//   deep:    records nesting records five levels down, each with a list of two;
//   texts:   records dominated by long texts (100 to 2000 bytes, some escapes);
//   numbers: records of many numbers (floats, negative and large integers).
inline void DeepRecord(Writer& w, Random& r, int depth) {
    w.StartObject();
    w.Key("children");
    w.StartArray();
    if (depth > 0) {
        DeepRecord(w, r, depth - 1);
        DeepRecord(w, r, depth - 2);
    }
    w.EndArray();
    w.Key("id");
    w.Uint(r.Below(100000));
    w.Key("kind");
    w.String(depth % 2 == 0 ? "group" : "entry");
    w.Key("label");
    w.String(r.Word(6 + r.Below(10)).c_str());
    if (depth > 0) {
        w.Key("owner");
        DeepRecord(w, r, depth - 1);
    }
    w.Key("visible");
    w.Bool(r.Flip());
    w.EndObject();
}

inline void ShapedItem(Writer& w, Random& r, const std::string& shape, int index) {
    if (shape == "deep") {
        DeepRecord(w, r, 4);
        return;
    }
    w.StartObject();
    if (shape == "records") {
        w.Key("accountId");
        w.Uint64(3000000000ull + r.Next());
        w.Key("active");
        w.Bool(r.Flip());
        w.Key("displayName");
        w.String(r.Word(5 + r.Below(12)).c_str());
        w.Key("iconId");
        w.Uint(r.Below(6000));
        w.Key("index");
        w.Int(index);
        w.Key("level");
        w.Uint(r.Below(900));
        w.Key("platformId");
        w.String(r.Flip() ? "EUW1" : "NA1");
        w.Key("position");
        w.String(r.Flip() ? "MIDDLE" : "UTILITY");
        w.Key("puuid");
        w.String(r.Word(36).c_str());
        w.Key("ready");
        w.Bool(r.Flip());
        w.Key("teamId");
        w.Int(r.Flip() ? 100 : 200);
        w.Key("wins");
        w.Uint(r.Below(3000));
    } else if (shape == "texts") {
        w.Key("body");
        std::string body;
        size_t length = 100 + r.Below(1900);
        while (body.size() < length) {
            body += r.Word(1 + r.Below(9));
            body += r.Below(16) == 0 ? "\n\"quoted\" " : " ";
        }
        w.String(body.c_str());
        w.Key("id");
        w.Uint(static_cast<unsigned>(index));
        w.Key("summary");
        w.String((r.Word(40) + " " + r.Word(60)).c_str());
        w.Key("title");
        w.String(r.Word(20 + r.Below(30)).c_str());
    } else {  // numbers
        w.Key("counts");
        w.StartArray();
        for (int i = 0; i < 8; ++i) {
            w.Uint(r.Below(1000000));
        }
        w.EndArray();
        w.Key("delta");
        w.Int(-static_cast<int>(r.Below(100000)));
        w.Key("id");
        w.Uint64(9000000000000ull + r.Next());
        w.Key("position");
        w.StartArray();
        for (int i = 0; i < 3; ++i) {
            w.Double(static_cast<double>(r.Next()) / 7919.0 - 200000.0);
        }
        w.EndArray();
        w.Key("ratio");
        w.Double(static_cast<double>(r.Below(1000000)) / 1000003.0);
        w.Key("timestamp");
        w.Uint64(1700000000000ull + r.Below(100000000));
    }
    w.EndObject();
}

inline std::string Shaped(Random& r, const std::string& shape, size_t size) {
    rapidjson::StringBuffer b;
    Writer w(b);
    w.StartObject();
    w.Key("items");
    w.StartArray();
    int index = 0;
    while (b.GetSize() < size) {
        ShapedItem(w, r, shape, index++);
    }
    w.EndArray();
    w.Key("total");
    w.Int(index);
    w.EndObject();
    return b.GetString();
}

}  // namespace Detail

inline const std::vector<CodecInput>& Inputs() {
    static const std::vector<CodecInput> inputs = [] {
        using namespace Detail;
        std::vector<CodecInput> list;
        Random r;
        {
            rapidjson::StringBuffer b;
            Writer w(b);
            Lobby(w, r);
            list.push_back(Make("lobby", b.GetString()));
        }
        {
            rapidjson::StringBuffer b;
            Writer w(b);
            ChampSelect(w, r);
            list.push_back(Make("champselect", b.GetString()));
        }
        {
            rapidjson::StringBuffer b;
            Writer w(b);
            w.StartArray();
            while (b.GetSize() < size_t{2} * 1024 * 1024) {
                ChampSelect(w, r);
            }
            w.EndArray();
            list.push_back(Make("array2mb", b.GetString()));
        }
        for (const char* shape : {"records", "deep", "texts", "numbers"}) {
            for (auto [label, size] :
                 {std::pair{"1k", size_t{1024}}, std::pair{"32k", size_t{32768}},
                  std::pair{"2m", size_t{2} * 1024 * 1024}}) {
                list.push_back(Make(std::string(shape) + label, Shaped(r, shape, size)));
            }
        }
        return list;
    }();
    return inputs;
}

}  // namespace Orvan::Framework::Bench
