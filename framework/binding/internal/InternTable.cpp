#include "framework/binding/internal/InternTable.h"

#include <cstdlib>
#include <new>

namespace Orvan::Framework::Internal {
namespace {

constexpr size_t kInitialBuckets = 16;

struct StaticEmptyEntry {
    InternEntry entry;
    char text[8];
};

// The hash is HashText of the empty text.
constinit StaticEmptyEntry gEmpty{{nullptr, 0, 1, 0, 0}, {}};

size_t EntrySize(size_t length) {
    return sizeof(InternEntry) + length + 1;
}

}  // namespace

InternEntry* InternTable::Empty() {
    return &gEmpty.entry;
}

// The entries live in the arena, which outlives the table and releases them.
InternTable::~InternTable() {
    std::free(buckets_);
}

InternEntry* InternTable::Insert(std::string_view text, uint32_t hash, uint64_t prefix) {
    if (bucketCount_ != 0) {
        for (InternEntry* entry = buckets_[hash & (bucketCount_ - 1)]; entry != nullptr;
             entry = entry->next) {
            if (entry->hash == hash && entry->length == text.size() &&
                std::memcmp(entry->Text(), text.data(), text.size()) == 0) {
                ++entry->refCount;
                return entry;
            }
        }
    }
    if (count_ + 1 > bucketCount_) {
        Grow();
    }
    void* memory = arena_.Allocate(EntrySize(text.size()));
    InternEntry** bucket = &buckets_[hash & (bucketCount_ - 1)];
    auto* entry = ::new (memory) InternEntry{*bucket, hash, 1, text.size(), prefix};
    char* copy = static_cast<char*>(memory) + sizeof(InternEntry);
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    *bucket = entry;
    ++count_;
    return entry;
}

const InternEntry* InternTable::Find(std::string_view text) const {
    if (text.empty()) {
        return Empty();
    }
    if (bucketCount_ == 0) {
        return nullptr;
    }
    uint32_t hash = HashText(text);
    for (InternEntry* entry = buckets_[hash & (bucketCount_ - 1)]; entry != nullptr;
         entry = entry->next) {
        if (entry->hash == hash && entry->View() == text) {
            return entry;
        }
    }
    return nullptr;
}

void InternTable::Remove(InternEntry* entry) {
    InternEntry** link = &buckets_[entry->hash & (bucketCount_ - 1)];
    while (*link != entry) {
        link = &(*link)->next;
    }
    *link = entry->next;
    --count_;
    InternEntry** set = &recent_[RecentSet(entry->prefix, entry->length) * kRecentWays];
    for (size_t way = 0; way < kRecentWays; ++way) {
        if (set[way] == entry) {
            set[way] = nullptr;
        }
    }
    arena_.Free(entry, EntrySize(entry->length));
}

void InternTable::Grow() {
    Rehash(bucketCount_ == 0 ? kInitialBuckets : bucketCount_ * 2);
}

void InternTable::Reserve(size_t count) {
    size_t wanted = kInitialBuckets;
    while (wanted < count && wanted < (size_t{1} << 24)) {
        wanted *= 2;
    }
    if (wanted > bucketCount_) {
        Rehash(wanted);
    }
}

void InternTable::Fit() {
    // Small tables are left as they are: rehashing costs more than they hold.
    constexpr size_t kWorthFitting = 4096;
    if (bucketCount_ < kWorthFitting) {
        return;
    }
    size_t wanted = kInitialBuckets;
    while (wanted < count_) {
        wanted *= 2;
    }
    if (bucketCount_ > 2 * wanted) {
        Rehash(wanted);
    }
}

void InternTable::Rehash(size_t newCount) {
    // An array of bucket heads: pointers, not entries.
    auto** fresh = static_cast<InternEntry**>(
        std::calloc(newCount, sizeof(InternEntry*)));  // NOLINT(bugprone-sizeof-expression)
    if (fresh == nullptr) {
        throw std::bad_alloc();
    }
    for (size_t i = 0; i < bucketCount_; ++i) {
        InternEntry* entry = buckets_[i];
        while (entry != nullptr) {
            InternEntry* next = entry->next;
            InternEntry** bucket = &fresh[entry->hash & (newCount - 1)];
            entry->next = *bucket;
            *bucket = entry;
            entry = next;
        }
    }
    std::free(buckets_);
    buckets_ = fresh;
    bucketCount_ = newCount;
}

}  // namespace Orvan::Framework::Internal
