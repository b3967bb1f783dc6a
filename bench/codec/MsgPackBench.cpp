// MessagePack bytes to value, beside msgpack-c's C unpacker on the same bytes.
#include <benchmark/benchmark.h>
#include <msgpack.h>

#include "bench/codec/CodecBenchInputs.h"
#include "framework/codec/MsgPack.h"

namespace {

using Orvan::Framework::Bench::CodecInput;
using Orvan::Framework::Bench::Inputs;

void DecodeMsgPack(benchmark::State& state, const CodecInput* input) {
    for (auto _ : state) {
        auto result = Orvan::Framework::DecodeMsgPack(input->msgpack.data(), input->msgpack.size());
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->msgpack.size()));
}

void MsgPackCUnpack(benchmark::State& state, const CodecInput* input) {
    const char* data = reinterpret_cast<const char*>(input->msgpack.data());
    for (auto _ : state) {
        msgpack_unpacked result;
        msgpack_unpacked_init(&result);
        size_t offset = 0;
        auto ret = msgpack_unpack_next(&result, data, input->msgpack.size(), &offset);
        benchmark::DoNotOptimize(ret);
        benchmark::DoNotOptimize(result.data);
        msgpack_unpacked_destroy(&result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->msgpack.size()));
}

const int kRegistered = [] {
    for (const CodecInput& input : Inputs()) {
        benchmark::RegisterBenchmark(("MsgPack/" + input.name + "/DecodeMsgPack").c_str(),
                                     DecodeMsgPack, &input)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("MsgPack/" + input.name + "/MsgPackCUnpack").c_str(),
                                     MsgPackCUnpack, &input)
            ->UseRealTime();
    }
    return 0;
}();

}  // namespace
