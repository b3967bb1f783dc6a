// JSON text to value, beside RapidJSON's DOM parse of the same bytes and the
// floor of its SAX reader with a handler that does nothing. The tree's and the
// document's allocated bytes are reported beside the times (counter
// "allocated": our tree's pages, heap blocks and string buckets; the
// document's pool allocator chunks).
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include "bench/codec/CodecBenchInputs.h"
#include "framework/binding/internal/BindingContext.h"
#include "framework/codec/Json.h"

namespace {

using Orvan::Framework::Bench::CodecInput;
using Orvan::Framework::Bench::Inputs;

void ReadJson(benchmark::State& state, const CodecInput* input) {
    {
        auto read = Orvan::Framework::ReadJson(input->json);
        const auto* context = Orvan::Framework::BindingContext::Context(*read);
        state.counters["allocated"] =
            static_cast<double>(context != nullptr ? context->AllocatedBytes() : 0);
    }
    for (auto _ : state) {
        auto read = Orvan::Framework::ReadJson(input->json);
        benchmark::DoNotOptimize(read);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->json.size()));
}

void RapidJsonDocumentParse(benchmark::State& state, const CodecInput* input) {
    {
        rapidjson::Document document;
        document.Parse(input->json.c_str());
        state.counters["allocated"] = static_cast<double>(document.GetAllocator().Capacity());
    }
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(input->json.c_str());
        benchmark::DoNotOptimize(document);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->json.size()));
}

void RapidJsonReaderNullHandler(benchmark::State& state, const CodecInput* input) {
    for (auto _ : state) {
        rapidjson::Reader reader;
        rapidjson::BaseReaderHandler<> handler;
        rapidjson::StringStream stream(input->json.c_str());
        auto result = reader.Parse(stream, handler);
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->json.size()));
}

const int kRegistered = [] {
    for (const CodecInput& input : Inputs()) {
        benchmark::RegisterBenchmark(("JsonRead/" + input.name + "/ReadJson").c_str(), ReadJson,
                                     &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonRead/" + input.name + "/RapidJsonDocument").c_str(),
                                     RapidJsonDocumentParse, &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("JsonRead/" + input.name + "/RapidJsonReaderFloor").c_str(),
                                     RapidJsonReaderNullHandler, &input)
            ->UseRealTime();
    }
    return 0;
}();

}  // namespace
