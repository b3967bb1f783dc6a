// Champion-select game records pushed through the stand-in host into the
// real plugin (host JSON to HostValue, event delivery, the plugin's intake
// and resource publishing), one record per iteration, beside
// rapidjson::Document::Parse of the same payloads as the reference.
// Each benchmark also reports the median and 99th percentile of one
// iteration (p50_us, p99_us).
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/Demo.h"
#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/StandIns.h"
#include "sim/Catalog.h"
#include "sim/ServiceSimulator.h"

namespace {

using namespace Orvan;

// Collects the champion-select records a scripted game produces.
class Recorder : public Simulation::SimEnvironment {
public:
    double Now() const override { return now_; }
    void After(double seconds, std::string, std::function<void()> task) override {
        tasks_.emplace(std::make_pair(now_ + std::max(0.0, seconds), next_++), std::move(task));
    }
    void Push(std::string_view, std::string_view method, std::string payload) override {
        if (method == "tbdGameDtoV1") {
            records_.push_back(std::move(payload));
        }
    }
    void Narrate(std::string_view, std::string) override {}
    void StartGame() override { over_ = true; }
    void InterruptConnection(double) override {}

    void RunUntil(const std::function<bool()>& done) {
        while (!done() && !tasks_.empty()) {
            auto task = tasks_.begin();
            now_ = std::max(now_, task->first.first);
            auto run = std::move(task->second);
            tasks_.erase(task);
            run();
        }
    }

    std::vector<std::string> records_;
    bool over_ = false;

private:
    double now_ = 0.0;
    uint64_t next_ = 0;
    std::map<std::pair<double, uint64_t>, std::function<void()>> tasks_;
};

const std::vector<std::string>& ChampSelectRecords() {
    static const std::vector<std::string> records = [] {
        Recorder world;
        Simulation::ServiceSimulator services(world, *Simulation::FindScenario("draft"));
        auto call = [&](const char* method, const std::string& payload) {
            return services.Handle({"teambuilder-draft", method, payload, "", ""});
        };
        call("createDraftPremadeV1", "62");
        call("specifyDraftPositionPreferencesV1",
             "{\"firstPreference\":\"MIDDLE\",\"secondPreference\":\"TOP\"}");
        world.RunUntil([&] { return world.records_.size() >= 2; });
        call("startMatchmakingV1", "{}");
        // Accept each ready check once; the local player then never acts, so
        // champion select runs on its timers. The record count bounds a story
        // that never reaches the game start.
        bool accepted = false;
        world.RunUntil([&] {
            const bool checking = services.PhaseName() == "AFK_CHECK";
            if (checking && !accepted) {
                call("indicateAfkReadinessV1", "{\"afkReady\":true}");
            }
            accepted = checking;
            return world.over_ || world.records_.size() > 2000;
        });
        std::vector<std::string> kept;
        for (const std::string& record : world.records_) {
            if (record.find("\"championSelectState\"") != std::string::npos) {
                kept.push_back(record);
            }
        }
        return kept;
    }();
    return records;
}

// The record with its counter replaced, so the plugin takes every one.
std::string WithCounter(const std::string& record, int64_t counter) {
    const size_t start = record.find("\"counter\":") + 10;
    const size_t end = record.find(',', start);
    return record.substr(0, start) + std::to_string(counter) + record.substr(end);
}

void Percentiles(benchmark::State& state, std::vector<double>& micros) {
    if (micros.empty()) {
        return;
    }
    std::sort(micros.begin(), micros.end());
    state.counters["p50_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    state.counters["records"] = static_cast<double>(ChampSelectRecords().size());
}

void BM_PushChampSelectRecordThroughHostAndPlugin(benchmark::State& state) {
    const std::vector<std::string>& records = ChampSelectRecords();
    Host::PluginLoadOptions options;
    options.path = Host::DefaultPluginPath();
    options.probe = false;
    std::string error;
    // A fresh load per run: Destroy below releases the module the load created.
    std::unique_ptr<Host::PluginLibrary> library = Host::PluginLibrary::Load(options, error);
    if (library == nullptr || records.empty()) {
        state.SkipWithError(error.empty() ? "no champion-select records" : error.c_str());
        return;
    }
    Host::HostClock clock(0.0);
    Host::HostRuntime runtime(clock);
    Host::StandIns standIns(runtime, Host::StandInOptions{});
    standIns.Install();
    const uint32_t plugin = runtime.Attach(*library);
    runtime.Start(plugin);
    standIns.SignIn();
    while (runtime.Turn()) {
    }
    int64_t counter = 1;
    std::vector<std::string> events;
    events.reserve(records.size());
    for (const std::string& record : records) {
        events.push_back(
            "{\"uuid\":\"\",\"serviceName\":\"teambuilder-draft\",\"methodName\":"
            "\"tbdGameDtoV1\",\"payload\":" +
            Host::QuoteJson(WithCounter(record, counter++)) + ",\"status\":\"OK\",\"error\":\"\"}");
    }
    std::vector<double> micros;
    size_t next = 0;
    for (auto _ : state) {
        // Counters must keep rising; rebuild the batch when it runs out.
        if (next == events.size()) {
            state.PauseTiming();
            for (size_t i = 0; i < records.size(); ++i) {
                events[i] =
                    "{\"uuid\":\"\",\"serviceName\":\"teambuilder-draft\",\"methodName\":"
                    "\"tbdGameDtoV1\",\"payload\":" +
                    Host::QuoteJson(WithCounter(records[i], counter++)) +
                    ",\"status\":\"OK\",\"error\":\"\"}";
            }
            next = 0;
            state.ResumeTiming();
        }
        const auto begin = std::chrono::steady_clock::now();
        runtime.Emit("OnServiceProxyAsyncEvent", events[next++], plugin);
        runtime.Turn();
        const std::chrono::duration<double, std::micro> took =
            std::chrono::steady_clock::now() - begin;
        micros.push_back(took.count());
    }
    state.SetItemsProcessed(state.iterations());
    Percentiles(state, micros);
    runtime.Destroy(plugin);
}
BENCHMARK(BM_PushChampSelectRecordThroughHostAndPlugin)->Unit(benchmark::kMicrosecond);

void BM_RapidJsonParseOfTheSameRecords(benchmark::State& state) {
    const std::vector<std::string>& records = ChampSelectRecords();
    if (records.empty()) {
        state.SkipWithError("no champion-select records");
        return;
    }
    std::vector<double> micros;
    size_t next = 0;
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        rapidjson::Document document;
        document.Parse(records[next].c_str(), records[next].size());
        benchmark::DoNotOptimize(document.IsObject());
        const std::chrono::duration<double, std::micro> took =
            std::chrono::steady_clock::now() - begin;
        micros.push_back(took.count());
        next = (next + 1) % records.size();
    }
    state.SetItemsProcessed(state.iterations());
    Percentiles(state, micros);
}
BENCHMARK(BM_RapidJsonParseOfTheSameRecords)->Unit(benchmark::kMicrosecond);

}  // namespace
