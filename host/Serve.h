// Serve: `qel-host serve`, the stand-in host as a development server. The
// simulated world of a scenario keeps running (the services, the other
// players, the timers) while whoever calls the gateway plays the local
// player: a UI, curl, a test suite.
//
// The gateway's event loop runs on the host's thread between host turns and
// the world's due work, so the plugin is only ever called from that thread.
//
// Ownership: a run owns everything it creates. Threads: the calling thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/Faults.h"
#include "host/HttpServer.h"
#include "host/PluginLibrary.h"

namespace Orvan::Host {

class SessionRecorder;

struct ServeOptions {
    std::string scenario = "draft";
    double speed = 1.0;
    uint64_t seed = 1;
    uint16_t port = 0;
    std::vector<std::string> allowedOrigins;
    // The host's timeline on standard error; 0 keeps it quiet.
    int detail = 1;
    PluginLoadOptions plugin;
    // The host's own misbehaviour towards the plugin (host/Faults.h).
    FaultPlan faults;
    HttpLimits limits;
    // A fixed token instead of a random one (tests).
    std::string token;
    std::FILE* out = stdout;
    std::FILE* log = stderr;
    // For a server run inside another program (benchmarks): told the port
    // and token once it listens, and stops when the flag turns true.
    std::function<void(uint16_t port, const std::string& token)> listening;
    const std::atomic<bool>* stop = nullptr;
    // Told of every host observer event, on the server's thread.
    HostObserver* observer = nullptr;
    // Writes the session down (`--record`); the caller's, opened.
    SessionRecorder* recorder = nullptr;
};

// Runs until SIGINT or SIGTERM: 0 after a clean stop, 2 when the plugin does
// not load or the port cannot be had.
int RunServe(const ServeOptions& options);

// The console's files beside the program or in the source tree.
std::string DefaultConsoleFolder();

}  // namespace Orvan::Host
