// Standard base64 ("A-Z a-z 0-9 + /", "=" padding) of a byte range, written
// into a caller's buffer so a writer can reuse one buffer for every blob.
//
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Orvan::Framework::CodecInternal {

inline void AssignBase64(std::string& out, std::span<const uint8_t> bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    out.resize((bytes.size() + 2) / 3 * 4);
    char* o = out.data();
    const uint8_t* p = bytes.data();
    size_t n = bytes.size();
    for (; n >= 3; n -= 3, p += 3) {
        uint32_t v = (uint32_t{p[0]} << 16) | (uint32_t{p[1]} << 8) | p[2];
        *o++ = kAlphabet[v >> 18];
        *o++ = kAlphabet[(v >> 12) & 63];
        *o++ = kAlphabet[(v >> 6) & 63];
        *o++ = kAlphabet[v & 63];
    }
    if (n != 0) {
        uint32_t v = uint32_t{p[0]} << 16;
        if (n == 2) {
            v |= uint32_t{p[1]} << 8;
        }
        *o++ = kAlphabet[v >> 18];
        *o++ = kAlphabet[(v >> 12) & 63];
        *o++ = n == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        *o++ = '=';
    }
}

}  // namespace Orvan::Framework::CodecInternal
