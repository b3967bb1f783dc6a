#include "framework/host/ModuleMemory.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "framework/host/HostValueConversion.h"

namespace Orvan::Framework {
namespace {

struct Counts {
    uint64_t allocated;
    uint64_t allocations;
    uint64_t freed;
    uint64_t frees;
};

Counts Now() {
    const MemoryStatistics& s = ProcessMemoryStatistics();
    return {s.Counter(kBytesAllocated), s.Counter(kAllocationCount), s.Counter(kBytesFreed),
            s.Counter(kFreeCount)};
}

// Aligned blocks are sized through the header in front of them; whatever the
// alignment, a block is usable to its end and its free gives back exactly
// what its allocation counted.
TEST(ModuleMemoryTest, AlignedBlocksAreAlignedUsableAndCountedBothWays) {
    struct Case {
        size_t size;
        size_t alignment;
    };
    const Case cases[] = {{0, 8}, {1, 1}, {3, 16}, {24, 32}, {100, 64}, {4096, 4096}, {5000, 256}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "size " << c.size << ", alignment " << c.alignment);
        const Counts before = Now();
        void* block = ModuleMemory::AllocateAligned(c.size, c.alignment);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % c.alignment, 0u);
        std::memset(block, 0x5A, c.size);
        const Counts allocated = Now();
        EXPECT_EQ(allocated.allocations - before.allocations, 1u);
        EXPECT_GE(allocated.allocated - before.allocated, c.size);
        ModuleMemory::FreeAligned(block, c.alignment);
        const Counts after = Now();
        EXPECT_EQ(after.frees - before.frees, 1u);
        EXPECT_EQ(after.freed - before.freed, allocated.allocated - before.allocated);
    }
}

// The six counters after a sequence of allocations ('+') and frees ('-'):
// the peak moves only on a new high of live bytes, and the live allocations
// beside it are those of that moment.
TEST(ModuleMemoryTest, CountersFollowEverySequenceExactly) {
    using Six = std::array<uint64_t, kMemoryCounterCount>;
    struct Step {
        char op;
        size_t bytes;
    };
    struct Case {
        const char* name;
        std::vector<Step> steps;
        Six expected;  // peak, live at peak, allocated, allocations, freed, frees
    };
    const Case cases[] = {
        {"nothing", {}, {0, 0, 0, 0, 0, 0}},
        {"one allocation", {{'+', 40}}, {40, 1, 40, 1, 0, 0}},
        {"allocated and freed", {{'+', 40}, {'-', 40}}, {40, 1, 40, 1, 40, 1}},
        {"a lower second high keeps the peak",
         {{'+', 100}, {'-', 100}, {'+', 60}},
         {100, 1, 160, 2, 100, 1}},
        {"a higher second high moves it",
         {{'+', 100}, {'-', 100}, {'+', 60}, {'+', 50}},
         {110, 2, 210, 3, 100, 1}},
        {"live count at the peak, not now",
         {{'+', 10}, {'+', 20}, {'+', 30}, {'-', 20}, {'-', 10}, {'+', 5}},
         {60, 3, 65, 4, 30, 2}},
        {"an equal high does not move it",
         {{'+', 50}, {'-', 50}, {'+', 25}, {'+', 25}},
         {50, 1, 100, 3, 50, 1}},
        {"blocks of no bytes count", {{'+', 0}, {'+', 0}, {'-', 0}}, {0, 0, 0, 2, 0, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryStatistics statistics;
        for (const Step& step : c.steps) {
            if (step.op == '+') {
                statistics.RecordAllocation(step.bytes);
            } else {
                statistics.RecordFree(step.bytes);
            }
        }
        EXPECT_EQ(statistics.Snapshot(), c.expected);
        uint32_t words[14];
        std::memset(words, 0xFF, sizeof words);
        statistics.WriteWords(words);
        for (size_t i = 0; i < kMemoryCounterCount; ++i) {
            EXPECT_EQ(words[2 * i] | (uint64_t{words[2 * i + 1]} << 32), c.expected[i]) << i;
        }
        EXPECT_EQ(words[12], 0u);
        EXPECT_EQ(words[13], 0u);
    }
}

// Threads allocating and freeing at once lose no update, and the peak never
// exceeds what was allocated nor falls below one thread's own high.
TEST(ModuleMemoryTest, ConcurrentUpdatesLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    MemoryStatistics statistics;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&statistics, t] {
            for (int i = 0; i < kRounds; ++i) {
                const size_t size = 16 + static_cast<size_t>((i + t) % 7) * 8;
                statistics.RecordAllocation(size);
                statistics.RecordAllocation(8);
                statistics.RecordFree(size);
                statistics.RecordFree(8);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    uint64_t bytes = 0;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kRounds; ++i) {
            bytes += 16 + static_cast<uint64_t>((i + t) % 7) * 8 + 8;
        }
    }
    EXPECT_EQ(statistics.Counter(kAllocationCount), uint64_t{2} * kThreads * kRounds);
    EXPECT_EQ(statistics.Counter(kFreeCount), uint64_t{2} * kThreads * kRounds);
    EXPECT_EQ(statistics.Counter(kBytesAllocated), bytes);
    EXPECT_EQ(statistics.Counter(kBytesFreed), bytes);
    EXPECT_GE(statistics.Counter(kPeakLiveBytes), uint64_t{16 + 6 * 8 + 8});
    EXPECT_LE(statistics.Counter(kPeakLiveBytes), uint64_t{kThreads} * (16 + 6 * 8 + 8));
    EXPECT_GE(statistics.Counter(kLiveAllocationsAtPeak), 2u);
    EXPECT_LE(statistics.Counter(kLiveAllocationsAtPeak), uint64_t{2} * kThreads);
}

TEST(ModuleMemoryTest, AlignedBlocksRefuseWhatCannotBeServed) {
    const Counts before = Now();
    EXPECT_EQ(ModuleMemory::AllocateAligned(SIZE_MAX - 8, 64), nullptr);
    EXPECT_EQ(ModuleMemory::AllocateAligned(16, 48), nullptr);  // not a power of two
    EXPECT_EQ(Now().allocations, before.allocations);
    ModuleMemory::FreeAligned(nullptr, 64);
    EXPECT_EQ(Now().frees, before.frees);
}

// Slices of the arena keep the 8-byte alignment the host's 64-bit fields
// need, also where an address is 4 bytes wide and a block header is smaller.
TEST(ModuleMemoryTest, ArenaSlicesStayEightByteAligned) {
    HostValueArena arena;
    std::vector<void*> slices;
    for (size_t size : {1u, 3u, 7u, 9u, 4096u, 5u, 70000u, 2u}) {
        void* slice = arena.Allocate(size);
        ASSERT_NE(slice, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(slice) % 8, 0u) << "size " << size;
        std::memset(slice, 0x33, size);
        slices.push_back(slice);
    }
}

}  // namespace
}  // namespace Orvan::Framework
