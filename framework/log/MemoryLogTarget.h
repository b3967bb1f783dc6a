// MemoryLogTarget: a target that keeps what it is given, for tests and for
// tools that want to inspect log output. It records each accepted record's
// level, groups, message and the line its format produces.
//
// Ownership: owns the captured entries. Threads: Write is called under the
// target's critical section; Entries and Clear take it too.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "framework/log/LogTarget.h"

namespace Orvan::Framework {

class MemoryLogTarget : public LogTarget {
public:
    struct Entry {
        uint32_t level;
        uint64_t groups;
        std::string message;
        std::string line;
    };

    explicit MemoryLogTarget(uint32_t level = kOkay, uint64_t includedGroups = 0,
                             uint64_t excludedGroups = 0, std::string_view lineFormat = "#L|#G|#M")
        : LogTarget(level, includedGroups, excludedGroups, lineFormat) {}

    std::string_view Name() const override { return "MemoryLogTarget"; }

    void Write(const LogRecord& record) override {
        std::string line = FormatLine(record);
        std::lock_guard lock(OutputLock());
        entries_.push_back(Entry{record.level, record.groups, record.message, std::move(line)});
    }

    std::vector<Entry> Entries() {
        std::lock_guard lock(OutputLock());
        return entries_;
    }

    void Clear() {
        std::lock_guard lock(OutputLock());
        entries_.clear();
    }

private:
    std::vector<Entry> entries_;  // guarded by OutputLock()
};

}  // namespace Orvan::Framework
