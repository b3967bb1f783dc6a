// YAML text to value, beside libyaml's bare event loop on the same text.
#include <benchmark/benchmark.h>
#include <yaml.h>

#include <cstdlib>

#include "bench/codec/CodecBenchInputs.h"
#include "framework/codec/Yaml.h"

namespace {

using Orvan::Framework::Bench::CodecInput;
using Orvan::Framework::Bench::Inputs;

void ReadYaml(benchmark::State& state, const CodecInput* input) {
    if (!Orvan::Framework::ReadYaml(input->yaml)) {
        std::abort();
    }
    for (auto _ : state) {
        auto read = Orvan::Framework::ReadYaml(input->yaml);
        benchmark::DoNotOptimize(read);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->yaml.size()));
}

void LibYamlEventLoop(benchmark::State& state, const CodecInput* input) {
    for (auto _ : state) {
        yaml_parser_t parser;
        yaml_parser_initialize(&parser);
        yaml_parser_set_encoding(&parser, YAML_UTF8_ENCODING);
        yaml_parser_set_input_string(&parser,
                                     reinterpret_cast<const unsigned char*>(input->yaml.data()),
                                     input->yaml.size());
        for (;;) {
            yaml_event_t event;
            if (!yaml_parser_parse(&parser, &event)) {
                std::abort();
            }
            bool end = event.type == YAML_STREAM_END_EVENT;
            yaml_event_delete(&event);
            if (end) {
                break;
            }
        }
        yaml_parser_delete(&parser);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->yaml.size()));
}

const int kRegistered = [] {
    for (const CodecInput& input : Inputs()) {
        benchmark::RegisterBenchmark(("Yaml/" + input.name + "/ReadYaml").c_str(), ReadYaml, &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("Yaml/" + input.name + "/LibYamlEventLoop").c_str(),
                                     LibYamlEventLoop, &input)
            ->UseRealTime();
    }
    return 0;
}();

}  // namespace
