// The flows of the simulated game: the roster, the lobby, the search and the
// ready check, and champion select with its action sets, ceremony, timers,
// final phase, trades and team boost. Simulated players act here; the local
// player acts only through the service methods.
#include <algorithm>
#include <numeric>
#include <string>

#include "sim/Catalog.h"
#include "sim/internal/Game.h"

namespace Orvan::Simulation {

namespace {

constexpr int kTeamSize = 5;
constexpr int64_t kPlanningMs = 10000;
constexpr int64_t kSetMs = 30000;
constexpr int64_t kFinalizationMs = 30000;
constexpr int64_t kCeremonyMs = 4000;

std::string Join(const std::vector<std::string>& names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    }
    return text;
}

}  // namespace

// ---- Roster ----------------------------------------------------------------------

void ServiceSimulator::Game::BuildRoster() {
    std::vector<std::string_view> names(PlayerNames().begin(), PlayerNames().end());
    Shuffle(names);
    const int party = std::clamp(scenario_.partySize, 1, kTeamSize);
    players_.resize(size_t{2} * kTeamSize);
    for (size_t i = 0; i < players_.size(); ++i) {
        SimPlayer& player = players_[i];
        player.local = i == 0;
        player.party = static_cast<int>(i) < party;
        player.ally = i < static_cast<size_t>(kTeamSize);
        player.name = i == 0 ? options_.localName : std::string(names[i - 1]);
        player.summonerId = options_.localSummonerId + i;
        // Bots know what they like: four champions and two positions.
        std::vector<int32_t> ids;
        for (const Champion& champion : Champions()) {
            ids.push_back(champion.id);
        }
        Shuffle(ids);
        player.pool.assign(ids.begin(), ids.begin() + 4);
        std::vector<std::string_view> positions(Positions().begin(), Positions().end());
        Shuffle(positions);
        if (i != 0) {
            player.preferences = {std::string(positions[0]), std::string(positions[1])};
            player.excluded = std::string(positions[4]);
        }
    }
    positionsChosen_.assign(players_.size(), false);

    // The local player's collection: most champions, one or two skins each,
    // two champions disabled for this queue.
    std::vector<int32_t> owned;
    for (const Champion& champion : Champions()) {
        if (Next() % 4 != 0 || champion.id <= 8) {
            owned.push_back(champion.id);
        }
    }
    for (int32_t id : owned) {
        const int32_t skins = Uniform(1, 2);
        for (int32_t s = 1; s <= skins; ++s) {
            inventory_.skinIds.push_back(id * 1000 + s);
        }
        inventory_.lastSelectedSkin[id] = Next() % 3 == 0 ? id * 1000 + 1 : 0;
    }
    inventory_.disabledChampions = {owned[owned.size() - 1], 33};
}

size_t ServiceSimulator::Game::PartyMember(int index) const {
    return static_cast<size_t>(std::clamp(index, 0, kTeamSize - 1));
}

std::string ServiceSimulator::Game::Actor(size_t player) const {
    const SimPlayer& who = players_[player];
    if (who.local) {
        return "you";
    }
    return who.ally ? who.name : who.name + " (other team)";
}

// ---- Lobby ---------------------------------------------------------------------------

void ServiceSimulator::Game::Start() {
    if (scenario_.localCreatesLobby) {
        return;
    }
    // A friend owns the lobby and invites the local player.
    Later(
        Seconds(1.0, 1.5), "friend opens a lobby",
        [this] {
            const size_t owner = PartyMember(1);
            OpenLobby(owner);
            for (int k = 2; k < scenario_.partySize; ++k) {
                JoinLobby(PartyMember(k));
            }
            for (const LobbySlot& slot : slots_) {
                ChoosePositions(slot.player);
            }
            invitation_ = Invitation{premadeId_, players_[owner].name, players_[owner].summonerId};
            env_.Narrate(players_[owner].name,
                         "opens a lobby and invites you (lobby " + premadeId_ + ")");
        },
        false);
}

LobbySlot* ServiceSimulator::Game::SlotOf(size_t player) {
    for (LobbySlot& slot : slots_) {
        if (slot.player == player) {
            return &slot;
        }
    }
    return nullptr;
}

void ServiceSimulator::Game::OpenLobby(size_t owner) {
    NewEpoch();
    lobbyOpen_ = true;
    premadeId_ = Hex(8) + "-" + Hex(4) + "-" + Hex(4);
    chatRoomId_ = "premade-" + Hex(8);
    slots_.clear();
    nextSlotId_ = 0;
    premadeReason_.clear();
    premadeReasonSlots_.clear();
    std::fill(positionsChosen_.begin(), positionsChosen_.end(), false);
    JoinLobby(owner);
    captainSlotId_ = slots_.back().slotId;
    if (owner == 0) {
        phase_ = GamePhase::Premade;
    }
}

void ServiceSimulator::Game::JoinLobby(size_t player) {
    if (SlotOf(player) == nullptr) {
        slots_.push_back(LobbySlot{nextSlotId_++, player});
    }
}

void ServiceSimulator::Game::ChoosePositions(size_t player) {
    positionsChosen_[player] = true;
}

bool ServiceSimulator::Game::ReadyToMatchmake() const {
    return !slots_.empty() && std::all_of(slots_.begin(), slots_.end(), [&](const LobbySlot& s) {
        return positionsChosen_[s.player];
    });
}

void ServiceSimulator::Game::ScheduleFriendsJoining() {
    for (int k = 1; k < scenario_.partySize; ++k) {
        const size_t friendIndex = PartyMember(k);
        Later(Seconds(1.5, 2.5) * k, "friend joins", [this, friendIndex] {
            JoinLobby(friendIndex);
            env_.Narrate(players_[friendIndex].name, "joins the lobby");
            PushGameRecord();
            Later(Seconds(1.5, 3.0), "friend chooses positions", [this, friendIndex] {
                ChoosePositions(friendIndex);
                const SimPlayer& who = players_[friendIndex];
                env_.Narrate(who.name, "wants to play " + who.preferences[0] + ", else " +
                                           who.preferences[1] + ", never " + who.excluded);
                PushGameRecord();
            });
        });
    }
}

void ServiceSimulator::Game::KickLocal() {
    NewEpoch();
    const uint64_t owner = players_[PartyMember(1)].summonerId;
    slots_.erase(std::remove_if(slots_.begin(), slots_.end(),
                                [](const LobbySlot& slot) { return slot.player == 0; }),
                 slots_.end());
    phase_ = GamePhase::None;
    Push("removedFromServiceV1",
         "{\"reason\":\"KICKED\",\"backwardsTransitionInfo\":{\"backwardsTransitionReason\":"
         "\"\",\"initiatorSummonerIds\":[" +
             std::to_string(owner) + "]}}");
}

// ---- Search and ready check ---------------------------------------------------------

void ServiceSimulator::Game::BeginSearch(double delay) {
    NewEpoch();
    phase_ = GamePhase::Matchmaking;
    searchStart_ = env_.Now();
    estimateMs_ = lowPriority_ ? 300000 : 30000;
    env_.Narrate("service", std::string(lowPriority_ ? "low-priority queue: " : "") +
                                "the party is searching (estimated " +
                                std::to_string(estimateMs_ / 1000) + " s)");
    if (!lowPriority_) {
        Later(delay / 2, "estimate refined", [this] {
            estimateMs_ = 20000;
            PushGameRecord();
        });
    }
    Later(delay, "match found", [this] { MatchFound(); });
}

void ServiceSimulator::Game::MatchFound() {
    NewEpoch();
    phase_ = GamePhase::AfkCheck;
    ++readyChecks_;
    checkStart_ = env_.Now();
    responses_.clear();
    localReady_ = false;
    env_.Narrate("service", "a match is found: ready check, 10 s to accept");
    PushGameRecord();

    // Who declines: a stranger the first time in the draft story, a party
    // member in the decline story.
    size_t decliner = players_.size();
    if (scenario_.partyMemberDeclines && scenario_.partySize > 1) {
        decliner = PartyMember(1);
    } else if (scenario_.strangerDeclinesFirstCheck && readyChecks_ == 1) {
        decliner = players_.size() - 1;
    }
    for (size_t i = 1; i < players_.size(); ++i) {
        const bool accept = i != decliner;
        const double delay = accept ? Seconds(1.0, 6.0) : Seconds(3.0, 4.0);
        Later(delay, "ready check answer", [this, i, accept] { Respond(i, accept); });
    }
    Later(static_cast<double>(kReadyCheckMs) / 1000.0, "ready check ends",
          [this] { ResolveReadyCheck(true); });
}

void ServiceSimulator::Game::Respond(size_t player, bool accept) {
    if (phase_ != GamePhase::AfkCheck || responses_.count(player) != 0) {
        return;
    }
    responses_[player] = accept;
    const SimPlayer& who = players_[player];
    if (!accept) {
        env_.Narrate(who.party ? Actor(player) : "a stranger", "declines the ready check");
        Later(1.0, "ready check fails", [this] { ResolveReadyCheck(false); });
        return;
    }
    if (who.party && !who.local) {
        env_.Narrate(who.name, "accepts");
    }
    if (responses_.size() == players_.size() &&
        std::all_of(responses_.begin(), responses_.end(), [](const auto& r) { return r.second; })) {
        env_.Narrate("service", "all ten players accepted");
        Later(0.5, "everyone ready", [this] { ResolveReadyCheck(false); });
    }
}

void ServiceSimulator::Game::ResolveReadyCheck(bool timerEnded) {
    if (phase_ != GamePhase::AfkCheck) {
        return;
    }
    // Those who declined fail the check; those who did not answer only once
    // the timer ended.
    std::vector<size_t> failed;
    for (size_t i = 0; i < players_.size(); ++i) {
        auto found = responses_.find(i);
        if ((found != responses_.end() && !found->second) ||
            (found == responses_.end() && timerEnded)) {
            failed.push_back(i);
        }
    }
    if (failed.empty() && responses_.size() < players_.size()) {
        return;
    }
    NewEpoch();
    if (failed.empty()) {
        BeginChampSelect();
        return;
    }
    std::vector<int32_t> partySlots;
    for (size_t player : failed) {
        if (const LobbySlot* slot = SlotOf(player)) {
            partySlots.push_back(slot->slotId);
        }
    }
    if (!partySlots.empty()) {
        phase_ = GamePhase::Premade;
        premadeReason_ = "AFK_CHECK_FAILED";
        premadeReasonSlots_ = partySlots;
        env_.Narrate("service", "the ready check failed inside the party: back to the lobby");
        PushGameRecord();
        premadeReason_.clear();
        premadeReasonSlots_.clear();
        return;
    }
    // Only strangers failed: the party keeps its place and searches again.
    env_.Narrate("service", "the ready check failed: the party is searching again");
    searchReason_ = "AFK_CHECK_FAILED";
    phase_ = GamePhase::Matchmaking;
    searchStart_ = env_.Now();
    PushGameRecord();
    searchReason_.clear();
    Later(Seconds(7.0, 9.0), "match found", [this] { MatchFound(); });
}

// ---- Champion select ----------------------------------------------------------------------

SimCell* ServiceSimulator::Game::CellOf(int32_t cellId) {
    for (SimCell& cell : cs_.cells) {
        if (cell.cellId == cellId) {
            return &cell;
        }
    }
    return nullptr;
}

SimCell* ServiceSimulator::Game::CellOfPlayer(size_t player) {
    for (SimCell& cell : cs_.cells) {
        if (cell.player == player) {
            return &cell;
        }
    }
    return nullptr;
}

SimAction* ServiceSimulator::Game::FindAction(int32_t actionId) {
    for (auto& set : cs_.actionSets) {
        for (SimAction& action : set) {
            if (action.id == actionId) {
                return &action;
            }
        }
    }
    return nullptr;
}

bool ServiceSimulator::Game::Banned(int32_t champion) const {
    for (const auto& set : cs_.actionSets) {
        for (const SimAction& action : set) {
            if (action.type == "BAN" && action.completed && action.champion == champion) {
                return true;
            }
        }
    }
    return false;
}

bool ServiceSimulator::Game::Picked(int32_t champion) const {
    return std::any_of(cs_.cells.begin(), cs_.cells.end(),
                       [&](const SimCell& cell) { return cell.champion == champion; });
}

int32_t ServiceSimulator::Game::ChooseChampion(const SimCell& cell, bool ban) {
    const SimPlayer& player = players_[cell.player];
    auto free = [&](int32_t id) {
        if (Banned(id) || Picked(id)) {
            return false;
        }
        if (ban) {
            // Nobody bans what their own team is going to play.
            return std::none_of(cs_.cells.begin(), cs_.cells.end(), [&](const SimCell& other) {
                return other.teamId == cell.teamId && other.intent == id;
            });
        }
        return std::none_of(cs_.cells.begin(), cs_.cells.end(), [&](const SimCell& other) {
            return other.cellId != cell.cellId && other.teamId == cell.teamId && other.intent == id;
        });
    };
    if (!ban) {
        if (cell.intent != 0 && !Banned(cell.intent) && !Picked(cell.intent)) {
            return cell.intent;
        }
        for (int32_t id : player.pool) {
            if (free(id)) {
                return id;
            }
        }
    }
    std::vector<int32_t> candidates;
    for (const Champion& champion : Champions()) {
        if (free(champion.id)) {
            candidates.push_back(champion.id);
        }
    }
    return candidates.empty() ? 0 : candidates[Next() % candidates.size()];
}

void ServiceSimulator::Game::SwapChampions(SimCell& first, SimCell& second) {
    std::swap(first.champion, second.champion);
    std::swap(first.intent, second.intent);
    first.skin = 0;
    second.skin = 0;
}

void ServiceSimulator::Game::BeginChampSelect() {
    NewEpoch();
    phase_ = GamePhase::ChampSelect;
    cs_ = SimChampSelect{};
    cs_.teamId = "team-" + Hex(12);
    cs_.chatRoomId = "draft-" + Hex(10);

    // Allied cells: a stranger (when there is one) picks first, then the
    // local player and the party, then the other strangers.
    std::vector<size_t> allies;
    std::vector<size_t> strangers;
    for (size_t i = 0; i < static_cast<size_t>(kTeamSize); ++i) {
        (players_[i].party ? allies : strangers).push_back(i);
    }
    if (!strangers.empty()) {
        allies.insert(allies.begin(), strangers.front());
        strangers.erase(strangers.begin());
    }
    allies.insert(allies.end(), strangers.begin(), strangers.end());
    std::vector<std::string> taken;
    auto assign = [&](size_t player) {
        for (const std::string& wish : players_[player].preferences) {
            if (wish != "FILL" && std::find(taken.begin(), taken.end(), wish) == taken.end()) {
                return wish;
            }
        }
        for (std::string_view position : Positions()) {
            if (std::find(taken.begin(), taken.end(), position) == taken.end()) {
                return std::string(position);
            }
        }
        return std::string("NONE");
    };
    // Party members get their wishes first.
    std::vector<std::string> positions(allies.size());
    for (int round = 0; round < 2; ++round) {
        for (size_t k = 0; k < allies.size(); ++k) {
            if (players_[allies[k]].party == (round == 0)) {
                positions[k] = assign(allies[k]);
                taken.push_back(positions[k]);
            }
        }
    }
    for (size_t k = 0; k < allies.size(); ++k) {
        SimCell cell;
        cell.cellId = static_cast<int32_t>(k);
        cell.teamId = 1;
        cell.player = allies[k];
        cell.position = positions[k];
        cs_.cells.push_back(cell);
        if (allies[k] == 0) {
            cs_.localCellId = cell.cellId;
        }
    }
    for (size_t i = kTeamSize; i < players_.size(); ++i) {
        SimCell cell;
        cell.cellId = static_cast<int32_t>(i);
        cell.teamId = 2;
        cell.player = i;
        cs_.cells.push_back(cell);
    }
    // One ban each at once, a ceremony that reveals them, then picks in
    // the order 1-2-2-2-2-1.
    int32_t id = 1;
    std::vector<SimAction> bans;
    bans.reserve(size_t{2} * kTeamSize);
    for (int32_t cell = 0; cell < 2 * kTeamSize; ++cell) {
        bans.push_back(SimAction{id++, cell, "BAN", 0, false});
    }
    cs_.actionSets.push_back(bans);
    const std::vector<std::vector<int32_t>> order = {{0}, {5, 6}, {1, 2}, {7, 8}, {3, 4}, {9}};
    for (const auto& actors : order) {
        std::vector<SimAction> set;
        set.reserve(actors.size());
        for (int32_t cell : actors) {
            set.push_back(SimAction{id++, cell, "PICK", 0, false});
        }
        cs_.actionSets.push_back(set);
    }
    cs_.ceremonies[1] = {SimCeremony{"BAN_REVEAL", kCeremonyMs}};
    cs_.subphase = "PLANNING";
    cs_.currentSet = 0;
    cs_.phaseStart = env_.Now();
    cs_.phaseTotalMs = kPlanningMs;

    std::vector<std::string> names;
    names.reserve(allies.size());
    for (size_t player : allies) {
        names.push_back(players_[player].local ? "you" : players_[player].name);
    }
    env_.Narrate("service",
                 "champion select begins: your team is " + Join(names) + "; 10 s to plan");
    PushGameRecord();
    for (const SimCell& cell : cs_.cells) {
        if (cell.teamId != 1 || cell.player == 0) {
            continue;
        }
        const int32_t cellId = cell.cellId;
        Later(Seconds(1.0, 7.0), "pick intent", [this, cellId] {
            SimCell* mine = CellOf(cellId);
            if (mine == nullptr || cs_.subphase != "PLANNING") {
                return;
            }
            mine->intent = ChooseChampion(*mine, false);
            env_.Narrate(players_[mine->player].name,
                         "wants to play " + std::string(ChampionName(mine->intent)));
            PushGameRecord();
        });
    }
    Later(static_cast<double>(kPlanningMs) / 1000.0, "planning ends", [this] { StartSet(0); });
}

void ServiceSimulator::Game::StartSet(int32_t index) {
    NewEpoch();
    const uint64_t serial = ++setSerial_;
    cs_.subphase = "BAN_PICK";
    cs_.currentSet = index;
    cs_.phaseStart = env_.Now();
    cs_.phaseTotalMs = kSetMs;
    const std::vector<SimAction>& set = cs_.actionSets[static_cast<size_t>(index)];
    const bool bans = !set.empty() && set.front().type == "BAN";
    if (bans) {
        env_.Narrate("service", "bans: everyone bans one champion, 30 s");
    } else {
        std::vector<std::string> names;
        names.reserve(set.size());
        for (const SimAction& action : set) {
            names.push_back(Actor(CellOf(action.actorCellId)->player));
        }
        env_.Narrate("service", "pick turn of " + Join(names) + ", 30 s");
    }
    PushGameRecord();
    for (const SimAction& action : set) {
        const SimCell* cell = CellOf(action.actorCellId);
        if (cell == nullptr || cell->player == 0) {
            continue;
        }
        // The idle stranger never bans; the leaver never picks.
        if ((scenario_.banTimerRunsOut && bans && action.actorCellId == 9) ||
            (scenario_.strangerDodges && !bans && action.actorCellId == 6)) {
            continue;
        }
        const int32_t actionId = action.id;
        Later(bans ? Seconds(2.0, 10.0) : Seconds(3.0, 11.0), "simulated player acts",
              [this, actionId] { BotAct(actionId); });
    }
    if (index == 2 && scenario_.strangerDodges) {
        Later(Seconds(2.0, 2.5), "a stranger leaves", [this] {
            env_.Narrate(Actor(6), "leaves champion select");
            ReturnToLobby("PLAYER_LEFT_CHAMPION_SELECT", 6);
        });
    }
    if (index == 2 && scenario_.connectionDrops) {
        Later(
            1.0, "connection drops", [this] { env_.InterruptConnection(6.0); }, false);
    }
    Later(static_cast<double>(kSetMs) / 1000.0, "set timer",
          [this, serial] { SetTimerRanOut(serial); });
}

void ServiceSimulator::Game::BotAct(int32_t actionId) {
    SimAction* action = FindAction(actionId);
    if (phase_ != GamePhase::ChampSelect || action == nullptr || action->completed) {
        return;
    }
    SimCell* cell = CellOf(action->actorCellId);
    const bool ban = action->type == "BAN";
    const int32_t champion = ChooseChampion(*cell, ban);
    action->champion = champion;
    action->completed = true;
    if (!ban) {
        cell->champion = champion;
        cell->intent = champion;
    }
    env_.Narrate(Actor(cell->player),
                 std::string(ban ? "bans " : "locks in ") + std::string(ChampionName(champion)));
    PushGameRecord();
    CheckSetDone();
}

void ServiceSimulator::Game::CheckSetDone() {
    if (phase_ != GamePhase::ChampSelect || cs_.subphase != "BAN_PICK") {
        return;
    }
    const auto& set = cs_.actionSets[static_cast<size_t>(cs_.currentSet)];
    if (!std::all_of(set.begin(), set.end(), [](const SimAction& a) { return a.completed; })) {
        return;
    }
    NewEpoch();
    ++setSerial_;
    const int32_t next = cs_.currentSet + 1;
    if (next >= static_cast<int32_t>(cs_.actionSets.size())) {
        BeginFinalization();
        return;
    }
    auto ceremony = cs_.ceremonies.find(next);
    if (ceremony != cs_.ceremonies.end() && !ceremony->second.empty()) {
        const SimCeremony& shown = ceremony->second.front();
        cs_.phaseStart = env_.Now();
        cs_.phaseTotalMs = shown.durationMs;
        env_.Narrate("service", "ceremony " + shown.name + ": the bans are revealed (" +
                                    std::to_string(shown.durationMs / 1000) + " s)");
        PushGameRecord();
        Later(static_cast<double>(shown.durationMs) / 1000.0, "ceremony ends",
              [this, next] { StartSet(next); });
        return;
    }
    Later(0.5, "next set", [this, next] { StartSet(next); });
}

void ServiceSimulator::Game::SetTimerRanOut(uint64_t serial) {
    if (serial != setSerial_ || phase_ != GamePhase::ChampSelect) {
        return;
    }
    auto& set = cs_.actionSets[static_cast<size_t>(cs_.currentSet)];
    for (SimAction& action : set) {
        if (action.completed) {
            continue;
        }
        const size_t player = CellOf(action.actorCellId)->player;
        if (action.type != "BAN") {
            env_.Narrate(Actor(player), "did not pick in time");
            ReturnToLobby("PLAYER_TIMED_OUT_ON_REQUIRED_ACTION", player);
            return;
        }
        action.completed = true;
        action.champion = 0;
        env_.Narrate(Actor(player), "let the ban timer run out: no ban");
    }
    PushGameRecord();
    CheckSetDone();
}

void ServiceSimulator::Game::BeginFinalization() {
    ++setSerial_;
    cs_.subphase = "FINALIZATION";
    cs_.phaseStart = env_.Now();
    cs_.phaseTotalMs = kFinalizationMs;
    cs_.trades.clear();
    int32_t tradeId = 1;
    for (const SimCell& cell : cs_.cells) {
        if (cell.teamId == 1 && cell.cellId != cs_.localCellId) {
            cs_.trades.push_back(SimTrade{tradeId++, cell.cellId, "AVAILABLE"});
        }
    }
    env_.Narrate("service", "final phase: 30 s to trade and choose skins and spells");
    PushGameRecord();
    if (scenario_.tradeAndBoost) {
        Later(Seconds(3.0, 4.0), "trade offer", [this] { OfferTrade(); });
        Later(Seconds(8.0, 10.0), "team boost", [this] {
            for (const SimCell& cell : cs_.cells) {
                if (cell.teamId == 1 && !players_[cell.player].party) {
                    ActivateBoost(cell.cellId);
                    PushGameRecord();
                    return;
                }
            }
        });
    }
    // A teammate dresses up.
    for (const SimCell& cell : cs_.cells) {
        if (cell.teamId == 1 && cell.player != 0 && cell.champion != 0) {
            const int32_t cellId = cell.cellId;
            Later(Seconds(2.0, 12.0), "skin choice", [this, cellId] {
                SimCell* mine = CellOf(cellId);
                if (mine != nullptr && mine->champion != 0) {
                    mine->skin = mine->champion * 1000 + Uniform(1, 3);
                    PushGameRecord();
                }
            });
            break;
        }
    }
    Later(static_cast<double>(kFinalizationMs) / 1000.0, "game starts", [this] {
        NewEpoch();
        phase_ = GamePhase::InGame;
        env_.Narrate("service", "champion select is over: the game starts");
        env_.StartGame();
    });
}

void ServiceSimulator::Game::OfferTrade() {
    SimCell* local = CellOf(cs_.localCellId);
    SimCell* offerer = nullptr;
    for (SimCell& cell : cs_.cells) {
        if (cell.teamId == 1 && cell.player != 0 && players_[cell.player].party) {
            offerer = &cell;
            break;
        }
    }
    if (offerer == nullptr) {
        for (SimCell& cell : cs_.cells) {
            if (cell.teamId == 1 && cell.player != 0) {
                offerer = &cell;
                break;
            }
        }
    }
    if (local == nullptr || offerer == nullptr) {
        return;
    }
    for (SimTrade& trade : cs_.trades) {
        trade.state = trade.cellId == offerer->cellId ? "RECEIVED" : "BUSY";
    }
    env_.Narrate(players_[offerer->player].name,
                 "offers a trade: their " + std::string(ChampionName(offerer->champion)) +
                     " for your " + std::string(ChampionName(local->champion)));
    PushGameRecord();
    const int32_t cellId = offerer->cellId;
    Later(10.0, "trade offer expires", [this, cellId] {
        for (SimTrade& trade : cs_.trades) {
            if (trade.cellId == cellId && trade.state == "RECEIVED") {
                for (SimTrade& each : cs_.trades) {
                    each.state = "AVAILABLE";
                }
                env_.Narrate(players_[CellOf(cellId)->player].name, "withdraws the trade offer");
                PushGameRecord();
                return;
            }
        }
    });
}

void ServiceSimulator::Game::ActivateBoost(int32_t cellId) {
    cs_.boostActivated = true;
    cs_.boostActivatorCellId = cellId;
    cs_.unlockedSkins.clear();
    for (const SimCell& cell : cs_.cells) {
        if (cell.teamId == 1 && cell.champion != 0) {
            cs_.unlockedSkins.push_back(static_cast<int64_t>(cell.champion) * 1000 + 5);
        }
    }
    const SimCell* cell = CellOf(cellId);
    env_.Narrate(cell != nullptr ? Actor(cell->player) : "someone",
                 "activates the team boost: " + std::to_string(cs_.unlockedSkins.size()) +
                     " skins unlocked for the team");
}

void ServiceSimulator::Game::ReturnToLobby(std::string reason, size_t leaver) {
    NewEpoch();
    ++setSerial_;
    phase_ = GamePhase::Premade;
    premadeReason_ = std::move(reason);
    premadeReasonSlots_.clear();
    if (const LobbySlot* slot = SlotOf(leaver)) {
        premadeReasonSlots_.push_back(slot->slotId);
    }
    cs_ = SimChampSelect{};
    env_.Narrate("service", "champion select is cancelled: everyone returns to the lobby");
    PushGameRecord();
    premadeReason_.clear();
    premadeReasonSlots_.clear();
}

}  // namespace Orvan::Simulation
