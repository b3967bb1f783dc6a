// ModuleMemory: the module's allocation hooks and the process-wide
// MemoryStatistics they keep.
//
// Every allocation the module makes for itself goes through these hooks
// (allocate, free, reallocate, duplicate text, size of block): the module
// object through its class-specific operators, the host records it builds
// (HostValueConversion.h) directly, and, inside the plugin's shared object,
// every other C++ allocation through the object's own operator new and
// delete (sharedobject/CountingOperatorNew.cpp). Each hook calls the C
// runtime and counts the block's usable size, so the counters describe the
// module's heap whatever the host's allocator does.
//
// Counters, in this order: peak live bytes, live allocations at that peak,
// bytes allocated, allocations, bytes freed, frees. They only grow (the peak
// pair moves when a new peak is reached) and are read for the host by
// GetMemoryStatistics as fourteen 32-bit words: the six counters low word
// first, then two zero words.
//
// Ownership: the statistics are a constant-initialised global, usable before
// any static constructor runs and never destroyed.
// Threads: every hook may run on any thread; counters are updated with atomic
// read-modify-write operations and read with atomic loads.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Orvan::Framework {

enum MemoryCounter : size_t {
    kPeakLiveBytes = 0,
    kLiveAllocationsAtPeak = 1,
    kBytesAllocated = 2,
    kAllocationCount = 3,
    kBytesFreed = 4,
    kFreeCount = 5,
    kMemoryCounterCount = 6,
};

class MemoryStatistics {
public:
    constexpr MemoryStatistics() = default;

    void RecordAllocation(size_t bytes);
    void RecordFree(size_t bytes);

    uint64_t Counter(MemoryCounter counter) const {
        return counters_[counter].load(std::memory_order_acquire);
    }
    std::array<uint64_t, kMemoryCounterCount> Snapshot() const;
    // The fourteen words handed to the host.
    void WriteWords(uint32_t* out) const;

private:
    std::atomic<uint64_t> counters_[kMemoryCounterCount]{};
};

// The counters of this module (one set per shared object, like the hooks).
MemoryStatistics& ProcessMemoryStatistics();

namespace ModuleMemory {

// Null when the C runtime refuses; a size of 0 still yields a unique block.
void* Allocate(size_t size);
void* AllocateZeroed(size_t size);
// Blocks with an alignment stricter than the C runtime's default; released
// with FreeAligned and the same alignment.
void* AllocateAligned(size_t size, size_t alignment);
void Free(void* block);
void FreeAligned(void* block, size_t alignment);
// Counts a free of the old block and an allocation of the new one; on
// failure the old block is kept and nothing is counted.
void* Reallocate(void* block, size_t size);
// A copy of a NUL-terminated text, counted as one allocation; null for null.
char* DuplicateText(const char* text);
// The usable size of a block of these hooks (0 for null).
size_t BlockSize(const void* block);

}  // namespace ModuleMemory

}  // namespace Orvan::Framework
