// The plugin's shared object replaces the C++ allocation operators with ones
// that go through the module's counting hooks (ModuleMemory.h), so that
// MemoryStatistics covers every allocation of the module, including those of
// the C++ runtime linked into the object.
//
// This file is compiled only into the shared object, never into the
// framework's static libraries or the tests. It does not replace the host's
// allocator: the object exports nothing but its entry (a version script makes
// every other symbol local), so these definitions bind only the object's own
// references, and the C++ runtime is linked into the object statically so
// that its internal allocations pair with these operators as well. Every
// block still comes from the C runtime's malloc, and the host and the module
// never free each other's blocks (what crosses the boundary is released by
// the side that allocated it).
#include <cstddef>
#include <new>

#include "framework/host/ModuleMemory.h"

namespace {

namespace Memory = Orvan::Framework::ModuleMemory;

void* AllocateOrThrow(std::size_t size) {
    void* block = Memory::Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* AllocateAlignedOrThrow(std::size_t size, std::align_val_t alignment) {
    void* block = Memory::AllocateAligned(size, static_cast<std::size_t>(alignment));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Memory::Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Memory::Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateAlignedOrThrow(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return AllocateAlignedOrThrow(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Memory::AllocateAligned(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return Memory::AllocateAligned(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept {
    Memory::Free(block);
}
void operator delete[](void* block) noexcept {
    Memory::Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Memory::Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Memory::Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Memory::Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Memory::Free(block);
}
void operator delete(void* block, std::align_val_t alignment) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
void operator delete[](void* block, std::align_val_t alignment) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
void operator delete(void* block, std::size_t, std::align_val_t alignment) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
void operator delete[](void* block, std::size_t, std::align_val_t alignment) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
void operator delete(void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
void operator delete[](void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    Memory::FreeAligned(block, static_cast<std::size_t>(alignment));
}
