// The simulated game behind ServiceSimulator: players, lobby, search, ready
// check and champion select, the service methods that act on them and the
// simulated players' behaviour. Private to sim/.
//
// Ownership: owned by ServiceSimulator. Threads: the driving thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/ServiceSimulator.h"

namespace Orvan::Simulation {

enum class GamePhase { None, Premade, Matchmaking, AfkCheck, ChampSelect, InGame };

struct SimPlayer {
    std::string name;
    uint64_t summonerId = 0;
    bool local = false;
    bool party = false;
    bool ally = true;
    std::vector<std::string> preferences;  // first, second
    std::string excluded;
    std::vector<int32_t> pool;  // favourite champions, best first
};

struct LobbySlot {
    int32_t slotId = 0;
    size_t player = 0;
};

struct SimCell {
    int32_t cellId = 0;
    int32_t teamId = 1;
    size_t player = 0;
    int32_t intent = 0;
    int32_t champion = 0;
    int32_t skin = 0;
    std::string position = "NONE";
    int32_t spell1 = 4;
    int32_t spell2 = 14;
};

struct SimAction {
    int32_t id = 0;
    int32_t actorCellId = 0;
    std::string type;  // "BAN" or "PICK"
    int32_t champion = 0;
    bool completed = false;
};

struct SimTrade {
    int32_t id = 0;
    int32_t cellId = 0;
    std::string state;  // AVAILABLE, BUSY, RECEIVED, SENT
};

struct SimCeremony {
    std::string name;
    int64_t durationMs = 0;
};

struct SimChampSelect {
    std::string teamId;
    std::string chatRoomId;
    std::string subphase;
    std::vector<std::vector<SimAction>> actionSets;
    std::map<int32_t, std::vector<SimCeremony>> ceremonies;
    int32_t currentSet = 0;
    std::vector<SimCell> cells;  // allied cells first
    int32_t localCellId = 0;
    double phaseStart = 0.0;
    int64_t phaseTotalMs = 0;
    std::vector<SimTrade> trades;
    bool boostActivated = false;
    int64_t boostActivatorCellId = -1;
    int64_t boostCost = 95;
    std::vector<int64_t> unlockedSkins;
};

// The inventory the local player brings to champion select.
struct SimInventory {
    std::map<int32_t, int32_t> lastSelectedSkin;  // owned champion -> skin
    std::vector<int32_t> skinIds;
    std::vector<int32_t> disabledChampions;
};

class ServiceSimulator::Game {
public:
    Game(SimEnvironment& environment, const ScenarioDefinition& scenario, SimOptions options);
    ~Game();

    void Start();
    ServiceAnswer Handle(const ServiceRequest& request);

    // ---- State read by the facade ---------------------------------------
    SimEnvironment& env_;
    const ScenarioDefinition& scenario_;
    SimOptions options_;
    SimStatistics stats_;
    std::optional<Invitation> invitation_;
    GamePhase phase_ = GamePhase::None;
    int32_t counter_ = 0;
    std::vector<SimPlayer> players_;

    std::string PhaseText() const;
    std::string NameOf(uint64_t summonerId) const;

private:
    using Handler = ServiceAnswer (Game::*)(const std::string& payload,
                                            const ServiceRequest& request);

    // ---- Randomness and timing -------------------------------------------
    uint64_t Next();
    int32_t Uniform(int32_t low, int32_t high);  // inclusive
    double Seconds(double low, double high);     // scaled by the pace
    std::string Hex(int digits);
    // Fisher-Yates from the back, one draw per position.
    template <class T>
    void Shuffle(std::vector<T>& items) {
        for (size_t i = items.size(); i > 1; --i) {
            std::swap(items[i - 1], items[Next() % i]);
        }
    }
    // Runs `task` later unless the simulator is gone or, when bound, the
    // game moved on to another phase meanwhile.
    void Later(double seconds, std::string label, std::function<void()> task, bool bound = true);
    void NewEpoch() { ++epoch_; }

    // ---- Records ---------------------------------------------------------
    std::string GameRecordJson();
    void PushGameRecord();
    void Push(std::string_view method, std::string payload);
    ServiceAnswer GameRecord(std::string status = "OK");
    ServiceAnswer Refusal(std::string status);
    ServiceAnswer CallFailed(std::string_view reason);
    void Damage(std::string& method, std::string& payload);

    // ---- Players and lobby -------------------------------------------------
    void BuildRoster();
    size_t PartyMember(int index) const;  // index 1.. among party members
    const SimPlayer& Local() const { return players_[0]; }
    LobbySlot* SlotOf(size_t player);
    void OpenLobby(size_t owner);
    void JoinLobby(size_t player);
    void ChoosePositions(size_t player);
    bool ReadyToMatchmake() const;
    void ScheduleFriendsJoining();
    void KickLocal();

    // ---- Search and ready check --------------------------------------------
    void BeginSearch(double delay);
    void MatchFound();
    void Respond(size_t player, bool accept);
    void ResolveReadyCheck(bool timerEnded);

    // ---- Champion select ---------------------------------------------------
    void BeginChampSelect();
    void StartSet(int32_t index);
    void BotAct(int32_t actionId);
    void CheckSetDone();
    void SetTimerRanOut(uint64_t serial);
    void BeginFinalization();
    void OfferTrade();
    void ActivateBoost(int32_t cellId);
    void ReturnToLobby(std::string reason, size_t leaver);
    SimCell* CellOf(int32_t cellId);
    SimCell* CellOfPlayer(size_t player);
    SimAction* FindAction(int32_t actionId);
    bool Banned(int32_t champion) const;
    bool Picked(int32_t champion) const;
    int32_t ChooseChampion(const SimCell& cell, bool ban);
    std::string Actor(size_t player) const;
    void SwapChampions(SimCell& first, SimCell& second);

    // ---- Service methods -----------------------------------------------------
    ServiceAnswer FeatureToggles(const std::string&, const ServiceRequest&);
    ServiceAnswer CreatePremade(const std::string&, const ServiceRequest&);
    ServiceAnswer JoinPremade(const std::string&, const ServiceRequest&);
    ServiceAnswer SpecifyPositions(const std::string&, const ServiceRequest&);
    ServiceAnswer Promote(const std::string&, const ServiceRequest&);
    ServiceAnswer Kick(const std::string&, const ServiceRequest&);
    ServiceAnswer Quit(const std::string&, const ServiceRequest&);
    ServiceAnswer StartMatchmaking(const std::string&, const ServiceRequest&);
    ServiceAnswer LeaveMatchmaking(const std::string&, const ServiceRequest&);
    ServiceAnswer AbandonLowPriority(const std::string&, const ServiceRequest&);
    ServiceAnswer IndicateReadiness(const std::string&, const ServiceRequest&);
    ServiceAnswer RetrieveLatest(const std::string&, const ServiceRequest&);
    ServiceAnswer UpdateAction(const std::string&, const ServiceRequest&);
    ServiceAnswer PickSpells(const std::string&, const ServiceRequest&);
    ServiceAnswer PickSkin(const std::string&, const ServiceRequest&);
    ServiceAnswer Reroll(const std::string&, const ServiceRequest&);
    ServiceAnswer ActivateBoostCall(const std::string&, const ServiceRequest&);
    ServiceAnswer AcceptTrade(const std::string&, const ServiceRequest&);
    ServiceAnswer DeclineTrade(const std::string&, const ServiceRequest&);
    ServiceAnswer RequestWardSkin(const std::string&, const ServiceRequest&);
    ServiceAnswer SelectWardSkin(const std::string&, const ServiceRequest&);

    static const std::map<std::string, Handler, std::less<>>& TeamBuilderMethods();

    uint64_t rng_ = 0;
    uint64_t epoch_ = 0;
    uint64_t setSerial_ = 0;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);

    // Lobby.
    bool lobbyOpen_ = false;
    std::string premadeId_;
    std::string chatRoomId_;
    int32_t captainSlotId_ = -1;
    std::vector<LobbySlot> slots_;
    int32_t nextSlotId_ = 0;
    std::vector<bool> positionsChosen_;
    std::string premadeReason_;
    std::vector<int32_t> premadeReasonSlots_;

    // Search.
    double searchStart_ = 0.0;
    int64_t estimateMs_ = 0;
    std::string searchReason_;
    bool lowPriority_ = false;
    std::string token_;

    // Ready check.
    double checkStart_ = 0.0;
    int readyChecks_ = 0;
    std::map<size_t, bool> responses_;
    bool localReady_ = false;
    static constexpr int64_t kReadyCheckMs = 10000;

    // Champion select and inventory.
    SimChampSelect cs_;
    SimInventory inventory_;
    int64_t wardSkin_ = 1;
    int temporaryErrorsLeft_ = 0;
};

}  // namespace Orvan::Simulation
