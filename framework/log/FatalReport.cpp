#include "framework/log/FatalReport.h"

#include <cstdio>
#include <cstdlib>

#include "framework/log/Log.h"

namespace Orvan::Framework {

std::string FatalReportText(std::string_view expression, std::string_view description,
                            std::string_view file, uint32_t line, std::string_view function) {
    std::string text = "Assertion failed!\n\n";
    if (!file.empty()) {
        text.append("File: ").append(file).append("\n");
    }
    if (line != 0) {
        text.append("Line: ").append(std::to_string(line)).append("\n\n");
    }
    if (!function.empty()) {
        text.append("Function: ").append(function).append("\n\n");
    }
    if (!expression.empty()) {
        text.append("Expression: ").append(expression);
    }
    if (!description.empty()) {
        text.append("\n\nDescription: ").append(description);
    }
    return text;
}

void LogFatalReport(std::string_view expression, std::string_view description,
                    std::string_view file, uint32_t line, std::string_view function) {
    std::string text = FatalReportText(expression, description, file, line, function);
    Log(kError, kGroupDbg, "%s", text.c_str());
}

void FatalReport(std::string_view expression, std::string_view description, std::string_view file,
                 uint32_t line, std::string_view function) {
    LogFatalReport(expression, description, file, line, function);
    std::fflush(stdout);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Orvan::Framework
