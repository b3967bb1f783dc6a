#include "framework/log/LogLine.h"

#include <cstdio>
#include <iterator>

#include "framework/log/LogGroups.h"
#include "framework/platform/Thread.h"

namespace Orvan::Framework {

namespace {

// Room for the text of a line: the buffer less its terminator and the line feed.
constexpr size_t kMaxLineText = kLogBufferSize - 2;

void Append(std::string& line, std::string_view text) {
    if (line.size() < kMaxLineText) {
        line.append(text.substr(0, kMaxLineText - line.size()));
    }
}

}  // namespace

std::string LogLevelName(uint32_t level) {
    static constexpr std::string_view kNames[] = {"  OKAY", "  WARN", " ERROR", "ALWAYS"};
    if (level < std::size(kNames)) {
        return std::string(kNames[level]);
    }
    // Outside the table: the number, padded like the names.
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%6u", static_cast<unsigned>(level));
    return buffer;
}

std::string FormatLogLine(std::string_view format, const LogRecord& record,
                          std::string_view executableName) {
    std::string line;
    line.reserve(format.size() + 64);
    char buffer[64];
    for (size_t i = 0; i < format.size() && line.size() < kMaxLineText; ++i) {
        char c = format[i];
        if (c != '#') {
            line += c;
            continue;
        }
        if (++i >= format.size()) {
            line += '#';  // a lone "#" at the end stays as it is
            break;
        }
        switch (format[i]) {
            case 'D': {
                const Platform::LocalTime& t = record.time;
                std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", t.year,
                              t.month, t.day, t.hour, t.minute, t.second, t.millisecond);
                Append(line, buffer);
                break;
            }
            case 'E':
                Append(line, executableName);
                break;
            case 'G':
                Append(line, LogGroupNames(record.groups));
                break;
            case 'H': {
                uint64_t ms = Platform::NanosecondsSinceFirstUse() / 1'000'000;
                std::snprintf(buffer, sizeof buffer, "%06d.%03d", static_cast<int>(ms / 1000),
                              static_cast<int>(ms % 1000));
                Append(line, buffer);
                break;
            }
            case 'L':
                Append(line, LogLevelName(record.level));
                break;
            case 'M':
                Append(line, record.message != nullptr ? record.message : "");
                break;
            case 'T':
                std::snprintf(
                    buffer, sizeof buffer, "%p",
                    reinterpret_cast<void*>(static_cast<uintptr_t>(Platform::CurrentThreadId())));
                Append(line, buffer);
                break;
            default:
                line += format[i];
                break;
        }
    }
    if (line.size() > kMaxLineText) {
        line.resize(kMaxLineText);
    }
    if (line.empty() || line.back() != '\n') {
        line += '\n';
    }
    return line;
}

std::string FormatFileNameTime(const Platform::LocalTime& time) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d-%02d-%02d", time.year, time.month,
                  time.day, time.hour, time.minute, time.second);
    return buffer;
}

}  // namespace Orvan::Framework
