#include "framework/host/PluginLogTarget.h"

#include "framework/log/Logger.h"

namespace Orvan::Framework {

PluginLogTarget::PluginLogTarget(const HostApi* api, uint32_t level, uint64_t includedGroups,
                                 uint64_t excludedGroups, std::string_view lineFormat)
    : LogTarget(level, includedGroups, excludedGroups, lineFormat), api_(api) {}

void PluginLogTarget::Write(const LogRecord& record) {
    if (api_ == nullptr || api_->WriteLog == nullptr) {
        return;
    }
    // The host's table is declared mutable in C; the entry does not change it.
    api_->WriteLog(const_cast<HostApi*>(api_), record.level,
                   record.message != nullptr ? record.message : "");
}

std::unique_ptr<PluginLogTarget> SetUpModuleLogging(Logger& logger, const HostApi* api) {
    if (logger.FindTarget("PluginLogTarget") != nullptr) {
        return nullptr;
    }
    logger.StdErrTarget().Unregister();
    logger.StdOutTarget().Unregister();
    logger.DebuggerTarget().Unregister();
    logger.SetMinimumLevel(kOkay);
    logger.SetExcludedGroups(kGroupXtr);
    auto target =
        std::make_unique<PluginLogTarget>(api, logger.MinimumLevel(), 0, 0, "#D| #L| #G| #M");
    logger.RegisterTarget(*target);
    return target;
}

std::unique_ptr<PluginLogTarget> SetUpModuleLogging(const HostApi* api) {
    return SetUpModuleLogging(Logger::Instance(), api);
}

}  // namespace Orvan::Framework
