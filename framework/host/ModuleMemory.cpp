#include "framework/host/ModuleMemory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <malloc.h>  // malloc_usable_size (glibc), _msize (Windows)

namespace Orvan::Framework {

namespace {

constinit MemoryStatistics gStatistics;

size_t UsableSize(const void* block) {
#if defined(_WIN32)
    return _msize(const_cast<void*>(block));
#else
    return malloc_usable_size(const_cast<void*>(block));
#endif
}

// An aligned block is cut from an ordinary one, and the C runtime's address
// of that block is stored in the word just below the aligned address. Freeing
// and counting then need only the aligned address on every runtime (msvcrt.dll
// has _aligned_malloc but no _aligned_msize to size its blocks).
void* BaseOfAligned(const void* block) {
    void* base = nullptr;
    std::memcpy(&base, static_cast<const char*>(block) - sizeof base, sizeof base);
    return base;
}

}  // namespace

void MemoryStatistics::RecordAllocation(size_t bytes) {
    const uint64_t allocated =
        counters_[kBytesAllocated].fetch_add(bytes, std::memory_order_acq_rel) + bytes;
    const uint64_t allocations =
        counters_[kAllocationCount].fetch_add(1, std::memory_order_acq_rel) + 1;
    const uint64_t freed = counters_[kBytesFreed].load(std::memory_order_acquire);
    const uint64_t frees = counters_[kFreeCount].load(std::memory_order_acquire);
    if (freed > allocated) {
        return;  // a concurrent free overtook this allocation; not a peak
    }
    const uint64_t live = allocated - freed;
    uint64_t peak = counters_[kPeakLiveBytes].load(std::memory_order_acquire);
    while (live > peak) {
        if (counters_[kPeakLiveBytes].compare_exchange_weak(peak, live,
                                                            std::memory_order_acq_rel)) {
            counters_[kLiveAllocationsAtPeak].store(allocations >= frees ? allocations - frees : 0,
                                                    std::memory_order_release);
            break;
        }
    }
}

void MemoryStatistics::RecordFree(size_t bytes) {
    counters_[kBytesFreed].fetch_add(bytes, std::memory_order_acq_rel);
    counters_[kFreeCount].fetch_add(1, std::memory_order_acq_rel);
}

std::array<uint64_t, kMemoryCounterCount> MemoryStatistics::Snapshot() const {
    std::array<uint64_t, kMemoryCounterCount> values{};
    for (size_t i = 0; i < kMemoryCounterCount; ++i) {
        values[i] = counters_[i].load(std::memory_order_acquire);
    }
    return values;
}

void MemoryStatistics::WriteWords(uint32_t* out) const {
    const std::array<uint64_t, kMemoryCounterCount> values = Snapshot();
    for (size_t i = 0; i < kMemoryCounterCount; ++i) {
        out[2 * i] = static_cast<uint32_t>(values[i] & 0xFFFFFFFFu);
        out[2 * i + 1] = static_cast<uint32_t>(values[i] >> 32);
    }
    out[12] = 0;
    out[13] = 0;
}

MemoryStatistics& ProcessMemoryStatistics() {
    return gStatistics;
}

namespace ModuleMemory {

void* Allocate(size_t size) {
    void* block = std::malloc(size != 0 ? size : 1);
    if (block != nullptr) {
        gStatistics.RecordAllocation(UsableSize(block));
    }
    return block;
}

void* AllocateZeroed(size_t size) {
    void* block = std::calloc(1, size != 0 ? size : 1);
    if (block != nullptr) {
        gStatistics.RecordAllocation(UsableSize(block));
    }
    return block;
}

void* AllocateAligned(size_t size, size_t alignment) {
    if (size == 0) {
        size = 1;
    }
    if (alignment < alignof(void*)) {
        alignment = alignof(void*);
    }
    const size_t slack = sizeof(void*) + alignment - 1;
    if ((alignment & (alignment - 1)) != 0 || size > std::numeric_limits<size_t>::max() - slack) {
        return nullptr;
    }
    void* base = std::malloc(size + slack);
    if (base == nullptr) {
        return nullptr;
    }
    const uintptr_t address = reinterpret_cast<uintptr_t>(base);
    const uintptr_t aligned = (address + sizeof(void*) + alignment - 1) & ~(alignment - 1);
    char* block = static_cast<char*>(base) + (aligned - address);
    std::memcpy(block - sizeof base, &base, sizeof base);
    gStatistics.RecordAllocation(UsableSize(base));
    return block;
}

void Free(void* block) {
    if (block == nullptr) {
        return;
    }
    gStatistics.RecordFree(UsableSize(block));
    std::free(block);
}

void FreeAligned(void* block, size_t /*alignment*/) {
    if (block == nullptr) {
        return;
    }
    void* base = BaseOfAligned(block);
    gStatistics.RecordFree(UsableSize(base));
    std::free(base);
}

void* Reallocate(void* block, size_t size) {
    if (block == nullptr) {
        return Allocate(size);
    }
    const size_t oldSize = UsableSize(block);
    void* moved = std::realloc(block, size != 0 ? size : 1);
    if (moved == nullptr) {
        return nullptr;
    }
    gStatistics.RecordFree(oldSize);
    gStatistics.RecordAllocation(UsableSize(moved));
    return moved;
}

char* DuplicateText(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const size_t length = std::strlen(text);
    char* copy = static_cast<char*>(Allocate(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, length + 1);
    }
    return copy;
}

size_t BlockSize(const void* block) {
    return block != nullptr ? UsableSize(block) : 0;
}

}  // namespace ModuleMemory

}  // namespace Orvan::Framework
