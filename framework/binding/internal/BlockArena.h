// BlockArena: variable-size blocks for one value tree (interned strings, the
// element arrays of collections and the field arrays of structures), cut
// from pages of the process-wide PageSource.
//
// Blocks up to kMaxBlock bytes are rounded to 16-byte classes, each with its
// own free list; the caller states the size again when freeing, so blocks
// carry no header. Larger blocks come from the general heap. Pages are kept
// until the arena is destroyed, so a tree's steady state reuses its blocks.
// Destroying the arena releases every block, so a whole tree can be dropped
// without visiting it.
//
// Ownership: the arena owns its pages; blocks must not outlive it.
// Threads: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Orvan::Framework::Internal {

class BlockArena {
public:
    static constexpr size_t kGranule = 16;
    static constexpr size_t kMaxBlock = 1024;

    BlockArena() = default;
    ~BlockArena();
    BlockArena(const BlockArena&) = delete;
    BlockArena& operator=(const BlockArena&) = delete;

    // At least `size` bytes aligned to 16 (to the heap's alignment beyond
    // kMaxBlock); throws std::bad_alloc when memory is refused.
    void* Allocate(size_t size) {
        if (size == 0 || size > kMaxBlock) {
            return AllocateLarge(size);
        }
        size_t index = (size - 1) / kGranule;
        if (FreeBlock* block = free_[index]) {
            Unpoison(block, (index + 1) * kGranule);
            free_[index] = block->next;
            return block;
        }
        return Carve((index + 1) * kGranule);
    }

    void Free(void* block, size_t size) {
        if (block == nullptr) {
            return;
        }
        if (size == 0 || size > kMaxBlock) {
            FreeLarge(block, size);
            return;
        }
        size_t index = (size - 1) / kGranule;
        auto* node = static_cast<FreeBlock*>(block);
        node->next = free_[index];
        free_[index] = node;
        Poison(block, (index + 1) * kGranule);
    }

    size_t PageCount() const { return pageCount_; }
    // Bytes of the blocks taken from the general heap and not yet freed.
    size_t LargeBytes() const { return largeBytes_; }

private:
    struct FreeBlock {
        FreeBlock* next;
    };
    struct PageLink {
        PageLink* next;
    };
    // Heads every heap block, so the arena can free what a tree left behind.
    struct alignas(16) LargeLink {
        LargeLink* prev;
        LargeLink* next;
    };

    static constexpr size_t kClasses = kMaxBlock / kGranule;
    static constexpr size_t kPageHeader = 16;

    void* Carve(size_t size);
    void* AllocateLarge(size_t size);
    void FreeLarge(void* block, size_t size);
    static void Poison(void* address, size_t size);
    static void Unpoison(void* address, size_t size);

    FreeBlock* free_[kClasses] = {};
    char* cursor_ = nullptr;
    char* limit_ = nullptr;
    PageLink* pages_ = nullptr;
    LargeLink* large_ = nullptr;
    size_t pageCount_ = 0;
    size_t largeBytes_ = 0;
};

}  // namespace Orvan::Framework::Internal
