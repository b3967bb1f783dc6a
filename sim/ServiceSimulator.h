// ServiceSimulator: the team-builder service "teambuilder-draft" and the
// ward-skin service "wardSkins" as a deterministic simulation of one local
// player's game. It answers every method the client calls with what the
// service would answer (game records with a rising counter, restrictions,
// error statuses), pushes the messages the service sends on its own, and
// plays nine simulated players who join the lobby, choose positions, answer
// the ready check, ban, pick, trade and buy the team boost within the phase
// timers. What they do is decided by the scenario and by a seeded random
// generator: the same seed and scenario give the same game.
//
// Payloads are JSON texts both ways, as the service proxy carries them.
// With a malformed share above zero, that share of answers and pushes is
// damaged on purpose (cut JSON, wrong types, unknown methods, absurd nesting)
// so that clients can be tested against a misbehaving service.
//
// Ownership: the simulator owns its game state; it schedules work through its
// environment and must outlive every task it scheduled, or be destroyed only
// after the environment dropped them (tasks of a destroyed simulator do
// nothing). Threads: the driving thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/Scenario.h"
#include "sim/SimEnvironment.h"

namespace Orvan::Simulation {

inline constexpr std::string_view kTeamBuilderService = "teambuilder-draft";
inline constexpr std::string_view kWardSkinService = "wardSkins";

struct SimOptions {
    uint64_t seed = 1;
    // Share (0..1) of answers and pushes damaged on purpose.
    double malformedShare = 0.0;
    std::string localName = "Ember";
    uint64_t localSummonerId = 2400001;
    int32_t queueId = 62;
    // How long simulated players take, as a factor of their usual pace.
    double pace = 1.0;
};

// A call as the service proxy forwards it.
struct ServiceRequest {
    std::string service;
    std::string method;
    std::string payload;  // JSON text
    // Method-based requests: the method the caller waits for, and the
    // method of the service's error answer.
    std::string responseMethod;
    std::string errorMethod;
};

// The service's answer. A non-empty error means the call failed at the service.
struct ServiceAnswer {
    std::string method;
    std::string payload;  // JSON text
    std::string status = "OK";
    std::string error;
};

// The invitation a friend sends when the scenario has the local player join.
struct Invitation {
    std::string draftPremadeId;
    std::string fromName;
    uint64_t fromSummonerId = 0;
};

struct SimStatistics {
    uint32_t calls = 0;
    uint32_t pushes = 0;
    uint32_t gameRecords = 0;
    uint32_t malformed = 0;
};

class ServiceSimulator {
public:
    ServiceSimulator(SimEnvironment& environment, const ScenarioDefinition& scenario,
                     SimOptions options = {});
    ~ServiceSimulator();
    ServiceSimulator(const ServiceSimulator&) = delete;
    ServiceSimulator& operator=(const ServiceSimulator&) = delete;

    // Sets going what the scenario starts on its own (a friend's lobby and
    // invitation).
    void Start();

    bool Serves(std::string_view service) const;
    ServiceAnswer Handle(const ServiceRequest& request);

    std::optional<Invitation> PendingInvitation() const;

    // For timelines and tests.
    std::string PlayerName(uint64_t summonerId) const;
    std::string PhaseName() const;
    int32_t Counter() const;
    const SimStatistics& Statistics() const;
    const SimOptions& Options() const;
    const ScenarioDefinition& Scenario() const;

private:
    class Game;
    std::unique_ptr<Game> game_;
};

}  // namespace Orvan::Simulation
