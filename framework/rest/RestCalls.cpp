// The host side of REST calls: arguments into HostArguments, one call of host
// entry 0, the reply read inline or as a stream, and the reply released once.
#include "framework/rest/RestCalls.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/binding/MessageFormat.h"
#include "framework/codec/Json.h"
#include "framework/host/HostValueConversion.h"

namespace Orvan::Framework {

namespace {

constexpr const char* kNotSentTemplate =
    "Request not sent: Error converting parameters for {method} {url}: {error}";
constexpr const char* kErrorResponseTemplate = "Error response for {method} {url}: {error}";
constexpr const char* kStreamTemplate =
    "Error reading streamed response for {method} {url}: {error}";
constexpr const char* kConvertTemplate = "Error converting response for {method} {url}: {error}";
constexpr const char* kStreamReadError = "Stream read error";

constexpr uint32_t kStreamChunk = 4096;
// The reply's size hint is only a hint; a host announcing gigabytes must not
// make us reserve them up front.
constexpr uint32_t kMaxReservedStream = 1u << 20;

// The converted arguments as the host sees them; released with the call.
class HostArguments {
public:
    HostArguments() = default;
    HostArguments(const HostArguments&) = delete;
    HostArguments& operator=(const HostArguments&) = delete;
    ~HostArguments() {
        for (HostArgument& argument : items_) {
            ReleaseHostValue(argument.value);
        }
    }

    Maybe<> Fill(const std::vector<BindingProperty>& values, const BindingTypeRegistry& registry) {
        items_.reserve(values.size());
        for (const BindingProperty& value : values) {
            HostArgument argument{};
            Maybe<> converted = ToHostValue(value, argument.value, &registry);
            if (!converted) {
                return converted;
            }
            items_.push_back(argument);
        }
        return Maybe<>::Success();
    }

    HostArgument* Data() { return items_.empty() ? nullptr : items_.data(); }
    uint32_t Count() const { return static_cast<uint32_t>(items_.size()); }

private:
    std::vector<HostArgument> items_;
};

// One request to the host and its reply. The reply is closed (a stream
// nobody read) and released when the call ends, whatever the outcome.
class HostCall {
public:
    HostCall(HostEntries& host, const BindingTypeRegistry& registry, HttpMethod method,
             std::string_view url)
        : host_(host),
          registry_(registry),
          code_(HostMethodCode(static_cast<uint32_t>(method))),
          methodName_(HttpMethodName(code_)),
          url_(url) {}
    HostCall(const HostCall&) = delete;
    HostCall& operator=(const HostCall&) = delete;

    ~HostCall() {
        if (!called_) {
            return;
        }
        CloseStream();
        if (reply_.release != nullptr) {
            reply_.release(&reply_);
        }
    }

    Maybe<> Send(const RestArguments& arguments) {
        if (arguments.Failed()) {
            return Fail(400, kNotSentTemplate, arguments.Error());
        }
        HostArguments hostArguments;
        if (Maybe<> filled = hostArguments.Fill(arguments.Values(), registry_); !filled) {
            return Fail(400, kNotSentTemplate, filled.GetFailure().message);
        }
        HostRequest request{};
        request.method = code_;
        request.uri = url_.c_str();
        request.arguments = hostArguments.Data();
        request.argumentCount = hostArguments.Count();
        request.pluginHandle = host_.PluginHandle();
        called_ = true;
        host_.Request(&reply_, &request);
        if (reply_.errorText != nullptr) {
            return Fail(reply_.status, kErrorResponseTemplate, reply_.errorText);
        }
        return Maybe<>::Success();
    }

    // The reply's body, streamed or inline, handed to the sink.
    Maybe<> Deliver(const RestValueSink& sink) {
        BindingProperty body;
        if (reply_.read != nullptr) {
            std::string text;
            Maybe<> streamed = ReadStream(text);
            CloseStream();
            if (!streamed) {
                return Fail(0, kStreamTemplate, streamed.GetFailure().message);
            }
            Maybe<BindingProperty> parsed = ReadJson(text);
            if (!parsed) {
                return Fail(0, kStreamTemplate, parsed.GetFailure().message);
            }
            body = std::move(parsed).Value();
        } else {
            Maybe<BindingProperty> converted = FromHostValue(reply_.body, kRestResultName);
            if (!converted) {
                return Fail(0, kConvertTemplate, converted.GetFailure().message);
            }
            body = std::move(converted).Value();
        }
        if (Maybe<> assigned = sink(body); !assigned) {
            return Fail(0, kConvertTemplate, assigned.GetFailure().message);
        }
        return Maybe<>::Success();
    }

private:
    // Full reads follow each other at once; a short read that announces more
    // data first gives the host a turn to produce it.
    Maybe<> ReadStream(std::string& text) {
        const uint32_t hint = reply_.expectedLength;  // packed: read by value
        text.reserve(std::min(hint, kMaxReservedStream));
        uint8_t buffer[kStreamChunk];
        for (;;) {
            uint32_t length = kStreamChunk;
            // A reader that only ever clears the flag still ends the loop.
            uint8_t more = 1;
            if (reply_.read(reply_.streamContext, buffer, &length, &more) == 0) {
                return Failure(kStreamReadError);
            }
            length = std::min(length, kStreamChunk);
            text.append(reinterpret_cast<const char*>(buffer), length);
            if (more == 0) {
                return Maybe<>::Success();
            }
            if (length < kStreamChunk) {
                Yield(host_);
            }
        }
    }

    void CloseStream() {
        if (reply_.read != nullptr && reply_.close != nullptr && !closed_) {
            closed_ = true;
            reply_.close(reply_.streamContext);
        }
    }

    Failure Fail(uint32_t code, const char* tmpl, std::string_view error) const {
        return MakeFailure(code, tmpl, {{"method", methodName_}, {"url", url_}, {"error", error}});
    }

    HostEntries& host_;
    const BindingTypeRegistry& registry_;
    uint32_t code_;
    std::string_view methodName_;
    std::string url_;
    HostResponse reply_{};
    bool called_ = false;
    bool closed_ = false;
};

}  // namespace

Maybe<> RestClient::Send(HttpMethod method, std::string_view url, const RestArguments& arguments,
                         const RestValueSink* sink) {
    HostCall call(host_, registry_, method, url);
    QEL_RETURN_IF_FAILED(call.Send(arguments));
    if (sink == nullptr) {
        return Maybe<>::Success();
    }
    return call.Deliver(*sink);
}

Maybe<> RestClient::RequestNamed(HttpMethod method, std::string_view url,
                                 const NamedArguments& arguments) {
    return Send(method, url, RestArguments::FromNamed(arguments), nullptr);
}

}  // namespace Orvan::Framework
