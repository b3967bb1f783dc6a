// The service facade, randomness, delayed work, records, damage on purpose,
// and the service methods. The flows of the game (lobby, search, ready check,
// champion select) are in GameFlow.cpp.
#include "sim/ServiceSimulator.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "sim/Catalog.h"
#include "sim/internal/Game.h"

namespace Orvan::Simulation {

namespace {

// Reads a request payload; an empty text reads as an empty object, as the
// client sends "empty payload" calls.
bool ParsePayload(const std::string& text, rapidjson::Document& out) {
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        out.SetObject();
        return true;
    }
    out.Parse(text.c_str(), text.size());
    return !out.HasParseError();
}

int64_t IntField(const rapidjson::Value& value, const char* name, int64_t fallback) {
    if (!value.IsObject()) {
        return fallback;
    }
    auto member = value.FindMember(name);
    if (member == value.MemberEnd()) {
        return fallback;
    }
    if (member->value.IsInt64()) {
        return member->value.GetInt64();
    }
    if (member->value.IsUint64()) {
        return static_cast<int64_t>(member->value.GetUint64());
    }
    return fallback;
}

bool BoolField(const rapidjson::Value& value, const char* name, bool fallback) {
    if (!value.IsObject()) {
        return fallback;
    }
    auto member = value.FindMember(name);
    return member != value.MemberEnd() && member->value.IsBool() ? member->value.GetBool()
                                                                 : fallback;
}

std::string TextField(const rapidjson::Value& value, const char* name) {
    if (!value.IsObject()) {
        return {};
    }
    auto member = value.FindMember(name);
    return member != value.MemberEnd() && member->value.IsString()
               ? std::string(member->value.GetString(), member->value.GetStringLength())
               : std::string();
}

std::string Quote(std::string_view text) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return buffer.GetString();
}

// The service refusing the local player a queue or a lobby: one restriction.
ServiceAnswer GatekeeperRestricted(uint64_t summonerId, std::string_view reason,
                                   int64_t remainingMillis, std::string_view payload,
                                   int64_t queueId) {
    ServiceAnswer answer;
    answer.method = "gatekeeperRestrictedV2";
    answer.payload =
        "{\"gatekeeperRestrictions\":[{\"summonerId\":" + std::to_string(summonerId) +
        ",\"reason\":" + Quote(reason) + ",\"remainingMillis\":" + std::to_string(remainingMillis) +
        ",\"payload\":" + Quote(payload) + ",\"queueId\":" + std::to_string(queueId) + "}]}";
    return answer;
}

}  // namespace

// ---- Facade ---------------------------------------------------------------

ServiceSimulator::ServiceSimulator(SimEnvironment& environment, const ScenarioDefinition& scenario,
                                   SimOptions options)
    : game_(std::make_unique<Game>(environment, scenario, std::move(options))) {}

ServiceSimulator::~ServiceSimulator() = default;

void ServiceSimulator::Start() {
    game_->Start();
}

bool ServiceSimulator::Serves(std::string_view service) const {
    return service == kTeamBuilderService || service == kWardSkinService;
}

ServiceAnswer ServiceSimulator::Handle(const ServiceRequest& request) {
    return game_->Handle(request);
}

std::optional<Invitation> ServiceSimulator::PendingInvitation() const {
    return game_->invitation_;
}

std::string ServiceSimulator::PlayerName(uint64_t summonerId) const {
    return game_->NameOf(summonerId);
}

std::string ServiceSimulator::PhaseName() const {
    return game_->PhaseText();
}

int32_t ServiceSimulator::Counter() const {
    return game_->counter_;
}

const SimStatistics& ServiceSimulator::Statistics() const {
    return game_->stats_;
}

const SimOptions& ServiceSimulator::Options() const {
    return game_->options_;
}

const ScenarioDefinition& ServiceSimulator::Scenario() const {
    return game_->scenario_;
}

// ---- Game: basics -----------------------------------------------------------------

ServiceSimulator::Game::Game(SimEnvironment& environment, const ScenarioDefinition& scenario,
                             SimOptions options)
    : env_(environment), scenario_(scenario), options_(std::move(options)) {
    // SplitMix64 seeding keeps nearby seeds far apart.
    rng_ = options_.seed * 0x9E3779B97F4A7C15ULL + 0xD1B54A32D192ED03ULL;
    temporaryErrorsLeft_ = scenario_.temporaryErrors;
    BuildRoster();
}

ServiceSimulator::Game::~Game() = default;

uint64_t ServiceSimulator::Game::Next() {
    uint64_t z = (rng_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

int32_t ServiceSimulator::Game::Uniform(int32_t low, int32_t high) {
    if (high <= low) {
        return low;
    }
    return low + static_cast<int32_t>(Next() % static_cast<uint64_t>(high - low + 1));
}

double ServiceSimulator::Game::Seconds(double low, double high) {
    const double unit = static_cast<double>(Next() >> 11) * 0x1.0p-53;
    return (low + unit * (high - low)) * options_.pace;
}

std::string ServiceSimulator::Game::Hex(int digits) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    uint64_t bits = Next();
    for (int i = 0; i < digits; ++i) {
        if (i % 16 == 15) {
            bits = Next();
        }
        text += kDigits[bits & 15];
        bits >>= 4;
    }
    return text;
}

void ServiceSimulator::Game::Later(double seconds, std::string label, std::function<void()> task,
                                   bool bound) {
    std::weak_ptr<int> alive = alive_;
    const uint64_t epoch = epoch_;
    env_.After(seconds, std::move(label), [this, alive, epoch, bound, task = std::move(task)] {
        if (alive.expired() || (bound && epoch != epoch_)) {
            return;
        }
        task();
    });
}

std::string ServiceSimulator::Game::PhaseText() const {
    switch (phase_) {
        case GamePhase::None:
            return "NONE";
        case GamePhase::Premade:
            return "DRAFT_PREMADE";
        case GamePhase::Matchmaking:
            return "MATCHMAKING";
        case GamePhase::AfkCheck:
            return "AFK_CHECK";
        case GamePhase::ChampSelect:
            return "CHAMPION_SELECT";
        case GamePhase::InGame:
            return "IN_GAME";
    }
    return "";
}

std::string ServiceSimulator::Game::NameOf(uint64_t summonerId) const {
    for (const SimPlayer& player : players_) {
        if (player.summonerId == summonerId) {
            return player.name;
        }
    }
    return {};
}

// ---- Records ----------------------------------------------------------------------

void ServiceSimulator::Game::Damage(std::string& method, std::string& payload) {
    if (options_.malformedShare <= 0.0) {
        return;
    }
    const double roll = static_cast<double>(Next() >> 11) * 0x1.0p-53;
    if (roll >= options_.malformedShare) {
        return;
    }
    ++stats_.malformed;
    std::string what;
    switch (Next() % 6) {
        case 0:
            payload.resize(payload.size() / 2);
            what = "cuts its payload in half";
            break;
        case 1: {
            const size_t at = payload.find("\"counter\":");
            if (at != std::string::npos) {
                payload.insert(at + 10, "\"seven\",\"was\":");
            } else {
                payload = "{\"counter\":\"seven\"}";
            }
            what = "writes a counter as text";
            break;
        }
        case 2:
            payload = "null";
            what = "sends null";
            break;
        case 3:
            method += "Garbled";
            what = "answers with an unknown method";
            break;
        case 4:
            payload = std::string(5000, '[') + std::string(5000, ']');
            what = "nests 5000 arrays";
            break;
        default: {
            const std::string queue = "\"queueId\":" + std::to_string(options_.queueId);
            const size_t at = payload.find(queue);
            if (at != std::string::npos) {
                payload.replace(at, queue.size(), "\"queueId\":-1");
            } else {
                payload += "}}]";
            }
            what = "marks its record invalid";
            break;
        }
    }
    env_.Narrate("service", "(malformed on purpose) " + what + " in " + method);
}

void ServiceSimulator::Game::Push(std::string_view method, std::string payload) {
    std::string name(method);
    Damage(name, payload);
    ++stats_.pushes;
    env_.Push(kTeamBuilderService, name, std::move(payload));
}

void ServiceSimulator::Game::PushGameRecord() {
    Push("tbdGameDtoV1", GameRecordJson());
}

ServiceAnswer ServiceSimulator::Game::GameRecord(std::string status) {
    ServiceAnswer answer;
    answer.method = "tbdGameDtoV1";
    answer.payload = GameRecordJson();
    answer.status = std::move(status);
    return answer;
}

ServiceAnswer ServiceSimulator::Game::Refusal(std::string status) {
    // The service refuses an action out of turn with a status and the record
    // as it stands.
    return GameRecord(std::move(status));
}

ServiceAnswer ServiceSimulator::Game::CallFailed(std::string_view reason) {
    ServiceAnswer answer;
    answer.method = "callFailedV1";
    answer.payload = "{\"reason\":" + Quote(reason) + "}";
    return answer;
}

// ---- Dispatch of calls ----------------------------------------------------------------

const std::map<std::string, ServiceSimulator::Game::Handler, std::less<>>&
ServiceSimulator::Game::TeamBuilderMethods() {
    static const std::map<std::string, Handler, std::less<>> methods = {
        {"retrieveFeatureToggles", &Game::FeatureToggles},
        {"createDraftPremadeV1", &Game::CreatePremade},
        {"joinDraftPremadeV1", &Game::JoinPremade},
        {"specifyDraftPositionPreferencesV1", &Game::SpecifyPositions},
        {"specifyDraftPositionPreferencesV2", &Game::SpecifyPositions},
        {"promoteToCaptainV1", &Game::Promote},
        {"kickPlayerV1", &Game::Kick},
        {"quitV2", &Game::Quit},
        {"startMatchmakingV1", &Game::StartMatchmaking},
        {"leaveMatchmakingV1", &Game::LeaveMatchmaking},
        {"abandonQuitguardLowPriorityQueueV1", &Game::AbandonLowPriority},
        {"indicateAfkReadinessV1", &Game::IndicateReadiness},
        {"retrieveLatestTbdGameDtoV1", &Game::RetrieveLatest},
        {"updateActionV1", &Game::UpdateAction},
        {"pickSpellsV1", &Game::PickSpells},
        {"pickSkinV2", &Game::PickSkin},
        {"rerollV1", &Game::Reroll},
        {"activateBattleBoostV1", &Game::ActivateBoostCall},
        {"acceptTradeV1", &Game::AcceptTrade},
        {"declineTradeV1", &Game::DeclineTrade},
    };
    return methods;
}

ServiceAnswer ServiceSimulator::Game::Handle(const ServiceRequest& request) {
    ++stats_.calls;
    ServiceAnswer answer;
    if (request.service == kWardSkinService) {
        if (request.method == "requestSelectedWardSkin") {
            answer = RequestWardSkin(request.payload, request);
        } else if (request.method == "selectWardSkin") {
            answer = SelectWardSkin(request.payload, request);
        } else {
            answer = CallFailed("UNKNOWN_METHOD");
        }
    } else if (request.service == kTeamBuilderService) {
        const auto& methods = TeamBuilderMethods();
        auto found = methods.find(request.method);
        answer = found == methods.end() ? CallFailed("UNKNOWN_METHOD")
                                        : (this->*found->second)(request.payload, request);
    } else {
        answer.method = "callFailedV1";
        answer.status = "SERVICE UNKNOWN";
        answer.payload = "{}";
    }
    Damage(answer.method, answer.payload);
    return answer;
}

// ---- Lobby methods --------------------------------------------------------------------

ServiceAnswer ServiceSimulator::Game::FeatureToggles(const std::string&, const ServiceRequest&) {
    ServiceAnswer answer;
    answer.method = "featureTogglesRetrieved";
    answer.payload =
        "{\"enabledFeatures\":[\"POSITION_EXCLUDER\",\"TRADES\",\"BATTLE_BOOST\","
        "\"CEREMONIES\"]}";
    return answer;
}

ServiceAnswer ServiceSimulator::Game::CreatePremade(const std::string& payload,
                                                    const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document) || !document.IsInt()) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (document.GetInt() != options_.queueId) {
        return GatekeeperRestricted(Local().summonerId, "QUEUE_NOT_ENABLED", 0, "",
                                    document.GetInt());
    }
    // Already in a game: the service says so, and the client quits the old
    // one before it takes the new lobby.
    const bool stale = phase_ != GamePhase::None;
    OpenLobby(0);
    env_.Narrate("service",
                 "opens lobby " + premadeId_ + " for queue " + std::to_string(options_.queueId));
    ScheduleFriendsJoining();
    return GameRecord(stale ? "Error: INVALID_CONTEXT" : "OK");
}

ServiceAnswer ServiceSimulator::Game::JoinPremade(const std::string& payload,
                                                  const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    const std::string id = TextField(document, "draftPremadeId");
    if (!lobbyOpen_ || id != premadeId_ || phase_ != GamePhase::None) {
        return CallFailed("PREMADE_NOT_FOUND");
    }
    if (slots_.size() >= 5) {
        return GatekeeperRestricted(Local().summonerId, "MAX_PREMADE_SIZE_VIOLATED", 0, "",
                                    options_.queueId);
    }
    invitation_.reset();
    JoinLobby(0);
    phase_ = GamePhase::Premade;
    if (scenario_.localGetsKicked) {
        const size_t owner = PartyMember(1);
        Later(Seconds(7.0, 9.0), "owner kicks", [this, owner] {
            env_.Narrate(players_[owner].name, "kicks you from the lobby");
            KickLocal();
        });
    }
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::SpecifyPositions(const std::string& payload,
                                                       const ServiceRequest& request) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (phase_ != GamePhase::Premade) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    SimPlayer& local = players_[0];
    const std::string first = TextField(document, "firstPreference");
    const std::string second = TextField(document, "secondPreference");
    const std::string excluded = TextField(document, "excludedPreference");
    auto valid = [](const std::string& position) {
        const auto positions = Positions();
        return position == "FILL" ||
               std::find(positions.begin(), positions.end(), position) != positions.end();
    };
    if (!valid(first) || !valid(second) || (!excluded.empty() && !valid(excluded)) ||
        (first == second && first != "FILL")) {
        return Refusal("Error: INVALID_POSITIONS");
    }
    local.preferences = {first, second};
    local.excluded = request.method.back() == '2' ? excluded : std::string();
    positionsChosen_[0] = true;
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::Promote(const std::string& payload, const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    const int64_t slotId = IntField(document, "slotId", -1);
    const LobbySlot* local = SlotOf(0);
    if (phase_ != GamePhase::Premade || local == nullptr || local->slotId != captainSlotId_) {
        return Refusal("Error: NOT_CAPTAIN");
    }
    for (const LobbySlot& slot : slots_) {
        if (slot.slotId == slotId) {
            captainSlotId_ = slot.slotId;
            env_.Narrate("service", players_[slot.player].name + " is now the lobby's captain");
            return GameRecord();
        }
    }
    return Refusal("Error: INVALID_SLOT");
}

ServiceAnswer ServiceSimulator::Game::Kick(const std::string& payload, const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    const int64_t slotId = IntField(document, "slotId", -1);
    const LobbySlot* local = SlotOf(0);
    if (phase_ != GamePhase::Premade || local == nullptr || local->slotId != captainSlotId_ ||
        slotId == local->slotId) {
        return Refusal("Error: NOT_CAPTAIN");
    }
    for (auto it = slots_.begin(); it != slots_.end(); ++it) {
        if (it->slotId == slotId) {
            env_.Narrate("service", players_[it->player].name + " is kicked from the lobby");
            slots_.erase(it);
            return GameRecord();
        }
    }
    return Refusal("Error: INVALID_SLOT");
}

ServiceAnswer ServiceSimulator::Game::Quit(const std::string&, const ServiceRequest&) {
    if (phase_ != GamePhase::None) {
        env_.Narrate("service", "you leave the game; it goes on without you");
    }
    NewEpoch();
    phase_ = GamePhase::None;
    lobbyOpen_ = false;
    slots_.clear();
    ServiceAnswer answer;
    answer.method = "quitSucceededV1";
    answer.payload = "{}";
    return answer;
}

// ---- Search and ready check methods -----------------------------------------------------

ServiceAnswer ServiceSimulator::Game::StartMatchmaking(const std::string& payload,
                                                       const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (phase_ != GamePhase::Premade) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    if (!ReadyToMatchmake()) {
        return CallFailed("POSITIONS_NOT_CHOSEN");
    }
    const std::string token = TextField(document, "accessTokenStr");
    if (scenario_.leaverPenalty && (token_.empty() || token != token_)) {
        if (token_.empty()) {
            token_ = "lpq-" + Hex(12);
        }
        env_.Narrate("service",
                     "refuses the normal queue: you left a game early; low-priority "
                     "queue for 5 minutes");
        return GatekeeperRestricted(Local().summonerId, "QUITGUARDED", 300000, token_,
                                    options_.queueId);
    }
    lowPriority_ = scenario_.leaverPenalty;
    premadeReason_.clear();
    premadeReasonSlots_.clear();
    BeginSearch(lowPriority_ ? 240.0 : Seconds(10.0, 14.0));
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::LeaveMatchmaking(const std::string&, const ServiceRequest&) {
    if (phase_ != GamePhase::Matchmaking) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    NewEpoch();
    phase_ = GamePhase::Premade;
    lowPriority_ = false;
    env_.Narrate("service", "the party leaves the queue");
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::AbandonLowPriority(const std::string& payload,
                                                         const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (!lowPriority_ || phase_ != GamePhase::Matchmaking ||
        TextField(document, "accessTokenStr") != token_) {
        return CallFailed("NOT_IN_LOW_PRIORITY_QUEUE");
    }
    NewEpoch();
    lowPriority_ = false;
    phase_ = GamePhase::Premade;
    const std::string name = Local().name;
    Later(0.2, "low-priority queue abandoned", [this, name] {
        env_.Narrate("service",
                     "the low-priority queue is abandoned; the party is back in its "
                     "lobby");
        Push("quitguardLowPriorityQueueAbandonedV1", "{\"abandonerName\":" + Quote(name) + "}");
        PushGameRecord();
    });
    ServiceAnswer answer;
    answer.method = "quitguardLowPriorityQueueAbandonedV1";
    answer.payload = "{\"abandonerName\":" + Quote(name) + "}";
    return answer;
}

ServiceAnswer ServiceSimulator::Game::IndicateReadiness(const std::string& payload,
                                                        const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (phase_ != GamePhase::AfkCheck) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    const bool ready = BoolField(document, "afkReady", false);
    localReady_ = ready;
    ServiceAnswer answer = GameRecord();
    // The answer goes out first; the outcome of the check follows it.
    Later(0.0, "ready check answer", [this, ready] { Respond(0, ready); });
    return answer;
}

ServiceAnswer ServiceSimulator::Game::RetrieveLatest(const std::string&, const ServiceRequest&) {
    if (temporaryErrorsLeft_ > 0) {
        --temporaryErrorsLeft_;
        env_.Narrate("service", "is still catching up after the reconnection: temporary error");
        ServiceAnswer answer;
        answer.method = "retrieveLatestTbdGameDtoV1";
        answer.payload = "{}";
        answer.status = "TEMPORARY_ERROR_CONSIDER_RETRY";
        answer.error = "TEMPORARY_ERROR_CONSIDER_RETRY: the game record is being rebuilt";
        return answer;
    }
    return GameRecord();
}

// ---- Champion select methods ------------------------------------------------------------

ServiceAnswer ServiceSimulator::Game::UpdateAction(const std::string& payload,
                                                   const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    if (phase_ != GamePhase::ChampSelect) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    SimAction* action = FindAction(static_cast<int32_t>(IntField(document, "actionId", -1)));
    if (action == nullptr || action->actorCellId != cs_.localCellId) {
        return Refusal("Error: INVALID_ACTION");
    }
    if (action->completed) {
        return Refusal("Error: ACTION_ALREADY_COMPLETED");
    }
    const int32_t champion = static_cast<int32_t>(IntField(document, "championId", 0));
    const bool complete = BoolField(document, "completed", false);
    const bool ban = action->type == "BAN";
    const bool current =
        cs_.subphase == "BAN_PICK" &&
        cs_.currentSet < static_cast<int32_t>(cs_.actionSets.size()) &&
        std::any_of(cs_.actionSets[cs_.currentSet].begin(), cs_.actionSets[cs_.currentSet].end(),
                    [&](const SimAction& a) { return a.id == action->id; });
    if (complete && !current) {
        return Refusal("Error: NOT_YOUR_TURN");
    }
    const bool known = !ChampionName(champion).empty();
    if (champion != 0 && (!known || Banned(champion) || (!ban && Picked(champion)))) {
        return Refusal("Error: CHAMPION_UNAVAILABLE");
    }
    if (complete && !ban && champion == 0) {
        return Refusal("Error: CHAMPION_REQUIRED");
    }
    SimCell* cell = CellOf(cs_.localCellId);
    action->champion = champion;
    if (!ban && cell != nullptr) {
        cell->intent = champion;
    }
    if (complete) {
        action->completed = true;
        if (!ban && cell != nullptr) {
            cell->champion = champion;
        }
        env_.Narrate("you", std::string(ban ? "ban " : "lock in ") +
                                (champion == 0 ? std::string("nobody")
                                               : std::string(ChampionName(champion))));
    }
    ServiceAnswer answer = GameRecord();
    if (complete) {
        Later(0.0, "set check", [this] { CheckSetDone(); });
    }
    return answer;
}

ServiceAnswer ServiceSimulator::Game::PickSpells(const std::string& payload,
                                                 const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    SimCell* cell = phase_ == GamePhase::ChampSelect ? CellOf(cs_.localCellId) : nullptr;
    if (cell == nullptr) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    const int64_t first = IntField(document, "spell1Id", -1);
    const int64_t second = IntField(document, "spell2Id", -1);
    const auto spells = SpellIds();
    auto valid = [&](int64_t id) {
        return std::find(spells.begin(), spells.end(), id) != spells.end();
    };
    if (!valid(first) || !valid(second) || first == second) {
        return Refusal("Error: INVALID_SPELLS");
    }
    cell->spell1 = static_cast<int32_t>(first);
    cell->spell2 = static_cast<int32_t>(second);
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::PickSkin(const std::string& payload, const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    SimCell* cell = phase_ == GamePhase::ChampSelect ? CellOf(cs_.localCellId) : nullptr;
    if (cell == nullptr || cell->champion == 0) {
        return Refusal("Error: INVALID_CONTEXT");
    }
    const int64_t skin = IntField(document, "skinId", -1);
    const bool owned = std::find(inventory_.skinIds.begin(), inventory_.skinIds.end(), skin) !=
                           inventory_.skinIds.end() ||
                       std::find(cs_.unlockedSkins.begin(), cs_.unlockedSkins.end(), skin) !=
                           cs_.unlockedSkins.end();
    if (skin != 0 && (!owned || skin / 1000 != cell->champion)) {
        return Refusal("Error: INVALID_SKIN");
    }
    cell->skin = static_cast<int32_t>(skin);
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::Reroll(const std::string&, const ServiceRequest&) {
    return Refusal("Error: REROLL_NOT_ALLOWED");
}

ServiceAnswer ServiceSimulator::Game::ActivateBoostCall(const std::string&, const ServiceRequest&) {
    if (phase_ != GamePhase::ChampSelect || cs_.boostActivated) {
        return Refusal("Error: BOOST_NOT_AVAILABLE");
    }
    ActivateBoost(cs_.localCellId);
    return GameRecord();
}

ServiceAnswer ServiceSimulator::Game::AcceptTrade(const std::string& payload,
                                                  const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    const int64_t id = IntField(document, "tradeId", -1);
    auto trade = std::find_if(cs_.trades.begin(), cs_.trades.end(),
                              [&](const SimTrade& t) { return t.id == id; });
    SimCell* local = CellOf(cs_.localCellId);
    if (phase_ != GamePhase::ChampSelect || trade == cs_.trades.end() || local == nullptr) {
        return Refusal("Error: INVALID_TRADE");
    }
    SimCell* other = CellOf(trade->cellId);
    if (trade->state == "RECEIVED" && other != nullptr) {
        SwapChampions(*local, *other);
        env_.Narrate("you", "accept " + players_[other->player].name + "'s trade and now play " +
                                std::string(ChampionName(local->champion)));
        for (SimTrade& each : cs_.trades) {
            each.state = "AVAILABLE";
        }
        return GameRecord();
    }
    if (trade->state == "AVAILABLE" && other != nullptr) {
        for (SimTrade& each : cs_.trades) {
            each.state = each.id == id ? "SENT" : "BUSY";
        }
        const int32_t cellId = other->cellId;
        Later(Seconds(2.0, 3.0), "trade answer", [this, cellId] {
            SimCell* mine = CellOf(cs_.localCellId);
            SimCell* theirs = CellOf(cellId);
            if (mine == nullptr || theirs == nullptr) {
                return;
            }
            SwapChampions(*mine, *theirs);
            env_.Narrate(players_[theirs->player].name, "accepts your trade");
            for (SimTrade& each : cs_.trades) {
                each.state = "AVAILABLE";
            }
            PushGameRecord();
        });
        return GameRecord();
    }
    return Refusal("Error: INVALID_TRADE");
}

ServiceAnswer ServiceSimulator::Game::DeclineTrade(const std::string& payload,
                                                   const ServiceRequest&) {
    rapidjson::Document document;
    if (!ParsePayload(payload, document)) {
        return CallFailed("BAD_PAYLOAD");
    }
    const int64_t id = IntField(document, "tradeId", -1);
    auto trade = std::find_if(cs_.trades.begin(), cs_.trades.end(),
                              [&](const SimTrade& t) { return t.id == id; });
    if (phase_ != GamePhase::ChampSelect || trade == cs_.trades.end() ||
        (trade->state != "RECEIVED" && trade->state != "SENT")) {
        return Refusal("Error: INVALID_TRADE");
    }
    for (SimTrade& each : cs_.trades) {
        each.state = "AVAILABLE";
    }
    return GameRecord();
}

// ---- Ward skins ---------------------------------------------------------------------------

ServiceAnswer ServiceSimulator::Game::RequestWardSkin(const std::string&,
                                                      const ServiceRequest& request) {
    ServiceAnswer answer;
    answer.method =
        request.responseMethod.empty() ? "receiveSelectedWardSkin" : request.responseMethod;
    answer.payload = "{\"selectedWardSkinId\":" + std::to_string(wardSkin_) + "}";
    return answer;
}

ServiceAnswer ServiceSimulator::Game::SelectWardSkin(const std::string& payload,
                                                     const ServiceRequest& request) {
    rapidjson::Document document;
    ServiceAnswer answer;
    const int64_t wanted =
        ParsePayload(payload, document) ? IntField(document, "wardSkinId", -1) : -1;
    const auto owned = OwnedWardSkins();
    if (std::find(owned.begin(), owned.end(), wanted) == owned.end()) {
        answer.method =
            request.errorMethod.empty() ? "receiveWardSkinServiceError" : request.errorMethod;
        answer.payload = "{\"errorCode\":\"WARD_SKIN_NOT_OWNED\"}";
        answer.error = "WARD_SKIN_NOT_OWNED: ward skin " + std::to_string(wanted) + " is not owned";
        return answer;
    }
    wardSkin_ = wanted;
    answer.method =
        request.responseMethod.empty() ? "receiveSelectionConfirmation" : request.responseMethod;
    answer.payload = "{\"selectedWardSkinId\":" + std::to_string(wardSkin_) + "}";
    return answer;
}

}  // namespace Orvan::Simulation
