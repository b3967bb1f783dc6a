#include "framework/host/PluginApiVersion.h"

#include "framework/binding/MessageFormat.h"

namespace Orvan::Framework {

std::string PluginApiVersion::Text() const {
    std::string text = Format("%1.%2.%3", major, minor, patch);
    if (!preRelease.empty()) {
        text += '-';
        text += preRelease;
    }
    if (!build.empty()) {
        text += '+';
        text += build;
    }
    return text;
}

const PluginApiVersion& OwnPluginApiVersion() {
    static const PluginApiVersion version{18, 0, 0, {}, {}};
    return version;
}

bool IsCompatible(const PluginApiVersion& own, const PluginApiVersion& core) {
    if (core.major != own.major) {
        return false;
    }
    if (core.minor != own.minor) {
        return core.minor > own.minor;
    }
    return core.patch >= own.patch;
}

}  // namespace Orvan::Framework
