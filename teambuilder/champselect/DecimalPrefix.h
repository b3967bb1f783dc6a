// DecimalPrefix: the number at the start of a text as the C library's
// string-to-number conversions read it (leading white space, an optional sign,
// then digits up to the first other character). Champion ids and ceremony
// keys arrive as such texts; each caller decides what an absent or too-large
// number means.
//
// Header-only, no state. Threads: any.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

namespace Orvan::Client::LobbyTeamBuilder {

struct DecimalPrefix {
    bool negative = false;
    bool hasDigits = false;
    // More digits than an int64 holds; magnitude then stops growing.
    bool overflow = false;
    int64_t magnitude = 0;
};

inline DecimalPrefix ReadDecimalPrefix(std::string_view text) {
    DecimalPrefix prefix;
    size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
        ++at;
    }
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        prefix.negative = text[at] == '-';
        ++at;
    }
    constexpr int64_t kLimit = std::numeric_limits<int64_t>::max() / 10 - 1;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        prefix.hasDigits = true;
        if (prefix.magnitude > kLimit) {
            prefix.overflow = true;
        } else if (!prefix.overflow) {
            prefix.magnitude = prefix.magnitude * 10 + (text[at] - '0');
        }
    }
    return prefix;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
