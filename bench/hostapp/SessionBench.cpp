// A draft played through the plugin at full speed with `--record` beside the
// same run without it (the reference), and the replay of that recording
// beside the same reference. The recording's size is reported as well.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "host/Demo.h"
#include "host/Replay.h"
#include "host/SessionRecord.h"

namespace {

using namespace Orvan::Host;

std::string SessionPath() {
    return (std::filesystem::temp_directory_path() / "qel-session-bench.jsonl").string();
}

DemoOptions DraftOptions(std::FILE* out) {
    DemoOptions options;
    options.scenario = "draft";
    options.speed = 0.0;
    options.seed = 7;
    options.detail = 0;
    options.plugin.path = DefaultPluginPath();
    options.out = out;
    return options;
}

void RunDraft(benchmark::State& state, bool record) {
    std::FILE* sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        DemoOptions options = DraftOptions(sink);
        SessionRecorder recorder;
        std::string error;
        if (record) {
            SessionHeader header{"demo", "draft", 7, "{\"speed\":\"max\"}"};
            if (!recorder.Open(SessionPath(), header, error)) {
                state.SkipWithError(error.c_str());
                break;
            }
            options.recorder = &recorder;
        }
        if (RunDemo(options).exitCode != 0) {
            state.SkipWithError("the draft did not reach its end");
            break;
        }
        if (record && !recorder.Close(error)) {
            state.SkipWithError(error.c_str());
            break;
        }
    }
    if (record) {
        state.counters["file_bytes"] =
            static_cast<double>(std::filesystem::file_size(SessionPath()));
    }
    std::fclose(sink);
}

void BM_DraftDemo(benchmark::State& state) {
    RunDraft(state, false);
}
BENCHMARK(BM_DraftDemo)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DraftDemoRecorded(benchmark::State& state) {
    RunDraft(state, true);
}
BENCHMARK(BM_DraftDemoRecorded)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reading the file and replaying it (loading the plugin included, as the
// command does).
void BM_DraftReplay(benchmark::State& state) {
    std::FILE* sink = std::fopen("/dev/null", "w");
    for (auto _ : state) {
        ReplayOptions options;
        options.path = SessionPath();
        options.plugin.path = DefaultPluginPath();
        options.out = sink;
        options.err = sink;
        if (RunReplay(options) != 0) {
            state.SkipWithError("the recorded draft does not replay clean");
            break;
        }
    }
    std::fclose(sink);
}
BENCHMARK(BM_DraftReplay)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
