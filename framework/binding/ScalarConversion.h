// The text and number rules of native conversion, shared with the readers
// that turn tagged text into numbers (the YAML reader).
//
// Texts are parsed as C's strtoll/strtoull/strtod do, base 0 for integers
// ("0x1F" hexadecimal, "017" octal), leading white space skipped, the empty
// text parsing as 0. A text the parser does not consume to its end fails with
// "Value %1 for '%2' of type %3 is in an incorrect format"; a number outside
// the limits (or one the parser reports as out of range, or, for unsigned
// targets, a text that begins with "-") fails with
// "Value %1 for '%2' of type %3 is out of range"; %1 is the text as received,
// %2 the field and %3 the type name.
//
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "framework/binding/Failure.h"

namespace Orvan::Framework {

Maybe<int64_t> ParseSignedText(std::string_view text, std::string_view field,
                               std::string_view typeName, int64_t min, int64_t max);

Maybe<uint64_t> ParseUnsignedText(std::string_view text, std::string_view field,
                                  std::string_view typeName, uint64_t max);

// Accepts results within [-limit, limit]; underflow counts as out of range.
Maybe<double> ParseDoubleText(std::string_view text, std::string_view field,
                              std::string_view typeName, double limit);

// The messages of the number rules, for callers that check limits themselves.
std::string IncorrectFormatMessage(std::string_view text, std::string_view field,
                                   std::string_view typeName);

}  // namespace Orvan::Framework
