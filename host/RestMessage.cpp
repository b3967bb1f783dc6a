#include "host/RestMessage.h"

#include <algorithm>

#include "host/HostJson.h"
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

namespace {

std::string TextOrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

RestReply TakePluginReply(HostResponse& response) {
    RestReply reply;
    reply.failed = response.failed != 0 || response.errorText != nullptr;
    reply.error = TextOrEmpty(response.errorText);
    reply.status = response.status != 0 ? response.status : (reply.failed ? 500 : 200);
    reply.resultFormat = response.resultFormat;
    for (uint32_t i = 0; response.headers != nullptr && i < response.headerCount; ++i) {
        reply.headers.emplace_back(TextOrEmpty(response.headers[i].name),
                                   TextOrEmpty(response.headers[i].value));
    }
    if (response.read != nullptr) {
        std::string text;
        uint8_t buffer[4096];
        for (;;) {
            uint32_t length = sizeof buffer;
            uint8_t more = 0;
            if (response.read(response.streamContext, buffer, &length, &more) == 0) {
                reply.failed = true;
                reply.error = "Stream read error";
                break;
            }
            text.append(reinterpret_cast<const char*>(buffer), std::min<uint32_t>(length, 4096));
            if (more == 0) {
                break;
            }
        }
        if (response.close != nullptr) {
            response.close(response.streamContext);
        }
        reply.body = std::move(text);
    } else if (response.body.type != kHostValueNull) {
        std::string error;
        if (!HostValueToJson(response.body, reply.body, error)) {
            reply.failed = true;
            reply.status = 502;
            reply.error = "The plugin's reply body is unreadable: " + error;
        }
    }
    if (response.release != nullptr) {
        response.release(&response);
    }
    return reply;
}

}  // namespace Orvan::Host
