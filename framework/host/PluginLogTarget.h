// PluginLogTarget: the log target of a module running inside the host. It
// hands each record's level and message text to the host's log entry
// (HostApi entry 9, WriteLog) without formatting a line; the host adds its
// own time and origin.
//
// SetUpModuleLogging is the log setup of StartModule: unless a
// "PluginLogTarget" is registered already (another module of the process made
// one), it unregisters the three console targets, lowers the minimum level to
// 0, excludes the "XTR" group, and registers a new PluginLogTarget (level 0,
// no group masks, format "#D| #L| #G| #M") that it returns to the module.
//
// Ownership: the module owns the returned target and destroys it, which
// unregisters it. The host table must outlive the target.
// Threads: Write is called under the logger's and the target's locks; the
// host's entry is called from whichever thread logged.
#pragma once

#include <memory>

#include "framework/host/HostAbi.h"
#include "framework/log/LogTarget.h"

namespace Orvan::Framework {

class Logger;

class PluginLogTarget : public LogTarget {
public:
    explicit PluginLogTarget(const HostApi* api, uint32_t level = kOkay,
                             uint64_t includedGroups = 0, uint64_t excludedGroups = 0,
                             std::string_view lineFormat = "#D| #L| #G| #M");

    std::string_view Name() const override { return "PluginLogTarget"; }
    void Write(const LogRecord& record) override;

private:
    const HostApi* api_;
};

// The StartModule log setup on a logger; null when a PluginLogTarget is
// registered already.
std::unique_ptr<PluginLogTarget> SetUpModuleLogging(Logger& logger, const HostApi* api);
// The same on the process's logger.
std::unique_ptr<PluginLogTarget> SetUpModuleLogging(const HostApi* api);

}  // namespace Orvan::Framework
