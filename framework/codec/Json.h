// JSON text to BindingProperty and back, on RapidJSON.
//
// Reading maps null to "empty", true/false to "bool", integers without a minus
// sign that fit 64 unsigned bits to "unsigned", integers with a minus sign
// that fit 64 signed bits to "signed", every other number to "float", strings
// to "string", arrays to "collection" and objects to "structure" (a repeated
// member name keeps its last value). An empty or all-blank text (space, tab,
// CR, LF) reads as "empty". The text ends at its first NUL byte or at the end
// of the view, whichever comes first. Errors read "Error: <RapidJSON's English
// text> at offset <byte offset>."; input nested deeper than kMaxNestingDepth
// containers stops the parse with RapidJSON's handler-termination error at the
// offset just after the opening bracket that was one too many.
//
// Writing turns "empty" at the top into the empty text and nested "empty" into
// null; blobs become padded base64 strings; enums become their enumerator
// name when a registry is given and names the value, else their number; a
// NaN or infinite float is written as null, since JSON has no spelling for it.
// Structures are written in their field order. Without a line break (or with
// an empty one) the output is compact; otherwise it is indented by four spaces
// per level and lines end with the given text. The writer walks the value
// without recursion, so values built by code at any depth are written.
//
// Pure functions; any thread (a value tree itself is used by one thread at a time).
#pragma once

#include <string>
#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"

namespace Orvan::Framework {

class BindingTypeRegistry;

Maybe<BindingProperty> ReadJson(std::string_view text);

std::string WriteJson(const BindingProperty& value, const BindingTypeRegistry* registry = nullptr,
                      std::string_view lineBreak = {});

}  // namespace Orvan::Framework
