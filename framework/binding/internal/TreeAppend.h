// TreeAppend: the steps a wire reader takes to fill a fresh tree front to
// back, beside the general mutable access of BindingProperty.
//
// Documents repeat their records: the elements of an array, and the records
// nested at the same place in each of them, mostly carry the same names in
// the same (byte) order. A reader that holds the previous sibling as a model
// can check that the next name is the model's next name, and then append the
// field with the model's interned name: no ordering key, no search, no
// interning. The model's field count sizes the new field array exactly. A
// name the model lacks ends the model for that record, and the general path
// (MutableField) takes over; the fields appended so far are some of the
// model's names in order, so the structure is already what the general path
// would have built.
//
// Every function here expects a value inside a tree (an element, a field, or
// a standalone root) and keeps the tree's rules: names and texts are interned
// and counted, fields stay in byte order, arrays come from the tree's arena.
//
// Threads: as the tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "framework/binding/internal/BindingContext.h"

namespace Orvan::Framework::Internal {

inline StructureRecord* StructureOf(const BindingProperty& value) {
    return reinterpret_cast<StructureRecord*>(
        static_cast<uintptr_t>(BindingContext::Payload(value)));
}

inline CollectionRecord* CollectionOf(const BindingProperty& value) {
    return reinterpret_cast<CollectionRecord*>(
        static_cast<uintptr_t>(BindingContext::Payload(value)));
}

// Whether the stored text of `entry` is exactly `text`. Names are short, so
// the bytes are compared with whole-word loads rather than a library call.
inline bool SameText(const InternEntry* entry, std::string_view text) {
    size_t n = text.size();
    if (entry->length != n) {
        return false;
    }
    const char* a = entry->Text();
    const char* b = text.data();
    if (n >= 8) {
        uint64_t x;
        uint64_t y;
        for (size_t i = 0; i + 8 < n; i += 8) {
            std::memcpy(&x, a + i, 8);
            std::memcpy(&y, b + i, 8);
            if (x != y) {
                return false;
            }
        }
        std::memcpy(&x, a + n - 8, 8);
        std::memcpy(&y, b + n - 8, 8);
        return x == y;
    }
    if (n >= 4) {
        uint32_t x0;
        uint32_t y0;
        uint32_t x1;
        uint32_t y1;
        std::memcpy(&x0, a, 4);
        std::memcpy(&y0, b, 4);
        std::memcpy(&x1, a + n - 4, 4);
        std::memcpy(&y1, b + n - 4, 4);
        return x0 == y0 && x1 == y1;
    }
    for (size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}

// The position of `name` among the next few names of a model record from
// `next` on, or the record's size when it is not there. A record that lacks
// a name of its model (an optional field left out) can go on following the
// model past it: the model's names are in byte order, so any of its later
// names still sorts after every name taken before. Only a few names ahead
// are looked at, so a record unlike its model costs little.
inline size_t FindModelName(const StructureRecord& model, size_t next, std::string_view name) {
    constexpr size_t kLookAhead = 4;
    size_t end = model.size - next > kLookAhead ? next + kLookAhead : model.size;
    for (size_t i = next; i < end; ++i) {
        if (SameText(model.items[i].name, name)) {
            return i;
        }
    }
    return model.size;
}

// Makes `target` an empty structure (or collection) with room for exactly
// `capacity` entries (at most 2^20; more grow on demand).
void BeginSizedStructure(BindingProperty& target, size_t capacity);
void BeginSizedCollection(BindingProperty& target, size_t capacity);

// Gives the unused end of a structure's or collection's array back to the
// arena, so that a finished record holds only what it needs.
void TrimToSize(BindingProperty& container);

// Sizes the intern table of the tree of `root` (created when missing) for
// about `count` texts (a large count: the power of two at or below it), so
// that a reader that knows its input's size skips most of the table's growth
// steps.
void ReserveStrings(BindingProperty& root, size_t count);

// After reading: gives back the string buckets ReserveStrings made beyond
// what the texts read need (a document of numbers has few texts for its
// size), so the tree holds no more than its data needs.
void FitStrings(BindingProperty& root);

// Out of line: the array is full.
void GrowFieldsForAppend(BindingProperty& structure);

// Appends a field to a structure, taking a new reference to `name`, which
// must sort after every name already present (the caller's model promises
// it). Returns the new field, "empty".
inline BindingProperty& AppendField(BindingProperty& structure, InternEntry* name) {
    StructureRecord* record = StructureOf(structure);
    if (record->size == record->capacity) {
        GrowFieldsForAppend(structure);
    }
    FieldEntry* entry = record->items + record->size;
    ::new (static_cast<void*>(entry)) FieldEntry{name, BindingProperty()};
    BindingContext::Context(entry->value) = BindingContext::Context(structure);
    BindingContext::OwnsContext(entry->value) = 0;
    ++record->size;
    InternTable::Retain(name);
    return entry->value;
}

// Out of line: the array is full.
void GrowElementsForAppend(BindingProperty& collection);

// Appends an "empty" element to a collection and returns it.
inline BindingProperty& AppendElement(BindingProperty& collection) {
    CollectionRecord* record = CollectionOf(collection);
    if (record->size == record->capacity) {
        GrowElementsForAppend(collection);
    }
    BindingProperty* element =
        ::new (static_cast<void*>(record->items + record->size)) BindingProperty();
    BindingContext::Context(*element) = BindingContext::Context(collection);
    BindingContext::OwnsContext(*element) = 0;
    ++record->size;
    return *element;
}

// Makes the "empty" value `target` a scalar held inline (bool, signed,
// unsigned, float) with the given payload bits.
inline void SetInline(BindingProperty& target, BindingKind kind, uint64_t payload) {
    BindingContext::Kind(target) = kind;
    BindingContext::Payload(target) = payload;
}

// Makes the "empty" value `target` the string of `entry`, taking a reference.
inline void AdoptString(BindingProperty& target, InternEntry* entry) {
    InternTable::Retain(entry);
    BindingContext::Kind(target) = BindingKind::String;
    BindingContext::Payload(target) = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(entry));
}

// Makes the "empty" value `target` the string of `entry`, taking over a
// reference the caller already holds (a fresh Intern).
inline void TakeString(BindingProperty& target, InternEntry* entry) {
    BindingContext::Kind(target) = BindingKind::String;
    BindingContext::Payload(target) = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(entry));
}

inline InternEntry* StringEntryOf(const BindingProperty& value) {
    return reinterpret_cast<InternEntry*>(static_cast<uintptr_t>(BindingContext::Payload(value)));
}

}  // namespace Orvan::Framework::Internal
