#include "host/Soak.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/Demo.h"
#include "host/HostClock.h"
#include "host/HostRuntime.h"
#include "host/StandIns.h"
#include "sim/Scenario.h"

namespace Orvan::Host {

namespace {

// What the plugin keeps for each lobby the player quit (its id in an ordered
// set), with room for the allocator's rounding.
constexpr int64_t kBytesPerQuitLobby = 160;
// Room for the allocator: the same content does not always take the same
// blocks.
constexpr int64_t kFloorSlack = 4096;

// Longer than any timer the plugin sets in a draft (the UX timers wait for
// the end of a phase), so none is left over for the next draft.
constexpr double kQuietSeconds = 180.0;

uint64_t ResidentBytes() {
#if defined(__linux__)
    std::ifstream statm("/proc/self/statm");
    uint64_t size = 0;
    uint64_t resident = 0;
    if (statm >> size >> resident) {
        return resident * 4096;
    }
#endif
    return 0;
}

std::FILE* NullOutput() {
#if defined(_WIN32)
    return std::fopen("NUL", "w");
#else
    return std::fopen("/dev/null", "w");
#endif
}

bool Reported(size_t draft, size_t last) {
    if (draft == last) {
        return true;
    }
    for (size_t mark = 1; mark <= draft; mark *= 10) {
        if (mark == draft) {
            return true;
        }
    }
    return false;
}

// The plugin's registrations for the services' pushes, as it sent them.
struct PushRegistrations : HostObserver {
    void OnPluginRequest(uint32_t, const RestRequest& request, const RestReply& reply) override {
        if (reply.Ok() &&
            request.Path().rfind("/qel-login/v1/service-proxy-async-requests/", 0) == 0) {
            requests.push_back(request);
        }
    }
    std::vector<RestRequest> requests;
};

// Lobbies the player quit: the plugin remembers each for good, so that late
// DTOs of a lobby it left are dropped.
struct QuitLobbies : HostObserver {
    void OnLog(uint32_t, uint32_t, const std::string& text) override {
        if (text.find("AddToAbandonedLobbyInvitationIds: ") != std::string::npos) {
            ++count;
        }
    }
    uint64_t count = 0;
};

// Service-proxy answers delivered for a request id that no caller of the
// plugin's claims (its request's reply broke off, or the answer came twice):
// the plugin keeps each until a caller asks for it, which in a world that
// ended never happens. The bytes they may hold are allowed for, as the quit
// lobbies are.
struct UnclaimedAnswers : HostObserver, HostInputObserver {
    void OnDeliver(uint32_t, const std::string& pattern, const std::string&,
                   const std::string& json, bool begins) override {
        const std::string marker = "\"uuid\":\"";
        const size_t at = json.find(marker);
        if (!begins || pattern != "OnServiceProxyUuidEvent" || at == std::string::npos) {
            return;
        }
        const size_t from = at + marker.size();
        const size_t to = json.find('"', from);
        waiting[json.substr(from, to == std::string::npos ? 0 : to - from)].push_back(json.size());
    }
    void OnLog(uint32_t, uint32_t, const std::string& text) override {
        const std::string marker = "Fulfilled service proxy request: ";
        const size_t at = text.find(marker);
        if (at == std::string::npos) {
            return;
        }
        auto found = waiting.find(text.substr(at + marker.size()));
        if (found != waiting.end() && !found->second.empty()) {
            found->second.erase(found->second.begin());
        }
    }
    // Ends a world: what is still waiting stays unclaimed for good.
    uint64_t TakeUnclaimedBytes() {
        uint64_t bytes = 0;
        for (const auto& [uuid, sizes] : waiting) {
            for (size_t size : sizes) {
                bytes += 2 * size + kBytesPerUnclaimedAnswer;
            }
        }
        waiting.clear();
        return bytes;
    }
    // An answer is kept as a record of texts in a map entry: at most twice
    // the event's text (the payload unescaped, the names, the allocator's
    // rounding, the map's buckets) and a little more.
    static constexpr uint64_t kBytesPerUnclaimedAnswer = 512;
    std::map<std::string, std::vector<size_t>> waiting;
};

std::string Megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    return text;
}

}  // namespace

SoakResult RunSoak(const SoakOptions& options) {
    SoakResult result;
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(options.plugin, error);
    if (library == nullptr) {
        result.outcome = error;
        result.exitCode = 2;
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return result;
    }
    std::FILE* quiet = NullOutput();
    if (quiet == nullptr) {
        result.outcome = "no null device to write the drafts' timelines to";
        result.exitCode = 2;
        return result;
    }
    const auto started = std::chrono::steady_clock::now();
    HostClock clock(0.0);
    HostRuntime runtime(clock);
    // The plugin starts in a world of its own, and the pushes it registers
    // for there are registered again in every draft's world: the login
    // plugin that keeps them outlives the services behind it.
    PushRegistrations registrations;
    runtime.AddObserver(&registrations);
    const uint32_t plugin = runtime.Attach(*library);
    {
        StandIns first(runtime, StandInOptions{});
        first.Install();
        if (!runtime.Start(plugin)) {
            result.outcome = "the plugin refused to start";
            std::fclose(quiet);
            return result;
        }
        runtime.RunFor(1.0);
        runtime.ClearWorld();
    }
    runtime.RemoveObserver(&registrations);
    QuitLobbies quits;
    runtime.AddObserver(&quits);
    UnclaimedAnswers unclaimed;
    runtime.AddObserver(&unclaimed);
    runtime.SetInputObserver(&unclaimed);
    const auto scenarios = Simulation::Scenarios();
    // Quarters of the drafts after the warm-up: the second is compared with
    // the last.
    const size_t span = options.drafts > options.warmup ? options.drafts - options.warmup : 0;
    const size_t earlierFrom = options.warmup + span / 4;
    const size_t earlierTo = options.warmup + span / 2;
    const size_t laterFrom = options.warmup + span * 3 / 4;
    std::mt19937_64 draw(options.seed);
    std::fprintf(options.out, "soak: %zu drafts against one plugin, seed %llu%s%s\n",
                 options.drafts, static_cast<unsigned long long>(options.seed),
                 options.malformedShare > 0.0 ? ", malformed answers" : "",
                 options.faults.Any() ? (", faults " + options.faults.Text()).c_str() : "");
    uint64_t unclaimedSince100 = 0;
    for (size_t draft = 1; draft <= options.drafts; ++draft) {
        DemoOptions demo;
        demo.scenario = std::string(scenarios[draw() % scenarios.size()].name);
        demo.seed = draw() % 1000000;
        demo.speed = 0.0;
        demo.malformedShare = options.malformedShare;
        demo.faults = options.faults;
        demo.out = draft == options.showDraft ? options.out : quiet;
        demo.detail = draft == options.showDraft ? 3 : 0;
        demo.afterInstall = [&] {
            for (const RestRequest& request : registrations.requests) {
                runtime.Route(request);
            }
        };
        const uint64_t quitsBefore = quits.count;
        const DemoResult run = RunDemoIn(demo, runtime, *library, plugin);
        if (!run.success) {
            ++result.failed;
            std::fprintf(options.out, "soak: draft %zu (%s, seed %llu) failed: %s\n", draft,
                         demo.scenario.c_str(), static_cast<unsigned long long>(demo.seed),
                         run.outcome.c_str());
        }
        if (run.outcome.find("reached its end") != std::string::npos ||
            (run.success && options.malformedShare <= 0.0 && !options.faults.Any())) {
            ++result.reachedEnd;
        }
        result.faults += run.faults;

        // What a client does after a game: the game launches (the plugin
        // lets go of its DTO), then the player signs out. Then the world
        // goes, and the plugin's own timers run out.
        // The plugin clears its DTO when the game client starts running; a
        // draft may have left it running already.
        runtime.PutResource("soak", kGameflowSessionUri, "{\"gameClient\":{\"running\":false}}");
        runtime.RunFor(1.0);
        runtime.PutResource("soak", kGameflowSessionUri, "{\"gameClient\":{\"running\":true}}");
        runtime.RunFor(1.0);
        runtime.PutResource("soak", kGameflowSessionUri, "{\"gameClient\":{\"running\":false}}");
        runtime.DeleteResource(kLoginSessionUri);
        runtime.RunFor(1.0);
        runtime.ClearWorld();
        runtime.RunFor(kQuietSeconds);

        const std::optional<MemoryStatistics> memory = runtime.Memory(plugin);
        const uint64_t live = memory ? memory->bytesAllocated - memory->bytesFreed : 0;
        // What the plugin holds between drafts varies with the last draft
        // (its last session, search and premade state are kept by design)
        // and every lobby the player quit is kept for good; nothing else may
        // grow.
        const bool quit = quits.count != quitsBefore;
        if (draft > earlierFrom && draft <= earlierTo) {
            result.earlier.Add(static_cast<int64_t>(live));
        }
        if (draft > laterFrom) {
            result.later.Add(static_cast<int64_t>(live));
        }
        if (quit && draft > earlierTo) {
            ++result.quitDraftsLater;
        }
        const uint64_t unclaimedBytes = unclaimed.TakeUnclaimedBytes();
        if (draft > earlierTo) {
            result.unclaimedBytesLater += unclaimedBytes;
        }
        unclaimedSince100 += draft > 100 ? unclaimedBytes : 0;
        if (quit) {
            ++result.quitDrafts;
        }
        if (Reported(draft, options.drafts)) {
            const SoakSample sample{draft, live, ResidentBytes(), unclaimedSince100};
            result.samples.push_back(sample);
            std::fprintf(options.out, "soak: after draft %zu: live %llu bytes, resident %s\n",
                         draft, static_cast<unsigned long long>(live),
                         Megabytes(sample.residentBytes).c_str());
            std::fflush(options.out);
        }
    }
    runtime.RemoveObserver(&quits);
    runtime.RemoveObserver(&unclaimed);
    runtime.SetInputObserver(nullptr);
    runtime.Destroy(plugin);
    std::fclose(quiet);
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    // Flat: the least the plugin held after a draft of the last quarter is
    // no more than the least it held in the second quarter, but for the
    // lobbies quit and the answers left unclaimed in between, and a little
    // slack; a leak raises that floor, what varies from draft to draft (the
    // last session, the answers that wait for a caller) does not. The resident memory of the
    // process stays within a quarter of what it was at draft 100.
    const int64_t allowance = static_cast<int64_t>(result.quitDraftsLater) * kBytesPerQuitLobby +
                              static_cast<int64_t>(result.unclaimedBytesLater);
    const bool liveFlat = result.earlier.count == 0 || result.later.count == 0 ||
                          result.later.min <= result.earlier.min + allowance + kFloorSlack;
    bool residentFlat = true;
    uint64_t residentAt100 = 0;
    for (const SoakSample& sample : result.samples) {
        if (sample.draft == 100) {
            residentAt100 = sample.residentBytes;
        }
        if (residentAt100 > 0 &&
            sample.residentBytes > residentAt100 + residentAt100 / 4 + sample.unclaimedSince100) {
            residentFlat = false;
        }
    }
    result.exitCode = result.failed == 0 && liveFlat && residentFlat ? 0 : 1;
    char summary[640];
    std::snprintf(
        summary, sizeof summary,
        "%zu drafts in %.1f s, %zu failed, %zu reached their end, %llu faults; live "
        "bytes %lld to %lld in drafts %zu to %zu, %lld to %lld from draft %zu on (%zu "
        "lobbies quit and %llu bytes of unclaimed answers since, up to %lld bytes kept for them); "
        "resident memory %s",
        options.drafts, result.seconds, result.failed, result.reachedEnd,
        static_cast<unsigned long long>(result.faults), static_cast<long long>(result.earlier.min),
        static_cast<long long>(result.earlier.max), earlierFrom + 1, earlierTo,
        static_cast<long long>(result.later.min), static_cast<long long>(result.later.max),
        laterFrom + 1, result.quitDraftsLater,
        static_cast<unsigned long long>(result.unclaimedBytesLater),
        static_cast<long long>(allowance), residentFlat ? "flat" : "grew");
    result.outcome = summary;
    std::fprintf(options.out, "%s %s\n", result.exitCode == 0 ? "PASS" : "FAIL", summary);
    return result;
}

}  // namespace Orvan::Host
