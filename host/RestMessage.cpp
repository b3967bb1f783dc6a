#include "host/RestMessage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

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

char* CopyErrorText(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text.c_str(), text.size() + 1);
    }
    return copy;
}

}  // namespace

RestRequest ReadPluginRequest(const HostRequest& record, uint32_t caller, size_t& unreadable,
                              std::string& error) {
    unreadable = 0;
    RestRequest request;
    request.method = record.method;
    request.uri = TextOrEmpty(record.uri);
    request.caller = caller;
    request.functionName = TextOrEmpty(record.functionName);
    request.contentType = TextOrEmpty(record.contentType);
    for (uint32_t i = 0; record.arguments != nullptr && i < record.argumentCount; ++i) {
        RestArgument argument;
        argument.name = TextOrEmpty(record.arguments[i].name);
        std::string why;
        if (!HostValueToJson(record.arguments[i].value, argument.json, why)) {
            argument.json.clear();
            if (unreadable == 0) {
                unreadable = i + 1;
                error = std::move(why);
            }
        }
        request.arguments.push_back(std::move(argument));
    }
    for (uint32_t i = 0; record.headers != nullptr && i < record.headerCount; ++i) {
        request.headers.emplace_back(TextOrEmpty(record.headers[i].name),
                                     TextOrEmpty(record.headers[i].value));
    }
    if (record.body != nullptr) {
        request.hasBody = true;
        request.body.assign(reinterpret_cast<const char*>(record.body), record.bodyLength);
    }
    return request;
}

void WritePluginReply(const RestReply& answer, HostResponse& reply) {
    reply = HostResponse{};
    reply.status = answer.status;
    reply.resultFormat = answer.resultFormat;
    if (answer.failed) {
        reply.failed = 1;
        reply.errorText = CopyErrorText(answer.error.empty() ? "Error" : answer.error);
    } else {
        std::string error;
        if (!JsonToHostValue(answer.body, reply.body, error)) {
            reply.failed = 1;
            reply.status = 502;
            reply.errorText = CopyErrorText("Unreadable reply body: " + error);
        }
    }
    reply.release = &ReleasePluginReply;
}

void QEL_HOST_CALL ReleasePluginReply(HostResponse* reply) {
    std::free(const_cast<char*>(reply->errorText));
    reply->errorText = nullptr;
    FreeHostValue(reply->body);
    reply->release = nullptr;
}

RestReply CallPluginEndpoint(const EndpointRecord& endpoint, const RestRequest& request,
                             const std::function<void()>& beforeDispatch) {
    std::vector<HostValueHolder> values(request.arguments.size());
    std::vector<HostArgument> arguments(request.arguments.size());
    for (size_t i = 0; i < request.arguments.size(); ++i) {
        std::string error;
        if (!JsonToHostValue(request.arguments[i].json, values[i].Get(), error)) {
            return RestReply::Error(400,
                                    "Argument " + std::to_string(i + 1) + " is not JSON: " + error);
        }
        arguments[i].name =
            request.arguments[i].name.empty() ? nullptr : request.arguments[i].name.c_str();
        arguments[i].value = values[i].Get();
    }
    std::vector<HostHeader> headers;
    headers.reserve(request.headers.size());
    for (const auto& [name, value] : request.headers) {
        headers.push_back(HostHeader{name.c_str(), value.c_str()});
    }
    HostRequest record{};
    record.method = request.method;
    record.uri = request.uri.c_str();
    record.arguments = arguments.empty() ? nullptr : arguments.data();
    record.argumentCount = static_cast<uint32_t>(arguments.size());
    record.dispatchContext = endpoint.function.dispatchContext;
    record.headers = headers.empty() ? nullptr : headers.data();
    record.headerCount = static_cast<uint32_t>(headers.size());
    record.contentType = request.contentType.empty() ? nullptr : request.contentType.c_str();
    // A std::string keeps one NUL after its last byte, as the interface asks.
    record.body =
        request.hasBody ? reinterpret_cast<const uint8_t*>(request.body.c_str()) : nullptr;
    record.bodyLength = request.hasBody ? static_cast<uint32_t>(request.body.size()) : 0;
    record.pluginHandle = request.caller;
    record.functionName = request.functionName.empty() ? nullptr : request.functionName.c_str();
    if (beforeDispatch) {
        beforeDispatch();
    }
    HostResponse response{};
    endpoint.dispatch(&response, &record);
    return TakePluginReply(response);
}

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
