// InternTable: the strings of one value tree, each stored once with a
// reference count, keyed by text through its 32-bit FNV-1a hash.
//
// The empty text is never stored: it is one static entry shared by every
// tree, and taking or dropping it touches no table. Entries never move, so a
// value may hold a pointer to its entry for as long as it holds a reference.
//
// Ownership: the table owns its entries; an entry leaves the table when its
// count reaches zero. Threads: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Orvan::Framework::Internal {

constexpr uint32_t kFnvOffsetBasis = 0x811c9dc5u;
constexpr uint32_t kFnvPrime = 16777619u;

inline uint32_t Fnv1a(std::string_view text) {
    uint32_t hash = kFnvOffsetBasis;
    for (unsigned char byte : text) {
        hash = (hash ^ byte) * kFnvPrime;
    }
    return hash;
}

// Followed in memory by the text and a terminating NUL.
struct InternEntry {
    InternEntry* next;
    uint32_t hash;
    uint32_t refCount;
    size_t length;

    const char* Text() const { return reinterpret_cast<const char*>(this) + sizeof(InternEntry); }
    std::string_view View() const { return {Text(), length}; }
};

class InternTable {
public:
    InternTable() = default;
    ~InternTable();
    InternTable(const InternTable&) = delete;
    InternTable& operator=(const InternTable&) = delete;

    // The shared entry of the empty text; its count is never changed.
    static InternEntry* Empty();

    // A new reference to the entry of `text`, inserted when missing.
    InternEntry* Intern(std::string_view text) {
        return text.empty() ? Empty() : Intern(text, Fnv1a(text));
    }
    // As above with the hash already known (copies between trees).
    InternEntry* Intern(std::string_view text, uint32_t hash);

    static void Retain(InternEntry* entry) {
        if (entry->length != 0) {
            ++entry->refCount;
        }
    }
    void Release(InternEntry* entry) {
        if (entry->length != 0 && --entry->refCount == 0) {
            Remove(entry);
        }
    }

    size_t Count() const { return count_; }
    size_t BucketCount() const { return bucketCount_; }
    // The entry of `text` if present, without taking a reference.
    const InternEntry* Find(std::string_view text) const;

private:
    void Remove(InternEntry* entry);
    void Grow();

    InternEntry** buckets_ = nullptr;
    size_t bucketCount_ = 0;  // zero or a power of two
    size_t count_ = 0;
};

}  // namespace Orvan::Framework::Internal
