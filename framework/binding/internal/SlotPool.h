// SlotPool: fixed-size slots handed out from 4096-byte pages of the
// process-wide PageSource.
//
// Each page starts with a small header; because pages are aligned to their
// size, the page of a slot is found by masking the slot's address. A page
// that runs empty goes back to the page source unless it is the pool's last
// page with room, which is kept to absorb alternating allocate/free patterns.
//
// Ownership: the pool owns its pages and returns all of them when destroyed;
// slots must not outlive the pool. Threads: one thread at a time (the pool
// belongs to one value tree); only the page source is shared.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Orvan::Framework::Internal {

class SlotPool {
public:
    explicit SlotPool(uint32_t slotSize);
    ~SlotPool();
    SlotPool(const SlotPool&) = delete;
    SlotPool& operator=(const SlotPool&) = delete;

    // Uninitialised storage of the pool's slot size, aligned to 8; throws
    // std::bad_alloc when the system refuses pages.
    void* Allocate();
    void Free(void* slot);

    uint32_t SlotSize() const { return slotSize_; }
    size_t PageCount() const { return pageCount_; }
    size_t LiveSlots() const { return liveSlots_; }

    struct Page;

private:
    void Link(Page*& list, Page* page);
    void Unlink(Page*& list, Page* page);
    Page* NewPage();
    void ReleaseList(Page*& list);

    uint32_t slotSize_;
    Page* open_ = nullptr;  // pages with at least one free slot
    Page* full_ = nullptr;  // pages without
    size_t openCount_ = 0;
    size_t pageCount_ = 0;
    size_t liveSlots_ = 0;
};

}  // namespace Orvan::Framework::Internal
