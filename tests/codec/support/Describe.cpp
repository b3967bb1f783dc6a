#include "tests/codec/support/Describe.h"

#include <cstdio>
#include <string>

#include "framework/codec/internal/Base64.h"

namespace Orvan::Framework::Testing {

std::string Describe(const BindingProperty& value) {
    char number[64];
    switch (value.Kind()) {
        case BindingKind::Empty:
            return "~";
        case BindingKind::Bool:
            return value.GetBool() ? "true" : "false";
        case BindingKind::Signed:
            return "s" + std::to_string(value.GetSigned());
        case BindingKind::Unsigned:
            return "u" + std::to_string(value.GetUnsigned());
        case BindingKind::Float:
            std::snprintf(number, sizeof number, "f%.17g", value.GetFloat());
            return number;
        case BindingKind::String:
            return "'" + std::string(value.GetString()) + "'";
        case BindingKind::Blob: {
            std::string text;
            CodecInternal::AssignBase64(text, value.GetBlob());
            return "b" + text;
        }
        case BindingKind::Enum:
            return "e" + std::to_string(value.GetEnum().value);
        case BindingKind::Collection: {
            std::string out = "[";
            for (const BindingProperty& element : value.Elements()) {
                out += (out.size() > 1 ? "," : "") + Describe(element);
            }
            return out + "]";
        }
        case BindingKind::Structure: {
            std::string out = "{";
            for (BindingProperty::FieldRef field : value.Fields()) {
                out += (out.size() > 1 ? "," : "") + std::string(field.name) + ":" +
                       Describe(field.value);
            }
            return out + "}";
        }
    }
    return "?";
}

std::vector<uint8_t> FromHex(std::string_view hex) {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (char c : hex) {
        int nibble = c >= '0' && c <= '9'   ? c - '0'
                     : c >= 'a' && c <= 'f' ? c - 'a' + 10
                     : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                            : -1;
        if (nibble < 0) {
            continue;
        }
        if (high < 0) {
            high = nibble;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | nibble));
            high = -1;
        }
    }
    return bytes;
}

}  // namespace Orvan::Framework::Testing
