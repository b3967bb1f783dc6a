#include "framework/host/ModuleMemory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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
