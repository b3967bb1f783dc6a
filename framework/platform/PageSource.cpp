#include "framework/platform/PageSource.h"

#include <cstdint>
#include <new>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace Orvan::Framework::Platform {
namespace {

// One reservation straight from the system, aligned to at least a page.
void* ReserveFromSystem(size_t size) {
#ifdef _WIN32
    // The address space is reserved at the allocation granularity (64 KiB),
    // so the block is aligned to every page inside it; committing is a second
    // step that can fail on its own when the commit limit is reached.
    void* block = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
    if (block == nullptr) {
        return nullptr;
    }
    if (VirtualAlloc(block, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        VirtualFree(block, 0, MEM_RELEASE);
        return nullptr;
    }
    return block;
#else
    void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
#endif
}

}  // namespace

PageSource& PageSource::Instance() {
    // Deliberately leaked: values destroyed during static destruction still
    // return pages here.
    static PageSource* instance = new PageSource();
    return *instance;
}

void* PageSource::AcquirePage() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (free_ == nullptr) {
        auto* block = static_cast<char*>(ReserveFromSystem(kReservationSize));
        if (block == nullptr) {
            return nullptr;
        }
        reservedBytes_ += kReservationSize;
        // Thread the new pages onto the free list, lowest address first.
        for (size_t i = kPagesPerReservation; i-- > 0;) {
            auto* page = ::new (block + i * kPageSize) FreePage{free_};
            free_ = page;
        }
        freeCount_ += kPagesPerReservation;
    }
    FreePage* page = free_;
    free_ = page->next;
    --freeCount_;
    return page;
}

void PageSource::ReleasePage(void* page) {
    if (page == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    free_ = ::new (page) FreePage{free_};
    ++freeCount_;
}

size_t PageSource::ReservedBytes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return reservedBytes_;
}

size_t PageSource::FreePages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return freeCount_;
}

}  // namespace Orvan::Framework::Platform
