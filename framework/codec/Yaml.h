// YAML text to BindingProperty, on libyaml's event parser. Nothing in the
// system writes YAML.
//
// Untagged plain scalars are typed: the null words ("", "~", "null", "Null",
// "NULL") give "empty"; a text that strtod consumes entirely and that is not
// +infinity is a number ("signed" when negative, else "unsigned", when it has
// no fractional part; otherwise "float"); the true and false words (true/yes/
// on/y and false/no/off/n in their usual spellings) give "bool"; anything else
// is a string. Quoted and block scalars are strings. The tags !!str, !!int,
// !!float and !!bool are honoured; any other tag fails. Mapping keys must be
// string scalars. Anchors store a copy of their value; an alias copies it in
// (an alias of an open container, an undefined alias and a second anchor of
// one name fail). Only one document is read.
//
// Choices where the format leaves room:
// - a plain scalar that reads as -infinity, or an integral number beyond the
//   64-bit ranges, saturates to the nearest 64-bit limit;
// - an alias in key position is accepted when its anchor stored a string;
// - nesting deeper than kMaxNestingDepth containers fails with
//   "Nesting is deeper than 512. At line: %1 col: %2", and so does an alias
//   whose copy would nest that deep;
// - aliases may copy in at most kMaxAliasValues values in total; beyond that
//   reading fails with "Alias expansion exceeds 1000000 values. Alias "%1".
//   At line: %2 col: %3" (exponential alias chains would exhaust memory).
// Line and column are 1-based in the reader's own messages and 0-based, as
// libyaml reports them, in "YAML parser error: %1. At line: %2 col: %3".
//
// Pure function; any thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"

namespace Orvan::Framework {

inline constexpr size_t kMaxAliasValues = 1000000;

Maybe<BindingProperty> ReadYaml(std::string_view text);

}  // namespace Orvan::Framework
