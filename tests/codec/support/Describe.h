// Compact text of a value for test expectations: "~" empty, true/false,
// "s-1" signed, "u1" unsigned, "f1.5" float (%.17g), 'text' strings, "b<base64>"
// blobs, "e2" enums, [a,b] collections, {k:v} structures in field order.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/BindingProperty.h"

namespace Orvan::Framework::Testing {

std::string Describe(const BindingProperty& value);

// "92 01 ff" -> bytes.
std::vector<uint8_t> FromHex(std::string_view hex);

}  // namespace Orvan::Framework::Testing
