#include "framework/host/PluginNames.h"

#include "framework/binding/MessageFormat.h"
#include "framework/log/Log.h"

namespace Orvan::Framework {

namespace {

std::string_view PrefixOfType(std::string_view shortName, std::string_view typeName) {
    // Compared as byte ranges: a type name with a NUL or a longer tail is unknown.
    if (typeName == std::string_view("backend", 7)) {
        return "dvo-be-";
    }
    if (typeName == std::string_view("frontend", 8)) {
        return "dvo-fe-";
    }
    const std::string message =
        Format("GetFullNameFromShortNameAndType(\"%1\", \"%2\") called with an unknown type",
               shortName, typeName);
    Log(kError, kGroupDbg, "Plugin Manager| %s", message.c_str());
    return "dvo-xx-";
}

}  // namespace

PluginNames GetFullNameFromShortNameAndType(std::string_view shortName, const PluginType& type) {
    PluginNames names;
    names.fullName = std::string(PrefixOfType(shortName, type.typeName));
    names.fullName += shortName;
    names.shortName = std::string(shortName);
    names.typeName = std::string(type.typeName);
    names.typeQualifier = std::string(type.qualifier);
    return names;
}

}  // namespace Orvan::Framework
