// BindingTypeIdentifier: the type of one native member, argument or return
// value as the registry describes it: a type code, the element's code for
// vectors and maps, and the registered struct or enum record involved.
//
// The type codes are printed in conversion messages and handed to the host in
// the API description, so their numbering is fixed.
//
// Plain data; any thread.
#pragma once

#include <cstdint>

namespace Orvan::Framework {

struct StaticType;
struct BindingTypeInfo;

enum class BindingTypeCode : uint32_t {
    None = 0,
    Bool = 1,
    Int8 = 2,
    Uint8 = 3,
    Int16 = 4,
    Uint16 = 5,
    Int32 = 6,
    Uint32 = 7,
    Int64 = 8,
    Uint64 = 9,
    Float = 10,
    Double = 11,
    String = 12,
    Object = 13,
    Blob = 14,
    Vector = 15,
    Enum = 16,
    Struct = 17,
    Callback = 18,
    Map = 19,
};

// "bool", "int8", ... "map"; the empty text for any other code.
const char* BindingTypeCodeName(uint32_t code);
inline const char* BindingTypeCodeName(BindingTypeCode code) {
    return BindingTypeCodeName(static_cast<uint32_t>(code));
}

struct BindingTypeIdentifier {
    BindingTypeCode type = BindingTypeCode::None;
    // The element of a vector or map; None otherwise.
    BindingTypeCode elementType = BindingTypeCode::None;
    // The registered record of the struct or enum involved (the member's own
    // type, or the element type of a vector or map). Null when that type was
    // not registered yet when the identifier was made; the registry resolves
    // it later through `staticType`.
    const BindingTypeInfo* info = nullptr;
    // The identity of that struct or enum type; null when none is involved.
    const StaticType* staticType = nullptr;

    bool IsNone() const { return type == BindingTypeCode::None; }
};

}  // namespace Orvan::Framework
