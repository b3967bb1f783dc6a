// The module's counting allocation hooks beside the C runtime calls they
// wrap, on the pattern a pushed record makes: batches of small blocks of
// mixed sizes, allocated, then freed in order. The reference is plain
// malloc and free of the same sizes in the same run.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdlib>

#include "framework/host/ModuleMemory.h"

namespace {

using Orvan::Framework::ModuleMemory::Allocate;
using Orvan::Framework::ModuleMemory::Free;

constexpr size_t kBatch = 64;

constexpr std::array<size_t, 8> kSizes = {24, 40, 64, 32, 96, 48, 200, 16};

void BM_MallocFree(benchmark::State& state) {
    std::array<void*, kBatch> blocks{};
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i) {
            blocks[i] = std::malloc(kSizes[i % kSizes.size()]);
        }
        benchmark::DoNotOptimize(blocks.data());
        for (void* block : blocks) {
            std::free(block);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBatch));
}
BENCHMARK(BM_MallocFree);

void BM_CountedAllocateFree(benchmark::State& state) {
    std::array<void*, kBatch> blocks{};
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; ++i) {
            blocks[i] = Allocate(kSizes[i % kSizes.size()]);
        }
        benchmark::DoNotOptimize(blocks.data());
        for (void* block : blocks) {
            Free(block);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBatch));
}
BENCHMARK(BM_CountedAllocateFree);

}  // namespace
