// Soak: `qel-host soak`, many drafts in one process against one loaded and
// started plugin. Each draft is a demo run of a scenario and seed drawn from
// the soak's seed, in a world (stand-ins, simulated services) built for it
// and torn down after it; the plugin is never restarted. Between drafts the
// host ends what the draft left behind the way a client would (the game
// launches, the player signs out), lets the plugin's own timers run out and
// reads the module's memory statistics and the process's resident memory.
//
// The soak passes when every draft passed (with --malformed or --faults:
// survived, as the demo judges it), the module's live bytes do not grow and
// the process's resident memory stays flat. What the plugin holds between
// drafts varies with the last draft (its last session, search and premade
// state are kept by design; answers may wait for a caller), and every lobby
// the player quits is kept for good; so it is the floor that must not rise:
// the least live bytes after a draft of the last quarter of the run are no
// more than the least of the second quarter, plus what the lobbies quit in
// between may keep.
//
// Ownership: a run owns everything it creates. Threads: the calling thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "host/Faults.h"
#include "host/PluginLibrary.h"

namespace Orvan::Host {

struct SoakOptions {
    size_t drafts = 1000;
    uint64_t seed = 1;
    double malformedShare = 0.0;
    FaultPlan faults;
    // Drafts before live bytes are watched (the recent teams fill up).
    size_t warmup = 10;
    // The draft (1-based) whose whole timeline is printed, or 0.
    size_t showDraft = 0;
    PluginLoadOptions plugin;
    std::FILE* out = stdout;
};

struct SoakSample {
    size_t draft = 0;  // 1-based
    uint64_t liveBytes = 0;
    uint64_t residentBytes = 0;  // 0 where the platform does not say
    // Bytes of answers left unclaimed since draft 100, which the plugin keeps.
    uint64_t unclaimedSince100 = 0;
};

struct SoakResult {
    struct Range {
        int64_t min = 0;
        int64_t max = 0;
        size_t count = 0;
        void Add(int64_t value) {
            min = count == 0 || value < min ? value : min;
            max = count == 0 || value > max ? value : max;
            ++count;
        }
    };

    int exitCode = 1;
    std::string outcome;
    // After drafts 1, 10, 100, 1000, ... and the last.
    std::vector<SoakSample> samples;
    size_t failed = 0;
    size_t reachedEnd = 0;
    uint64_t faults = 0;
    // Drafts in which the player quit a lobby (the plugin keeps every lobby
    // it quit, to drop that lobby's late DTOs), in all and after the second
    // quarter of the drafts after the warm-up.
    size_t quitDrafts = 0;
    size_t quitDraftsLater = 0;
    // Bytes of service-proxy answers no caller claimed, after the second
    // quarter: the plugin keeps them, as it keeps every answer until asked.
    uint64_t unclaimedBytesLater = 0;
    // Live bytes after the drafts of the second and of the last quarter of
    // the drafts after the warm-up.
    Range earlier;
    Range later;
    double seconds = 0.0;
};

SoakResult RunSoak(const SoakOptions& options);

}  // namespace Orvan::Host
