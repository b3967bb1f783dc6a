// BindingFieldConverter: converts one native member between its native form
// and BindingProperty, in both directions. One implementation exists per
// native member type, generated from BindingTraits<T>:
//   bool, every integer width, float, double, std::string, blob
//   (std::vector<uint8_t>), object (BindingProperty held as is), registered
//   enums and structs, std::vector<T>, std::map / std::unordered_map with
//   std::string keys, and std::optional<T> (absent converts to "empty").
//
// Conversions thread a BindingConversionResult: the first failure is kept and
// every later step does nothing, so the first message wins.
//
// Ownership: a field's converter is owned by its BindingFieldInfo. A
// converter caches the registered record of its struct or enum type after the
// first lookup (types may be registered after the containers that use them).
// Threads: converters are immutable apart from that cache, which is atomic;
// conversions may run on any thread and share only the registry.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeIdentifier.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/StaticType.h"

namespace Orvan::Framework {

// The state threaded through one conversion. A failure clears the value,
// makes it a structure holding the message as its string field "error", and
// sets ok to 0; later failures are ignored.
struct BindingConversionResult {
    BindingProperty value;
    uint8_t ok = 1;

    void Fail(std::string_view message);
    std::string_view Error() const;
};

// What every converter receives: the registry that describes the types, and
// the result of the conversion in progress.
struct BindingConversion {
    const BindingTypeRegistry& registry;
    BindingConversionResult& result;

    bool Ok() const { return result.ok != 0; }
    void Fail(std::string_view message) { result.Fail(message); }
};

class BindingFieldConverter {
public:
    // Value to native member; `field` names the value in messages.
    virtual void AssignFromProperty(BindingConversion& conversion, const BindingProperty& input,
                                    std::string_view field, void* target) const = 0;
    // Native member to value; `output` is overwritten.
    virtual void ConvertToProperty(BindingConversion& conversion, const void* source,
                                   BindingProperty& output) const = 0;
    virtual ~BindingFieldConverter() = default;
};

// The non-generic steps of conversion. Each does nothing when the conversion
// has already failed.
namespace Detail {

void AssignBool(BindingConversion& c, const BindingProperty& input, std::string_view field,
                bool& target);
void AssignSigned(BindingConversion& c, const BindingProperty& input, std::string_view field,
                  BindingTypeCode code, int64_t min, int64_t max, int64_t& target);
void AssignUnsigned(BindingConversion& c, const BindingProperty& input, std::string_view field,
                    BindingTypeCode code, uint64_t max, uint64_t& target);
void AssignFloating(BindingConversion& c, const BindingProperty& input, std::string_view field,
                    BindingTypeCode code, double limit, double& target);
void AssignString(BindingConversion& c, const BindingProperty& input, std::string_view field,
                  std::string& target);
void AssignBlob(BindingConversion& c, const BindingProperty& input, std::string_view field,
                std::vector<uint8_t>& target);
// `info` is the enumeration's registered record, or null when unregistered.
void AssignEnum(BindingConversion& c, const BindingTypeInfo* info, const BindingProperty& input,
                std::string_view field, int32_t& target);
// `info` is the structure's registered record, or null when unregistered.
void AssignStruct(BindingConversion& c, const BindingTypeInfo* info, const BindingProperty& input,
                  std::string_view field, void* target);
// Checks the input of a vector or map member; reports and returns false when
// it has the wrong kind.
bool CheckVectorInput(BindingConversion& c, const BindingProperty& input, std::string_view field);
bool CheckMapInput(BindingConversion& c, const BindingProperty& input, std::string_view field);
void ReportRequired(BindingConversion& c, std::string_view field);

void ConvertStruct(BindingConversion& c, const BindingTypeInfo* info, const void* source,
                   BindingProperty& output);

// Reads and writes an enum member of `size` bytes (1, 2, 4 or 8).
int32_t LoadEnumValue(const void* source, uint32_t size);
void StoreEnumValue(void* target, uint32_t size, int32_t value);

}  // namespace Detail

// The description and conversion of one native type:
//   kCode, kElementCode: its type codes;
//   InfoType: the struct or enum type whose registered record the conversion
//     needs (the type itself, or the innermost element type), else void;
//   Assign / Convert: the two directions; `info` is the record of InfoType.
// Types without a specialisation are registered records (structs).
template <class T, class Enable = void>
struct BindingTraits {
    static_assert(std::is_class_v<T>, "this native type cannot be converted");
    static constexpr BindingTypeCode kCode = BindingTypeCode::Struct;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = T;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       T& target, const BindingTypeInfo* info) {
        Detail::AssignStruct(c, info, input, field, &target);
    }
    static void Convert(BindingConversion& c, const T& source, BindingProperty& output,
                        const BindingTypeInfo* info) {
        Detail::ConvertStruct(c, info, &source, output);
    }
};

template <>
struct BindingTraits<bool> {
    static constexpr BindingTypeCode kCode = BindingTypeCode::Bool;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       bool& target, const BindingTypeInfo*) {
        Detail::AssignBool(c, input, field, target);
    }
    static void Convert(BindingConversion&, bool source, BindingProperty& output,
                        const BindingTypeInfo*) {
        output.SetBool(source);
    }
};

namespace Detail {

template <class T>
constexpr BindingTypeCode IntegerCode() {
    constexpr bool s = std::is_signed_v<T>;
    switch (sizeof(T)) {
        case 1:
            return s ? BindingTypeCode::Int8 : BindingTypeCode::Uint8;
        case 2:
            return s ? BindingTypeCode::Int16 : BindingTypeCode::Uint16;
        case 4:
            return s ? BindingTypeCode::Int32 : BindingTypeCode::Uint32;
        default:
            return s ? BindingTypeCode::Int64 : BindingTypeCode::Uint64;
    }
}

}  // namespace Detail

template <class T>
struct BindingTraits<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
    static_assert(sizeof(T) <= 8, "integers wider than 64 bits cannot be converted");
    static constexpr BindingTypeCode kCode = Detail::IntegerCode<T>();
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       T& target, const BindingTypeInfo*) {
        if constexpr (std::is_signed_v<T>) {
            int64_t value = 0;
            Detail::AssignSigned(c, input, field, kCode, std::numeric_limits<T>::min(),
                                 std::numeric_limits<T>::max(), value);
            if (c.Ok()) {
                target = static_cast<T>(value);
            }
        } else {
            uint64_t value = 0;
            Detail::AssignUnsigned(c, input, field, kCode, std::numeric_limits<T>::max(), value);
            if (c.Ok()) {
                target = static_cast<T>(value);
            }
        }
    }
    static void Convert(BindingConversion&, T source, BindingProperty& output,
                        const BindingTypeInfo*) {
        if constexpr (std::is_signed_v<T>) {
            output.SetSigned(static_cast<int64_t>(source));
        } else {
            output.SetUnsigned(static_cast<uint64_t>(source));
        }
    }
};

template <class T>
struct BindingTraits<T, std::enable_if_t<std::is_floating_point_v<T>>> {
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "only float and double can be converted");
    static constexpr BindingTypeCode kCode =
        sizeof(T) == 4 ? BindingTypeCode::Float : BindingTypeCode::Double;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       T& target, const BindingTypeInfo*) {
        double value = 0.0;
        Detail::AssignFloating(c, input, field, kCode,
                               sizeof(T) == 4 ? 3.4028234663852886e38 : 1.7976931348623157e308,
                               value);
        if (c.Ok()) {
            target = static_cast<T>(value);
        }
    }
    static void Convert(BindingConversion&, T source, BindingProperty& output,
                        const BindingTypeInfo*) {
        output.SetFloat(static_cast<double>(source));
    }
};

template <class T>
struct BindingTraits<T, std::enable_if_t<std::is_enum_v<T>>> {
    static constexpr BindingTypeCode kCode = BindingTypeCode::Enum;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = T;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       T& target, const BindingTypeInfo* info) {
        int32_t value = 0;
        Detail::AssignEnum(c, info, input, field, value);
        if (c.Ok()) {
            target = static_cast<T>(value);
        }
    }
    static void Convert(BindingConversion&, T source, BindingProperty& output,
                        const BindingTypeInfo*) {
        output.SetEnum(BindingEnumValue{static_cast<int32_t>(source), &StaticType::Of<T>()});
    }
};

template <>
struct BindingTraits<std::string> {
    static constexpr BindingTypeCode kCode = BindingTypeCode::String;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       std::string& target, const BindingTypeInfo*) {
        Detail::AssignString(c, input, field, target);
    }
    static void Convert(BindingConversion&, const std::string& source, BindingProperty& output,
                        const BindingTypeInfo*) {
        output.SetString(source);
    }
};

template <>
struct BindingTraits<BindingProperty> {
    static constexpr BindingTypeCode kCode = BindingTypeCode::Object;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion&, const BindingProperty& input, std::string_view,
                       BindingProperty& target, const BindingTypeInfo*) {
        target = input;
    }
    static void Convert(BindingConversion&, const BindingProperty& source, BindingProperty& output,
                        const BindingTypeInfo*) {
        output = source;
    }
};

template <class A>
struct BindingTraits<std::vector<uint8_t, A>> {
    static constexpr BindingTypeCode kCode = BindingTypeCode::Blob;
    static constexpr BindingTypeCode kElementCode = BindingTypeCode::None;
    using InfoType = void;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       std::vector<uint8_t, A>& target, const BindingTypeInfo*) {
        if constexpr (std::is_same_v<A, std::allocator<uint8_t>>) {
            Detail::AssignBlob(c, input, field, target);
        } else {
            std::vector<uint8_t> bytes;
            Detail::AssignBlob(c, input, field, bytes);
            if (c.Ok()) {
                target.assign(bytes.begin(), bytes.end());
            }
        }
    }
    static void Convert(BindingConversion&, const std::vector<uint8_t, A>& source,
                        BindingProperty& output, const BindingTypeInfo*) {
        output.SetBlob(source.data(), source.size());
    }
};

template <class U, class A>
struct BindingTraits<std::vector<U, A>, std::enable_if_t<!std::is_same_v<U, uint8_t>>> {
    using Element = BindingTraits<U>;
    static constexpr BindingTypeCode kCode = BindingTypeCode::Vector;
    static constexpr BindingTypeCode kElementCode = Element::kCode;
    using InfoType = typename Element::InfoType;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       std::vector<U, A>& target, const BindingTypeInfo* info) {
        target.clear();
        if (!Detail::CheckVectorInput(c, input, field)) {
            return;
        }
        std::span<const BindingProperty> elements = input.Elements();
        target.resize(elements.size());
        for (size_t i = 0; i < elements.size() && c.Ok(); ++i) {
            // An "empty" element leaves the default-constructed one.
            if (elements[i].IsEmpty()) {
                continue;
            }
            if constexpr (std::is_same_v<U, bool>) {
                bool value = false;
                Element::Assign(c, elements[i], field, value, info);
                target[i] = value;
            } else {
                Element::Assign(c, elements[i], field, target[i], info);
            }
        }
    }
    static void Convert(BindingConversion& c, const std::vector<U, A>& source,
                        BindingProperty& output, const BindingTypeInfo* info) {
        output.SetEmptyCollection();
        output.Resize(source.size());
        std::span<BindingProperty> elements = output.MutableElements();
        for (size_t i = 0; i < source.size() && c.Ok(); ++i) {
            if constexpr (std::is_same_v<U, bool>) {
                Element::Convert(c, static_cast<bool>(source[i]), elements[i], info);
            } else {
                Element::Convert(c, source[i], elements[i], info);
            }
        }
    }
};

namespace Detail {

template <class Map>
struct MapTraits {
    using U = typename Map::mapped_type;
    using Element = BindingTraits<U>;
    static constexpr BindingTypeCode kCode = BindingTypeCode::Map;
    static constexpr BindingTypeCode kElementCode = Element::kCode;
    using InfoType = typename Element::InfoType;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       Map& target, const BindingTypeInfo* info) {
        target.clear();
        if (!CheckMapInput(c, input, field)) {
            return;
        }
        if constexpr (requires(Map & m) { m.reserve(size_t{}); }) {
            target.reserve(input.Size());
        }
        for (BindingProperty::FieldRef entry : input.Fields()) {
            if (!c.Ok()) {
                return;
            }
            if (entry.value.IsEmpty()) {
                continue;
            }
            U& slot = target[std::string(entry.name)];
            Element::Assign(c, entry.value, field, slot, info);
        }
    }
    static void Convert(BindingConversion& c, const Map& source, BindingProperty& output,
                        const BindingTypeInfo* info) {
        output.SetEmptyStructure();
        for (const auto& [key, value] : source) {
            if (!c.Ok()) {
                return;
            }
            Element::Convert(c, value, output.MutableField(key), info);
        }
    }
};

}  // namespace Detail

template <class U, class C, class A>
struct BindingTraits<std::map<std::string, U, C, A>>
    : Detail::MapTraits<std::map<std::string, U, C, A>> {};

template <class U, class H, class E, class A>
struct BindingTraits<std::unordered_map<std::string, U, H, E, A>>
    : Detail::MapTraits<std::unordered_map<std::string, U, H, E, A>> {};

// An optional member has the codes of its value type; absent is "empty".
template <class U>
struct BindingTraits<std::optional<U>> {
    using Element = BindingTraits<U>;
    static constexpr BindingTypeCode kCode = Element::kCode;
    static constexpr BindingTypeCode kElementCode = Element::kElementCode;
    using InfoType = typename Element::InfoType;

    static void Assign(BindingConversion& c, const BindingProperty& input, std::string_view field,
                       std::optional<U>& target, const BindingTypeInfo* info) {
        if (input.IsEmpty()) {
            target.reset();
            return;
        }
        if (!target.has_value()) {
            target.emplace();
        }
        Element::Assign(c, input, field, *target, info);
    }
    static void Convert(BindingConversion& c, const std::optional<U>& source,
                        BindingProperty& output, const BindingTypeInfo* info) {
        if (!source.has_value()) {
            output.Clear();
            return;
        }
        Element::Convert(c, *source, output, info);
    }
};

// The identity of the struct or enum whose record converting T needs, or null.
template <class T>
const StaticType* InfoStaticTypeOf() {
    using InfoType = typename BindingTraits<T>::InfoType;
    if constexpr (std::is_void_v<InfoType>) {
        return nullptr;
    } else {
        return &StaticType::Of<InfoType>();
    }
}

// The identifier of native type T; `registry`, when given, resolves the
// record of the struct or enum involved if it is registered already.
template <class T>
BindingTypeIdentifier IdentifierOf(const BindingTypeRegistry* registry = nullptr) {
    BindingTypeIdentifier identifier;
    if constexpr (!std::is_void_v<T>) {
        identifier.type = BindingTraits<T>::kCode;
        identifier.elementType = BindingTraits<T>::kElementCode;
        identifier.staticType = InfoStaticTypeOf<T>();
        if (registry != nullptr && identifier.staticType != nullptr) {
            identifier.info = registry->Find(*identifier.staticType);
        }
    }
    return identifier;
}

template <class T>
class TypedFieldConverter final : public BindingFieldConverter {
public:
    void AssignFromProperty(BindingConversion& c, const BindingProperty& input,
                            std::string_view field, void* target) const override {
        if (c.Ok()) {
            BindingTraits<T>::Assign(c, input, field, *static_cast<T*>(target),
                                     Resolve(c.registry));
        }
    }
    void ConvertToProperty(BindingConversion& c, const void* source,
                           BindingProperty& output) const override {
        if (c.Ok()) {
            BindingTraits<T>::Convert(c, *static_cast<const T*>(source), output,
                                      Resolve(c.registry));
        }
    }

    // The record of the struct or enum involved, or null when none is
    // involved or it is not registered (yet).
    const BindingTypeInfo* Resolve(const BindingTypeRegistry& registry) const {
        if constexpr (std::is_void_v<typename BindingTraits<T>::InfoType>) {
            return nullptr;
        } else {
            const BindingTypeInfo* cached = cache_.load(std::memory_order_acquire);
            if (cached != nullptr && cached->registry == &registry) {
                return cached;
            }
            const BindingTypeInfo* found = registry.Find(*InfoStaticTypeOf<T>());
            if (found != nullptr) {
                cache_.store(found, std::memory_order_release);
            }
            return found;
        }
    }

private:
    mutable std::atomic<const BindingTypeInfo*> cache_{nullptr};
};

template <class T>
std::unique_ptr<BindingFieldConverter> MakeFieldConverter() {
    return std::make_unique<TypedFieldConverter<T>>();
}

}  // namespace Orvan::Framework
