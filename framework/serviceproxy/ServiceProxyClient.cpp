// Sending service-proxy requests, delivering their errors, registering the
// handlers of pushed messages, and turning answers into results. The answer
// events themselves and the matcher live with the module's event dispatch
// (framework/host/AppModuleEvents.cpp).
#include "framework/serviceproxy/ServiceProxyClient.h"

#include <mutex>

#include "framework/log/Log.h"
#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

namespace {

constexpr const char* kFinalizing = "Finalizing";
constexpr const char* kAlreadyInFlight = "Request already in flight";

bool IsBlank(std::string_view text) {
    // The JSON reader stops at the first NUL byte; so does this test.
    for (char c : text) {
        if (c == '\0') {
            break;
        }
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            return false;
        }
    }
    return true;
}

}  // namespace

// ---- Payloads and answers ---------------------------------------------------

Failure ServiceProxySerializationFailure(std::string_view typeName) {
    return MakeFailure(0, "Failed to convert type {type} to BindingProperty for serialization",
                       {{"type", typeName}});
}

Failure ServiceProxyDeserializationFailure(std::string_view payload, std::string_view typeName) {
    return MakeFailure(0, "Failed to deserialize response payload \"{payload}\" to a {type}",
                       {{"payload", payload}, {"type", typeName}});
}

Maybe<BindingProperty> ParseServiceProxyPayload(std::string_view payload,
                                                std::string_view typeName) {
    // The reader takes a blank text for an empty value; an answer without a
    // document is no answer.
    if (IsBlank(payload)) {
        return ServiceProxyDeserializationFailure(payload, typeName);
    }
    Maybe<BindingProperty> value = ReadJson(payload);
    if (!value) {
        return ServiceProxyDeserializationFailure(payload, typeName);
    }
    return value;
}

Maybe<AppModule::ServiceProxyRawResponse> ToServiceProxyRawResponse(
    const PluginServiceProxyResponse& answer) {
    if (!answer.error.empty()) {
        return Failure(answer.error);
    }
    Maybe<BindingProperty> payload =
        ParseServiceProxyPayload(answer.payload, StaticType::Of<BindingProperty>().name);
    if (!payload) {
        return std::move(payload).GetFailure();
    }
    return AppModule::ServiceProxyRawResponse{answer.methodName, std::move(payload).Value(),
                                              answer.status};
}

std::string DescribeServiceProxyResponse(
    const Maybe<AppModule::ServiceProxyRawResponse>& response) {
    if (!response) {
        return response.GetFailure().message;
    }
    return Format("methodName=%1, status=%2", response->methodName, response->status);
}

// ---- Requests -----------------------------------------------------------------

std::string AppModule::SendSerializedServiceProxyRequest(std::string_view service,
                                                         std::string_view method,
                                                         const Maybe<std::string>& payload,
                                                         std::string_view responseMethod,
                                                         std::string_view extra,
                                                         const ServiceProxyHandler& completion) {
    if (IsFinalizing()) {
        return kFinalizing;
    }
    if (!payload) {
        return payload.GetFailure().message;
    }
    const std::string name = Format("%1.%2", service, method);
    Log(kAlways, kGroupDbg, "%s: Preparing service proxy request: %s", ShortName().c_str(),
        name.c_str());

    std::string key;
    if (responseMethod.empty()) {
        Maybe<std::string> uuid = RequestValue<std::string>(
            HttpMethod::Post, kServiceProxyUuidRequests, service, method, PluginHandle(), *payload);
        if (!uuid) {
            return uuid.GetFailure().message;
        }
        key = std::move(uuid).Value();
    } else {
        key = Format("%1.%2", service, responseMethod);
        bool inFlight = false;
        {
            std::lock_guard lock(serviceProxyMutex_);
            inFlight = completionCallbacks_.count(key) != 0;
        }
        if (inFlight) {
            Log(kError, kGroupDbg,
                "%s: Could not invoke service proxy as request is already in flight",
                ShortName().c_str());
            return kAlreadyInFlight;
        }
        // The host may deliver the answer while this POST runs; it then
        // waits among the unmatched answers until the caller is stored below.
        Maybe<> posted = Request(HttpMethod::Post, kServiceProxyMethodRequests, service, method,
                                 responseMethod, extra, PluginHandle(), *payload);
        if (!posted) {
            return posted.GetFailure().message;
        }
    }
    Log(kAlways, kGroupDbg, "%s: Started service proxy request: %s (%s)", ShortName().c_str(),
        name.c_str(), key.c_str());
    {
        std::lock_guard lock(serviceProxyMutex_);
        // The matcher calls what it finds; a caller that wants nothing gets
        // a callable that does nothing.
        completionCallbacks_[key] =
            completion ? completion : ServiceProxyHandler([](const PluginServiceProxyResponse&) {});
    }
    MatchPendingAnswers();
    return {};
}

void AppModule::InvokeSerializedServiceProxy(std::string_view service, std::string_view method,
                                             const Maybe<std::string>& payload,
                                             std::string_view responseMethod,
                                             std::string_view extra,
                                             ServiceProxyHandler completion) {
    std::string error = SendSerializedServiceProxyRequest(service, method, payload, responseMethod,
                                                          extra, completion);
    if (error.empty()) {
        return;
    }
    // Never from inside the call: the caller may still be setting up, and a
    // completion must not run under its caller's feet.
    PluginServiceProxyResponse failed;
    failed.serviceName = std::string(service);
    failed.methodName = std::string(method);
    failed.error = std::move(error);
    ScheduleAt(Format("%1.%2", service, method), Clock::now(),
               [completion = std::move(completion), failed = std::move(failed)] {
                   if (completion) {
                       completion(failed);
                   }
               });
}

void AppModule::RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                            ServiceProxyHandler handler) {
    {
        std::lock_guard lock(serviceProxyMutex_);
        asyncHandlers_[Format("%1.%2", service, method)] = std::move(handler);
    }
    // Whether the login plugin took the registration changes nothing here:
    // without it the messages just never come.
    (void)Request(HttpMethod::Post, Format(kServiceProxyAsyncRequests, service, method),
                  PluginHandle());
}

}  // namespace Orvan::Framework
