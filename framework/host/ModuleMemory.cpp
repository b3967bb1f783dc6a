#include "framework/host/ModuleMemory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>

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

// One update of the counters under the spin lock. Inside it every counter
// has this one writer, so a relaxed load and store make each change; the
// release of the lock publishes them together.
class MemoryStatistics::Update {
public:
    explicit Update(MemoryStatistics& statistics) : statistics_(statistics) {
        while (statistics_.updating_.test_and_set(std::memory_order_acquire)) {
            // Wait without the locked instruction until the holder lets go.
            while (statistics_.updating_.test(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
        }
    }
    ~Update() { statistics_.updating_.clear(std::memory_order_release); }
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    uint64_t Get(MemoryCounter counter) const {
        return statistics_.counters_[counter].load(std::memory_order_relaxed);
    }
    void Set(MemoryCounter counter, uint64_t value) {
        statistics_.counters_[counter].store(value, std::memory_order_relaxed);
    }
    uint64_t Add(MemoryCounter counter, uint64_t amount) {
        const uint64_t value = Get(counter) + amount;
        Set(counter, value);
        return value;
    }

private:
    MemoryStatistics& statistics_;
};

void MemoryStatistics::RecordAllocation(size_t bytes) {
    Update update(*this);
    const uint64_t allocated = update.Add(kBytesAllocated, bytes);
    const uint64_t allocations = update.Add(kAllocationCount, 1);
    const uint64_t live = allocated - update.Get(kBytesFreed);
    if (live > update.Get(kPeakLiveBytes)) {
        update.Set(kPeakLiveBytes, live);
        update.Set(kLiveAllocationsAtPeak, allocations - update.Get(kFreeCount));
    }
}

void MemoryStatistics::RecordFree(size_t bytes) {
    Update update(*this);
    update.Add(kBytesFreed, bytes);
    update.Add(kFreeCount, 1);
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
