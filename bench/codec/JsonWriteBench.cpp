// Value to compact and to pretty JSON, beside RapidJSON's writer and pretty
// writer (four spaces a level, as ours) over a DOM of the same document.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <string_view>
#include <type_traits>

#include "bench/codec/CodecBenchInputs.h"
#include "framework/codec/Json.h"

namespace {

using Orvan::Framework::BindingProperty;
using Orvan::Framework::Bench::CodecInput;
using Orvan::Framework::Bench::Inputs;

void WriteJson(benchmark::State& state, const CodecInput* input, std::string_view lineBreak) {
    auto read = Orvan::Framework::ReadJson(input->json);
    if (!read) {
        std::abort();
    }
    const BindingProperty& value = *read;
    size_t bytes = 0;
    for (auto _ : state) {
        std::string text = Orvan::Framework::WriteJson(value, nullptr, lineBreak);
        bytes = text.size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

template <class Writer>
void RapidJsonWriter(benchmark::State& state, const CodecInput* input) {
    rapidjson::Document document;
    document.Parse(input->json.c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        Writer writer(buffer);
        if constexpr (!std::is_same_v<Writer, rapidjson::Writer<rapidjson::StringBuffer>>) {
            writer.SetIndent(' ', 4);
        }
        document.Accept(writer);
        bytes = buffer.GetSize();
        benchmark::DoNotOptimize(buffer.GetString());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

const int kRegistered = [] {
    using Compact = rapidjson::Writer<rapidjson::StringBuffer>;
    using Pretty = rapidjson::PrettyWriter<rapidjson::StringBuffer>;
    for (const CodecInput& input : Inputs()) {
        benchmark::RegisterBenchmark(("JsonWrite/" + input.name + "/WriteJson").c_str(), WriteJson,
                                     &input, std::string_view())
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonWrite/" + input.name + "/RapidJsonWriter").c_str(),
                                     RapidJsonWriter<Compact>, &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonWritePretty/" + input.name + "/WriteJson").c_str(),
                                     WriteJson, &input, std::string_view("\n"))
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonWritePretty/" + input.name + "/RapidJsonWriter").c_str(),
                                     RapidJsonWriter<Pretty>, &input)
            ->UseRealTime();
    }
    return 0;
}();

}  // namespace
