// The DTO intake against the real plugin: each input is one service message
// pushed through the service-proxy event, usually a game DTO, to a plugin
// that keeps everything the earlier inputs left (its stored DTO, the
// session, the inventory, the timers). After it, time may pass (the
// plugin's timers fire) and the read routes are asked: lobby, countdown,
// search, session and its timer answer a value or their 404, never anything
// else.
//
// Input: a message byte, a step byte, then the payload text. The message
// byte picks the pushed method (mostly "tbdGameDtoV1"); the step byte's bits
// say whether to let time pass and whether to read the routes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/support/FuzzInput.h"
#include "fuzz/teambuilder/PluginUnderFuzz.h"

namespace {

using namespace Orvan::Fuzzing;

using namespace Orvan::Client::LobbyTeamBuilder;

// The DTO four times in eight, so most inputs reach the intake.
constexpr std::string_view kMethods[] = {
    kGameDtoMethod,
    kGameDtoMethod,
    kGameDtoMethod,
    kGameDtoMethod,
    kRemovedFromServiceMethod,
    kGatekeeperRestrictedMethod,
    kGameStartFailedMethod,
    kQuitguardAbandonedMethod,
};

struct Read {
    const char* uri;
    uint16_t allowed;  // besides 200
};

// The read routes whose only failure is a 404.
constexpr Read kReads[] = {
    {"/qel-lobby-team-builder/v1/lobby", 404},
    {"/qel-lobby-team-builder/v1/lobby/countdown", 404},
    {"/qel-lobby-team-builder/v1/matchmaking", 0},
    {"/qel-lobby-team-builder/champ-select/v1/session", 404},
    {"/qel-lobby-team-builder/champ-select/v1/session/timer", 404},
    {"/qel-lobby-team-builder/champ-select/v1/implementation-active", 0},
};

// Lists whose computation may also fail on a broken inventory.
constexpr const char* kLists[] = {
    "/qel-lobby-team-builder/champ-select/v1/pickable-champions",
    "/qel-lobby-team-builder/champ-select/v1/bannable-champions",
    "/qel-lobby-team-builder/champ-select/v1/disabled-champions",
    "/qel-lobby-team-builder/champ-select/v1/pickable-skins",
    "/qel-lobby-team-builder/champ-select/v1/session/trades",
    "/qel-lobby-team-builder/champ-select/v1/team-boost",
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PluginUnderFuzz& plugin = PluginUnderFuzz::Instance();
    TestHost& host = plugin.Host();
    FuzzInput input(data, size);
    const std::string_view method = kMethods[input.Pick(std::size(kMethods))];
    const uint8_t step = input.Byte();
    const std::string payload = input.Rest();

    host.Deliver("OnServiceProxyAsyncEvent", ProxyMessage(method, payload));
    host.Pump();
    if ((step & 1) != 0) {
        // Up to a minute: long enough for the ceremony and UX timers.
        host.AdvanceSeconds(static_cast<double>(step >> 2));
    }
    if ((step & 2) != 0) {
        for (const Read& read : kReads) {
            const TestHost::CallResult result = host.Call("GET", read.uri);
            if (!result.endpointFound ||
                (result.status != 200 && (read.allowed == 0 || result.status != read.allowed))) {
                std::fprintf(stderr, "GET %s answered %u \"%s\"\n", read.uri, result.status,
                             result.error.c_str());
                std::abort();
            }
        }
        for (const char* uri : kLists) {
            (void)host.Call("GET", uri);
        }
    }
    plugin.Trim();
    return 0;
}
