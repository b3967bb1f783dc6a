// The log line of an effect, formatted when it is derived so that tests can
// state it whole.
#include "teambuilder/common/IntakeChanges.h"

#include <cstdarg>
#include <cstdio>

namespace Orvan::Client::LobbyTeamBuilder {

LogLine FormattedLine(uint32_t level, uint64_t groups, const char* format, ...) {
    LogLine line{level, groups, {}};
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length > 0) {
        line.text.resize(static_cast<size_t>(length) + 1);
        std::vsnprintf(line.text.data(), line.text.size(), format, again);
        line.text.resize(static_cast<size_t>(length));
    }
    va_end(again);
    return line;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
