#include "framework/dispatch/PercentDecoding.h"

namespace Orvan::Framework {

namespace {

int HexDigitValue(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

std::string PercentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '+') {
            out.push_back(' ');
            continue;
        }
        if (c != '%' || text.size() - i < 3) {
            out.push_back(c);
            continue;
        }
        const int high = HexDigitValue(text[i + 1]);
        const int low = HexDigitValue(text[i + 2]);
        if (high < 0 || low < 0) {
            // Not an escape: keep the three characters as they came, so a
            // stray "%" never turns into some arbitrary byte.
            out.append(text.substr(i, 3));
        } else {
            out.push_back(static_cast<char>(high * 16 + low));
        }
        i += 2;
    }
    return out;
}

std::string_view PathOfUri(std::string_view uri) noexcept {
    return uri.substr(0, uri.find('?'));
}

std::string_view QueryOfUri(std::string_view uri) noexcept {
    const size_t mark = uri.find('?');
    return mark == std::string_view::npos ? std::string_view() : uri.substr(mark + 1);
}

}  // namespace Orvan::Framework
