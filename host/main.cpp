// qel-host: the stand-in plugin host. See Usage() for the commands.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Demo.h"
#include "host/HostRuntime.h"
#include "host/OpenApi.h"
#include "host/PluginLibrary.h"
#include "host/Replay.h"
#include "host/Serve.h"
#include "host/SessionRecord.h"
#include "host/Soak.h"
#include "host/StandIns.h"
#include "host/Timeline.h"
#include "sim/Scenario.h"
#include "sim/ServiceSimulator.h"

namespace {

using namespace Orvan::Host;

void Usage(std::FILE* out) {
    std::fprintf(out,
                 "qel-host: a stand-in plugin host for the team-builder plugin.\n"
                 "\n"
                 "usage:\n"
                 "  qel-host demo [--scenario NAME] [--speed FACTOR|max] [--seed N] [--json]\n"
                 "                [-q|-v|-vv] [--malformed SHARE] [--faults LIST] [--memory]\n"
                 "                [--record FILE] [PLUGIN OPTIONS]\n"
                 "      plays a scenario through the plugin and prints its timeline; exits 0\n"
                 "      only when the scenario reached its expected end (with --malformed\n"
                 "      or --faults: when host and plugin survived, and with --faults the\n"
                 "      published lobby, search and session agree with the plugin)\n"
                 "  qel-host serve [--port N] [--scenario NAME] [--speed FACTOR] [--seed N]\n"
                 "                 [--allow-origin ORIGIN]... [--faults LIST] [-q|-v|-vv]\n"
                 "                 [--record FILE] [PLUGIN OPTIONS]\n"
                 "      serves the plugin's REST API and its events on 127.0.0.1 while the\n"
                 "      scenario's world runs; you are the local player. Prints one line,\n"
                 "      serving http://127.0.0.1:PORT/?token=TOKEN, and runs until SIGINT\n"
                 "      or SIGTERM\n"
                 "  qel-host replay FILE [--plugin PATH] [--json] [--keep-going]\n"
                 "      plays a session recorded with --record against the plugin, without\n"
                 "      the simulator, and compares every output; exits 0 when all match,\n"
                 "      1 at a divergence (the first, or all with --keep-going), 2 when the\n"
                 "      file is not a usable session. The plugin is offered the core version\n"
                 "      of the recording unless --core-version says otherwise\n"
                 "  qel-host soak [--drafts N] [--warmup N] [--seed N] [--malformed SHARE]\n"
                 "                [--faults LIST] [--show-draft N] [PLUGIN OPTIONS]\n"
                 "      plays N drafts (default 1000) of mixed scenarios and seeds at full\n"
                 "      speed against one plugin, a new world for each; exits 0 when every\n"
                 "      draft passed and the plugin's live bytes and the resident memory\n"
                 "      stayed flat after the warm-up (default 10 drafts)\n"
                 "  qel-host openapi [PLUGIN OPTIONS]\n"
                 "      prints the plugin's API as an OpenAPI 3.1 document\n"
                 "  qel-host scenarios          lists the scenarios\n"
                 "  qel-host info [PLUGIN OPTIONS]\n"
                 "      loads the plugin and lists its endpoints, types and events\n"
                 "  qel-host request METHOD PATH [BODY] [--content-type TYPE] [PLUGIN OPTIONS]\n"
                 "      signs in, sends one request to the plugin (or a stand-in) and prints\n"
                 "      the reply; exits 0 for a 2xx status\n"
                 "\n"
                 "plugin options:\n"
                 "  --plugin PATH        the plugin's shared object (default: the one built\n"
                 "                       beside this program)\n"
                 "  --entry NAME         its entry (default: from the file name)\n"
                 "  --core-version X.Y.Z the plugin API the host offers (default 18.0.0)\n"
                 "\n"
                 "demo options:\n"
                 "  --speed FACTOR  simulated seconds per real second (default 3: a draft in\n"
                 "                  about a minute); max runs as fast as possible\n"
                 "  --seed N        the simulated players' choices (default 1)\n"
                 "  --json          one JSON object per timeline line\n"
                 "  -q, -v, -vv     less detail; the plugin's calls and warnings; everything\n"
                 "  --malformed S   share (0..1) of service answers damaged on purpose\n"
                 "  --faults LIST   the host misbehaves on purpose, KIND=SHARE[,...] with\n"
                 "                  kinds request-fail, stream-fail, duplicate-event,\n"
                 "                  late-event, late-delay (also for serve)\n"
                 "  --memory        the plugin's memory statistics at the end\n"
                 "  --record FILE   writes the session (everything between host and plugin,\n"
                 "                  JSON Lines) for qel-host replay; also for serve\n"
                 "\n"
                 "serve options:\n"
                 "  --port N              the port on 127.0.0.1 (default 0: a free one)\n"
                 "  --speed FACTOR        the world's clock (default 1: real time)\n"
                 "  --allow-origin ORIGIN a web origin besides the gateway's own that may\n"
                 "                        call it from a browser (repeatable)\n"
                 "  --token TEXT          a fixed access token (default: a new random one)\n"
                 "  --idle-timeout S      seconds before an idle connection is closed (30)\n"
                 "  -q, -v, -vv           the host's timeline on standard error: none,\n"
                 "                        more, everything (default: the usual lines)\n");
}

struct Arguments {
    std::vector<std::string> positional;
    DemoOptions demo;
    ServeOptions serve;
    SoakOptions soak;
    bool speedGiven = false;
    std::string record;
    bool keepGoing = false;
    bool coreVersionGiven = false;
    std::string contentType = "application/json";
    std::string error;
};

bool ParseVersion(const std::string& text, PluginLoadOptions& plugin) {
    unsigned major = 0, minor = 0, patch = 0;
    char extra = 0;
    if (std::sscanf(text.c_str(), "%u.%u.%u%c", &major, &minor, &patch, &extra) != 3) {
        return false;
    }
    plugin.major = major;
    plugin.minor = minor;
    plugin.patch = patch;
    return true;
}

Arguments Parse(int argc, char** argv) {
    Arguments args;
    args.demo.plugin.path = DefaultPluginPath();
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                args.error = arg + " needs a value";
                return {};
            }
            return argv[++i];
        };
        if (arg == "--scenario") {
            args.demo.scenario = value();
        } else if (arg == "--speed") {
            const std::string text = value();
            char* end = nullptr;
            const double speed = std::strtod(text.c_str(), &end);
            if (text == "max") {
                args.demo.speed = 0.0;
            } else if (end == text.c_str() || *end != '\0' || !(speed > 0.0)) {
                args.error = "--speed needs a positive number or max";
            } else {
                args.demo.speed = speed;
            }
            args.speedGiven = true;
        } else if (arg == "--seed") {
            const std::string text = value();
            char* end = nullptr;
            args.demo.seed = std::strtoull(text.c_str(), &end, 10);
            if (end == text.c_str() || *end != '\0') {
                args.error = "--seed needs a whole number";
            }
        } else if (arg == "--json") {
            args.demo.json = true;
        } else if (arg == "-q" || arg == "--quiet") {
            args.demo.detail = 0;
        } else if (arg == "-v") {
            args.demo.detail = 2;
        } else if (arg == "-vv") {
            args.demo.detail = 3;
        } else if (arg == "--malformed") {
            const std::string text = value();
            char* end = nullptr;
            const double share = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end != '\0' || share < 0.0 || share > 1.0) {
                args.error = "--malformed needs a share between 0 and 1";
            }
            args.demo.malformedShare = share;
        } else if (arg == "--record") {
            args.record = value();
        } else if (arg == "--keep-going") {
            args.keepGoing = true;
        } else if (arg == "--faults") {
            if (std::optional<FaultPlan> faults = ParseFaultPlan(value(), args.error)) {
                args.demo.faults = *faults;
            }
        } else if (arg == "--memory") {
            args.demo.memory = true;
        } else if (arg == "--plugin") {
            args.demo.plugin.path = value();
        } else if (arg == "--entry") {
            args.demo.plugin.entryName = value();
        } else if (arg == "--core-version") {
            args.coreVersionGiven = true;
            if (!ParseVersion(value(), args.demo.plugin)) {
                args.error = "--core-version needs MAJOR.MINOR.PATCH";
            }
        } else if (arg == "--port") {
            const std::string text = value();
            char* end = nullptr;
            const unsigned long port = std::strtoul(text.c_str(), &end, 10);
            if (end == text.c_str() || *end != '\0' || port > 65535) {
                args.error = "--port needs a number from 0 to 65535";
            }
            args.serve.port = static_cast<uint16_t>(port);
        } else if (arg == "--allow-origin") {
            args.serve.allowedOrigins.push_back(value());
        } else if (arg == "--token") {
            args.serve.token = value();
            if (args.error.empty() && args.serve.token.empty()) {
                args.error = "--token needs a non-empty text";
            }
        } else if (arg == "--idle-timeout") {
            const std::string text = value();
            char* end = nullptr;
            const double seconds = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end != '\0' || !(seconds > 0.0)) {
                args.error = "--idle-timeout needs a positive number of seconds";
            }
            args.serve.limits.idleSeconds = seconds;
        } else if (arg == "--show-draft") {
            args.soak.showDraft = std::strtoull(value().c_str(), nullptr, 10);
        } else if (arg == "--drafts" || arg == "--warmup") {
            const std::string text = value();
            char* end = nullptr;
            const unsigned long long count = std::strtoull(text.c_str(), &end, 10);
            if (end == text.c_str() || *end != '\0' || count == 0) {
                args.error = arg + " needs a positive whole number";
            }
            (arg == "--drafts" ? args.soak.drafts : args.soak.warmup) = count;
        } else if (arg == "--content-type") {
            args.contentType = value();
        } else if (arg == "-h" || arg == "--help") {
            args.positional.insert(args.positional.begin(), "help");
        } else if (arg.size() > 1 && arg[0] == '-' && args.positional.size() < 2) {
            args.error = "unknown option " + arg;
        } else {
            args.positional.push_back(arg);
        }
        if (!args.error.empty()) {
            break;
        }
    }
    return args;
}

int Scenarios() {
    for (const Orvan::Simulation::ScenarioDefinition& scenario : Orvan::Simulation::Scenarios()) {
        std::printf("%-13s %s\n%-13s expected: %s\n", std::string(scenario.name).c_str(),
                    std::string(scenario.summary).c_str(), "",
                    std::string(scenario.expectedEnd).c_str());
    }
    return 0;
}

int Info(const Arguments& args) {
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(args.demo.plugin, error);
    if (library == nullptr) {
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return 2;
    }
    std::printf("%s\n  short name %s, plugin API %s, entry %s\n", library->Path().c_str(),
                library->ShortName().c_str(), library->VersionText().c_str(),
                library->EntryName().c_str());
    const auto endpoints = library->Endpoints();
    std::printf("  %zu endpoints:\n", endpoints.size());
    for (const EndpointRecord* endpoint : endpoints) {
        const char* name = endpoint->function.name != nullptr ? endpoint->function.name : "";
        const char* path = endpoint->urlTemplate != nullptr && *endpoint->urlTemplate != '\0'
                               ? endpoint->urlTemplate
                               : name;
        std::printf("    %-7s %s\n", std::string(MethodName(endpoint->method)).c_str(), path);
    }
    std::printf("  %u types, %u events\n", library->TypeCount(), library->EventCount());
    const PluginApiDescriptor* api = library->Record().apiDescriptor;
    for (uint32_t i = 0; api != nullptr && api->events != nullptr && i < api->eventCount; ++i) {
        const EventRecord& event = api->events[i];
        std::printf("    event %s (%s)\n", event.name != nullptr ? event.name : "",
                    event.payloadTypeName != nullptr ? event.payloadTypeName : "");
    }
    HostClock clock(0.0);
    HostRuntime runtime(clock);
    const uint32_t plugin = runtime.Attach(*library);
    if (auto memory = runtime.Memory(plugin)) {
        std::printf("  memory after load: %llu bytes live at peak, %llu allocations\n",
                    static_cast<unsigned long long>(memory->peakLiveBytes),
                    static_cast<unsigned long long>(memory->allocations));
    }
    runtime.Destroy(plugin);
    return 0;
}

int Request(const Arguments& args) {
    if (args.positional.size() < 3) {
        std::fprintf(stderr, "qel-host: request needs METHOD and PATH\n");
        return 2;
    }
    const uint32_t method = MethodCode(args.positional[1]);
    if (method == 0) {
        std::fprintf(stderr, "qel-host: unknown method %s\n", args.positional[1].c_str());
        return 2;
    }
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(args.demo.plugin, error);
    if (library == nullptr) {
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return 2;
    }
    HostClock clock(0.0);
    HostRuntime runtime(clock);
    Timeline timeline(stdout, args.demo.json, args.demo.detail, [&] { return clock.Now(); });
    runtime.AddObserver(&timeline);
    StandIns standIns(runtime, StandInOptions{});
    Orvan::Simulation::ServiceSimulator services(standIns,
                                                 *Orvan::Simulation::FindScenario("draft"));
    standIns.SetServices(&services);
    standIns.SetNarrator(
        [&](std::string_view who, const std::string& what) { timeline.Note(who, what); });
    standIns.Install();
    const uint32_t plugin = runtime.Attach(*library);
    if (!runtime.Start(plugin)) {
        std::fprintf(stderr, "qel-host: the plugin refused to start\n");
        return 1;
    }
    standIns.SignIn();
    runtime.RunFor(1.0);
    RestRequest request;
    request.method = method;
    request.uri = args.positional[2];
    request.functionName = method == kHostMethodDirectCall ? args.positional[2] : "";
    if (args.positional.size() > 3) {
        request.hasBody = true;
        request.body = args.positional[3];
        request.contentType = args.contentType;
    }
    const RestReply reply = runtime.Route(request);
    timeline.Rest("you", request, reply);
    runtime.RunFor(1.0);
    std::printf("%u %s\n%s\n", reply.status, reply.failed ? reply.error.c_str() : "OK",
                reply.body.c_str());
    runtime.Destroy(plugin);
    runtime.RemoveObserver(&timeline);
    return reply.Ok() ? 0 : 1;
}

// Opens the recorder when --record was given; false after printing why not.
bool OpenRecorder(const Arguments& args, const std::string& command, const std::string& options,
                  SessionRecorder& recorder) {
    if (args.record.empty()) {
        return true;
    }
    SessionHeader header;
    header.command = command;
    header.scenario = args.demo.scenario;
    header.seed = args.demo.seed;
    header.optionsJson = options;
    std::string error;
    if (!recorder.Open(args.record, header, error)) {
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return false;
    }
    return true;
}

int CloseRecorder(const Arguments& args, SessionRecorder& recorder, int status) {
    std::string error;
    if (!args.record.empty() && !recorder.Close(error)) {
        std::fprintf(stderr, "qel-host: %s: %s\n", args.record.c_str(), error.c_str());
        return 2;
    }
    return status;
}

std::string CoreVersion(const PluginLoadOptions& plugin) {
    return std::to_string(plugin.major) + "." + std::to_string(plugin.minor) + "." +
           std::to_string(plugin.patch);
}

int Replay(const Arguments& args) {
    if (args.positional.size() != 2) {
        std::fprintf(stderr, "qel-host: replay needs one FILE (see qel-host --help)\n");
        return 2;
    }
    ReplayOptions options;
    options.path = args.positional[1];
    options.plugin = args.demo.plugin;
    options.recordedCoreVersion = !args.coreVersionGiven;
    options.json = args.demo.json;
    options.keepGoing = args.keepGoing;
    return RunReplay(options);
}

}  // namespace

int main(int argc, char** argv) {
    if (const int probeStatus = PluginLibrary::RunProbeChild(argc, argv); probeStatus >= 0) {
        return probeStatus;
    }
    Arguments args = Parse(argc, argv);
    if (!args.error.empty()) {
        std::fprintf(stderr, "qel-host: %s (see qel-host --help)\n", args.error.c_str());
        return 2;
    }
    const std::string command = args.positional.empty() ? "help" : args.positional[0];
    if (command == "help") {
        Usage(stdout);
        return 0;
    }
    if (command == "demo") {
        SessionRecorder recorder;
        const std::string options =
            "{\"speed\":" + (args.demo.speed > 0.0 ? std::to_string(args.demo.speed) : "\"max\"") +
            ",\"malformed\":" + std::to_string(args.demo.malformedShare) + ",\"core\":\"" +
            CoreVersion(args.demo.plugin) + "\"}";
        if (!OpenRecorder(args, "demo", options, recorder)) {
            return 2;
        }
        args.demo.recorder = args.record.empty() ? nullptr : &recorder;
        return CloseRecorder(args, recorder, RunDemo(args.demo).exitCode);
    }
    if (command == "replay") {
        return Replay(args);
    }
    if (command == "serve") {
        ServeOptions& serve = args.serve;
        serve.scenario = args.demo.scenario;
        serve.seed = args.demo.seed;
        serve.plugin = args.demo.plugin;
        serve.detail = args.demo.detail;
        serve.faults = args.demo.faults;
        if (args.speedGiven) {
            if (args.demo.speed <= 0.0) {
                std::fprintf(stderr,
                             "qel-host: serve needs a positive --speed (max would let the "
                             "world's timers run out before anyone could answer)\n");
                return 2;
            }
            serve.speed = args.demo.speed;
        }
        SessionRecorder recorder;
        const std::string options = "{\"speed\":" + std::to_string(serve.speed) + ",\"core\":\"" +
                                    CoreVersion(serve.plugin) + "\"}";
        if (!OpenRecorder(args, "serve", options, recorder)) {
            return 2;
        }
        serve.recorder = args.record.empty() ? nullptr : &recorder;
        return CloseRecorder(args, recorder, RunServe(serve));
    }
    if (command == "soak") {
        SoakOptions& soak = args.soak;
        soak.seed = args.demo.seed;
        soak.malformedShare = args.demo.malformedShare;
        soak.faults = args.demo.faults;
        soak.plugin = args.demo.plugin;
        return RunSoak(soak).exitCode;
    }
    if (command == "openapi") {
        return PrintOpenApi(args.demo.plugin, stdout);
    }
    if (command == "scenarios") {
        return Scenarios();
    }
    if (command == "info") {
        return Info(args);
    }
    if (command == "request") {
        return Request(args);
    }
    std::fprintf(stderr, "qel-host: unknown command %s (see qel-host --help)\n", command.c_str());
    return 2;
}
