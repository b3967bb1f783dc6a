#include "framework/host/HostValueConversion.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/StaticType.h"
#include "framework/host/ModuleMemory.h"

namespace Orvan::Framework {

namespace {

constexpr uint32_t kMaxLength = std::numeric_limits<uint32_t>::max();

// ---- To the host ----------------------------------------------------------

class ToHost {
public:
    ToHost(const BindingTypeRegistry* registry, HostValueArena* arena)
        : registry_(registry), arena_(arena) {}

    // Fills `out`, which starts as code 0. What is allocated stays reachable
    // from `out` at every step, so the caller releases a partial result.
    bool Convert(const BindingProperty& value, HostValue& out, size_t depth) {
        switch (value.Kind()) {
            case BindingKind::Empty:
                return true;
            case BindingKind::Bool:
                out.type = kHostValueBool;
                out.payload.boolValue = value.GetBool() ? 1 : 0;
                return true;
            case BindingKind::Signed:
                out.type = kHostValueSigned;
                out.payload.signedValue = value.GetSigned();
                return true;
            case BindingKind::Unsigned:
                out.type = kHostValueUnsigned;
                out.payload.unsignedValue = value.GetUnsigned();
                return true;
            case BindingKind::Float:
                out.type = kHostValueFloat;
                out.payload.floatValue = value.GetFloat();
                return true;
            case BindingKind::String:
                return Text(value.GetString(), out);
            case BindingKind::Blob:
                return Bytes(value.GetBlob(), out);
            case BindingKind::Enum:
                return Enum(value.GetEnum(), out);
            case BindingKind::Collection:
                return Collection(value, out, depth);
            case BindingKind::Structure:
                return Structure(value, out, depth);
        }
        return Fail(Format("Couldn't convert a value of kind %1 for the host",
                           static_cast<uint32_t>(value.Kind())));
    }

    std::string& Error() { return error_; }

private:
    bool Fail(std::string message) {
        error_ = std::move(message);
        return false;
    }

    bool CheckLength(size_t length) {
        // Widened first: on a 32-bit build every size fits.
        if (static_cast<uint64_t>(length) > kMaxLength) {
            return Fail(Format("Couldn't convert a value of %1 bytes or elements for the host",
                               static_cast<uint64_t>(length)));
        }
        return true;
    }

    bool OutOfMemory() { return Fail("Out of memory converting a value for the host"); }

    void* Allocate(size_t size) {
        return arena_ != nullptr ? arena_->Allocate(size) : ModuleMemory::Allocate(size);
    }

    // Zeroed, so that every element is code 0 until converted and a partial
    // result can be released.
    void* AllocateZeroed(size_t size) {
        if (arena_ == nullptr) {
            return ModuleMemory::AllocateZeroed(size);
        }
        void* block = arena_->Allocate(size);
        if (block != nullptr) {
            std::memset(block, 0, size);
        }
        return block;
    }

    // An arena value lives no longer than the value it is made from, whose
    // texts and names are interned with a NUL after them (as are the
    // registry's enumerator names): such a value points at them instead of
    // copying them. The host sees the same bytes, length and terminator.
    static const char* Borrowed(std::string_view text) { return text.empty() ? "" : text.data(); }

    bool Text(std::string_view text, HostValue& out) {
        if (!CheckLength(text.size())) {
            return false;
        }
        if (arena_ != nullptr) {
            out.type = kHostValueTextOwned;
            out.payload.span.address = const_cast<char*>(Borrowed(text));
            out.payload.span.length = static_cast<uint32_t>(text.size());
            return true;
        }
        char* copy = static_cast<char*>(Allocate(text.size() + 1));
        if (copy == nullptr) {
            return OutOfMemory();
        }
        if (!text.empty()) {
            std::memcpy(copy, text.data(), text.size());
        }
        copy[text.size()] = '\0';
        out.type = kHostValueTextOwned;
        out.payload.span.address = copy;
        out.payload.span.length = static_cast<uint32_t>(text.size());
        return true;
    }

    bool Bytes(std::span<const uint8_t> bytes, HostValue& out) {
        if (!CheckLength(bytes.size())) {
            return false;
        }
        void* copy = nullptr;
        if (!bytes.empty()) {
            copy = Allocate(bytes.size());
            if (copy == nullptr) {
                return OutOfMemory();
            }
            std::memcpy(copy, bytes.data(), bytes.size());
        }
        out.type = kHostValueBytesOwned;
        out.payload.span.address = copy;
        out.payload.span.length = static_cast<uint32_t>(bytes.size());
        return true;
    }

    bool Enum(const BindingEnumValue& value, HostValue& out) {
        if (registry_ != nullptr && value.type != nullptr) {
            if (const char* name = registry_->EnumeratorName(*value.type, value.value)) {
                return Text(name, out);
            }
        }
        out.type = kHostValueSigned;
        out.payload.signedValue = value.value;
        return true;
    }

    bool EnterChild(size_t depth) {
        if (depth >= kMaxHostValueDepth) {
            return Fail(Format("Couldn't convert a value nested deeper than %1 levels for the host",
                               static_cast<uint64_t>(kMaxHostValueDepth)));
        }
        return true;
    }

    bool Collection(const BindingProperty& value, HostValue& out, size_t depth) {
        std::span<const BindingProperty> elements = value.Elements();
        if (!CheckLength(elements.size())) {
            return false;
        }
        out.type = kHostValueArray;
        if (elements.empty()) {
            return true;
        }
        if (!EnterChild(depth)) {
            return false;
        }
        auto* items = static_cast<HostValue*>(AllocateZeroed(elements.size() * sizeof(HostValue)));
        if (items == nullptr) {
            return OutOfMemory();
        }
        out.payload.span.address = items;
        out.payload.span.length = static_cast<uint32_t>(elements.size());
        for (size_t i = 0; i < elements.size(); ++i) {
            if (!Convert(elements[i], items[i], depth + 1)) {
                return false;
            }
        }
        return true;
    }

    bool Structure(const BindingProperty& value, HostValue& out, size_t depth) {
        const BindingProperty::FieldRange fields = value.Fields();
        if (!CheckLength(fields.size())) {
            return false;
        }
        out.type = kHostValueObject;
        if (fields.empty()) {
            return true;
        }
        if (!EnterChild(depth)) {
            return false;
        }
        auto* entries =
            static_cast<HostObjectEntry*>(AllocateZeroed(fields.size() * sizeof(HostObjectEntry)));
        if (entries == nullptr) {
            return OutOfMemory();
        }
        out.payload.span.address = entries;
        out.payload.span.length = static_cast<uint32_t>(fields.size());
        size_t index = 0;
        for (BindingProperty::FieldRef field : fields) {
            HostObjectEntry& entry = entries[index++];
            if (arena_ != nullptr) {
                entry.key = Borrowed(field.name);
            } else {
                char* key = static_cast<char*>(Allocate(field.name.size() + 1));
                if (key == nullptr) {
                    return OutOfMemory();
                }
                if (!field.name.empty()) {
                    std::memcpy(key, field.name.data(), field.name.size());
                }
                key[field.name.size()] = '\0';
                entry.key = key;
            }
            entry.keyOwned = 1;
            if (!Convert(field.value, entry.value, depth + 1)) {
                return false;
            }
        }
        return true;
    }

    const BindingTypeRegistry* registry_;
    HostValueArena* arena_;
    std::string error_;
};

// ---- From the host --------------------------------------------------------

class FromHost {
public:
    explicit FromHost(std::string_view rootName) : rootName_(rootName) {}

    bool Convert(const HostValue& value, BindingProperty& out, size_t depth) {
        const uint32_t type = value.type;
        switch (type) {
            case kHostValueNull:
                out.Clear();
                return true;
            case kHostValueBool:
                out.SetBool(value.payload.boolValue != 0);
                return true;
            case kHostValueSigned:
                out.SetSigned(value.payload.signedValue);
                return true;
            case kHostValueUnsigned:
                out.SetUnsigned(value.payload.unsignedValue);
                return true;
            case kHostValueFloat:
                out.SetFloat(value.payload.floatValue);
                return true;
            case kHostValueTextUnowned: {
                const char* text = static_cast<const char*>(value.payload.span.address);
                out.SetString(text != nullptr ? std::string_view(text) : std::string_view());
                return true;
            }
            case kHostValueTextOwned: {
                const void* address = nullptr;
                if (!Span(value, address)) {
                    return false;
                }
                out.SetString(
                    std::string_view(static_cast<const char*>(address), value.payload.span.length));
                return true;
            }
            case kHostValueBytesUnowned:
            case kHostValueBytesOwned: {
                const void* address = nullptr;
                if (!Span(value, address)) {
                    return false;
                }
                out.SetBlob(static_cast<const uint8_t*>(address), value.payload.span.length);
                return true;
            }
            case kHostValueArray:
                return Array(value, out, depth);
            case kHostValueObject:
                return Object(value, out, depth);
            default:
                return Fail(Format("Couldn't convert host value '%1': unknown type code %2",
                                   rootName_, type));
        }
    }

    std::string& Error() { return error_; }

private:
    bool Fail(std::string message) {
        error_ = std::move(message);
        return false;
    }

    // The address of a span value; a length without an address is refused.
    bool Span(const HostValue& value, const void*& address) {
        address = value.payload.span.address;
        const uint32_t length = value.payload.span.length;
        if (address == nullptr && length != 0) {
            // By value: the packed member may be misaligned for a reference.
            const uint32_t type = value.type;
            return Fail(
                Format("Couldn't convert host value '%1': type code %2 has no address "
                       "for a length of %3",
                       rootName_, type, length));
        }
        return true;
    }

    bool EnterChild(size_t depth) {
        if (depth >= kMaxHostValueDepth) {
            return Fail(Format("Couldn't convert host value '%1': nested deeper than %2 levels",
                               rootName_, static_cast<uint64_t>(kMaxHostValueDepth)));
        }
        return true;
    }

    bool Array(const HostValue& value, BindingProperty& out, size_t depth) {
        const void* address = nullptr;
        if (!Span(value, address)) {
            return false;
        }
        out.SetEmptyCollection();
        const uint32_t count = value.payload.span.length;
        if (count == 0) {
            return true;
        }
        if (!EnterChild(depth)) {
            return false;
        }
        const auto* items = static_cast<const HostValue*>(address);
        out.Reserve(count);
        for (uint32_t i = 0; i < count; ++i) {
            // Only the newest element is open, so earlier references may move.
            if (!Convert(items[i], out.Append(), depth + 1)) {
                return false;
            }
        }
        return true;
    }

    bool Object(const HostValue& value, BindingProperty& out, size_t depth) {
        const void* address = nullptr;
        if (!Span(value, address)) {
            return false;
        }
        out.SetEmptyStructure();
        const uint32_t count = value.payload.span.length;
        if (count == 0) {
            return true;
        }
        if (!EnterChild(depth)) {
            return false;
        }
        const auto* entries = static_cast<const HostObjectEntry*>(address);
        for (uint32_t i = 0; i < count; ++i) {
            const HostObjectEntry& entry = entries[i];
            if (entry.key == nullptr) {
                return Fail(Format("Couldn't convert host value '%1': object entry %2 has no key",
                                   rootName_, i));
            }
            if (!Convert(entry.value, out.MutableField(entry.key), depth + 1)) {
                return false;
            }
        }
        return true;
    }

    std::string_view rootName_;
    std::string error_;
};

void Release(HostValue& value) {
    switch (value.type) {
        case kHostValueTextOwned:
        case kHostValueBytesOwned:
            ModuleMemory::Free(value.payload.span.address);
            break;
        case kHostValueArray: {
            auto* items = static_cast<HostValue*>(value.payload.span.address);
            if (items != nullptr) {
                for (uint32_t i = 0; i < value.payload.span.length; ++i) {
                    Release(items[i]);
                }
                ModuleMemory::Free(items);
            }
            break;
        }
        case kHostValueObject: {
            auto* entries = static_cast<HostObjectEntry*>(value.payload.span.address);
            if (entries != nullptr) {
                for (uint32_t i = 0; i < value.payload.span.length; ++i) {
                    HostObjectEntry& entry = entries[i];
                    Release(entry.value);
                    if (entry.keyOwned != 0) {
                        ModuleMemory::Free(const_cast<char*>(entry.key));
                    }
                }
                ModuleMemory::Free(entries);
            }
            break;
        }
        default:
            break;
    }
    value = HostValue{};
}

}  // namespace

Maybe<> ToHostValue(const BindingProperty& value, HostValue& out,
                    const BindingTypeRegistry* registry) {
    out = HostValue{};
    ToHost converter(registry, nullptr);
    if (!converter.Convert(value, out, 0)) {
        Release(out);
        return Failure(std::move(converter.Error()));
    }
    return Maybe<>::Success();
}

Maybe<> ToHostValue(const BindingProperty& value, HostValue& out,
                    const BindingTypeRegistry* registry, HostValueArena& arena, size_t depth) {
    out = HostValue{};
    ToHost converter(registry, &arena);
    if (!converter.Convert(value, out, depth)) {
        // What was built stays in the arena until it goes.
        out = HostValue{};
        return Failure(std::move(converter.Error()));
    }
    return Maybe<>::Success();
}

// ---- Arena ----------------------------------------------------------------

HostValueArena::~HostValueArena() {
    while (blocks_ != nullptr) {
        Block* block = blocks_;
        blocks_ = block->next;
        ModuleMemory::Free(block);
    }
}

void* HostValueArena::Allocate(size_t size) {
    constexpr size_t kAlignment = 8;
    constexpr size_t kLargestBlock = size_t{64} * 1024;
    static_assert(sizeof(Block) % kAlignment == 0);
    if (size > std::numeric_limits<size_t>::max() - 2 * kAlignment - sizeof(Block)) {
        return nullptr;
    }
    size = (size + kAlignment - 1) & ~(kAlignment - 1);
    if (static_cast<size_t>(limit_ - cursor_) < size) {
        const size_t capacity = size > nextBlock_ ? size : nextBlock_;
        auto* block = static_cast<Block*>(ModuleMemory::Allocate(sizeof(Block) + capacity));
        if (block == nullptr) {
            return nullptr;
        }
        block->next = blocks_;
        blocks_ = block;
        cursor_ = reinterpret_cast<char*>(block + 1);
        limit_ = cursor_ + capacity;
        if (nextBlock_ < kLargestBlock) {
            nextBlock_ *= 2;
        }
    }
    void* result = cursor_;
    cursor_ += size;
    return result;
}

char* HostValueArena::CopyText(std::string_view text) {
    auto* copy = static_cast<char*>(Allocate(text.size() + 1));
    if (copy != nullptr) {
        if (!text.empty()) {
            std::memcpy(copy, text.data(), text.size());
        }
        copy[text.size()] = '\0';
    }
    return copy;
}

Maybe<BindingProperty> FromHostValue(const HostValue& value, std::string_view rootName) {
    BindingProperty result;
    FromHost converter(rootName);
    if (!converter.Convert(value, result, 0)) {
        return Failure(std::move(converter.Error()));
    }
    return result;
}

void ReleaseHostValue(HostValue& value) {
    Release(value);
}

}  // namespace Orvan::Framework
