#include "host/ResourceSummary.h"

#include <rapidjson/document.h>

#include <cmath>
#include <vector>

namespace Orvan::Host {

namespace {

constexpr std::string_view kPrefix = "/qel-lobby-team-builder/";

using Json = rapidjson::Value;

const Json* Member(const Json& value, const char* name) {
    if (!value.IsObject()) {
        return nullptr;
    }
    auto found = value.FindMember(name);
    return found == value.MemberEnd() ? nullptr : &found->value;
}

std::string Str(const Json& value, const char* name) {
    const Json* member = Member(value, name);
    if (member == nullptr) {
        return {};
    }
    if (member->IsString()) {
        return std::string(member->GetString(), member->GetStringLength());
    }
    if (member->IsInt64()) {
        return std::to_string(member->GetInt64());
    }
    if (member->IsUint64()) {
        return std::to_string(member->GetUint64());
    }
    return {};
}

int64_t Int(const Json& value, const char* name, int64_t fallback = 0) {
    const Json* member = Member(value, name);
    if (member == nullptr) {
        return fallback;
    }
    if (member->IsInt64()) {
        return member->GetInt64();
    }
    if (member->IsUint64()) {
        return static_cast<int64_t>(member->GetUint64());
    }
    if (member->IsDouble()) {
        return static_cast<int64_t>(std::llround(member->GetDouble()));
    }
    if (member->IsString()) {
        return std::strtoll(member->GetString(), nullptr, 10);
    }
    return fallback;
}

double Real(const Json& value, const char* name) {
    const Json* member = Member(value, name);
    return member != nullptr && member->IsNumber() ? member->GetDouble() : 0.0;
}

bool Flag(const Json& value, const char* name) {
    const Json* member = Member(value, name);
    return member != nullptr && member->IsBool() && member->GetBool();
}

std::string PlayerName(const NameBook& names, uint64_t id) {
    std::string name = names.player ? names.player(id) : std::string();
    return name.empty() ? "summoner " + std::to_string(id) : name;
}

std::string ChampionName(const NameBook& names, int64_t id) {
    if (id == 0) {
        return "none";
    }
    if (id == -1) {
        return "no ban";
    }
    std::string name = names.champion ? names.champion(id) : std::string();
    return name.empty() ? "champion " + std::to_string(id) : name;
}

std::string Seconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f s", seconds);
    return text;
}

std::string Lobby(const Json& data, const NameBook& names) {
    std::string line = "queue " + std::to_string(Int(data, "queueId", -1));
    const Json* members = Member(data, "members");
    const size_t count = members != nullptr && members->IsArray() ? members->Size() : 0;
    line += ", " + std::to_string(count) + (count == 1 ? " member" : " members");
    for (size_t i = 0; i < count; ++i) {
        const Json& member = (*members)[static_cast<rapidjson::SizeType>(i)];
        line += i == 0 ? ": " : ", ";
        line += PlayerName(names, static_cast<uint64_t>(Int(member, "id")));
        std::vector<std::string> notes;
        if (Flag(member, "isOwner")) {
            notes.push_back("captain");
        }
        if (const Json* preferences = Member(member, "positionPreferences")) {
            const std::string first = Str(*preferences, "firstPreference");
            const std::string second = Str(*preferences, "secondPreference");
            if (!first.empty()) {
                notes.push_back(first + "/" + second);
            }
        }
        for (size_t k = 0; k < notes.size(); ++k) {
            line += (k == 0 ? " (" : ", ") + notes[k];
        }
        if (!notes.empty()) {
            line += ")";
        }
    }
    line += Flag(data, "canStartMatchmaking") ? "; ready to queue" : "; not ready to queue";
    if (Flag(data, "wasKicked")) {
        line += "; you were KICKED";
    }
    const std::string reason = Str(data, "removalReason");
    if (!reason.empty() && reason != "None") {
        line += "; removal reason " + reason;
    }
    return line;
}

std::string Search(const Json& data, const NameBook& names) {
    std::string line = Str(data, "searchState");
    const double estimate = Real(data, "estimatedQueueTime");
    if (line == "Searching" && estimate > 0) {
        line += ", estimated " + Seconds(estimate);
    }
    if (const Json* check = Member(data, "readyCheck")) {
        const std::string state = Str(*check, "state");
        if (!state.empty() && state != "Invalid") {
            line += "; ready check " + state;
            const Json* decliners = Member(*check, "declinerIds");
            if (decliners != nullptr && decliners->IsArray() && !decliners->Empty()) {
                line += " (declined by";
                for (const Json& id : decliners->GetArray()) {
                    line += " " + PlayerName(names, id.IsUint64() ? id.GetUint64() : 0);
                }
                line += ")";
            }
        }
    }
    if (const Json* dodge = Member(data, "dodgeData")) {
        const std::string state = Str(*dodge, "state");
        if (!state.empty() && state != "Invalid") {
            line += "; dodge " + state;
            const int64_t dodger = Int(*dodge, "dodgerId");
            if (dodger != 0) {
                line += " by " + PlayerName(names, static_cast<uint64_t>(dodger));
            }
        }
    }
    if (const Json* low = Member(data, "lowPriorityData")) {
        const Json* penalized = Member(*low, "penalizedSummonerIds");
        if (penalized != nullptr && penalized->IsArray() && !penalized->Empty()) {
            line += "; low-priority penalty " + Seconds(Real(*low, "penaltyTime")) + " for";
            for (const Json& id : penalized->GetArray()) {
                line += " " + PlayerName(names, id.IsUint64() ? id.GetUint64() : 0);
            }
        }
        const std::string token = Str(*low, "quitguardedAccessToken");
        if (!token.empty()) {
            line += ", token " + token;
        }
    }
    if (const Json* errors = Member(data, "errors");
        errors != nullptr && errors->IsArray() && !errors->Empty()) {
        line += "; " + std::to_string(errors->Size()) + " error(s), first " +
                Str((*errors)[0], "errorType");
    }
    return line;
}

std::string Session(const Json& data, const NameBook& names) {
    std::string line;
    if (const Json* timer = Member(data, "timer")) {
        line = Str(*timer, "phase") + ", " + Seconds(Real(*timer, "timeLeftInPhase") / 1000.0) +
               " left";
    }
    const int64_t localCell = Int(data, "localPlayerCellId", -1);
    int bans = 0, bansDone = 0, picks = 0, picksDone = 0;
    std::string turn;
    if (const Json* sets = Member(data, "actions"); sets != nullptr && sets->IsArray()) {
        for (const Json& set : sets->GetArray()) {
            if (!set.IsArray()) {
                continue;
            }
            bool open = false;
            for (const Json& action : set.GetArray()) {
                const std::string type = Str(action, "type");
                const bool done = Flag(action, "completed");
                if (type == "ban") {
                    ++bans;
                    bansDone += done ? 1 : 0;
                } else if (type == "pick") {
                    ++picks;
                    picksDone += done ? 1 : 0;
                }
                open = open || !done;
            }
            if (open && turn.empty() && !set.Empty()) {
                const std::string type = Str(set[0], "type");
                bool mine = false;
                for (const Json& action : set.GetArray()) {
                    mine = mine || (Int(action, "actorCellId", -2) == localCell &&
                                    !Flag(action, "completed"));
                }
                turn = (type == "ban" || type == "pick") ? type + (mine ? " (your turn)" : "")
                                                         : "ceremony " + type;
            }
        }
    }
    line += "; bans " + std::to_string(bansDone) + "/" + std::to_string(bans) + ", picks " +
            std::to_string(picksDone) + "/" + std::to_string(picks);
    if (!turn.empty() && line.rfind("PLANNING", 0) != 0) {
        line += "; now: " + turn;
    }
    if (const Json* team = Member(data, "myTeam"); team != nullptr && team->IsArray()) {
        for (const Json& cell : team->GetArray()) {
            if (Int(cell, "cellId", -2) != localCell) {
                continue;
            }
            const int64_t champion = Int(cell, "championId");
            const int64_t intent = Int(cell, "championPickIntent");
            line += "; you: " + (champion != 0 ? ChampionName(names, champion)
                                 : intent != 0 ? ChampionName(names, intent) + " (intent)"
                                               : std::string("no champion yet"));
            if (champion != 0) {
                line += ", skin " + std::to_string(Int(cell, "selectedSkinId")) + ", spells " +
                        std::to_string(Int(cell, "spell1Id")) + "+" +
                        std::to_string(Int(cell, "spell2Id")) + ", ward " +
                        std::to_string(Int(cell, "wardSkinId"));
            }
        }
    }
    if (const Json* trades = Member(data, "trades"); trades != nullptr && trades->IsArray()) {
        for (const Json& trade : trades->GetArray()) {
            const std::string state = Str(trade, "state");
            if (state == "RECEIVED" || state == "SENT") {
                line += "; trade " + Str(trade, "id") + " " + state;
            }
        }
    }
    return line;
}

std::string TeamBoost(const Json& data) {
    std::string line = "price " + std::to_string(Int(data, "price"));
    if (Flag(data, "unlocked")) {
        const Json* skins = Member(data, "availableSkins");
        line += ", bought by " + Str(data, "summonerName") + " (" +
                std::to_string(skins != nullptr && skins->IsArray() ? skins->Size() : 0) +
                " skins unlocked)";
    } else {
        line += ", not bought";
    }
    return line;
}

std::string Count(const Json& data, const char* field, const char* what) {
    const Json* list = Member(data, field);
    const size_t count = list != nullptr && list->IsArray() ? list->Size() : 0;
    std::string line = std::to_string(count) + " " + what;
    if (list != nullptr && list->IsArray() && count > 0) {
        const Json& last = (*list)[static_cast<rapidjson::SizeType>(count - 1)];
        if (last.IsInt64() && last.GetInt64() == -1) {
            line += " (banning nobody allowed)";
        }
    }
    return line;
}

}  // namespace

std::string ResourceLabel(std::string_view uri) {
    if (uri.substr(0, kPrefix.size()) != kPrefix) {
        return std::string(uri);
    }
    std::string_view rest = uri.substr(kPrefix.size());
    for (std::string_view version : {"champ-select/v1/", "v1/", "v2/"}) {
        if (rest.substr(0, version.size()) == version) {
            rest.remove_prefix(version.size());
            break;
        }
    }
    if (rest == "matchmaking") {
        return "search";
    }
    if (rest == "implementation-active") {
        return "champion select active";
    }
    return std::string(rest);
}

std::string SummarizeResource(std::string_view uri, std::string_view eventType,
                              std::string_view data, const NameBook& names) {
    const std::string label = ResourceLabel(uri);
    if (eventType == "Delete") {
        return label + " removed";
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(data.data(), data.size());
    if (document.HasParseError()) {
        return label + " " + std::string(eventType) + " (unreadable data)";
    }
    const std::string verb = eventType == "Create" ? " created: " : ": ";
    const std::string_view rest =
        uri.substr(0, kPrefix.size()) == kPrefix ? uri.substr(kPrefix.size()) : uri;
    if (rest == "v1/lobby") {
        return label + verb + Lobby(document, names);
    }
    if (rest == "v1/lobby/countdown") {
        return label + verb + Str(document, "phaseName") + ", game record #" +
               std::to_string(Int(document, "counter"));
    }
    if (rest == "v1/matchmaking") {
        return label + verb + Search(document, names);
    }
    if (rest == "champ-select/v1/session") {
        return label + verb + Session(document, names);
    }
    if (rest == "champ-select/v1/implementation-active") {
        return label + ": " + (document.IsBool() && document.GetBool() ? "yes" : "no");
    }
    if (rest == "champ-select/v1/team-boost") {
        return label + verb + TeamBoost(document);
    }
    if (rest == "champ-select/v1/pickable-champions") {
        return label + verb + Count(document, "championIds", "champions");
    }
    if (rest == "champ-select/v1/bannable-champions") {
        return label + verb + Count(document, "championIds", "champions");
    }
    if (rest == "champ-select/v1/disabled-champions") {
        return label + verb + Count(document, "championIds", "champions");
    }
    if (rest == "champ-select/v1/pickable-skins") {
        return label + verb + Count(document, "skinIds", "skins");
    }
    return label + " " + std::string(eventType);
}

}  // namespace Orvan::Host
