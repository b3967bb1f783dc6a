// InternTable: the strings of one value tree, each stored once with a
// reference count, keyed by text through its 32-bit FNV-1a hash.
//
// The empty text is never stored: it is one static entry shared by every
// tree, and taking or dropping it touches no table. Entries never move, so a
// value may hold a pointer to its entry for as long as it holds a reference.
// A small direct-mapped cache of recent entries lets the texts that repeat
// through a tree (field names above all) skip hashing.
//
// Ownership: the table owns its entries, which live in the tree's arena (and
// go with it); an entry leaves the table when its count reaches zero. Threads: one thread at
// a time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "framework/binding/internal/BlockArena.h"

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

inline uint64_t ByteSwap(uint64_t value) {
#if defined(_MSC_VER) && !defined(__clang__)
    return _byteswap_uint64(value);
#else
    return __builtin_bswap64(value);
#endif
}

inline uint64_t LoadBigEndian64(const char* bytes) {
    uint64_t value;
    std::memcpy(&value, bytes, 8);
    if constexpr (std::endian::native == std::endian::little) {
        value = ByteSwap(value);
    }
    return value;
}

inline uint64_t LoadBigEndian32(const char* bytes) {
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return (uint64_t{b[0]} << 24) | (uint64_t{b[1]} << 16) | (uint64_t{b[2]} << 8) | b[3];
}

// The first eight bytes of a text as a number that orders like the bytes
// (unsigned, zero-padded), so most name comparisons are one integer compare.
// Built from whole loads: short texts are read as two overlapping words.
inline uint64_t PrefixKey(const char* text, size_t length) {
    if (length >= 8) {
        return LoadBigEndian64(text);
    }
    if (length >= 4) {
        return (LoadBigEndian32(text) << 32) |
               (LoadBigEndian32(text + length - 4) << (64 - 8 * length));
    }
    const auto* b = reinterpret_cast<const unsigned char*>(text);
    uint64_t value = 0;
    if (length >= 1) {
        value |= uint64_t{b[0]} << 56;
    }
    if (length >= 2) {
        value |= uint64_t{b[1]} << 48;
    }
    if (length >= 3) {
        value |= uint64_t{b[2]} << 40;
    }
    return value;
}

// Followed in memory by the text and a terminating NUL.
struct InternEntry {
    InternEntry* next;
    uint32_t hash;
    uint32_t refCount;
    size_t length;
    uint64_t prefix;  // PrefixKey of the text

    const char* Text() const { return reinterpret_cast<const char*>(this) + sizeof(InternEntry); }
    std::string_view View() const { return {Text(), length}; }
};

class InternTable {
public:
    explicit InternTable(BlockArena& arena) : arena_(arena) {}
    ~InternTable();
    InternTable(const InternTable&) = delete;
    InternTable& operator=(const InternTable&) = delete;

    // The shared entry of the empty text; its count is never changed.
    static InternEntry* Empty();

    // A new reference to the entry of `text`, inserted when missing.
    InternEntry* Intern(std::string_view text) {
        return text.empty() ? Empty() : Intern(text, PrefixKey(text.data(), text.size()));
    }
    // As above with the text's PrefixKey already known; `text` is not empty.
    InternEntry* Intern(std::string_view text, uint64_t prefix) {
        InternEntry** set = &recent_[RecentSet(prefix, text.size()) * kRecentWays];
        for (size_t way = 0; way < kRecentWays; ++way) {
            InternEntry* entry = set[way];
            if (entry != nullptr && entry->prefix == prefix && entry->length == text.size() &&
                (text.size() <= 8 ||
                 std::memcmp(entry->Text() + 8, text.data() + 8, text.size() - 8) == 0)) {
                ++entry->refCount;
                set[way] = set[0];
                set[0] = entry;
                return entry;
            }
        }
        InternEntry* entry = Insert(text, Fnv1a(text), prefix);
        // A text enters its set in the older way and moves to the front only
        // when it is met again, so a stream of unique values cannot evict the
        // names that repeat, and a text met twice is hashed once.
        set[1] = entry;
        return entry;
    }
    // A reference to the entry of a text held by another tree's entry.
    InternEntry* InternCopy(const InternEntry& source) {
        return source.length == 0 ? Empty() : Insert(source.View(), source.hash, source.prefix);
    }

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

    // Makes room for `count` entries without growing (a hint: the table
    // still grows past it).
    void Reserve(size_t count);
    // Gives back buckets a Reserve made beyond what the entries need, when
    // they are more than twice as many as needed and more than a few
    // thousand.
    void Fit();

    size_t Count() const { return count_; }
    size_t BucketCount() const { return bucketCount_; }
    // The entry of `text` if present, without taking a reference.
    const InternEntry* Find(std::string_view text) const;

private:
    // Two-way sets, most recent first.
    static constexpr size_t kRecentWays = 2;
    static constexpr size_t kRecentSets = 64;

    static size_t RecentSet(uint64_t prefix, size_t length) {
        uint64_t mixed = (prefix ^ (length * 0x9E3779B97F4A7C15ull)) * 0xBF58476D1CE4E5B9ull;
        return static_cast<size_t>(mixed >> 58);
    }

    InternEntry* Insert(std::string_view text, uint32_t hash, uint64_t prefix);
    void Remove(InternEntry* entry);
    void Grow();
    void Rehash(size_t newCount);

    BlockArena& arena_;
    InternEntry** buckets_ = nullptr;
    size_t bucketCount_ = 0;  // zero or a power of two
    size_t count_ = 0;
    InternEntry* recent_[kRecentSets * kRecentWays] = {};
};

}  // namespace Orvan::Framework::Internal
