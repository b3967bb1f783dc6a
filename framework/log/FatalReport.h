// The fatal report: the one way the system ends the process, for conditions
// it cannot continue from (an incompatible plugin API, a broken future). The
// expression is a code beginning with "ALE-", which identifies the place.
//
// The report text is
//   Assertion failed!\n\n
//   File: <file>\n                      (when a file is given)
//   Line: <line>\n\n                    (when the line is not 0)
//   Function: <function>\n\n            (when a function is given)
//   Expression: <expression>            (when an expression is given)
//   \n\nDescription: <description>      (when a description is given)
// logged at level ERROR with group "DBG".
//
// Threads: any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Orvan::Framework {

std::string FatalReportText(std::string_view expression, std::string_view description,
                            std::string_view file, uint32_t line, std::string_view function);

// Logs the report through the process's logger and returns.
void LogFatalReport(std::string_view expression, std::string_view description,
                    std::string_view file, uint32_t line, std::string_view function);

// Logs the report, flushes the console streams and ends the process abnormally.
[[noreturn]] void FatalReport(std::string_view expression, std::string_view description,
                              std::string_view file, uint32_t line, std::string_view function);

}  // namespace Orvan::Framework

// Fatal report from the calling place: QEL_FATAL("ALE-6D828C10", message).
#define QEL_FATAL(expression, description)                                 \
    ::Orvan::Framework::FatalReport((expression), (description), __FILE__, \
                                    static_cast<uint32_t>(__LINE__), __func__)
