// ASCII case mapping for names on the wire (methods, header and argument
// names): locale-independent, unlike std::tolower.
#pragma once

namespace Orvan::Framework {

inline char AsciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline char AsciiUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace Orvan::Framework
