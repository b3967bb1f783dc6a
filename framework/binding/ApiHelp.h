// The API's description of itself: the functions, types and events of a
// registry as structured help records (format Full, converted through the
// registry like any record) or as Python epytext texts (format Epytext).
//
// Every epytext line ends with "\r\n".
//
// Pure functions of the registry; any thread once registration is finished.
#pragma once

#include <string>
#include <string_view>

#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeIdentifier.h"
#include "framework/binding/BuiltinTypes.h"
#include "framework/binding/Failure.h"

namespace Orvan::Framework {

class BindingTypeRegistry;
struct BindingTypeInfo;

// A structure with the fields "functions", "types" and "events", each entry
// in name order: for Full a collection of help records, for Epytext a
// structure of texts by name; for any other format the three fields stay
// "empty". Fails only when a help record does not convert (the built-in types
// are not registered).
Maybe<BindingProperty> BuildApiHelp(const BindingTypeRegistry& registry, BindingHelpFormat format);

// ("vector", element's type) for vectors and maps; the registered name (or
// "enum", "struct") for enums and structs; else the type code's name.
BindingFullTypeIdentifier DescribeTypeIdentifier(const BindingTypeRegistry& registry,
                                                 const BindingTypeIdentifier& identifier);

// "int32", "bytearray", "list[L{Lobby}]", "dict[string]", ...
std::string EpytextTypeName(const BindingTypeRegistry& registry,
                            const BindingTypeIdentifier& identifier);

// A leading "-" becomes "E{-}", "{" becomes "E{lb}" and "}" becomes "E{rb}".
std::string EpytextEscape(std::string_view text);

std::string EpytextOfFunction(const BindingTypeRegistry& registry,
                              const BindingFunctionInfo& function);
std::string EpytextOfStruct(const BindingTypeRegistry& registry, const BindingTypeInfo& type);
std::string EpytextOfEnum(const BindingTypeInfo& type);
std::string EpytextOfEvent(const BindingEventInfo& event);

// The help records themselves, built from the registry.
BindingFullFunctionHelp DescribeFunction(const BindingTypeRegistry& registry,
                                         const BindingFunctionInfo& function);
BindingFullTypeHelp DescribeType(const BindingTypeRegistry& registry, const BindingTypeInfo& type);
BindingFullEventHelp DescribeEvent(const BindingTypeRegistry& registry,
                                   const BindingEventInfo& event);

}  // namespace Orvan::Framework
