#include "framework/binding/internal/SlotPool.h"

#include <new>

#include "framework/platform/PageSource.h"

#if defined(__SANITIZE_ADDRESS__)
#define QEL_POOL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QEL_POOL_ASAN 1
#endif
#endif

#ifdef QEL_POOL_ASAN
#include <sanitizer/asan_interface.h>
#define QEL_POISON(addr, size) ASAN_POISON_MEMORY_REGION((addr), (size))
#define QEL_UNPOISON(addr, size) ASAN_UNPOISON_MEMORY_REGION((addr), (size))
#else
#define QEL_POISON(addr, size) ((void)(addr), (void)(size))
#define QEL_UNPOISON(addr, size) ((void)(addr), (void)(size))
#endif

namespace Orvan::Framework::Internal {

using Platform::PageSource;

struct SlotPool::Page {
    Page* prev;
    Page* next;
    void* freeSlots;  // singly linked through the first word of each slot
    uint32_t used;
    uint32_t untouched;  // offset of the first slot never handed out
    bool open;
};

namespace {

constexpr uint32_t kHeaderSize = (sizeof(SlotPool::Page) + 15u) & ~15u;

SlotPool::Page* PageOf(void* slot) {
    auto address = reinterpret_cast<uintptr_t>(slot);
    return reinterpret_cast<SlotPool::Page*>(address & ~(uintptr_t{PageSource::kPageSize} - 1));
}

}  // namespace

SlotPool::SlotPool(uint32_t slotSize) {
    uint32_t size = slotSize < sizeof(void*) ? static_cast<uint32_t>(sizeof(void*)) : slotSize;
    slotSize_ = (size + 7u) & ~7u;
}

SlotPool::~SlotPool() {
    ReleaseList(open_);
    ReleaseList(full_);
}

void SlotPool::ReleaseList(Page*& list) {
    while (list != nullptr) {
        Page* page = list;
        list = page->next;
        QEL_UNPOISON(page, PageSource::kPageSize);
        PageSource::Instance().ReleasePage(page);
    }
}

void SlotPool::Link(Page*& list, Page* page) {
    page->prev = nullptr;
    page->next = list;
    if (list != nullptr) {
        list->prev = page;
    }
    list = page;
}

void SlotPool::Unlink(Page*& list, Page* page) {
    if (page->prev != nullptr) {
        page->prev->next = page->next;
    } else {
        list = page->next;
    }
    if (page->next != nullptr) {
        page->next->prev = page->prev;
    }
}

SlotPool::Page* SlotPool::NewPage() {
    void* memory = PageSource::Instance().AcquirePage();
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    auto* page = ::new (memory) Page{nullptr, nullptr, nullptr, 0, kHeaderSize, true};
    QEL_POISON(static_cast<char*>(memory) + kHeaderSize, PageSource::kPageSize - kHeaderSize);
    ++pageCount_;
    return page;
}

void* SlotPool::Allocate() {
    Page* page = open_;
    if (page == nullptr) {
        page = NewPage();
        Link(open_, page);
        ++openCount_;
    }
    void* slot;
    if (page->freeSlots != nullptr) {
        slot = page->freeSlots;
        QEL_UNPOISON(slot, slotSize_);
        page->freeSlots = *static_cast<void**>(slot);
    } else {
        slot = reinterpret_cast<char*>(page) + page->untouched;
        QEL_UNPOISON(slot, slotSize_);
        page->untouched += slotSize_;
    }
    ++page->used;
    ++liveSlots_;
    if (page->freeSlots == nullptr && page->untouched + slotSize_ > PageSource::kPageSize) {
        Unlink(open_, page);
        --openCount_;
        page->open = false;
        Link(full_, page);
    }
    return slot;
}

void SlotPool::Free(void* slot) {
    if (slot == nullptr) {
        return;
    }
    Page* page = PageOf(slot);
    *static_cast<void**>(slot) = page->freeSlots;
    page->freeSlots = slot;
    QEL_POISON(slot, slotSize_);
    --page->used;
    --liveSlots_;
    if (!page->open) {
        Unlink(full_, page);
        Link(open_, page);
        page->open = true;
        ++openCount_;
    }
    if (page->used == 0 && openCount_ > 1) {
        Unlink(open_, page);
        --openCount_;
        --pageCount_;
        QEL_UNPOISON(page, PageSource::kPageSize);
        PageSource::Instance().ReleasePage(page);
    }
}

}  // namespace Orvan::Framework::Internal
