// PageSource: the process-wide supplier of 4096-byte pages for the value pools.
//
// Pages are carved from 64 KiB reservations taken from the operating system
// (mmap on POSIX, VirtualAlloc on Windows) and are aligned to their size, so a
// pool can find the page of a slot from the slot's address alone. Returned
// pages are kept for reuse and never handed back to the system: the pools of
// a busy process settle at their high-water mark.
//
// Ownership: the source owns every reservation for the life of the process.
// Threads: every member may be called from any thread; one mutex guards the
// free list and the counters.
#pragma once

#include <cstddef>
#include <mutex>

namespace Orvan::Framework::Platform {

class PageSource {
public:
    static constexpr size_t kPageSize = 4096;
    static constexpr size_t kReservationSize = 0x10000;
    static constexpr size_t kPagesPerReservation = kReservationSize / kPageSize;

    // The one instance; never destroyed, so values that outlive static
    // destruction can still return their pages.
    static PageSource& Instance();

    // A page aligned to kPageSize, or nullptr when the system refuses memory.
    void* AcquirePage();
    // Gives back a page obtained from AcquirePage.
    void ReleasePage(void* page);

    // Bytes reserved from the system so far.
    size_t ReservedBytes() const;
    // Pages reserved but not handed out.
    size_t FreePages() const;

    PageSource(const PageSource&) = delete;
    PageSource& operator=(const PageSource&) = delete;

private:
    PageSource() = default;
    ~PageSource() = default;

    struct FreePage {
        FreePage* next;
    };

    mutable std::mutex mutex_;
    FreePage* free_ = nullptr;
    size_t freeCount_ = 0;
    size_t reservedBytes_ = 0;
};

}  // namespace Orvan::Framework::Platform
