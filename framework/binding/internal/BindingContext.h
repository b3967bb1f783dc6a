// BindingContext: the storage shared by one tree of BindingProperty values:
// the string intern table and the four record pools (blob, enum, collection
// and structure records).
//
// The records of composite values come from the pools; interned texts and
// the element and field arrays of collections and structures come from the
// tree's block arena (the largest arrays from the general heap).
//
// Ownership: created on first need by the standalone value at the root of a
// tree, destroyed by it after it has cleared itself. Threads: one thread at a
// time, like the tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/internal/BlockArena.h"
#include "framework/binding/internal/InternTable.h"
#include "framework/binding/internal/SlotPool.h"

namespace Orvan::Framework {

namespace Internal {

struct BlobRecord {
    std::vector<uint8_t> bytes;
};

// Counts of a collection's or structure's entries. Thirty-two bits keep a
// record at sixteen bytes (one per container of a tree); the arrays that
// would need more are refused where they grow.
using EntryCount = uint32_t;
constexpr size_t kMaxEntries = UINT32_MAX;

struct CollectionRecord {
    BindingProperty* items;
    EntryCount size;
    EntryCount capacity;
};

// One field of a structure; the entries of a structure are contiguous and
// sorted by name, which is what BindingProperty::FieldIterator walks.
struct FieldEntry {
    InternEntry* name;
    BindingProperty value;
};

struct StructureRecord {
    FieldEntry* items;
    EntryCount size;
    EntryCount capacity;
};

}  // namespace Internal

class BindingContext {
public:
    BindingContext()
        : strings_(arena_),
          blobs_(sizeof(Internal::BlobRecord)),
          enums_(sizeof(BindingEnumValue)),
          collections_(sizeof(Internal::CollectionRecord)),
          structures_(sizeof(Internal::StructureRecord)) {}
    BindingContext(const BindingContext&) = delete;
    BindingContext& operator=(const BindingContext&) = delete;

    Internal::BlockArena& Arena() { return arena_; }
    Internal::InternTable& Strings() { return strings_; }
    Internal::SlotPool& Blobs() { return blobs_; }
    Internal::SlotPool& Enums() { return enums_; }
    Internal::SlotPool& Collections() { return collections_; }
    Internal::SlotPool& Structures() { return structures_; }

    // Bytes the tree holds: its pages, its heap blocks and its string
    // table's buckets.
    size_t AllocatedBytes() const;
    size_t PageCount() const {
        return arena_.PageCount() + blobs_.PageCount() + enums_.PageCount() +
               collections_.PageCount() + structures_.PageCount();
    }

    // Access to the handle's parts for the storage code of this library.
    static uint64_t& Payload(BindingProperty& value) { return value.payload_; }
    static uint64_t Payload(const BindingProperty& value) { return value.payload_; }
    static BindingContext*& Context(BindingProperty& value) { return value.context_; }
    static BindingContext* Context(const BindingProperty& value) { return value.context_; }
    static BindingKind& Kind(BindingProperty& value) { return value.kind_; }
    static uint8_t& OwnsContext(BindingProperty& value) { return value.ownsContext_; }
    static uint8_t OwnsContext(const BindingProperty& value) { return value.ownsContext_; }

    // The context a value stores into, created when a standalone value has
    // none yet.
    // Where the last field added to a structure of a given size went. Trees
    // hold many records built by the same code in the same order, so the
    // next structure of that size most likely puts its field there too; a
    // hint is only a guess, checked before use.
    static constexpr size_t kInsertHints = 32;
    uint8_t insertHints[kInsertHints] = {};

    static BindingContext& Ensure(BindingProperty& value) {
        return value.context_ != nullptr ? *value.context_ : Create(value);
    }

private:
    static BindingContext& Create(BindingProperty& value);

    // Declared first: the table returns its entries to the arena.
    Internal::BlockArena arena_;
    Internal::InternTable strings_;
    Internal::SlotPool blobs_;
    Internal::SlotPool enums_;
    Internal::SlotPool collections_;
    Internal::SlotPool structures_;
};

}  // namespace Orvan::Framework
