#include "framework/log/LogTarget.h"

#include <mutex>

#include "framework/log/LogLine.h"
#include "framework/log/Logger.h"
#include "framework/platform/DebuggerOutput.h"
#include "framework/platform/ProcessImage.h"

namespace Orvan::Framework {

LogTarget::LogTarget(uint32_t level, uint64_t includedGroups, uint64_t excludedGroups,
                     std::string_view lineFormat)
    : level_(level),
      included_(includedGroups),
      excluded_(excludedGroups),
      lineFormat_(lineFormat) {}

LogTarget::~LogTarget() {
    // Not the virtual Unregister: a derived part is already gone here.
    if (Logger* logger = logger_.load(std::memory_order_acquire)) {
        logger->UnregisterTarget(*this);
    }
}

void LogTarget::Unregister() {
    if (Logger* logger = logger_.load(std::memory_order_acquire)) {
        logger->UnregisterTarget(*this);
    }
}

std::string LogTarget::LineFormat() const {
    std::lock_guard lock(outputLock_);
    return lineFormat_;
}

void LogTarget::SetLineFormat(std::string_view format) {
    std::lock_guard lock(outputLock_);
    lineFormat_ = format;
}

void LogTarget::Write(const LogRecord&) {}

bool LogTarget::Accepts(uint32_t level, uint64_t groups) const {
    if (level < Level()) {
        return false;
    }
    if (groups == 0) {
        return true;
    }
    if (groups & ExcludedGroups()) {
        return false;
    }
    uint64_t included = IncludedGroups();
    return included == 0 || (groups & included) != 0;
}

std::string LogTarget::FormatLine(const LogRecord& record) const {
    std::lock_guard lock(outputLock_);
    Logger* logger = logger_.load(std::memory_order_acquire);
    return FormatLogLine(lineFormat_, record,
                         logger != nullptr ? std::string_view(logger->ExecutableName())
                                           : Platform::kUnknownExecutable);
}

void BaseConsoleLogTarget::WriteLine(std::FILE* stream, const LogRecord& record) {
    std::string line = FormatLine(record);
    std::lock_guard lock(OutputLock());
    std::fwrite(line.data(), 1, line.size(), stream);
}

void StdErrLogTarget::Write(const LogRecord& record) {
    WriteLine(stderr, record);
}

void StdErrLogTarget::Flush() {
    std::lock_guard lock(OutputLock());
    std::fflush(stderr);
}

void StdOutLogTarget::Write(const LogRecord& record) {
    WriteLine(stdout, record);
    if (flushEachLine_.load(std::memory_order_relaxed)) {
        Flush();
    }
}

void StdOutLogTarget::Flush() {
    std::lock_guard lock(OutputLock());
    std::fflush(stdout);
}

void DebuggerConsoleLogTarget::Write(const LogRecord& record) {
    std::string line = FormatLine(record);
    std::lock_guard lock(OutputLock());
    Platform::WriteDebuggerOutput(line.c_str());
}

}  // namespace Orvan::Framework
