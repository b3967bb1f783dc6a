#include "host/RestMessage.h"

#include "host/UrlTemplate.h"

namespace Orvan::Host {

std::string_view MethodName(uint32_t method) {
    switch (method) {
        case kHostMethodDelete:
            return "DELETE";
        case kHostMethodGet:
            return "GET";
        case kHostMethodHead:
            return "HEAD";
        case kHostMethodOptions:
            return "OPTIONS";
        case kHostMethodPatch:
            return "PATCH";
        case kHostMethodPost:
            return "POST";
        case kHostMethodPut:
            return "PUT";
        case kHostMethodDirectCall:
            return "CALL";
        default:
            return "";
    }
}

uint32_t MethodCode(std::string_view name) {
    for (uint32_t code = 1; code <= kHostMethodDirectCall; ++code) {
        if (MethodName(code) == name) {
            return code;
        }
    }
    return 0;
}

std::string RestRequest::Path() const {
    return std::string(UriPath(uri));
}

std::string RestRequest::Argument(size_t index) const {
    size_t position = 0;
    for (const RestArgument& argument : arguments) {
        if (argument.name.empty()) {
            if (position == index) {
                return argument.json;
            }
            ++position;
        }
    }
    return {};
}

std::string LowerAscii(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return lower;
}

RestReply RestReply::Json(std::string body, uint16_t status) {
    RestReply reply;
    reply.status = status;
    reply.body = std::move(body);
    return reply;
}

RestReply RestReply::Error(uint16_t status, std::string text) {
    RestReply reply;
    reply.status = status;
    reply.failed = true;
    reply.error = std::move(text);
    return reply;
}

}  // namespace Orvan::Host
