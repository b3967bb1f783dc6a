// Value to compact JSON, beside RapidJSON's writer over a DOM of the same
// document.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>

#include "bench/codec/CodecBenchInputs.h"
#include "framework/codec/Json.h"

namespace {

using Orvan::Framework::BindingProperty;
using Orvan::Framework::Bench::CodecInput;
using Orvan::Framework::Bench::Inputs;

void WriteJson(benchmark::State& state, const CodecInput* input) {
    auto read = Orvan::Framework::ReadJson(input->json);
    if (!read) {
        std::abort();
    }
    const BindingProperty& value = *read;
    size_t bytes = 0;
    for (auto _ : state) {
        std::string text = Orvan::Framework::WriteJson(value);
        bytes = text.size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void RapidJsonWriter(benchmark::State& state, const CodecInput* input) {
    rapidjson::Document document;
    document.Parse(input->json.c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        bytes = buffer.GetSize();
        benchmark::DoNotOptimize(buffer.GetString());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

const int kRegistered = [] {
    for (const CodecInput& input : Inputs()) {
        benchmark::RegisterBenchmark(("JsonWrite/" + input.name + "/WriteJson").c_str(), WriteJson,
                                     &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonWrite/" + input.name + "/RapidJsonWriter").c_str(),
                                     RapidJsonWriter, &input)
            ->UseRealTime();
    }
    return 0;
}();

}  // namespace
