// Log targets: where the logger's records go.
//
// LogTarget is the base: a name per class, a minimum level (default 1),
// included and excluded group masks (default 0), a line format (default
// "#D| #L| #G| #M"), a registered flag and a critical section for its own
// output. The console targets share BaseConsoleLogTarget, which adds Flush:
//   StdErrLogTarget           formatted line to standard error
//   StdOutLogTarget           formatted line to standard output (optionally
//                             flushed after each line)
//   DebuggerConsoleLogTarget  formatted line to the debugger output
// PluginLogTarget (PluginLogTarget.h) hands records to the host.
//
// Ownership: whoever creates a target owns it; the logger only refers to the
// targets registered with it. A target unregisters itself when destroyed.
// Threads: the logger calls Write holding its own critical section and then
// the target's (always in that order); configuration setters may be called
// from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "framework/log/LogRecord.h"
#include "framework/platform/CriticalSection.h"

namespace Orvan::Framework {

class Logger;

class LogTarget {
public:
    explicit LogTarget(uint32_t level = kWarn, uint64_t includedGroups = 0,
                       uint64_t excludedGroups = 0, std::string_view lineFormat = "#D| #L| #G| #M");
    virtual ~LogTarget();

    // Removes the target from the logger it is registered with, if any.
    virtual void Unregister();
    virtual std::string_view Name() const { return "LogTarget"; }
    virtual std::string LineFormat() const;
    // Writes one record; the base writes nothing.
    virtual void Write(const LogRecord& record);

    // Whether the target takes a record: its level is at least the target's
    // and, when the record has groups, none is excluded and (if the target
    // names included groups) one is included.
    bool Accepts(uint32_t level, uint64_t groups) const;

    uint32_t Level() const { return level_.load(std::memory_order_relaxed); }
    void SetLevel(uint32_t level) { level_.store(level, std::memory_order_relaxed); }
    uint64_t IncludedGroups() const { return included_.load(std::memory_order_relaxed); }
    void SetIncludedGroups(uint64_t mask) { included_.store(mask, std::memory_order_relaxed); }
    uint64_t ExcludedGroups() const { return excluded_.load(std::memory_order_relaxed); }
    void SetExcludedGroups(uint64_t mask) { excluded_.store(mask, std::memory_order_relaxed); }
    void SetLineFormat(std::string_view format);
    bool IsRegistered() const { return logger_.load(std::memory_order_acquire) != nullptr; }

    // The target's own critical section, held by the logger around Write.
    Platform::CriticalSection& OutputLock() { return outputLock_; }

    LogTarget(const LogTarget&) = delete;
    LogTarget& operator=(const LogTarget&) = delete;

protected:
    // The record formatted with this target's line format.
    std::string FormatLine(const LogRecord& record) const;

private:
    friend class Logger;

    std::atomic<uint32_t> level_;
    std::atomic<uint64_t> included_;
    std::atomic<uint64_t> excluded_;
    std::string lineFormat_;  // guarded by outputLock_
    // The logger this target is registered with; null when not registered.
    // Changed only under that logger's critical section.
    std::atomic<Logger*> logger_{nullptr};
    mutable Platform::CriticalSection outputLock_;
};

class BaseConsoleLogTarget : public LogTarget {
public:
    using LogTarget::LogTarget;
    std::string_view Name() const override { return "BaseConsoleLogTarget"; }
    virtual void Flush() {}

protected:
    // Writes the formatted line to a stream; errors (a closed stream) are
    // ignored, as a log line has nowhere else to go.
    void WriteLine(std::FILE* stream, const LogRecord& record);
};

class StdErrLogTarget : public BaseConsoleLogTarget {
public:
    using BaseConsoleLogTarget::BaseConsoleLogTarget;
    std::string_view Name() const override { return "StdErrLogTarget"; }
    void Write(const LogRecord& record) override;
    void Flush() override;
};

class StdOutLogTarget : public BaseConsoleLogTarget {
public:
    using BaseConsoleLogTarget::BaseConsoleLogTarget;
    std::string_view Name() const override { return "StdOutLogTarget"; }
    void Write(const LogRecord& record) override;
    void Flush() override;

    // Flush standard output after each line (default off).
    void SetFlushEachLine(bool flush) { flushEachLine_.store(flush, std::memory_order_relaxed); }

private:
    std::atomic<bool> flushEachLine_{false};
};

class DebuggerConsoleLogTarget : public BaseConsoleLogTarget {
public:
    using BaseConsoleLogTarget::BaseConsoleLogTarget;
    std::string_view Name() const override { return "DebuggerConsoleLogTarget"; }
    void Write(const LogRecord& record) override;
};

}  // namespace Orvan::Framework
