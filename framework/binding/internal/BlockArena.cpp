#include "framework/binding/internal/BlockArena.h"

#include <new>

#include "framework/platform/PageSource.h"

#if defined(__SANITIZE_ADDRESS__)
#define QEL_ARENA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QEL_ARENA_ASAN 1
#endif
#endif

#ifdef QEL_ARENA_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace Orvan::Framework::Internal {

using Platform::PageSource;

BlockArena::~BlockArena() {
    while (large_ != nullptr) {
        LargeLink* link = large_;
        large_ = link->next;
        ::operator delete(link);
    }
    while (pages_ != nullptr) {
        PageLink* page = pages_;
        pages_ = page->next;
        Unpoison(page, PageSource::kPageSize);
        PageSource::Instance().ReleasePage(page);
    }
}

void* BlockArena::Carve(size_t size) {
    if (static_cast<size_t>(limit_ - cursor_) < size) {
        // Hand the rest of the old page to the free list that fits it.
        size_t rest = static_cast<size_t>(limit_ - cursor_);
        if (rest >= kGranule) {
            size_t index = rest / kGranule - 1;
            auto* node = reinterpret_cast<FreeBlock*>(cursor_);
            Unpoison(node, sizeof(FreeBlock));
            node->next = free_[index];
            free_[index] = node;
            Poison(node, (index + 1) * kGranule);
        }
        void* memory = PageSource::Instance().AcquirePage();
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        auto* page = ::new (memory) PageLink{pages_};
        pages_ = page;
        ++pageCount_;
        cursor_ = static_cast<char*>(memory) + kPageHeader;
        limit_ = static_cast<char*>(memory) + PageSource::kPageSize;
        Poison(cursor_, static_cast<size_t>(limit_ - cursor_));
    }
    void* block = cursor_;
    cursor_ += size;
    Unpoison(block, size);
    return block;
}

void* BlockArena::AllocateLarge(size_t size) {
    if (size > static_cast<size_t>(-1) - sizeof(LargeLink)) {
        throw std::bad_alloc();
    }
    auto* link = ::new (::operator new(sizeof(LargeLink) + size)) LargeLink{nullptr, large_};
    if (large_ != nullptr) {
        large_->prev = link;
    }
    large_ = link;
    largeBytes_ += size;
    return link + 1;
}

void BlockArena::FreeLarge(void* block, size_t size) {
    largeBytes_ -= size;
    LargeLink* link = static_cast<LargeLink*>(block) - 1;
    if (link->prev != nullptr) {
        link->prev->next = link->next;
    } else {
        large_ = link->next;
    }
    if (link->next != nullptr) {
        link->next->prev = link->prev;
    }
    ::operator delete(link);
}

void BlockArena::Poison(void* address, size_t size) {
#ifdef QEL_ARENA_ASAN
    ASAN_POISON_MEMORY_REGION(address, size);
#else
    (void)address;
    (void)size;
#endif
}

void BlockArena::Unpoison(void* address, size_t size) {
#ifdef QEL_ARENA_ASAN
    ASAN_UNPOISON_MEMORY_REGION(address, size);
#else
    (void)address;
    (void)size;
#endif
}

}  // namespace Orvan::Framework::Internal
