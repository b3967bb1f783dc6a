#include "framework/binding/BindingProperty.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "framework/binding/internal/BindingContext.h"
#include "framework/binding/internal/TreeAppend.h"
#include "framework/platform/PageSource.h"

namespace Orvan::Framework {

using Internal::BlobRecord;
using Internal::CollectionRecord;
using Internal::EntryCount;
using Internal::FieldEntry;
using Internal::InternEntry;
using Internal::InternTable;
using Internal::kMaxEntries;
using Internal::StructureRecord;
using Access = BindingContext;

#if defined(__GNUC__) || defined(__clang__)
#define QEL_HOT_INLINE [[gnu::always_inline]] inline
#elif defined(_MSC_VER)
#define QEL_HOT_INLINE __forceinline
#else
#define QEL_HOT_INLINE inline
#endif

namespace {

constexpr const char* kKindNames[] = {"empty",  "bool", "signed", "unsigned",   "float",
                                      "string", "blob", "enum",   "collection", "structure"};

// Reservations beyond this are taken as a hint too large to trust (counts
// read from a message header); the array still grows on demand past it.
constexpr size_t kMaxReserve = size_t{1} << 20;
constexpr size_t kFirstCapacity = 4;
// Records mostly carry more than a handful of fields.
constexpr size_t kFirstFieldCapacity = 8;

struct Handle {
    BindingKind kind;
    uint64_t payload;
};

template <class T>
T* As(uint64_t payload) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(payload));
}

uint64_t FromPointer(const void* pointer) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer));
}

bool IsLeafStorage(BindingKind kind) {
    return kind == BindingKind::String || kind == BindingKind::Blob || kind == BindingKind::Enum;
}

bool IsComposite(BindingKind kind) {
    return kind == BindingKind::Collection || kind == BindingKind::Structure;
}

// Whether copying a value of this kind needs storage in the target's context.
bool NeedsStorage(const BindingProperty& value) {
    BindingKind kind = value.Kind();
    if (kind == BindingKind::String) {
        return As<InternEntry>(Access::Payload(value))->length != 0;
    }
    return static_cast<uint8_t>(kind) > static_cast<uint8_t>(BindingKind::String);
}

// A stack for the iterative walks, so that a tree nested thousands deep is
// freed, copied and compared without deep recursion. Spills to the heap only
// past its inline capacity.
template <class T, size_t N = 64>
class WorkStack {
public:
    void Push(const T& item) {
        if (size_ < N) {
            inline_[size_++] = item;
        } else {
            spill_.push_back(item);
        }
    }
    bool Pop(T& item) {
        if (!spill_.empty()) {
            item = spill_.back();
            spill_.pop_back();
            return true;
        }
        if (size_ == 0) {
            return false;
        }
        item = inline_[--size_];
        return true;
    }

private:
    T inline_[N];
    size_t size_ = 0;
    std::vector<T> spill_;
};

template <class T>
T* AllocateArray(BindingContext& context, size_t count) {
    if (count > std::numeric_limits<size_t>::max() / sizeof(T)) {
        throw std::length_error("BindingProperty: too many elements");
    }
    return static_cast<T*>(context.Arena().Allocate(count * sizeof(T)));
}

template <class T>
void FreeArray(BindingContext& context, T* items, size_t capacity) {
    context.Arena().Free(items, capacity * sizeof(T));
}

// Makes `slot` (raw storage) an empty value inside the tree of `context`.
void ConstructChild(BindingProperty* slot, BindingContext* context) {
    ::new (slot) BindingProperty();
    Access::Context(*slot) = context;
    Access::OwnsContext(*slot) = 0;
}

void ConstructField(FieldEntry* slot, InternEntry* name, BindingContext* context) {
    ::new (slot) FieldEntry{name, BindingProperty()};
    Access::Context(slot->value) = context;
    Access::OwnsContext(slot->value) = 0;
}

// Handles and field entries are plain data with no pointers into
// themselves, so moving them is moving their bytes; the source bytes are dead
// afterwards and never destroyed. Arrays of them grow and shift this way
// rather than through the (deep) copy and move of BindingProperty.
static_assert(std::is_standard_layout_v<BindingProperty>);
static_assert(std::is_standard_layout_v<FieldEntry>);

// Copies whole elements in the direction that is safe for overlap; short
// runs (the usual shift of a few fields) stay inline.
template <class T>
QEL_HOT_INLINE void RelocateRange(T* target, const T* source, size_t count) {
    constexpr size_t kInlineCount = 8;
    if (count == 0 || target == source) {
        return;
    }
    if (count > kInlineCount) {
        std::memmove(static_cast<void*>(target), static_cast<const void*>(source),
                     count * sizeof(T));
        return;
    }
    unsigned char buffer[sizeof(T)];
    if (target > source) {
        for (size_t i = count; i-- > 0;) {
            std::memcpy(buffer, static_cast<const void*>(source + i), sizeof(T));
            std::memcpy(static_cast<void*>(target + i), buffer, sizeof(T));
        }
    } else {
        for (size_t i = 0; i < count; ++i) {
            std::memcpy(buffer, static_cast<const void*>(source + i), sizeof(T));
            std::memcpy(static_cast<void*>(target + i), buffer, sizeof(T));
        }
    }
}

void ReleaseLeaf(BindingContext* context, BindingKind kind, uint64_t payload) {
    switch (kind) {
        case BindingKind::String: {
            auto* entry = As<InternEntry>(payload);
            if (entry->length != 0) {
                context->Strings().Release(entry);
            }
            break;
        }
        case BindingKind::Blob: {
            auto* record = As<BlobRecord>(payload);
            record->~BlobRecord();
            context->Blobs().Free(record);
            break;
        }
        case BindingKind::Enum:
            context->Enums().Free(As<BindingEnumValue>(payload));
            break;
        default:
            break;
    }
}

// Returns every record of the tree under `root` to its pool.
void FreeTree(BindingContext* context, Handle root) {
    if (IsLeafStorage(root.kind)) {
        ReleaseLeaf(context, root.kind, root.payload);
        return;
    }
    if (!IsComposite(root.kind)) {
        return;
    }
    WorkStack<Handle> pending;
    pending.Push(root);
    Handle node;
    auto visit = [&](const BindingProperty& child) {
        BindingKind kind = child.Kind();
        if (IsComposite(kind)) {
            pending.Push({kind, Access::Payload(child)});
        } else if (IsLeafStorage(kind)) {
            ReleaseLeaf(context, kind, Access::Payload(child));
        }
    };
    while (pending.Pop(node)) {
        if (node.kind == BindingKind::Collection) {
            auto* record = As<CollectionRecord>(node.payload);
            for (size_t i = 0; i < record->size; ++i) {
                visit(record->items[i]);
            }
            FreeArray(*context, record->items, record->capacity);
            context->Collections().Free(record);
        } else {
            auto* record = As<StructureRecord>(node.payload);
            for (size_t i = 0; i < record->size; ++i) {
                context->Strings().Release(record->items[i].name);
                visit(record->items[i].value);
            }
            FreeArray(*context, record->items, record->capacity);
            context->Structures().Free(record);
        }
    }
}

struct CopyTask {
    const BindingProperty* source;
    BindingProperty* target;
};

// The state of one deep copy: the nodes still to copy and a memo of the
// texts already carried over, since a tree repeats its field names and
// common values many times.
struct CopyState {
    struct Translation {
        const InternEntry* from;
        InternEntry* to;
    };
    static constexpr size_t kMemoSlots = 64;

    WorkStack<CopyTask> pending;
    Translation memo[kMemoSlots] = {};
};

InternEntry* InternInto(BindingContext& context, const BindingProperty& owner, InternEntry* entry,
                        CopyState& state) {
    if (entry->length == 0 || Access::Context(owner) == &context) {
        InternTable::Retain(entry);
        return entry;
    }
    auto& slot = state.memo[(reinterpret_cast<uintptr_t>(entry) >> 5) % CopyState::kMemoSlots];
    if (slot.from == entry) {
        InternTable::Retain(slot.to);
        return slot.to;
    }
    InternEntry* copy = context.Strings().InternCopy(*entry);
    slot = {entry, copy};
    return copy;
}

// Copies one node into `context`; children of composites are created empty
// and queued, except for inline scalars, which are copied on the spot.
Handle CopyNode(BindingContext& context, const BindingProperty& source, CopyState& state) {
    WorkStack<CopyTask>& pending = state.pending;
    BindingKind kind = source.Kind();
    uint64_t payload = Access::Payload(source);
    auto copyChild = [&](const BindingProperty& from, BindingProperty& to) {
        if (IsLeafStorage(from.Kind()) || IsComposite(from.Kind())) {
            pending.Push({&from, &to});
        } else {
            Access::Kind(to) = from.Kind();
            Access::Payload(to) = Access::Payload(from);
        }
    };
    switch (kind) {
        case BindingKind::String:
            return {kind,
                    FromPointer(InternInto(context, source, As<InternEntry>(payload), state))};
        case BindingKind::Blob: {
            std::vector<uint8_t> bytes = As<BlobRecord>(payload)->bytes;
            void* slot = context.Blobs().Allocate();
            return {kind, FromPointer(::new (slot) BlobRecord{std::move(bytes)})};
        }
        case BindingKind::Enum: {
            void* slot = context.Enums().Allocate();
            return {kind,
                    FromPointer(::new (slot) BindingEnumValue(*As<BindingEnumValue>(payload)))};
        }
        case BindingKind::Collection: {
            const auto* from = As<CollectionRecord>(payload);
            BindingProperty* items =
                from->size ? AllocateArray<BindingProperty>(context, from->size) : nullptr;
            void* slot = context.Collections().Allocate();
            auto* record = ::new (slot) CollectionRecord{items, from->size, from->size};
            for (size_t i = 0; i < from->size; ++i) {
                ConstructChild(&items[i], &context);
                copyChild(from->items[i], items[i]);
            }
            return {kind, FromPointer(record)};
        }
        case BindingKind::Structure: {
            const auto* from = As<StructureRecord>(payload);
            FieldEntry* items =
                from->size ? AllocateArray<FieldEntry>(context, from->size) : nullptr;
            void* slot = context.Structures().Allocate();
            auto* record = ::new (slot) StructureRecord{items, from->size, from->size};
            for (size_t i = 0; i < from->size; ++i) {
                ConstructField(&items[i], InternInto(context, source, from->items[i].name, state),
                               &context);
                copyChild(from->items[i].value, items[i].value);
            }
            return {kind, FromPointer(record)};
        }
        default:
            return {kind, payload};
    }
}

// A deep copy of `source` whose records live in `context` (which may be
// null only when the source needs no storage). The source is not changed.
Handle CopyTree(BindingContext* context, const BindingProperty& source) {
    if (!NeedsStorage(source)) {
        return {source.Kind(), Access::Payload(source)};
    }
    CopyState state;
    Handle root = CopyNode(*context, source, state);
    CopyTask task;
    while (state.pending.Pop(task)) {
        Handle copy = CopyNode(*context, *task.source, state);
        Access::Kind(*task.target) = copy.kind;
        Access::Payload(*task.target) = copy.payload;
    }
    return root;
}

// Replaces the content of `target` with a deep copy of `source`. The copy is
// built before anything is released, so source and target may be parts of
// one tree (either inside the other); `clearSource` is cleared before the
// old content of the target is freed.
void AssignCopy(BindingProperty& target, const BindingProperty& source,
                BindingProperty* clearSource) {
    BindingContext* context =
        NeedsStorage(source) ? &BindingContext::Ensure(target) : Access::Context(target);
    Handle fresh = CopyTree(context, source);
    Handle old{target.Kind(), Access::Payload(target)};
    Access::Kind(target) = fresh.kind;
    Access::Payload(target) = fresh.payload;
    if (clearSource != nullptr) {
        clearSource->Clear();
    }
    FreeTree(context, old);
}

struct ComparePair {
    const BindingProperty* left;
    const BindingProperty* right;
};

bool SameString(const InternEntry* left, const InternEntry* right) {
    if (left == right) {
        return true;
    }
    return left->hash == right->hash && left->length == right->length &&
           std::memcmp(left->Text(), right->Text(), left->length) == 0;
}

// Compares one node; pairs of children that need a walk of their own are
// queued.
bool NodeEqual(const BindingProperty& left, const BindingProperty& right,
               WorkStack<ComparePair>& pending) {
    BindingKind kind = left.Kind();
    if (kind != right.Kind()) {
        return false;
    }
    uint64_t a = Access::Payload(left);
    uint64_t b = Access::Payload(right);
    switch (kind) {
        case BindingKind::Empty:
            return true;
        case BindingKind::Bool:
        case BindingKind::Signed:
        case BindingKind::Unsigned:
        case BindingKind::Blob:
            return a == b;
        case BindingKind::Float:
            return std::bit_cast<double>(a) == std::bit_cast<double>(b);
        case BindingKind::String:
            return SameString(As<InternEntry>(a), As<InternEntry>(b));
        case BindingKind::Enum: {
            const auto* x = As<BindingEnumValue>(a);
            const auto* y = As<BindingEnumValue>(b);
            return x->type == y->type && x->value == y->value;
        }
        case BindingKind::Collection: {
            const auto* x = As<CollectionRecord>(a);
            const auto* y = As<CollectionRecord>(b);
            if (x->size != y->size) {
                return false;
            }
            for (size_t i = 0; i < x->size; ++i) {
                pending.Push({&x->items[i], &y->items[i]});
            }
            return true;
        }
        case BindingKind::Structure: {
            const auto* x = As<StructureRecord>(a);
            const auto* y = As<StructureRecord>(b);
            if (x->size != y->size) {
                return false;
            }
            for (size_t i = 0; i < x->size; ++i) {
                if (!SameString(x->items[i].name, y->items[i].name)) {
                    return false;
                }
                pending.Push({&x->items[i].value, &y->items[i].value});
            }
            return true;
        }
    }
    return false;
}

bool HasZeroByte(uint64_t word) {
    return ((word - 0x0101010101010101ull) & ~word & 0x8080808080808080ull) != 0;
}

uint64_t LoadWord(const char* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, 8);
    return word;
}

uint32_t LoadHalfWord(const char* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, 4);
    return word;
}

// A name being looked up, with its ordering key.
struct NameKey {
    std::string_view text;
    uint64_t prefix;
};

// Only reached when the name holds a NUL.
[[gnu::noinline]] NameKey MakeKeySlow(std::string_view name) {
    const void* nul = std::memchr(name.data(), '\0', name.size());
    name = name.substr(0, static_cast<size_t>(static_cast<const char*>(nul) - name.data()));
    return {name, Internal::PrefixKey(name.data(), name.size())};
}

// A name is the text up to its first NUL, as it would be in C. The common
// short name is checked for NULs with the same whole-word loads that make
// its prefix key.
QEL_HOT_INLINE NameKey MakeKey(std::string_view name) {
    const char* text = name.data();
    size_t length = name.size();
    if (length >= 8 && length <= 16) {
        uint64_t first = LoadWord(text);
        if (!HasZeroByte(first) && !HasZeroByte(LoadWord(text + length - 8))) {
            if constexpr (std::endian::native == std::endian::little) {
                first = Internal::ByteSwap(first);
            }
            return {name, first};
        }
        return MakeKeySlow(name);
    }
    if (length >= 4 && length < 8) {
        uint32_t first = LoadHalfWord(text);
        uint32_t last = LoadHalfWord(text + length - 4);
        if (((first - 0x01010101u) & ~first & 0x80808080u) == 0 &&
            ((last - 0x01010101u) & ~last & 0x80808080u) == 0) {
            return {name, Internal::PrefixKey(text, length)};
        }
        return MakeKeySlow(name);
    }
    if (length > 16) {
        for (size_t i = 0; i + 8 < length; i += 8) {
            if (HasZeroByte(LoadWord(text + i))) {
                return MakeKeySlow(name);
            }
        }
        if (HasZeroByte(LoadWord(text + length - 8))) {
            return MakeKeySlow(name);
        }
        return {name, Internal::PrefixKey(text, length)};
    }
    for (size_t i = 0; i < length; ++i) {
        if (text[i] == '\0') {
            return MakeKeySlow(name);
        }
    }
    return {name, Internal::PrefixKey(text, length)};
}

// Names compare as NUL-terminated texts of unsigned bytes; stored names never
// hold a NUL, so the zero-padded prefix keys decide unless the first eight
// bytes agree; then the rest of the bytes, then the length.
[[gnu::noinline]] int CompareNameTail(const InternEntry* name, const NameKey& key) {
    size_t length = key.text.size();
    if (name->length > 8 && length > 8) {
        size_t common = std::min(name->length, length) - 8;
        int order = std::memcmp(name->Text() + 8, key.text.data() + 8, common);
        if (order != 0) {
            return order;
        }
    }
    return name->length < length ? -1 : (name->length > length ? 1 : 0);
}

bool NameBefore(const InternEntry* name, const NameKey& key) {
    if (name->prefix != key.prefix) {
        return name->prefix < key.prefix;
    }
    return CompareNameTail(name, key) < 0;
}

bool NameAfter(const InternEntry* name, const NameKey& key) {
    if (name->prefix != key.prefix) {
        return name->prefix > key.prefix;
    }
    return CompareNameTail(name, key) > 0;
}

bool NameEquals(const InternEntry* name, const NameKey& key) {
    return name->prefix == key.prefix && CompareNameTail(name, key) == 0;
}

InternEntry* InternName(BindingContext& context, const NameKey& key) {
    return key.text.empty() ? InternTable::Empty() : context.Strings().Intern(key.text, key.prefix);
}

// The position of `name` in the structure, or where it would be inserted.
bool FindField(const StructureRecord& record, const NameKey& name, size_t& position) {
    const FieldEntry* items = record.items;
    size_t count = record.size;
    // Builders mostly add names in order; check the end first.
    if (count == 0 || NameBefore(items[count - 1].name, name)) {
        position = count;
        return false;
    }
    size_t low = 0;
    while (count > 0) {
        size_t half = count / 2;
        if (NameBefore(items[low + half].name, name)) {
            low += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    position = low;
    return NameEquals(items[low].name, name);
}

// As FindField, but first tries the context's hint for a structure of this
// size: a name that sorts strictly between the hinted neighbours is missing
// and goes there.
bool FindFieldForInsert(BindingContext& context, const StructureRecord& record, const NameKey& name,
                        size_t& position) {
    size_t size = record.size;
    if (size < BindingContext::kInsertHints) {
        size_t hint = context.insertHints[size];
        if (hint <= size && (hint == 0 || NameBefore(record.items[hint - 1].name, name)) &&
            (hint == size || NameAfter(record.items[hint].name, name))) {
            position = hint;
            return false;
        }
        bool found = FindField(record, name, position);
        if (!found) {
            context.insertHints[size] = static_cast<uint8_t>(position);
        }
        return found;
    }
    return FindField(record, name, position);
}

// The capacity an array grows to: doubled (or `first` for none), at least
// `wanted`, within what a record counts.
EntryCount GrownCapacity(size_t current, size_t wanted, size_t first) {
    if (wanted > kMaxEntries) {
        throw std::length_error("BindingProperty: too many elements");
    }
    size_t doubled =
        current == 0 ? first : (current >= kMaxEntries / 2 ? kMaxEntries : current * 2);
    return static_cast<EntryCount>(std::max(wanted, doubled));
}

void GrowCollection(BindingContext& context, CollectionRecord& record, size_t wanted) {
    EntryCount capacity = GrownCapacity(record.capacity, wanted, kFirstCapacity);
    BindingProperty* items = AllocateArray<BindingProperty>(context, capacity);
    RelocateRange(items, record.items, record.size);
    FreeArray(context, record.items, record.capacity);
    record.items = items;
    record.capacity = capacity;
}

void GrowStructure(BindingContext& context, StructureRecord& record, size_t wanted) {
    EntryCount capacity = GrownCapacity(record.capacity, wanted, kFirstCapacity);
    FieldEntry* items = AllocateArray<FieldEntry>(context, capacity);
    RelocateRange(items, record.items, record.size);
    FreeArray(context, record.items, record.capacity);
    record.items = items;
    record.capacity = capacity;
}

// Moves the fields to a larger array, leaving a gap at `position`.
[[gnu::noinline]] void GrowStructureWithGap(BindingContext& context, StructureRecord& record,
                                            size_t position) {
    EntryCount capacity =
        GrownCapacity(record.capacity, size_t{record.size} + 1, kFirstFieldCapacity);
    FieldEntry* items = AllocateArray<FieldEntry>(context, capacity);
    RelocateRange(items, record.items, position);
    RelocateRange(items + position + 1, record.items + position, record.size - position);
    FreeArray(context, record.items, record.capacity);
    record.items = items;
    record.capacity = capacity;
}

QEL_HOT_INLINE BindingProperty& InsertField(BindingContext* context, StructureRecord& record,
                                            size_t position, InternEntry* name) {
    if (record.size == record.capacity) {
        GrowStructureWithGap(*context, record, position);
    } else {
        RelocateRange(record.items + position + 1, record.items + position, record.size - position);
    }
    FieldEntry* entry = &record.items[position];
    ConstructField(entry, name, context);
    ++record.size;
    return entry->value;
}

int64_t TruncateToSigned(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 9223372036854775808.0) {
        return std::numeric_limits<int64_t>::max();
    }
    if (value < -9223372036854775808.0) {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(value);
}

// Negative values wrap as strtoull wraps "-1".
uint64_t TruncateToUnsigned(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 18446744073709551616.0) {
        return std::numeric_limits<uint64_t>::max();
    }
    if (value <= -1.0) {
        return static_cast<uint64_t>(TruncateToSigned(value));
    }
    return static_cast<uint64_t>(value);
}

std::string Base64(std::span<const uint8_t> bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t group = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        text.push_back(kAlphabet[(group >> 18) & 63]);
        text.push_back(kAlphabet[(group >> 12) & 63]);
        text.push_back(kAlphabet[(group >> 6) & 63]);
        text.push_back(kAlphabet[group & 63]);
    }
    size_t rest = bytes.size() - i;
    if (rest != 0) {
        uint32_t group = uint32_t{bytes[i]} << 16;
        if (rest == 2) {
            group |= uint32_t{bytes[i + 1]} << 8;
        }
        text.push_back(kAlphabet[(group >> 18) & 63]);
        text.push_back(kAlphabet[(group >> 12) & 63]);
        text.push_back(rest == 2 ? kAlphabet[(group >> 6) & 63] : '=');
        text.push_back('=');
    }
    return text;
}

template <class T>
std::string Decimal(T value) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::string(buffer, result.ptr);
}

}  // namespace

const char* BindingKindName(uint32_t code) {
    return code < std::size(kKindNames) ? kKindNames[code] : "";
}

BindingContext& BindingContext::Create(BindingProperty& value) {
    // Only a standalone value can lack a context: elements and fields are
    // created with their parent's.
    value.context_ = new BindingContext();
    value.ownsContext_ = 1;
    return *value.context_;
}

size_t BindingContext::AllocatedBytes() const {
    return PageCount() * Platform::PageSource::kPageSize + arena_.LargeBytes() +
           strings_.BucketCount() * sizeof(void*);
}

// --- lifetime ---------------------------------------------------------------

BindingProperty::~BindingProperty() {
    if (ownsContext_ != 0 && context_ != nullptr) {
        // The context takes every string, record and array with it; only blob
        // bytes live outside it and need the tree walked.
        if (kind_ != BindingKind::Empty && context_->Blobs().LiveSlots() != 0) {
            FreeTree(context_, {kind_, payload_});
        }
        delete context_;
    } else if (kind_ != BindingKind::Empty) {
        FreeTree(context_, {kind_, payload_});
    }
}

BindingProperty::BindingProperty(const BindingProperty& other) {
    AssignCopy(*this, other, nullptr);
}

BindingProperty& BindingProperty::operator=(const BindingProperty& other) {
    if (this != &other) {
        AssignCopy(*this, other, nullptr);
    }
    return *this;
}

BindingProperty::BindingProperty(BindingProperty&& other) noexcept {
    if (other.ownsContext_ != 0) {
        payload_ = other.payload_;
        context_ = other.context_;
        kind_ = other.kind_;
        other.payload_ = 0;
        other.context_ = nullptr;
        other.kind_ = BindingKind::Empty;
    } else {
        AssignCopy(*this, other, &other);
    }
}

BindingProperty& BindingProperty::operator=(BindingProperty&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    if (ownsContext_ != 0 && other.ownsContext_ != 0) {
        std::swap(payload_, other.payload_);
        std::swap(context_, other.context_);
        std::swap(kind_, other.kind_);
        other.Clear();
    } else {
        AssignCopy(*this, other, &other);
    }
    return *this;
}

BindingProperty::BindingProperty(bool value) {
    SetBool(value);
}
BindingProperty::BindingProperty(int64_t value) {
    SetSigned(value);
}
BindingProperty::BindingProperty(uint64_t value) {
    SetUnsigned(value);
}
BindingProperty::BindingProperty(double value) {
    SetFloat(value);
}
BindingProperty::BindingProperty(std::string_view text) {
    SetString(text);
}
BindingProperty::BindingProperty(const char* text) {
    SetString(text != nullptr ? std::string_view(text) : std::string_view());
}
BindingProperty::BindingProperty(const std::vector<uint8_t>& bytes) {
    SetBlob(bytes.data(), bytes.size());
}
BindingProperty::BindingProperty(std::vector<uint8_t>&& bytes) {
    SetBlob(std::move(bytes));
}
BindingProperty::BindingProperty(BindingEnumValue value) {
    SetEnum(value);
}

// --- setters ----------------------------------------------------------------

void BindingProperty::Clear() {
    if (kind_ == BindingKind::Empty) {
        return;
    }
    Handle old{kind_, payload_};
    kind_ = BindingKind::Empty;
    payload_ = 0;
    FreeTree(context_, old);
}

void BindingProperty::SetBool(bool value) {
    Clear();
    kind_ = BindingKind::Bool;
    payload_ = value ? 1 : 0;
}

void BindingProperty::SetSigned(int64_t value) {
    Clear();
    kind_ = BindingKind::Signed;
    payload_ = static_cast<uint64_t>(value);
}

void BindingProperty::SetUnsigned(uint64_t value) {
    Clear();
    kind_ = BindingKind::Unsigned;
    payload_ = value;
}

void BindingProperty::SetFloat(double value) {
    Clear();
    kind_ = BindingKind::Float;
    payload_ = std::bit_cast<uint64_t>(value);
}

// The new payload is made before the old one is released: the text or bytes
// given may live inside this very value.
void BindingProperty::SetString(std::string_view text) {
    InternEntry* entry =
        text.empty() ? InternTable::Empty() : BindingContext::Ensure(*this).Strings().Intern(text);
    Clear();
    kind_ = BindingKind::String;
    payload_ = FromPointer(entry);
}

void BindingProperty::SetBlob(const uint8_t* data, size_t size) {
    std::vector<uint8_t> bytes;
    if (data != nullptr && size != 0) {
        bytes.assign(data, data + size);
    }
    SetBlob(std::move(bytes));
}

void BindingProperty::SetBlob(std::vector<uint8_t>&& bytes) {
    void* slot = BindingContext::Ensure(*this).Blobs().Allocate();
    auto* record = ::new (slot) BlobRecord{std::move(bytes)};
    Clear();
    kind_ = BindingKind::Blob;
    payload_ = FromPointer(record);
}

void BindingProperty::SetEnum(BindingEnumValue value) {
    void* slot = BindingContext::Ensure(*this).Enums().Allocate();
    auto* record = ::new (slot) BindingEnumValue(value);
    Clear();
    kind_ = BindingKind::Enum;
    payload_ = FromPointer(record);
}

void BindingProperty::SetEmptyCollection() {
    Clear();
    void* slot = BindingContext::Ensure(*this).Collections().Allocate();
    payload_ = FromPointer(::new (slot) CollectionRecord{nullptr, 0, 0});
    kind_ = BindingKind::Collection;
}

void BindingProperty::SetEmptyStructure() {
    Clear();
    void* slot = BindingContext::Ensure(*this).Structures().Allocate();
    payload_ = FromPointer(::new (slot) StructureRecord{nullptr, 0, 0});
    kind_ = BindingKind::Structure;
}

// --- observers --------------------------------------------------------------

size_t BindingProperty::Size() const {
    switch (kind_) {
        case BindingKind::Empty:
            return 0;
        case BindingKind::String:
            return As<InternEntry>(payload_)->length;
        case BindingKind::Blob:
            return As<BlobRecord>(payload_)->bytes.size();
        case BindingKind::Collection:
            return As<CollectionRecord>(payload_)->size;
        case BindingKind::Structure:
            return As<StructureRecord>(payload_)->size;
        default:
            return 1;
    }
}

bool BindingProperty::IsTrue() const {
    switch (kind_) {
        case BindingKind::Bool:
        case BindingKind::Signed:
        case BindingKind::Unsigned:
            return payload_ != 0;
        case BindingKind::Float:
            return std::bit_cast<double>(payload_) != 0.0;
        case BindingKind::String: {
            std::string_view text = As<InternEntry>(payload_)->View();
            return text == "true" || text == "1";
        }
        case BindingKind::Blob:
            return !As<BlobRecord>(payload_)->bytes.empty();
        case BindingKind::Enum:
            return As<BindingEnumValue>(payload_)->value != 0;
        case BindingKind::Collection:
        case BindingKind::Structure:
            return Size() != 0;
        default:
            return false;
    }
}

int64_t BindingProperty::AsSigned() const {
    switch (kind_) {
        case BindingKind::Bool:
        case BindingKind::Signed:
        case BindingKind::Unsigned:
            return static_cast<int64_t>(payload_);
        case BindingKind::Float:
            return TruncateToSigned(std::bit_cast<double>(payload_));
        case BindingKind::String:
            return std::strtoll(As<InternEntry>(payload_)->Text(), nullptr, 0);
        case BindingKind::Enum:
            return As<BindingEnumValue>(payload_)->value;
        default:
            return 0;
    }
}

uint64_t BindingProperty::AsUnsigned() const {
    switch (kind_) {
        case BindingKind::Bool:
        case BindingKind::Signed:
        case BindingKind::Unsigned:
            return payload_;
        case BindingKind::Float:
            return TruncateToUnsigned(std::bit_cast<double>(payload_));
        case BindingKind::String:
            return std::strtoull(As<InternEntry>(payload_)->Text(), nullptr, 0);
        case BindingKind::Enum:
            return static_cast<uint64_t>(
                static_cast<int64_t>(As<BindingEnumValue>(payload_)->value));
        default:
            return 0;
    }
}

uint64_t BindingProperty::AsUnsigned(uint64_t defaultValue) const {
    return kind_ == BindingKind::Unsigned ? payload_ : defaultValue;
}

std::string BindingProperty::AsText() const {
    switch (kind_) {
        case BindingKind::Bool:
            return payload_ != 0 ? "true" : "false";
        case BindingKind::Signed:
            return Decimal(static_cast<int64_t>(payload_));
        case BindingKind::Unsigned:
            return Decimal(payload_);
        case BindingKind::Float: {
            // "%f" of the largest double needs 317 characters.
            char buffer[400];
            int length =
                std::snprintf(buffer, sizeof(buffer), "%f", std::bit_cast<double>(payload_));
            return std::string(buffer, length > 0 ? static_cast<size_t>(length) : 0);
        }
        case BindingKind::String:
            return std::string(As<InternEntry>(payload_)->View());
        case BindingKind::Blob:
            return Base64(GetBlob());
        case BindingKind::Enum:
            return Decimal(As<BindingEnumValue>(payload_)->value);
        default:
            return std::string();
    }
}

bool BindingProperty::GetBool() const {
    return kind_ == BindingKind::Bool && payload_ != 0;
}

int64_t BindingProperty::GetSigned() const {
    return kind_ == BindingKind::Signed ? static_cast<int64_t>(payload_) : 0;
}

uint64_t BindingProperty::GetUnsigned() const {
    return kind_ == BindingKind::Unsigned ? payload_ : 0;
}

double BindingProperty::GetFloat() const {
    return kind_ == BindingKind::Float ? std::bit_cast<double>(payload_) : 0.0;
}

std::string_view BindingProperty::GetString() const {
    return kind_ == BindingKind::String ? As<InternEntry>(payload_)->View() : std::string_view();
}

std::span<const uint8_t> BindingProperty::GetBlob() const {
    if (kind_ != BindingKind::Blob) {
        return {};
    }
    const auto& bytes = As<BlobRecord>(payload_)->bytes;
    return {bytes.data(), bytes.size()};
}

BindingEnumValue BindingProperty::GetEnum() const {
    return kind_ == BindingKind::Enum ? *As<BindingEnumValue>(payload_) : BindingEnumValue{};
}

// --- collections ------------------------------------------------------------

BindingProperty& BindingProperty::MutableElement(size_t index) {
    if (kind_ != BindingKind::Collection) {
        SetEmptyCollection();
    }
    auto* record = As<CollectionRecord>(payload_);
    if (index >= record->size) {
        if (index == std::numeric_limits<size_t>::max()) {
            throw std::length_error("BindingProperty: element index out of range");
        }
        Resize(index + 1);
    }
    return record->items[index];
}

const BindingProperty& BindingProperty::Element(size_t index) const {
    if (kind_ != BindingKind::Collection) {
        return EmptyValue();
    }
    const auto* record = As<CollectionRecord>(payload_);
    return index < record->size ? record->items[index] : EmptyValue();
}

BindingProperty& BindingProperty::Append() {
    if (kind_ != BindingKind::Collection) {
        SetEmptyCollection();
    }
    auto* record = As<CollectionRecord>(payload_);
    if (record->size == record->capacity) {
        GrowCollection(*context_, *record, size_t{record->size} + 1);
    }
    BindingProperty& element = record->items[record->size];
    ConstructChild(&element, context_);
    ++record->size;
    return element;
}

void BindingProperty::Reserve(size_t count) {
    count = std::min(count, kMaxReserve);
    if (kind_ == BindingKind::Structure) {
        auto* record = As<StructureRecord>(payload_);
        if (count > record->capacity) {
            GrowStructure(*context_, *record, count);
        }
        return;
    }
    if (kind_ != BindingKind::Collection) {
        SetEmptyCollection();
    }
    auto* record = As<CollectionRecord>(payload_);
    if (count > record->capacity) {
        GrowCollection(*context_, *record, count);
    }
}

void BindingProperty::Resize(size_t count) {
    if (kind_ != BindingKind::Collection) {
        SetEmptyCollection();
    }
    auto* record = As<CollectionRecord>(payload_);
    if (count > record->capacity) {
        GrowCollection(*context_, *record, count);
    }
    while (record->size > count) {
        BindingProperty& last = record->items[--record->size];
        FreeTree(context_, {last.kind_, last.payload_});
    }
    for (size_t i = record->size; i < count; ++i) {
        ConstructChild(&record->items[i], context_);
    }
    // Within the capacity reached above.
    record->size = static_cast<EntryCount>(std::max<size_t>(record->size, count));
}

std::span<const BindingProperty> BindingProperty::Elements() const {
    if (kind_ != BindingKind::Collection) {
        return {};
    }
    const auto* record = As<CollectionRecord>(payload_);
    return {record->items, record->size};
}

std::span<BindingProperty> BindingProperty::MutableElements() {
    if (kind_ != BindingKind::Collection) {
        return {};
    }
    auto* record = As<CollectionRecord>(payload_);
    return {record->items, record->size};
}

// --- structures -------------------------------------------------------------

BindingProperty& BindingProperty::MutableField(std::string_view name) {
    NameKey key = MakeKey(name);
    if (kind_ != BindingKind::Structure) {
        // Intern before clearing: the name may be text of this very value.
        InternEntry* entry = InternName(BindingContext::Ensure(*this), key);
        SetEmptyStructure();
        return InsertField(context_, *As<StructureRecord>(payload_), 0, entry);
    }
    auto* record = As<StructureRecord>(payload_);
    size_t position;
    if (FindFieldForInsert(*context_, *record, key, position)) {
        return record->items[position].value;
    }
    return InsertField(context_, *record, position, InternName(*context_, key));
}

const BindingProperty& BindingProperty::Field(std::string_view name) const {
    if (kind_ != BindingKind::Structure) {
        return EmptyValue();
    }
    const auto* record = As<StructureRecord>(payload_);
    size_t position;
    return FindField(*record, MakeKey(name), position) ? record->items[position].value
                                                       : EmptyValue();
}

bool BindingProperty::HasField(std::string_view name) const {
    if (kind_ != BindingKind::Structure) {
        return false;
    }
    size_t position;
    return FindField(*As<StructureRecord>(payload_), MakeKey(name), position);
}

bool BindingProperty::RemoveField(std::string_view name) {
    if (kind_ != BindingKind::Structure) {
        return false;
    }
    auto* record = As<StructureRecord>(payload_);
    size_t position;
    if (!FindField(*record, MakeKey(name), position)) {
        return false;
    }
    FieldEntry& entry = record->items[position];
    InternEntry* entryName = entry.name;
    Handle value{entry.value.kind_, entry.value.payload_};
    RelocateRange(record->items + position, record->items + position + 1,
                  record->size - position - 1);
    --record->size;
    context_->Strings().Release(entryName);
    FreeTree(context_, value);
    return true;
}

BindingProperty::FieldRange BindingProperty::Fields() const {
    if (kind_ != BindingKind::Structure) {
        return {};
    }
    const auto* record = As<StructureRecord>(payload_);
    return FieldRange(FieldIterator(record->items, sizeof(FieldEntry)),
                      FieldIterator(record->items + record->size, sizeof(FieldEntry)),
                      record->size);
}

BindingProperty::FieldRef BindingProperty::FieldIterator::operator*() const {
    const auto* entry = static_cast<const FieldEntry*>(entry_);
    return FieldRef{entry->name->View(), entry->value};
}

// --- equality ---------------------------------------------------------------

bool BindingProperty::operator==(const BindingProperty& other) const {
    WorkStack<ComparePair> pending;
    if (!NodeEqual(*this, other, pending)) {
        return false;
    }
    ComparePair pair;
    while (pending.Pop(pair)) {
        if (!NodeEqual(*pair.left, *pair.right, pending)) {
            return false;
        }
    }
    return true;
}

const BindingProperty& BindingProperty::EmptyValue() {
    static const BindingProperty empty;
    return empty;
}

}  // namespace Orvan::Framework

// --- front-to-back building (internal/TreeAppend.h) -------------------------

namespace Orvan::Framework::Internal {

void BeginSizedStructure(BindingProperty& target, size_t capacity) {
    target.SetEmptyStructure();
    if (capacity != 0) {
        capacity = std::min(capacity, kMaxReserve);
        StructureRecord* record = StructureOf(target);
        record->items = AllocateArray<FieldEntry>(*Access::Context(target), capacity);
        record->capacity = static_cast<EntryCount>(capacity);
    }
}

void BeginSizedCollection(BindingProperty& target, size_t capacity) {
    target.SetEmptyCollection();
    if (capacity != 0) {
        capacity = std::min(capacity, kMaxReserve);
        CollectionRecord* record = CollectionOf(target);
        record->items = AllocateArray<BindingProperty>(*Access::Context(target), capacity);
        record->capacity = static_cast<EntryCount>(capacity);
    }
}

namespace {

// The arena rounds blocks to its granule and keeps no header, so the end of
// a block is a block of its own and can be freed on its own; the head is
// later freed with the smaller size. Heap blocks (beyond the arena's largest
// class) are left as they are.
template <class Record, class Item>
void TrimArray(BindingContext& context, Record& record) {
    constexpr size_t kGranule = BlockArena::kGranule;
    size_t total = (record.capacity * sizeof(Item) + kGranule - 1) / kGranule * kGranule;
    if (record.capacity == record.size) {
        return;
    }
    if (total > BlockArena::kMaxBlock) {
        // A heap block keeps its size: an array grown by doubling moves to
        // one of its size when an eighth or more of it is unused.
        if ((record.capacity - record.size) * sizeof(Item) >= total / 8) {
            Item* items = AllocateArray<Item>(context, record.size);
            RelocateRange(items, record.items, record.size);
            FreeArray(context, record.items, record.capacity);
            record.items = items;
            record.capacity = record.size;
        }
        return;
    }
    if (record.size == 0) {
        FreeArray(context, record.items, record.capacity);
        record.items = nullptr;
        record.capacity = 0;
        return;
    }
    size_t head = (record.size * sizeof(Item) + kGranule - 1) / kGranule * kGranule;
    if (total - head >= kGranule) {
        context.Arena().Free(reinterpret_cast<char*>(record.items) + head, total - head);
    }
    record.capacity = record.size;
}

}  // namespace

void TrimToSize(BindingProperty& container) {
    BindingContext* context = Access::Context(container);
    if (container.Kind() == BindingKind::Structure) {
        TrimArray<StructureRecord, FieldEntry>(*context, *StructureOf(container));
    } else if (container.Kind() == BindingKind::Collection) {
        TrimArray<CollectionRecord, BindingProperty>(*context, *CollectionOf(container));
    }
}

void ReserveStrings(BindingProperty& root, size_t count) {
    // Readers estimate from their input's size, which overstates the texts
    // of most documents; rounding a large estimate down keeps a 2 MB
    // document from holding twice the buckets it fills (one doubling is the
    // price when it does fill them). A small table is cheaper to oversize
    // than to grow.
    constexpr size_t kRoundDownFrom = 4096;
    BindingContext::Ensure(root).Strings().Reserve(count < kRoundDownFrom ? count
                                                                          : std::bit_floor(count));
}

void FitStrings(BindingProperty& root) {
    if (BindingContext* context = Access::Context(root)) {
        context->Strings().Fit();
    }
}

void GrowElementsForAppend(BindingProperty& collection) {
    CollectionRecord& record = *CollectionOf(collection);
    GrowCollection(*Access::Context(collection), record, size_t{record.size} + 1);
}

void GrowFieldsForAppend(BindingProperty& structure) {
    StructureRecord& record = *StructureOf(structure);
    GrowStructure(*Access::Context(structure), record,
                  GrownCapacity(record.capacity, size_t{record.size} + 1, kFirstFieldCapacity));
}

}  // namespace Orvan::Framework::Internal
