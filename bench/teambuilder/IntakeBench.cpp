// A lobby DTO pushed by the team-builder service, from the host's event (the
// payload as JSON text) to the resource events the plugin emits, through the
// plugin's shared object and its C interface. The reference is RapidJSON's
// Document::Parse of the same payload, measured in the same run.
//
//   steady: the same lobby again (a timer tick): one countdown event;
//   changed: two lobbies in turn (a member comes and goes): the lobby event,
//            two countdown events and, with the member, a new search.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/teambuilder/PushedDtos.h"
#include "framework/binding/BindingProperty.h"
#include "teambuilder/common/LobbyRecords.h"

namespace {

using namespace Orvan::Client::LobbyTeamBuilder;
using namespace Orvan::Client::LobbyTeamBuilder::Api;
using Orvan::Bench::DtoPayload;
using Orvan::Bench::emittedEvents;
using Orvan::Bench::PushedDtos;
using Orvan::Framework::BindingProperty;

// A full five-member lobby as the service sends it; `members` of them present.
std::string LobbyPayload(int members) {
    static const char* const kPositions[] = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY"};
    TbdGameDtoV1 dto;
    dto.counter = 41;
    dto.phaseName = "DRAFT_PREMADE";
    dto.queueId = 420;
    TbLobbyPremadeStateResource premade;
    premade.timer = 86000;
    premade.draftPremadeId = "5f0c9a8e-1d2b-4c3d-9e8f-0a1b2c3d4e5f";
    premade.premadeChatRoomId = "tb-5f0c9a8e-1d2b-4c3d-9e8f-0a1b2c3d4e5f";
    premade.captainSlotId = 0;
    premade.showPositionSelector = true;
    premade.showPositionExcluder = true;
    premade.readyToMatchmake = members == 5;
    premade.playableDraftPositions = {"TOP", "JUNGLE", "MIDDLE", "BOTTOM", "UTILITY", "FILL"};
    premade.localPlayerSlotId = 0;
    premade.autoFillEligible = true;
    premade.readyState.allowablePremadeSizes = {1, 2, 3, 5};
    for (int i = 0; i < members; ++i) {
        TbLobbySlotResource slot;
        slot.slotId = i;
        slot.summonerName = "Summoner Number " + std::to_string(i + 1);
        slot.summonerId = 2100000000ull + static_cast<uint64_t>(i) * 7919;
        slot.draftPositionPreferences = {kPositions[i], kPositions[(i + 2) % 5]};
        slot.excludedPositionPreference = kPositions[(i + 4) % 5];
        slot.showPositionExcluder = true;
        slot.autoFillEligible = i % 2 == 0;
        slot.autoFillProtectedForPromos = i == 3;
        premade.draftSlots.push_back(slot);
    }
    dto.premadeState = premade;
    return DtoPayload(dto);
}

void BM_RapidJsonParse(benchmark::State& state) {
    const std::string payload = LobbyPayload(5);
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(payload.c_str());
        benchmark::DoNotOptimize(document.IsObject());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload.size()));
}
BENCHMARK(BM_RapidJsonParse);

void BM_IntakeSteadyLobby(benchmark::State& state) {
    const std::string payload = LobbyPayload(5);
    PushedDtos dtos({payload});
    dtos.Push(0);
    dtos.Push(0);
    emittedEvents = 0;
    for (auto _ : state) {
        dtos.Push(0);
    }
    state.counters["events"] = benchmark::Counter(static_cast<double>(emittedEvents) / 2,
                                                  benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload.size()));
}
BENCHMARK(BM_IntakeSteadyLobby);

void BM_IntakeChangedLobby(benchmark::State& state) {
    const std::vector<std::string> payloads = {LobbyPayload(5), LobbyPayload(4)};
    PushedDtos dtos(payloads);
    dtos.Push(0);
    dtos.Push(1);
    emittedEvents = 0;
    size_t next = 0;
    for (auto _ : state) {
        dtos.Push(next);
        next ^= 1;
    }
    state.counters["events"] = benchmark::Counter(static_cast<double>(emittedEvents) / 2,
                                                  benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payloads[0].size()));
}
BENCHMARK(BM_IntakeChangedLobby);

}  // namespace
