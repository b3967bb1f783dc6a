#include "host/Demo.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/PublishedState.h"
#include "host/SessionRecord.h"
#include "host/StandIns.h"
#include "host/Timeline.h"
#include "sim/Catalog.h"
#include "sim/ServiceSimulator.h"

#ifndef QEL_HOST_DEFAULT_PLUGIN
#define QEL_HOST_DEFAULT_PLUGIN "dvo-be-qel-lobby-team-builder.so"
#endif

namespace Orvan::Host {

std::string DefaultPluginPath() {
    const std::string path = QEL_HOST_DEFAULT_PLUGIN;
    // A bare file name (the Windows build) lies beside the program.
    return path.find_first_of("/\\") == std::string::npos ? PluginLibrary::ProgramDirectory() + path
                                                          : path;
}

namespace {

using Simulation::ScenarioDefinition;
using Value = rapidjson::Value;
using S = PublishedState;

constexpr const char* kBase = "/qel-lobby-team-builder";
constexpr const char* kChamp = "/qel-lobby-team-builder/champ-select/v1";

enum class Poll { Pending, Done, Failed };

// Simulated seconds after the faults stop for late events and late delayed
// calls to land.
constexpr double kFaultsSettleSeconds = 5.0;

// No endpoint at all, an endpoint that does not match, or one the plugin
// registered before writing its handler.
bool Unimplemented(const RestReply& reply) {
    return (reply.answeredBy.empty() && reply.status == 404) ||
           (reply.status == 404 && reply.error == "Invalid function") ||
           (reply.status == 500 && reply.error == "Not implemented");
}

struct Step {
    std::string phase;  // a section title printed when the step begins, or ""
    std::string what;   // "the lobby is ready to queue"
    double timeout = 60.0;
    std::function<Poll()> poll;
};

std::string Plural(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

class Demo {
public:
    Demo(const DemoOptions& options, const ScenarioDefinition& scenario, PluginLibrary& library)
        : Demo(options, scenario, library, std::make_unique<HostClock>(options.speed), nullptr, 0) {
    }
    // A run in a host that outlives it, with the plugin already started.
    Demo(const DemoOptions& options, const ScenarioDefinition& scenario, PluginLibrary& library,
         HostRuntime& runtime, uint32_t plugin)
        : Demo(options, scenario, library, nullptr, &runtime, plugin) {}

    DemoResult Run();

private:
    Demo(const DemoOptions& options, const ScenarioDefinition& scenario, PluginLibrary& library,
         std::unique_ptr<HostClock> ownClock, HostRuntime* runtime, uint32_t plugin)
        : options_(options),
          scenario_(scenario),
          library_(library),
          ownClock_(std::move(ownClock)),
          ownRuntime_(runtime == nullptr ? std::make_unique<HostRuntime>(*ownClock_) : nullptr),
          clock_(runtime == nullptr ? *ownClock_ : runtime->Clock()),
          runtime_(runtime == nullptr ? *ownRuntime_ : *runtime),
          givenPlugin_(plugin),
          timeline_(options.out, options.json, options.detail, [this] { return Now(); }),
          state_([this] { return Now(); }),
          standIns_(runtime_, StandInOptions{}),
          services_(standIns_, scenario, SimOptionsFor(options)) {}

    static Simulation::SimOptions SimOptionsFor(const DemoOptions& options) {
        Simulation::SimOptions sim;
        sim.seed = options.seed;
        sim.malformedShare = options.malformedShare;
        return sim;
    }

    double Now() const { return clock_.Now(); }
    void WakeAt(double delay) {
        runtime_.After(delay, "the local player thinks", [] {});
    }

    // ---- Calls of the local player -------------------------------------------------
    RestReply Call(uint32_t method, const std::string& uri, const std::string& body = {},
                   bool hasBody = false);
    bool Act(const std::string& what, uint32_t method, const std::string& uri,
             const std::string& body = {}, bool hasBody = false);
    RestReply last_;

    // ---- Reading what the plugin published ---------------------------------------------
    const Value* Lobby() const { return state_.Current(kLobbyUri); }
    const Value* Search() const { return state_.Current(kSearchUri); }
    const Value* Session() const { return state_.Current(kSessionUri); }
    std::string Describe() const;
    size_t LobbyMembers() const;

    // ---- Script ---------------------------------------------------------------------------
    std::vector<Step> Script();
    void AddLobbySteps(std::vector<Step>& steps);
    void AddQueueSteps(std::vector<Step>& steps);
    Step ReadyCheckStep(const std::function<bool()>& until);
    Step ChampSelectStep(const std::function<bool()>& until);
    Poll PlayChampSelect();
    int64_t ChooseBan(const Value& session);
    int64_t ChoosePick(const Value& session, bool intentOnly);
    bool GameCleared() const;
    void Milestones(DemoResult& result);
    void Milestone(DemoResult& result, const std::string& text, bool reached);
    void Summary();

    const DemoOptions& options_;
    const ScenarioDefinition& scenario_;
    PluginLibrary& library_;
    std::unique_ptr<HostClock> ownClock_;
    std::unique_ptr<HostRuntime> ownRuntime_;
    HostClock& clock_;
    HostRuntime& runtime_;
    uint32_t givenPlugin_ = 0;
    Timeline timeline_;
    PublishedState state_;
    StandIns standIns_;
    Simulation::ServiceSimulator services_;
    std::unique_ptr<FaultInjector> faults_;
    uint32_t plugin_ = 0;
    std::string failure_;
    std::string missing_;

    // Champion select memory of the local player.
    struct Play {
        bool phaseShown = false;
        bool hovered = false;
        int64_t intent = 0;
        bool selectionMade = false;
        double finalSeen = -1.0;
        bool boostRead = false;
        std::map<int64_t, double> seen;  // action id -> when first seen as ours to do
        std::set<int64_t> done;
        std::map<int64_t, double> tradesSeen;
        std::set<int64_t> tradesAnswered;
        int failures = 0;
    } play_;
    std::string token_;
};

// ---- Calls --------------------------------------------------------------------------------

RestReply Demo::Call(uint32_t method, const std::string& uri, const std::string& body,
                     bool hasBody) {
    RestRequest request;
    request.method = method;
    request.uri = uri;
    request.hasBody = hasBody;
    request.body = body;
    if (hasBody) {
        request.contentType = "application/json";
    }
    timeline_.RestBegin("you", request);
    RestReply reply = runtime_.Route(request);
    timeline_.Rest("you", request, reply);
    if (Unimplemented(reply) && missing_.empty()) {
        missing_ = std::string(MethodName(method)) + " " + std::string(UriPath(uri));
    }
    return reply;
}

bool Demo::Act(const std::string& what, uint32_t method, const std::string& uri,
               const std::string& body, bool hasBody) {
    last_ = Call(method, uri, body, hasBody);
    if (last_.Ok()) {
        return true;
    }
    if (Unimplemented(last_)) {
        failure_ = "the plugin could not " + what + ": it does not implement " +
                   std::string(MethodName(method)) + " " + std::string(UriPath(uri)) + " yet (" +
                   std::to_string(last_.status) + " \"" + last_.error + "\")";
    } else {
        failure_ = "the plugin could not " + what + ": " + std::to_string(last_.status) + " \"" +
                   last_.error + "\"";
    }
    return false;
}

// ---- State ---------------------------------------------------------------------------------

size_t Demo::LobbyMembers() const {
    const Value* members = S::Member(Lobby(), "members");
    return members != nullptr && members->IsArray() ? members->Size() : 0;
}

std::string Demo::Describe() const {
    NameBook none;
    std::string text;
    for (const char* uri : {kLobbyUri, kSearchUri, kSessionUri}) {
        const Value* value = state_.Current(uri);
        if (value == nullptr) {
            text += "no " + ResourceLabel(uri) + "; ";
            continue;
        }
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        value->Accept(writer);
        text += SummarizeResource(uri, "Update", buffer.GetString(), none) + "; ";
    }
    text += "the service is in " + services_.PhaseName();
    return text;
}

bool Demo::GameCleared() const {
    return standIns_.GameClientRunning() && Session() == nullptr && Lobby() == nullptr &&
           Search() == nullptr && state_.Count(kSessionUri, "Delete") > 0;
}

// ---- Script ------------------------------------------------------------------------------------

void Demo::AddLobbySteps(std::vector<Step>& steps) {
    steps.push_back({"Sign-in", "the login completes", 10.0,
                     [this] { return standIns_.Connected() ? Poll::Done : Poll::Pending; }});
    if (scenario_.localCreatesLobby) {
        steps.push_back({"Lobby", "create a lobby", 5.0, [this] {
                             if (!Act("create a lobby", kHostMethodPost,
                                      std::string(kBase) + "/v1/lobby", "{\"queueId\":62}", true)) {
                                 return Poll::Failed;
                             }
                             Call(kHostMethodGet, std::string(kBase) + "/v1/lobby");
                             return Poll::Done;
                         }});
        if (scenario_.partySize > 1) {
            steps.push_back({"", "the party's friends join the lobby", 30.0, [this] {
                                 return LobbyMembers() >= static_cast<size_t>(scenario_.partySize)
                                            ? Poll::Done
                                            : Poll::Pending;
                             }});
        }
    } else {
        steps.push_back({"Lobby", "a friend's invitation arrives", 20.0, [this] {
                             return services_.PendingInvitation() ? Poll::Done : Poll::Pending;
                         }});
        steps.push_back(
            {"", "join the friend's lobby", 5.0, [this] {
                 const std::string id = services_.PendingInvitation()->draftPremadeId;
                 return Act("join the friend's lobby", kHostMethodPost,
                            std::string(kBase) + "/v1/invitations/accept",
                            "{\"invitationMetaData\":{\"groupFinderId\":" + QuoteJson(id) +
                                ",\"draftPremadeId\":" + QuoteJson(id) + "}}",
                            true)
                            ? Poll::Done
                            : Poll::Failed;
             }});
    }
    steps.push_back({"", "state position preferences", 5.0, [this] {
                         return Act("state position preferences", kHostMethodPost,
                                    std::string(kBase) + "/v2/position-preferences",
                                    "{\"firstPreference\":\"MIDDLE\",\"secondPreference\":"
                                    "\"TOP\",\"excludedPreference\":\"UTILITY\"}",
                                    true)
                                    ? Poll::Done
                                    : Poll::Failed;
                     }});
}

void Demo::AddQueueSteps(std::vector<Step>& steps) {
    steps.push_back({"", "the lobby is ready to queue", 30.0, [this] {
                         return S::Flag(Lobby(), "canStartMatchmaking") ? Poll::Done
                                                                        : Poll::Pending;
                     }});
    if (!scenario_.leaverPenalty) {
        steps.push_back({"Matchmaking", "start matchmaking", 5.0, [this] {
                             // No leaver penalty, so no token: an empty one.
                             return Act("start matchmaking", kHostMethodPost,
                                        std::string(kBase) + "/v1/matchmaking/search", "\"\"", true)
                                        ? Poll::Done
                                        : Poll::Failed;
                         }});
        return;
    }
    steps.push_back(
        {"Matchmaking", "start matchmaking and learn of the leaver penalty", 5.0, [this] {
             if (!Act("start matchmaking", kHostMethodPost,
                      std::string(kBase) + "/v1/matchmaking/search", "\"\"", true)) {
                 return Poll::Failed;
             }
             rapidjson::Document reply;
             reply.Parse(last_.body.c_str(), last_.body.size());
             token_ = reply.HasParseError()
                          ? std::string()
                          : S::Text(&reply, "lowPriorityData.quitguardedAccessToken");
             if (token_.empty()) {
                 failure_ = "the search came back without a low-priority token: " + last_.body;
                 return Poll::Failed;
             }
             timeline_.Note("you", "read the low-priority token " + token_);
             return Poll::Done;
         }});
    steps.push_back({"", "search again with the low-priority token", 5.0, [this] {
                         return Act("search with the low-priority token", kHostMethodPost,
                                    std::string(kBase) + "/v1/matchmaking/search",
                                    QuoteJson(token_), true)
                                    ? Poll::Done
                                    : Poll::Failed;
                     }});
}

Step Demo::ReadyCheckStep(const std::function<bool()>& until) {
    struct Check {
        bool open = false;
        bool answered = false;
        double seenAt = 0.0;
    };
    auto check = std::make_shared<Check>();
    return Step{"", "answer ready checks until " + std::string("the match goes on"), 180.0,
                [this, check, until] {
                    if (until()) {
                        return Poll::Done;
                    }
                    const bool inProgress = S::Text(Search(), "readyCheck.state") == "InProgress";
                    if (inProgress && !check->open) {
                        *check = Check{true, false, Now()};
                        timeline_.Phase("Ready check");
                        WakeAt(1.5);
                    }
                    if (!inProgress) {
                        check->open = false;
                    }
                    if (check->open && !check->answered && Now() >= check->seenAt + 1.5) {
                        check->answered = true;
                        if (!Act("accept the ready check", kHostMethodPost,
                                 std::string(kBase) + "/v1/ready-check/accept")) {
                            return Poll::Failed;
                        }
                    }
                    return Poll::Pending;
                }};
}

int64_t Demo::ChooseBan(const Value& session) {
    RestReply reply = Call(kHostMethodGet, std::string(kChamp) + "/bannable-champions");
    rapidjson::Document list;
    list.Parse(reply.body.c_str(), reply.body.size());
    const Value* ids = reply.Ok() && !list.HasParseError()
                           ? S::Member(&list, "championIds")
                           : S::Member(state_.Current(kBannableUri), "championIds");
    std::set<int64_t> intents;
    if (const Value* team = S::Member(&session, "myTeam"); team != nullptr && team->IsArray()) {
        for (const Value& cell : team->GetArray()) {
            intents.insert(S::Int(&cell, "championPickIntent"));
            intents.insert(S::Int(&cell, "championId"));
        }
    }
    if (ids == nullptr || !ids->IsArray() || ids->Empty()) {
        return 0;
    }
    const size_t count = ids->Size();
    for (size_t k = 0; k < count; ++k) {
        const Value& id = (*ids)[static_cast<rapidjson::SizeType>((options_.seed * 7 + k) % count)];
        const int64_t champion = id.IsInt64() ? id.GetInt64() : 0;
        if (champion > 0 && intents.count(champion) == 0) {
            return champion;
        }
    }
    return 0;
}

int64_t Demo::ChoosePick(const Value& session, bool intentOnly) {
    std::set<int64_t> taken;
    if (const Value* sets = S::Member(&session, "actions"); sets != nullptr && sets->IsArray()) {
        for (const Value& set : sets->GetArray()) {
            if (!set.IsArray()) {
                continue;
            }
            for (const Value& action : set.GetArray()) {
                if (S::Text(&action, "type") == "ban" && S::Flag(&action, "completed")) {
                    taken.insert(S::Int(&action, "championId"));
                }
            }
        }
    }
    for (const char* team : {"myTeam", "theirTeam"}) {
        if (const Value* cells = S::Member(&session, team); cells != nullptr && cells->IsArray()) {
            for (const Value& cell : cells->GetArray()) {
                if (S::Int(&cell, "cellId", -1) != S::Int(&session, "localPlayerCellId", -2)) {
                    taken.insert(S::Int(&cell, "championId"));
                    taken.insert(S::Int(&cell, "championPickIntent"));
                }
            }
        }
    }
    if (!intentOnly && play_.intent != 0 && taken.count(play_.intent) == 0) {
        return play_.intent;
    }
    const Value* ids = S::Member(state_.Current(kPickableUri), "championIds");
    std::vector<int64_t> candidates;
    if (ids != nullptr && ids->IsArray()) {
        for (const Value& id : ids->GetArray()) {
            if (id.IsInt64() && taken.count(id.GetInt64()) == 0 && id.GetInt64() > 0) {
                candidates.push_back(id.GetInt64());
            }
        }
    }
    if (candidates.empty()) {
        for (const Simulation::Champion& champion : Simulation::Champions()) {
            if (taken.count(champion.id) == 0) {
                candidates.push_back(champion.id);
            }
        }
    }
    std::sort(candidates.begin(), candidates.end());
    return candidates.empty() ? 0 : candidates[(options_.seed * 3) % candidates.size()];
}

Poll Demo::PlayChampSelect() {
    const Value* session = Session();
    if (session == nullptr) {
        return Poll::Pending;
    }
    const std::string phase = S::Text(session, "timer.phase");
    const int64_t localCell = S::Int(session, "localPlayerCellId", -1);
    const Value* sets = S::Member(session, "actions");
    if (sets == nullptr || !sets->IsArray()) {
        return Poll::Pending;
    }
    // Our pick action, and our open action in the set now in progress.
    int64_t pickId = -1;
    const Value* current = nullptr;
    for (const Value& set : sets->GetArray()) {
        if (!set.IsArray()) {
            continue;
        }
        bool open = false;
        for (const Value& action : set.GetArray()) {
            if (S::Int(&action, "actorCellId", -2) == localCell &&
                S::Text(&action, "type") == "pick") {
                pickId = S::Int(&action, "id", -1);
            }
            open = open || !S::Flag(&action, "completed");
        }
        if (open && current == nullptr) {
            current = &set;
        }
    }
    if (phase == "PLANNING" && !play_.hovered && pickId >= 0) {
        play_.hovered = true;
        play_.intent = ChoosePick(*session, true);
        timeline_.Note("you", "would like to play " + std::string(Simulation::ChampionName(
                                                          static_cast<int32_t>(play_.intent))));
        if (!Act("show a pick intent", kHostMethodPatch,
                 std::string(kChamp) + "/session/actions/" + std::to_string(pickId),
                 "{\"championId\":" + std::to_string(play_.intent) + ",\"completed\":false}",
                 true)) {
            return Poll::Failed;
        }
        return Poll::Pending;
    }
    if (phase == "BAN_PICK" && current != nullptr) {
        for (const Value& action : current->GetArray()) {
            const int64_t id = S::Int(&action, "id", -1);
            if (S::Int(&action, "actorCellId", -2) != localCell || S::Flag(&action, "completed") ||
                play_.done.count(id) != 0) {
                continue;
            }
            auto seen = play_.seen.find(id);
            if (seen == play_.seen.end()) {
                play_.seen[id] = Now();
                WakeAt(2.0);
                return Poll::Pending;
            }
            if (Now() < seen->second + 2.0) {
                return Poll::Pending;
            }
            const bool ban = S::Text(&action, "type") == "ban";
            const int64_t champion = ban ? ChooseBan(*session) : ChoosePick(*session, false);
            const std::string uri = std::string(kChamp) + "/session/actions/" + std::to_string(id);
            const std::string what = ban ? "ban a champion" : "pick a champion";
            if (Act(what, kHostMethodPatch, uri,
                    "{\"championId\":" + std::to_string(champion) + ",\"completed\":false}",
                    true) &&
                Act(what, kHostMethodPost, uri + "/complete")) {
                play_.done.insert(id);
                return Poll::Pending;
            }
            if (!missing_.empty() || ++play_.failures > 3) {
                return Poll::Failed;
            }
            timeline_.Note("you", "try again: " + failure_);
            failure_.clear();
            if (!ban && champion == play_.intent) {
                play_.intent = 0;
            }
            return Poll::Pending;
        }
    }
    if (phase == "FINALIZATION") {
        if (play_.finalSeen < 0.0) {
            play_.finalSeen = Now();
            WakeAt(2.0);
        }
        if (!play_.selectionMade && Now() >= play_.finalSeen + 2.0) {
            play_.selectionMade = true;
            int64_t champion = 0;
            if (const Value* team = S::Member(session, "myTeam")) {
                for (const Value& cell : team->GetArray()) {
                    if (S::Int(&cell, "cellId", -2) == localCell) {
                        champion = S::Int(&cell, "championId");
                    }
                }
            }
            int64_t skin = 0;
            if (const Value* skins = S::Member(state_.Current(kSkinsUri), "skinIds")) {
                for (const Value& id : skins->GetArray()) {
                    if (id.IsInt64() && id.GetInt64() / 1000 == champion) {
                        skin = id.GetInt64();
                        break;
                    }
                }
            }
            std::string body = "{";
            if (skin != 0) {
                body += "\"selectedSkinId\":" + std::to_string(skin) + ",";
            }
            body += "\"spell1Id\":4,\"spell2Id\":7,\"wardSkinId\":7}";
            if (!Act("choose skin, spells and ward skin", kHostMethodPatch,
                     std::string(kChamp) + "/session/my-selection", body, true)) {
                return Poll::Failed;
            }
            // The call republished the session: what we read of it is gone.
            return Poll::Pending;
        }
        if (const Value* trades = S::Member(session, "trades");
            trades != nullptr && trades->IsArray()) {
            for (const Value& trade : trades->GetArray()) {
                const int64_t id = S::Int(&trade, "id", -1);
                if (S::Text(&trade, "state") != "RECEIVED" || play_.tradesAnswered.count(id)) {
                    continue;
                }
                auto seen = play_.tradesSeen.find(id);
                if (seen == play_.tradesSeen.end()) {
                    play_.tradesSeen[id] = Now();
                    WakeAt(1.5);
                } else if (Now() >= seen->second + 1.5) {
                    play_.tradesAnswered.insert(id);
                    if (!Act("accept a trade", kHostMethodPost,
                             std::string(kChamp) + "/session/trades/" + std::to_string(id) +
                                 "/accept")) {
                        return Poll::Failed;
                    }
                    return Poll::Pending;
                }
            }
        }
        if (!play_.boostRead && S::Flag(state_.Current(kTeamBoostUri), "unlocked")) {
            play_.boostRead = true;
            Call(kHostMethodGet, std::string(kChamp) + "/team-boost");
        }
    }
    return Poll::Pending;
}

Step Demo::ChampSelectStep(const std::function<bool()>& until) {
    return Step{"", "play champion select until its end", 400.0, [this, until] {
                    if (until()) {
                        return Poll::Done;
                    }
                    if (Session() != nullptr && !play_.phaseShown) {
                        play_.phaseShown = true;
                        timeline_.Phase("Champion select");
                    }
                    return PlayChampSelect();
                }};
}

std::vector<Step> Demo::Script() {
    std::vector<Step> steps;
    AddLobbySteps(steps);
    if (scenario_.localGetsKicked) {
        steps.push_back({"", "be kicked: the lobby says so, then goes away", 60.0, [this] {
                             const bool told =
                                 state_.Find([](const ResourceEvent& e, const Value& data) {
                                     return e.uri == kLobbyUri && S::Flag(&data, "wasKicked");
                                 }) >= 0;
                             return told && Lobby() == nullptr ? Poll::Done : Poll::Pending;
                         }});
        return steps;
    }
    AddQueueSteps(steps);
    if (scenario_.leaverPenalty) {
        steps.push_back({"", "the low-priority search is under way", 20.0, [this] {
                             return S::Text(Search(), "searchState") == "Searching" ? Poll::Done
                                                                                    : Poll::Pending;
                         }});
        steps.push_back({"", "leave the low-priority queue", 5.0, [this] {
                             runtime_.RunFor(3.0);
                             return Act("leave the low-priority queue", kHostMethodPost,
                                        std::string(kBase) +
                                            "/v1/matchmaking/low-priority-queue/abandon",
                                        QuoteJson(token_), true)
                                        ? Poll::Done
                                        : Poll::Failed;
                         }});
        steps.push_back({"", "the search says the low-priority queue was abandoned", 20.0, [this] {
                             const bool abandoned =
                                 state_.Find([](const ResourceEvent& e, const Value& data) {
                                     return e.uri == kSearchUri && S::Text(&data, "searchState") ==
                                                                       "AbandonedLowPriorityQueue";
                                 }) >= 0;
                             return abandoned && S::Text(Search(), "searchState") != "Searching"
                                        ? Poll::Done
                                        : Poll::Pending;
                         }});
        steps.push_back(
            {"Leaving", "quit the lobby", 5.0, [this] {
                 if (!Act("quit the lobby", kHostMethodDelete, std::string(kBase) + "/v1/lobby")) {
                     return Poll::Failed;
                 }
                 runtime_.RunFor(1.0);
                 return Poll::Done;
             }});
        return steps;
    }
    if (scenario_.partyMemberDeclines) {
        steps.push_back(ReadyCheckStep([this] {
            return S::Text(Search(), "readyCheck.state") == "PartyNotReady" && Lobby() != nullptr;
        }));
        return steps;
    }
    steps.push_back(ReadyCheckStep([this] { return Session() != nullptr; }));
    if (scenario_.strangerDodges) {
        steps.push_back(ChampSelectStep([this] {
            return Session() == nullptr && state_.Count(kSessionUri, "Delete") > 0 &&
                   S::Text(Search(), "dodgeData.state") == "StrangerDodged";
        }));
        return steps;
    }
    steps.push_back(ChampSelectStep([this] { return GameCleared(); }));
    return steps;
}

// ---- Outcome -----------------------------------------------------------------------------------

void Demo::Milestone(DemoResult& result, const std::string& text, bool reached) {
    result.milestones.emplace_back(text, reached);
}

void Demo::Milestones(DemoResult& result) {
    auto saw = [this](const char* uri, const std::function<bool(const Value&)>& test,
                      const char* type = nullptr) {
        return state_.Find([&](const ResourceEvent& e, const Value& data) {
            return e.uri == uri && (type == nullptr || e.type == type) && test(data);
        }) >= 0;
    };
    auto any = [](const Value&) { return true; };
    auto proxied = [this](const std::string& method, const std::string& status) {
        size_t count = 0;
        for (const ProxiedCall& call : standIns_.Calls()) {
            count += call.method == method && (status.empty() || call.answerStatus == status);
        }
        return count;
    };
    const uint64_t friendId = services_.Options().localSummonerId + 1;
    const std::string name = scenario_.name.data();
    if (name == "draft" || name == "reconnect") {
        if (name == "draft") {
            Milestone(result, "the lobby shows both party members",
                      saw(kLobbyUri, [](const Value& d) {
                          const Value* m = S::Member(&d, "members");
                          return m != nullptr && m->IsArray() && m->Size() == 2;
                      }));
            Milestone(result, "a stranger's decline sends the party back to searching",
                      saw(kSearchUri, [](const Value& d) {
                          return S::Text(&d, "readyCheck.state") == "StrangerNotReady";
                      }));
        }
        Milestone(result, "the search went from Searching to Found",
                  saw(kSearchUri,
                      [](const Value& d) { return S::Text(&d, "searchState") == "Searching"; }) &&
                      saw(kSearchUri,
                          [](const Value& d) { return S::Text(&d, "searchState") == "Found"; }));
        Milestone(result, "a champion select session was created", saw(kSessionUri, any, "Create"));
        Milestone(result, "the ceremony shows as an action set of its own",
                  state_.Find([](const ResourceEvent& e, const Value&) {
                      return e.uri == kSessionUri &&
                             e.data.find("\"type\":\"ban_reveal\"") != std::string::npos;
                  }) >= 0);
        Milestone(result, "you banned and locked in a champion", play_.done.size() >= 2);
        Milestone(result, "skin, spells and ward skin were chosen",
                  proxied("pickSpellsV1", "OK") > 0 && proxied("selectWardSkin", "") > 0);
        if (name == "draft") {
            Milestone(result, "a trade was accepted", proxied("acceptTradeV1", "OK") > 0);
            Milestone(result, "the team boost shows as bought",
                      saw(kTeamBoostUri, [](const Value& d) { return S::Flag(&d, "unlocked"); }));
        } else {
            const size_t retrievals = proxied("retrieveLatestTbdGameDtoV1", "");
            Milestone(result,
                      "after the reconnection the plugin retried past " +
                          std::to_string(scenario_.temporaryErrors) +
                          " temporary errors and got the latest game record (" +
                          std::to_string(retrievals) + " retrievals)",
                      retrievals == static_cast<size_t>(scenario_.temporaryErrors) + 1 &&
                          proxied("retrieveLatestTbdGameDtoV1", "OK") == 1);
        }
        Milestone(result, "the game flow heard that champion select began",
                  std::count(standIns_.GameflowEvents().begin(), standIns_.GameflowEvents().end(),
                             "GAMEFLOW_EVENT.ENTERED_CHAMP_SELECT") > 0);
        Milestone(result, "the host window was brought forward", standIns_.WindowShows() > 0);
        Milestone(result, "the game start cleared lobby, search and champion select",
                  GameCleared());
    } else if (name == "dodge") {
        Milestone(result, "a champion select session was created", saw(kSessionUri, any, "Create"));
        Milestone(result, "the session was removed when the stranger left",
                  saw(kSessionUri, any, "Delete"));
        Milestone(result, "the search names a stranger dodge", saw(kSearchUri, [](const Value& d) {
                      return S::Text(&d, "dodgeData.state") == "StrangerDodged";
                  }));
        Milestone(result, "the party is back in its lobby",
                  Lobby() != nullptr && Session() == nullptr);
    } else if (name == "decline") {
        Milestone(result, "the ready check was shown", saw(kSearchUri, [](const Value& d) {
                      return S::Text(&d, "readyCheck.state") == "InProgress";
                  }));
        Milestone(result, "the ready check names the party member who declined",
                  saw(kSearchUri, [friendId](const Value& d) {
                      const Value* ids = S::Member(&d, "readyCheck.declinerIds");
                      return S::Text(&d, "readyCheck.state") == "PartyNotReady" && ids != nullptr &&
                             ids->IsArray() && ids->Size() == 1 && (*ids)[0].IsUint64() &&
                             (*ids)[0].GetUint64() == friendId;
                  }));
        Milestone(result, "the party is back in its lobby", Lobby() != nullptr);
    } else if (name == "kicked") {
        Milestone(result, "you joined the friend's lobby", proxied("joinDraftPremadeV1", "OK") > 0);
        Milestone(result, "the lobby said you were kicked", saw(kLobbyUri, [](const Value& d) {
                      return S::Flag(&d, "wasKicked") && S::Text(&d, "removalReason") == "Kicked";
                  }));
        Milestone(result, "then the lobby was removed", saw(kLobbyUri, any, "Delete"));
    } else if (name == "low-priority") {
        Milestone(result, "the search showed the penalty and its token",
                  saw(kSearchUri, [this](const Value& d) {
                      return !token_.empty() &&
                             S::Text(&d, "lowPriorityData.quitguardedAccessToken") == token_;
                  }));
        Milestone(result, "the token opened the low-priority queue",
                  saw(kSearchUri,
                      [](const Value& d) { return S::Text(&d, "searchState") == "Searching"; }));
        Milestone(result, "the search said the low-priority queue was abandoned",
                  saw(kSearchUri, [](const Value& d) {
                      return S::Text(&d, "searchState") == "AbandonedLowPriorityQueue";
                  }));
        Milestone(result, "quitting removed the lobby", Lobby() == nullptr);
    }
}

void Demo::Summary() {
    const PluginCounters* counters = runtime_.Counters(plugin_);
    size_t serviceCalls = standIns_.Calls().size();
    std::string text =
        "plugin: " + Plural(state_.Events().size(), "resource event", "resource events");
    if (counters != nullptr) {
        text += ", " + Plural(counters->requests, "request", "requests") + " to other plugins (" +
                Plural(serviceCalls, "service call", "service calls") + "), " +
                Plural(counters->delayedCalls, "delayed call", "delayed calls") + ", " +
                Plural(counters->logLines[1], "warning", "warnings") + ", " +
                Plural(counters->logLines[2], "error", "errors") + " in its log";
    }
    const Simulation::SimStatistics& sim = services_.Statistics();
    text += "; service: " + Plural(sim.gameRecords, "game record", "game records") + ", " +
            Plural(sim.pushes, "push", "pushes");
    if (sim.malformed > 0) {
        text += ", " + Plural(sim.malformed, "answer", "answers") + " malformed on purpose";
    }
    timeline_.Text(text);
    if (options_.memory) {
        if (std::optional<MemoryStatistics> memory = runtime_.Memory(plugin_)) {
            timeline_.Text("plugin memory: peak " + Megabytes(memory->peakLiveBytes) + " live in " +
                           Plural(memory->liveAllocationsAtPeak, "block", "blocks") + "; " +
                           Megabytes(memory->bytesAllocated) + " allocated in " +
                           std::to_string(memory->allocations) + " allocations, " +
                           Megabytes(memory->bytesFreed) + " freed");
        }
    }
}

DemoResult Demo::Run() {
    DemoResult result;
    runtime_.AddObserver(&timeline_);
    runtime_.AddObserver(&state_);
    NameBook names;
    names.player = [this](uint64_t id) {
        return id == services_.Options().localSummonerId ? std::string("you")
                                                         : services_.PlayerName(id);
    };
    names.champion = [](int64_t id) {
        return std::string(Simulation::ChampionName(static_cast<int32_t>(id)));
    };
    timeline_.SetNames(names);
    standIns_.SetServices(&services_);
    standIns_.SetNarrator(
        [this](std::string_view who, const std::string& what) { timeline_.Note(who, what); });
    standIns_.Install();
    if (options_.afterInstall) {
        options_.afterInstall();
    }

    std::vector<const EndpointRecord*> endpoints = library_.Endpoints();
    timeline_.Text(
        "qel-host: a stand-in plugin host, running the team-builder plugin against "
        "simulated services");
    timeline_.Text("  plugin    " + library_.Path());
    timeline_.Text("            " + library_.ShortName() + ", plugin API " +
                   library_.VersionText() + "; " +
                   Plural(endpoints.size(), "endpoint", "endpoints") + ", " +
                   Plural(library_.TypeCount(), "type", "types") + ", " +
                   Plural(library_.EventCount(), "event", "events"));
    timeline_.Text("  scenario  " + std::string(scenario_.name) + ": " +
                   std::string(scenario_.summary));
    timeline_.Text("  expected  " + std::string(scenario_.expectedEnd));
    char speed[64];
    if (clock_.Instant()) {
        std::snprintf(speed, sizeof speed, "as fast as possible");
    } else {
        std::snprintf(speed, sizeof speed, "%gx", clock_.Speed());
    }
    timeline_.Text("  players   you (" + services_.Options().localName +
                   ") and 9 simulated players; seed " + std::to_string(options_.seed) + "; speed " +
                   speed + " (times are simulated seconds)");
    if (options_.malformedShare > 0.0) {
        timeline_.Text(
            "  malformed " +
            std::to_string(static_cast<int>(std::lround(options_.malformedShare * 100))) +
            "% of the service's answers are damaged on purpose; the run passes when "
            "host and plugin survive");
    }
    if (options_.faults.Any()) {
        timeline_.Text("  faults    " + options_.faults.Text() +
                       "; the run passes when host and plugin survive and what the plugin "
                       "publishes agrees with what it holds");
    }
    timeline_.Text("");

    plugin_ = givenPlugin_ != 0 ? givenPlugin_ : runtime_.Attach(library_);
    if (options_.recorder != nullptr) {
        options_.recorder->Attach(runtime_, library_, plugin_);
    }
    // Ends the recording before the runtime goes, on every way out.
    const SessionRecorder::Follow following(options_.recorder);
    runtime_.SetTimeLimit(Now() + 1800.0);
    runtime_.SetStallHandler([this](const std::string& why) {
        timeline_.Outcome(false, "the run stalled: " + why);
        std::fflush(options_.out);
        if (options_.recorder != nullptr) {
            // What was recorded up to the stall, which a replay reports as cut short.
            options_.recorder->Flush();
        }
        std::_Exit(1);
    });
    if (givenPlugin_ == 0 && !runtime_.Start(plugin_)) {
        result.outcome = "the plugin refused to start";
        timeline_.Outcome(false, result.outcome);
        return result;
    }
    const auto subscriptions = runtime_.Registrations(plugin_);
    timeline_.Note(
        "host", "started the plugin; it follows " + Plural(subscriptions.size(), "event", "events"),
        1);
    if (options_.faults.Any()) {
        faults_ = std::make_unique<FaultInjector>(options_.faults, options_.seed);
        runtime_.SetFaults(faults_.get());
    }
    runtime_.After(0.5, "sign-in", [this] { standIns_.SignIn(); });
    services_.Start();

    bool completed = true;
    for (Step& step : Script()) {
        if (!step.phase.empty()) {
            timeline_.Phase(step.phase);
        }
        Poll status = Poll::Pending;
        const bool finished = runtime_.RunUntil(
            [&] {
                status = step.poll();
                return status != Poll::Pending;
            },
            Now() + step.timeout);
        if (finished && status == Poll::Done) {
            continue;
        }
        completed = false;
        if (failure_.empty()) {
            failure_ = "expected \"" + step.what + "\" within " +
                       std::to_string(static_cast<int>(step.timeout)) +
                       " s; instead: " + Describe();
        }
        break;
    }
    // Let the last events settle before judging; late ones too.
    if (faults_ != nullptr) {
        runtime_.SetFaults(nullptr);
        result.faults = faults_->Total();
        runtime_.RunFor(kFaultsSettleSeconds);
    }
    runtime_.RunFor(1.0);
    result.simulatedSeconds = Now();
    result.malformed = services_.Statistics().malformed;
    result.missingEndpoint = missing_;
    result.resourceEvents = state_.Events().size();

    timeline_.Phase("Outcome");
    if (options_.malformedShare > 0.0 || faults_ != nullptr) {
        RestRequest probe;
        probe.method = kHostMethodGet;
        probe.uri = std::string(kBase) + "/v1/matchmaking";
        RestReply reply = runtime_.Route(probe);
        timeline_.Rest("host", probe, reply);
        std::string damage;
        if (options_.malformedShare > 0.0) {
            damage = Plural(result.malformed, "malformed answer", "malformed answers");
        }
        if (faults_ != nullptr) {
            damage += (damage.empty() ? "" : " and ") +
                      Plural(result.faults, "injected fault", "injected faults") + " (" +
                      faults_->Summary() + ")";
            result.disagreements = CheckPublishedState(runtime_, state_);
            for (const std::string& disagreement : result.disagreements) {
                timeline_.Text("  [ ] " + disagreement);
            }
        }
        result.success = reply.Ok() && result.disagreements.empty();
        if (!reply.Ok()) {
            result.outcome = "the plugin no longer answers after " + damage;
        } else if (!result.disagreements.empty()) {
            result.outcome = "after " + damage + ", what the plugin published contradicts what " +
                             "it holds (" + result.disagreements.front() + ")";
        } else {
            result.outcome =
                "host and plugin survived " + damage + " and the plugin still answers" +
                std::string(faults_ != nullptr ? "; its lobby, search and session agree with the "
                                                 "DTO it holds"
                                               : "") +
                (completed ? "; the scenario even reached its end"
                           : "; the scenario stopped: " + failure_);
        }
    } else {
        Milestones(result);
        bool all = completed;
        for (const auto& [text, reached] : result.milestones) {
            timeline_.Text(std::string(reached ? "  [x] " : "  [ ] ") + text);
            all = all && reached;
        }
        result.success = all;
        if (!completed) {
            result.outcome = "scenario " + std::string(scenario_.name) + " stopped: " + failure_;
        } else if (!all) {
            result.outcome = "scenario " + std::string(scenario_.name) +
                             " ended, but not as expected (" + std::string(scenario_.expectedEnd) +
                             "): unchecked milestones above";
        } else {
            result.outcome = "scenario " + std::string(scenario_.name) + ": " +
                             std::string(scenario_.expectedEnd);
        }
    }
    Summary();
    timeline_.Outcome(result.success, result.outcome);
    if (givenPlugin_ == 0) {
        runtime_.Destroy(plugin_);
    } else {
        runtime_.SetStallHandler(nullptr);
    }
    runtime_.RemoveObserver(&timeline_);
    runtime_.RemoveObserver(&state_);
    result.exitCode = result.success ? 0 : 1;
    return result;
}

}  // namespace

DemoResult RunDemo(const DemoOptions& options) {
    DemoResult result;
    const ScenarioDefinition* scenario = Simulation::FindScenario(options.scenario);
    if (scenario == nullptr) {
        std::string names;
        for (const ScenarioDefinition& known : Simulation::Scenarios()) {
            names += (names.empty() ? "" : ", ") + std::string(known.name);
        }
        result.outcome = "unknown scenario \"" + options.scenario + "\"; choose one of " + names;
        result.exitCode = 2;
        std::fprintf(stderr, "qel-host: %s\n", result.outcome.c_str());
        return result;
    }
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(options.plugin, error);
    if (library == nullptr) {
        result.outcome = error;
        result.exitCode = 2;
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return result;
    }
    // Static storage: the plugin's code stays mapped and its module may be
    // referenced by the process until exit.
    static std::vector<std::unique_ptr<PluginLibrary>> libraries;
    libraries.push_back(std::move(library));
    auto demo = std::make_unique<Demo>(options, *scenario, *libraries.back());
    return demo->Run();
}

DemoResult RunDemoIn(const DemoOptions& options, HostRuntime& runtime, PluginLibrary& library,
                     uint32_t plugin) {
    const ScenarioDefinition* scenario = Simulation::FindScenario(options.scenario);
    if (scenario == nullptr) {
        DemoResult result;
        result.outcome = "unknown scenario \"" + options.scenario + "\"";
        result.exitCode = 2;
        return result;
    }
    auto demo = std::make_unique<Demo>(options, *scenario, library, runtime, plugin);
    DemoResult result = demo->Run();
    // The world's stand-ins and services go with the demo, while the runtime
    // and the plugin live on: no route or queued work of the runtime may
    // still lead into them (a delayed retry of the plugin would call them).
    runtime.ClearWorld();
    return result;
}

}  // namespace Orvan::Host
