// PluginApiVersion: the semantic version of the plugin API that the host
// (the core) and a plugin each speak, its text form and the rule by which a
// plugin accepts a core.
//
// The plugin's own version is a process-wide constant, fixed before the entry
// can run; the core's arrives in the load record as three numbers.
//
// Ownership: plain values. Threads: any thread.
#pragma once

#include <cstdint>
#include <string>

namespace Orvan::Framework {

struct PluginApiVersion {
    uint32_t major = 0;
    uint32_t minor = 0;
    uint32_t patch = 0;
    std::string preRelease;
    std::string build;

    // "18.0.0", then "-" and the pre-release and "+" and the build when set.
    std::string Text() const;
};

// The plugin API this framework implements.
const PluginApiVersion& OwnPluginApiVersion();

// A core is compatible when it has the plugin's major version and a
// (minor, patch) pair at least the plugin's. Pre-release and build are not
// compared.
bool IsCompatible(const PluginApiVersion& own, const PluginApiVersion& core);

}  // namespace Orvan::Framework
