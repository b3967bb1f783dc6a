// PluginNames: the names a module is known by (full name, short name, type
// name and qualifier), derived from the short name handed to the entry and
// the plugin's type. The full name is the library's file name without its
// extension ("dvo-be-qel-lobby-team-builder").
//
// Ownership: plain values. Threads: any thread.
#pragma once

#include <string>
#include <string_view>

namespace Orvan::Framework {

struct PluginType {
    std::string_view typeName;
    std::string_view qualifier;
};

inline constexpr PluginType kBackendPluginType{"backend", ""};
inline constexpr PluginType kFrontendPluginType{"frontend", ""};

struct PluginNames {
    std::string fullName;
    std::string shortName;
    std::string typeName;
    std::string typeQualifier;
};

// The full name is the type's prefix ("dvo-be-" for "backend", "dvo-fe-" for
// "frontend") and the short name. Any other type name gets "dvo-xx-" and an
// error line in the log; the names are still produced.
PluginNames GetFullNameFromShortNameAndType(std::string_view shortName, const PluginType& type);

}  // namespace Orvan::Framework
