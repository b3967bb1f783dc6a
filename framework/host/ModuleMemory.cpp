#include "framework/host/ModuleMemory.h"

#include <cstdlib>
#include <cstring>

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

#if defined(_WIN32)
size_t AlignedUsableSize(const void* block, size_t alignment) {
    return _aligned_msize(const_cast<void*>(block), alignment, 0);
}
#endif

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
#if defined(_WIN32)
    void* block = _aligned_malloc(size, alignment);
    if (block != nullptr) {
        gStatistics.RecordAllocation(AlignedUsableSize(block, alignment));
    }
    return block;
#else
    if (alignment < sizeof(void*)) {
        alignment = sizeof(void*);
    }
    void* block = nullptr;
    if (posix_memalign(&block, alignment, size) != 0) {
        return nullptr;
    }
    gStatistics.RecordAllocation(UsableSize(block));
    return block;
#endif
}

void Free(void* block) {
    if (block == nullptr) {
        return;
    }
    gStatistics.RecordFree(UsableSize(block));
    std::free(block);
}

void FreeAligned(void* block, size_t alignment) {
    if (block == nullptr) {
        return;
    }
#if defined(_WIN32)
    gStatistics.RecordFree(AlignedUsableSize(block, alignment));
    _aligned_free(block);
#else
    (void)alignment;
    gStatistics.RecordFree(UsableSize(block));
    std::free(block);
#endif
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
