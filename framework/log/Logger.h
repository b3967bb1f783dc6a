// Logger: the process-wide logger. A record passes the logger's drop rules
// (disabled, below the minimum level, or sharing a group with the excluded
// groups) before its message is even formatted, is counted (level 1 as a
// warning, 2 as an error) and is then offered to every registered target in
// registration order.
//
// The logger is created with three console targets: standard error and the
// debugger output (registered) and standard output (not registered).
//
// Ownership: the process's logger is created on first use and reference
// counted: modules Acquire it when constructed and Release it when destroyed;
// the last Release unregisters every target and frees it. Tests may also own a
// Logger of their own.
// Threads: every operation may be called from any thread. The logger's
// critical section guards its target list and counters and is always taken
// before a target's own critical section.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "framework/log/LogRecord.h"
#include "framework/log/LogTarget.h"
#include "framework/platform/CriticalSection.h"

namespace Orvan::Framework {

class Logger {
public:
    Logger();
    ~Logger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // The process's logger, created if there is none. The reference stays
    // valid while the caller (or a module) holds an acquisition.
    static Logger& Instance();
    // Takes a reference to the process's logger, creating it if needed.
    static Logger& Acquire();
    // Drops a reference; the last one unregisters every target and frees the logger.
    static void Release();

    void SetMinimumLevel(uint32_t level) { minimumLevel_.store(level, std::memory_order_relaxed); }
    uint32_t MinimumLevel() const { return minimumLevel_.load(std::memory_order_relaxed); }
    void SetExcludedGroups(uint64_t mask) {
        excludedGroups_.store(mask, std::memory_order_relaxed);
    }
    uint64_t ExcludedGroups() const { return excludedGroups_.load(std::memory_order_relaxed); }
    void Disable() { disabled_.store(true, std::memory_order_relaxed); }
    void Enable() { disabled_.store(false, std::memory_order_relaxed); }
    bool IsDisabled() const { return disabled_.load(std::memory_order_relaxed); }

    // Appends a target to the list; false when it is already registered
    // (here or with another logger).
    bool RegisterTarget(LogTarget& target);
    // Removes a target; false when it is not registered here.
    bool UnregisterTarget(LogTarget& target);
    // The first registered target with that name, or null.
    LogTarget* FindTarget(std::string_view name);

    // The group mask of a name, adding it to the process's table when new.
    static uint64_t LookUpGroup(std::string_view name);
    // A record formatted with a line format (see LogLine.h).
    std::string FormatLine(std::string_view format, const LogRecord& record) const;

    // Whether a call with this level and groups passes the drop rules.
    bool WouldLog(uint32_t level, uint64_t groups) const;
    // printf-style log call: dropped or formatted into a 4096-byte buffer
    // (longer messages are cut) and written.
    void Log(uint32_t level, uint64_t groups, const char* format, ...) QEL_PRINTF_FORMAT(4, 5);
    void LogV(uint32_t level, uint64_t groups, const char* format, va_list args)
        QEL_PRINTF_FORMAT(4, 0);
    // Counts a record and offers it to the registered targets; no drop rules.
    void Write(const LogRecord& record);

    uint64_t WarningCount() const;
    uint64_t ErrorCount() const;
    // The executable's file name, "<unknown>" when the system does not tell.
    const std::string& ExecutableName() const { return executableName_; }

    StdErrLogTarget& StdErrTarget() { return stdErr_; }
    StdOutLogTarget& StdOutTarget() { return stdOut_; }
    DebuggerConsoleLogTarget& DebuggerTarget() { return debugger_; }

private:
    void UnregisterAll();

    mutable Platform::CriticalSection lock_;
    std::vector<LogTarget*> targets_;  // guarded by lock_
    uint64_t warningCount_ = 0;        // guarded by lock_
    uint64_t errorCount_ = 0;          // guarded by lock_
    std::atomic<uint32_t> minimumLevel_{kWarn};
    std::atomic<uint64_t> excludedGroups_{kGroupXtr};
    std::atomic<bool> disabled_{false};
    const std::string executableName_;

    // Declared last: destroyed first, after the destructor unregistered them.
    StdErrLogTarget stdErr_;
    StdOutLogTarget stdOut_;
    DebuggerConsoleLogTarget debugger_;
};

}  // namespace Orvan::Framework
