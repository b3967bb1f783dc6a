#include "host/Serve.h"

#include <filesystem>
#include <memory>

#include "host/Gateway.h"
#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/OpenApi.h"
#include "host/SessionRecord.h"
#include "host/StandIns.h"
#include "host/Timeline.h"
#include "sim/Catalog.h"
#include "sim/Scenario.h"
#include "sim/ServiceSimulator.h"

namespace Orvan::Host {

namespace {

// The world's state a client cannot read from the plugin: the scenario, and
// the invitation a friend's lobby waits on.
std::string WorldJson(const ServeOptions& options, const Simulation::ServiceSimulator& services,
                      const HostClock& clock) {
    std::string json =
        "{\"scenario\":" + QuoteJson(options.scenario) +
        ",\"seed\":" + std::to_string(options.seed) +
        ",\"speed\":" + std::to_string(options.speed) +
        ",\"clock\":" + std::to_string(clock.Now()) +
        ",\"servicePhase\":" + QuoteJson(services.PhaseName()) +
        ",\"localSummonerId\":" + std::to_string(services.Options().localSummonerId) +
        ",\"invitation\":";
    if (auto invitation = services.PendingInvitation()) {
        json += "{\"draftPremadeId\":" + QuoteJson(invitation->draftPremadeId) +
                ",\"fromName\":" + QuoteJson(invitation->fromName) +
                ",\"fromSummonerId\":" + std::to_string(invitation->fromSummonerId) + "}";
    } else {
        json += "null";
    }
    return json + "}";
}

}  // namespace

std::string DefaultConsoleFolder() {
#ifdef QEL_HOST_CONSOLE_FOLDER
    return QEL_HOST_CONSOLE_FOLDER;
#else
    return {};
#endif
}

int RunServe(const ServeOptions& options) {
    const Simulation::ScenarioDefinition* scenario = Simulation::FindScenario(options.scenario);
    if (scenario == nullptr) {
        std::fprintf(options.log, "qel-host: unknown scenario \"%s\"\n", options.scenario.c_str());
        return 2;
    }
    std::string error;
    // Kept until exit: the module may be referenced until the process ends.
    static std::vector<std::unique_ptr<PluginLibrary>> libraries;
    std::unique_ptr<PluginLibrary> loaded = PluginLibrary::Load(options.plugin, error);
    if (loaded == nullptr) {
        std::fprintf(options.log, "qel-host: %s\n", error.c_str());
        return 2;
    }
    libraries.push_back(std::move(loaded));
    PluginLibrary& library = *libraries.back();

    HostClock clock(options.speed);
    HostRuntime runtime(clock);
    Timeline timeline(options.log, false, options.detail, [&] { return clock.Now(); });
    if (options.detail > 0) {
        runtime.AddObserver(&timeline);
    }
    StandIns standIns(runtime, StandInOptions{});
    Simulation::SimOptions sim;
    sim.seed = options.seed;
    Simulation::ServiceSimulator services(standIns, *scenario, sim);
    standIns.SetServices(&services);
    standIns.SetNarrator(
        [&](std::string_view who, const std::string& what) { timeline.Note(who, what); });
    standIns.Install();
    NameBook names;
    names.player = [&](uint64_t id) {
        return id == services.Options().localSummonerId ? std::string("you")
                                                        : services.PlayerName(id);
    };
    names.champion = [](int64_t id) {
        return std::string(Simulation::ChampionName(static_cast<int32_t>(id)));
    };
    timeline.SetNames(names);
    const uint32_t plugin = runtime.Attach(library);
    if (options.recorder != nullptr) {
        options.recorder->Attach(runtime, library, plugin);
    }
    // Ends the recording before the runtime goes, on every way out.
    const SessionRecorder::Follow following(options.recorder);
    if (!runtime.Start(plugin)) {
        std::fprintf(options.log, "qel-host: the plugin refused to start\n");
        return 1;
    }
    std::unique_ptr<FaultInjector> faults;
    if (options.faults.Any()) {
        faults = std::make_unique<FaultInjector>(options.faults, options.seed);
        runtime.SetFaults(faults.get());
    }
    standIns.SignIn();
    services.Start();

    GatewayOptions gatewayOptions;
    gatewayOptions.port = options.port;
    gatewayOptions.token = options.token.empty() ? NewGatewayToken() : options.token;
    gatewayOptions.allowedOrigins = options.allowedOrigins;
    gatewayOptions.limits = options.limits;
    gatewayOptions.consoleFolder = DefaultConsoleFolder();
    GatewayPages pages;
    pages.openApi = [&]() -> std::string {
        std::string reason;
        std::optional<std::string> help = FetchApiHelp(runtime, reason);
        if (!help) {
            std::fprintf(options.log, "qel-host: no API description: %s\n", reason.c_str());
            return {};
        }
        OpenApiOptions document;
        document.title = library.ShortName();
        document.version = library.VersionText();
        std::string text = BuildOpenApiDocument(library, *help, document, reason);
        if (text.empty()) {
            std::fprintf(options.log, "qel-host: no API description: %s\n", reason.c_str());
        }
        return text;
    };
    pages.world = [&] { return WorldJson(options, services, clock); };
    if (options.detail > 0) {
        pages.calling = [&](const RestRequest& request) { timeline.RestBegin("you", request); };
        pages.called = [&](const RestRequest& request, const RestReply& reply) {
            timeline.Rest("you", request, reply);
        };
    }
    if (options.observer != nullptr) {
        runtime.AddObserver(options.observer);
    }
    Gateway gateway(runtime, gatewayOptions, pages);
    if (!gateway.Listen(error)) {
        std::fprintf(options.log, "qel-host: %s\n", error.c_str());
        runtime.Destroy(plugin);
        return 2;
    }
    bool stopping = false;
    gateway.Server().OnStopSignal([&] { stopping = true; });
    std::fprintf(options.out, "serving %s\n", gateway.Url().c_str());
    std::fflush(options.out);
    if (options.listening) {
        options.listening(gateway.Port(), gatewayOptions.token);
    }
    auto stopped = [&] { return stopping || (options.stop != nullptr && options.stop->load()); };

    // Requests are answered here, outside any plugin call; host turns (and
    // the plugin's own waits) keep the sockets moving in between.
    while (!stopped()) {
        bool worked = gateway.DispatchQueued();
        worked = runtime.Turn() || worked;
        gateway.Tick();
        if (!worked && !stopped()) {
            runtime.Pause(0.05);
        }
    }
    runtime.SetFaults(nullptr);
    runtime.Destroy(plugin);
    runtime.RemoveObserver(&timeline);
    if (options.observer != nullptr) {
        runtime.RemoveObserver(options.observer);
    }
    std::fprintf(options.log, "qel-host: stopped\n");
    return 0;
}

}  // namespace Orvan::Host
