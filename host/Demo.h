// Demo: a whole scenario run through the real plugin. The host loads the
// plugin, installs the stand-ins and the simulated services, signs in, and
// plays the local player through the plugin's REST endpoints (create or join
// the lobby, choose positions, queue, accept, ban, pick, choose skin, spells
// and ward skin, trade) while nine simulated players play the rest. It
// prints the timeline as it goes and checks at the end that the scenario
// reached its expected end, milestone by milestone.
//
// When the plugin lacks an endpoint a step needs, the run stops there and
// says which operation the plugin could not perform. With a malformed share,
// the service damages some of its answers; with faults, the host misbehaves.
// The run then counts as a success when host and plugin survive it, the
// plugin still answers and (with faults) what it published agrees with what
// it holds.
//
// Ownership: a run owns everything it creates. Threads: the calling thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/Faults.h"
#include "host/PluginLibrary.h"

namespace Orvan::Host {

class SessionRecorder;

struct DemoOptions {
    std::string scenario = "draft";
    // Simulated seconds per real second; 0 runs as fast as the work allows.
    double speed = 3.0;
    uint64_t seed = 1;
    bool json = false;
    int detail = 1;
    double malformedShare = 0.0;
    // The host's own misbehaviour; the run then passes when host and plugin
    // survive and the plugin's published state agrees with what it holds.
    FaultPlan faults;
    bool memory = false;
    // Called once the stand-ins are installed, before anything happens.
    std::function<void()> afterInstall;
    PluginLoadOptions plugin;
    std::FILE* out = stdout;
    // Writes the session down (`--record`); the caller's, opened.
    SessionRecorder* recorder = nullptr;
};

struct DemoResult {
    bool success = false;
    // 0 success, 1 the scenario did not reach its end, 2 the plugin did not load.
    int exitCode = 1;
    std::string outcome;
    std::vector<std::pair<std::string, bool>> milestones;
    // "POST /qel-lobby-team-builder/v1/lobby" when a step found the plugin
    // without that operation (no endpoint, or one without its handler yet).
    std::string missingEndpoint;
    size_t resourceEvents = 0;
    uint32_t malformed = 0;
    uint64_t faults = 0;
    // Where the published lobby, search or session contradicted the plugin.
    std::vector<std::string> disagreements;
    double simulatedSeconds = 0.0;
};

DemoResult RunDemo(const DemoOptions& options);

class HostRuntime;
// One run in a host that outlives it (the soak): the plugin is attached and
// started already and stays so; the run's world (stand-ins, services) is
// left installed for the caller to clear. `options.speed` and
// `options.plugin` are the host's, not the run's.
DemoResult RunDemoIn(const DemoOptions& options, HostRuntime& runtime, PluginLibrary& library,
                     uint32_t plugin);

// The plugin built beside the host (set when the program is built).
std::string DefaultPluginPath();

}  // namespace Orvan::Host
