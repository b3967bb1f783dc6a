// InternTable: the strings of one value tree, each stored once with a
// reference count, keyed by text through a 32-bit hash taken a word at a time.
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

inline uint64_t RotateLeft(uint64_t value, int bits) {
    return (value << bits) | (value >> (64 - bits));
}

// The hash of a text, a word at a time (eight bytes a step, four on 32-bit
// builds, where a 64-bit multiply costs three). `prefix` is the text's
// PrefixKey: for a text of at most eight bytes it holds the whole text, so
// short names (most of them) cost one mixing step and no further load. Every
// path that stores or looks up an entry hashes through here, so one build
// always agrees with itself; nothing keeps the value beyond the table.
inline uint32_t HashText(const char* text, size_t length, uint64_t prefix) {
    constexpr uint64_t kLengthMul = 0x9E3779B97F4A7C15ull;
    constexpr uint64_t kFinalMul = 0xD6E8FEB86659FD93ull;
    uint64_t hash = prefix ^ (length * kLengthMul);
    if (length > 8) {
#if UINTPTR_MAX > 0xFFFFFFFFu
        constexpr uint64_t kWordMul = 0xFF51AFD7ED558CCDull;
        hash *= kWordMul;
        // Whole words after the prefix, then the last eight bytes, which may
        // overlap bytes already taken (the length tells such texts apart).
        size_t at = 8;
        if (length > 8 + 64) {
            // Long texts (bodies, descriptions) in four independent lanes,
            // so the multiplies overlap instead of waiting on each other.
            uint64_t lanes[4] = {hash, hash ^ kLengthMul, hash ^ kFinalMul, ~hash};
            for (; at + 32 < length; at += 32) {
                for (size_t lane = 0; lane < 4; ++lane) {
                    uint64_t word;
                    std::memcpy(&word, text + at + 8 * lane, 8);
                    lanes[lane] = (RotateLeft(lanes[lane], 23) ^ word) * kWordMul;
                }
            }
            hash = lanes[0] ^ RotateLeft(lanes[1], 16) ^ RotateLeft(lanes[2], 32) ^
                   RotateLeft(lanes[3], 48);
            hash *= kWordMul;
        }
        for (; at + 8 < length; at += 8) {
            uint64_t word;
            std::memcpy(&word, text + at, 8);
            hash = (RotateLeft(hash, 23) ^ word) * kWordMul;
        }
        uint64_t last;
        std::memcpy(&last, text + length - 8, 8);
        hash = (RotateLeft(hash, 23) ^ last) * kWordMul;
#else
        constexpr uint32_t kWordMul = 0x85EBCA6Bu;
        uint32_t narrow = static_cast<uint32_t>(hash ^ (hash >> 32)) * kWordMul;
        size_t at = 8;
        for (; at + 4 < length; at += 4) {
            uint32_t word;
            std::memcpy(&word, text + at, 4);
            narrow = (((narrow << 13) | (narrow >> 19)) ^ word) * kWordMul;
        }
        uint32_t last;
        std::memcpy(&last, text + length - 4, 4);
        narrow = (((narrow << 13) | (narrow >> 19)) ^ last) * kWordMul;
        hash ^= narrow;
#endif
    }
    hash ^= hash >> 32;
    hash *= kFinalMul;
    hash ^= hash >> 32;
    return static_cast<uint32_t>(hash);
}

inline uint32_t HashText(std::string_view text) {
    return HashText(text.data(), text.size(), PrefixKey(text.data(), text.size()));
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
        InternEntry* entry = Insert(text, HashText(text.data(), text.size(), prefix), prefix);
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
