// HttpMethod: the request method codes as the host numbers them, and their
// names. Shared by the route table (function names) and by REST calls to other
// plugins (messages).
//
// Ownership: constants only. Threads: any.
#pragma once

#include <cstdint>
#include <string_view>

#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

enum class HttpMethod : uint32_t {
    None = 0,
    Delete = 1,
    Get = 2,
    Head = 3,
    Options = 4,
    Patch = 5,
    Post = 6,
    Put = 7,
    // The request names a function instead of giving a path.
    DirectCall = 8,
};

static_assert(static_cast<uint32_t>(HttpMethod::Delete) == kHostMethodDelete);
static_assert(static_cast<uint32_t>(HttpMethod::Put) == kHostMethodPut);
static_assert(static_cast<uint32_t>(HttpMethod::DirectCall) == kHostMethodDirectCall);

// The code as it goes to the host: 1..8 unchanged, anything else 0.
constexpr uint32_t HostMethodCode(uint32_t code) noexcept {
    return code >= 1 && code <= 8 ? code : 0;
}

// "DELETE" ... "PUT" for codes 1..7; the empty text for every other code,
// including the direct call.
constexpr std::string_view HttpMethodName(uint32_t code) noexcept {
    switch (code) {
        case 1:
            return "DELETE";
        case 2:
            return "GET";
        case 3:
            return "HEAD";
        case 4:
            return "OPTIONS";
        case 5:
            return "PATCH";
        case 6:
            return "POST";
        case 7:
            return "PUT";
        default:
            return {};
    }
}

constexpr std::string_view HttpMethodName(HttpMethod method) noexcept {
    return HttpMethodName(static_cast<uint32_t>(method));
}

}  // namespace Orvan::Framework
