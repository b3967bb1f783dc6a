// Replay: `qel-host replay FILE`, a recorded session (host/SessionRecord.h)
// played against a build of the plugin with nothing else running. The
// replay is the plugin's host: it starts the plugin as recorded, hands it
// the recorded inputs at the recorded points (events, delayed calls, outside
// requests, the turns of its waits, its clock readings) and answers the
// plugin's own requests from the recording, matched by method, URL and
// arguments in order. Every output is compared with the recording.
//
// A divergence does not stop the plugin mid-call: the replay goes on, lining
// the recording up again where it can, so that `--keep-going` can list them
// all. Only a plugin that waits for what the recording never gives ends the
// run at once.
//
// Ownership: plain values; the session owns its parsed steps.
// Threads: the calling thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/PluginLibrary.h"

namespace Orvan::Host {

struct ReplayOptions {
    std::string path;
    PluginLoadOptions plugin;
    // Offer the plugin the core version the session was recorded with
    // instead of `plugin`'s.
    bool recordedCoreVersion = true;
    bool json = false;
    // List every divergence, not only the first.
    bool keepGoing = false;
    std::FILE* out = stdout;
    std::FILE* err = stderr;
};

struct Divergence {
    size_t step = 0;  // 1 is the first line after the header
    size_t line = 0;
    double time = 0.0;
    std::string expected;
    std::string came;
    // "path: expected X, came Y" for event data, bodies and other fields.
    std::vector<std::string> differences;
    // Summaries of the few recorded steps before it.
    std::vector<std::string> before;
};

class Session;
// Sessions are built and freed in Replay.cpp only.
struct SessionDeleter {
    void operator()(Session* session) const;
};
using SessionPointer = std::unique_ptr<Session, SessionDeleter>;

// A session file read and checked: a header and well-formed, well-nested
// steps ending with "end". Null with `error` set to "line N: why".
SessionPointer ReadSession(const std::string& path, std::string& error);
// The same, from text (tests).
SessionPointer ParseSession(const std::string& text, std::string& error);

struct ReplayResult {
    // 0 everything matched, 1 a divergence, 2 the file or the plugin is unusable.
    int exitCode = 2;
    size_t steps = 0;
    std::string error;
    std::vector<std::string> warnings;
    std::vector<Divergence> divergences;
};

// Loads the plugin and replays; prints nothing.
ReplayResult ReplaySession(const Session& session, const ReplayOptions& options);
// The same against a plugin the caller loaded (one linked into a test, say);
// the replay ends its module.
ReplayResult ReplaySession(const Session& session, PluginLibrary& library,
                           const ReplayOptions& options);

// The command: reads, replays, prints the outcome; answers the exit status.
int RunReplay(const ReplayOptions& options);

// Text of a divergence as the command prints it.
std::string DescribeDivergence(const Divergence& divergence);

}  // namespace Orvan::Host
