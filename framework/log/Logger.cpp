#include "framework/log/Logger.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

#include "framework/log/Log.h"
#include "framework/log/LogGroups.h"
#include "framework/log/LogLine.h"
#include "framework/log/TraceProviders.h"
#include "framework/platform/ProcessImage.h"

namespace Orvan::Framework {

namespace {

// The process's logger. Log calls hold the lifetime lock shared for the whole
// call, so the last Release (which holds it exclusively) cannot free the
// logger under a writer.
std::shared_mutex gLifetime;
Logger* gInstance = nullptr;  // guarded by gLifetime
uint64_t gReferences = 0;     // guarded by gLifetime

// The trace providers live from library load to unload. The registration sits
// here, in the object every user of logging links, so it is never left out.
struct TraceProviderRegistration {
    TraceProviderRegistration() { RegisterTraceProviders(); }
    ~TraceProviderRegistration() { UnregisterTraceProviders(); }
    TraceProviderRegistration(const TraceProviderRegistration&) = delete;
    TraceProviderRegistration& operator=(const TraceProviderRegistration&) = delete;
};
const TraceProviderRegistration gTraceProviderRegistration;

Logger& CreateInstanceLocked() {
    if (gInstance == nullptr) {
        gInstance = new Logger();
    }
    return *gInstance;
}

}  // namespace

Logger::Logger()
    : executableName_(Platform::ExecutableFileName()),
      stdErr_(kWarn, kGroupDbg, kGroupGen, "#E(#T): #L| #M"),
      stdOut_(kWarn, kGroupGen, kGroupDbg, "#M"),
      debugger_(kWarn, kGroupDbg, 0, "#E(#T): #L| #M") {
    // Starts the clock that "#H" counts from.
    Platform::NanosecondsSinceFirstUse();
    RegisterTarget(stdErr_);
    RegisterTarget(debugger_);
}

Logger::~Logger() {
    UnregisterAll();
}

Logger& Logger::Instance() {
    {
        std::shared_lock lock(gLifetime);
        if (gInstance != nullptr) {
            return *gInstance;
        }
    }
    std::unique_lock lock(gLifetime);
    return CreateInstanceLocked();
}

Logger& Logger::Acquire() {
    std::unique_lock lock(gLifetime);
    ++gReferences;
    return CreateInstanceLocked();
}

void Logger::Release() {
    std::unique_lock lock(gLifetime);
    if (gReferences == 0 || --gReferences > 0) {
        return;
    }
    delete gInstance;  // unregisters every target
    gInstance = nullptr;
}

bool Logger::RegisterTarget(LogTarget& target) {
    std::lock_guard lock(lock_);
    Logger* expected = nullptr;
    if (!target.logger_.compare_exchange_strong(expected, this, std::memory_order_acq_rel)) {
        return false;
    }
    targets_.push_back(&target);
    return true;
}

bool Logger::UnregisterTarget(LogTarget& target) {
    std::lock_guard lock(lock_);
    auto it = std::find(targets_.begin(), targets_.end(), &target);
    if (it == targets_.end()) {
        return false;
    }
    targets_.erase(it);
    target.logger_.store(nullptr, std::memory_order_release);
    return true;
}

void Logger::UnregisterAll() {
    std::lock_guard lock(lock_);
    for (LogTarget* target : targets_) {
        target->logger_.store(nullptr, std::memory_order_release);
    }
    targets_.clear();
}

LogTarget* Logger::FindTarget(std::string_view name) {
    std::lock_guard lock(lock_);
    for (LogTarget* target : targets_) {
        if (target->Name() == name) {
            return target;
        }
    }
    return nullptr;
}

uint64_t Logger::LookUpGroup(std::string_view name) {
    return LookUpLogGroup(name);
}

std::string Logger::FormatLine(std::string_view format, const LogRecord& record) const {
    return FormatLogLine(format, record, executableName_);
}

bool Logger::WouldLog(uint32_t level, uint64_t groups) const {
    return !IsDisabled() && level >= MinimumLevel() && (groups & ExcludedGroups()) == 0;
}

void Logger::Log(uint32_t level, uint64_t groups, const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(level, groups, format, args);
    va_end(args);
}

void Logger::LogV(uint32_t level, uint64_t groups, const char* format, va_list args) {
    if (!WouldLog(level, groups) || format == nullptr) {
        return;
    }
    char message[kLogBufferSize];
    if (std::vsnprintf(message, sizeof message, format, args) < 0) {
        message[0] = '\0';
    }
    LogRecord record;
    record.time = Platform::CurrentLocalTime();
    record.level = level;
    record.groups = groups;
    record.message = message;
    Write(record);
}

void Logger::Write(const LogRecord& record) {
    std::lock_guard lock(lock_);
    if (record.level == kWarn) {
        ++warningCount_;
    } else if (record.level == kError) {
        ++errorCount_;
    }
    // By index: a target may unregister itself (or another) while writing.
    for (size_t i = 0; i < targets_.size(); ++i) {
        LogTarget* target = targets_[i];
        if (target->Accepts(record.level, record.groups)) {
            std::lock_guard targetLock(target->OutputLock());
            target->Write(record);
        }
    }
}

uint64_t Logger::WarningCount() const {
    std::lock_guard lock(lock_);
    return warningCount_;
}

uint64_t Logger::ErrorCount() const {
    std::lock_guard lock(lock_);
    return errorCount_;
}

void LogV(uint32_t level, uint64_t groups, const char* format, va_list args) {
    std::shared_lock lock(gLifetime);
    if (gInstance == nullptr) {
        lock.unlock();
        {
            std::unique_lock create(gLifetime);
            CreateInstanceLocked();
        }
        lock.lock();
        if (gInstance == nullptr) {
            return;  // released again in between
        }
    }
    gInstance->LogV(level, groups, format, args);
}

void Log(uint32_t level, uint64_t groups, const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(level, groups, format, args);
    va_end(args);
}

}  // namespace Orvan::Framework
