// Sending service-proxy requests, delivering their errors, registering the
// handlers of pushed messages, matching answers to their callers, and turning
// answers into results.
#include "framework/serviceproxy/ServiceProxyClient.h"

#include <mutex>

#include "framework/log/Log.h"

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

// ---- Requests -----------------------------------------------------------------

std::string ServiceProxyClient::SendSerialized(std::string_view service, std::string_view method,
                                               const Maybe<std::string>& payload,
                                               std::string_view responseMethod,
                                               std::string_view extra,
                                               const ServiceProxyHandler& completion) {
    if (finalizing_.load(std::memory_order_acquire)) {
        return kFinalizing;
    }
    if (!payload) {
        return payload.GetFailure().message;
    }
    const std::string name = Format("%1.%2", service, method);
    Log(kAlways, kGroupDbg, "%s: Preparing service proxy request: %s", shortName_.c_str(),
        name.c_str());

    std::string key;
    if (responseMethod.empty()) {
        Maybe<std::string> uuid =
            rest_.RequestValue<std::string>(HttpMethod::Post, kServiceProxyUuidRequests, service,
                                            method, host_.PluginHandle(), *payload);
        if (!uuid) {
            return uuid.GetFailure().message;
        }
        key = std::move(uuid).Value();
    } else {
        key = Format("%1.%2", service, responseMethod);
        bool inFlight = false;
        {
            std::lock_guard lock(mutex_);
            inFlight = completionCallbacks_.count(key) != 0;
        }
        if (inFlight) {
            Log(kError, kGroupDbg,
                "%s: Could not invoke service proxy as request is already in flight",
                shortName_.c_str());
            return kAlreadyInFlight;
        }
        // The host may deliver the answer while this POST runs; it then
        // waits among the unmatched answers until the caller is stored below.
        Maybe<> posted =
            rest_.Request(HttpMethod::Post, kServiceProxyMethodRequests, service, method,
                          responseMethod, extra, host_.PluginHandle(), *payload);
        if (!posted) {
            return posted.GetFailure().message;
        }
    }
    Log(kAlways, kGroupDbg, "%s: Started service proxy request: %s (%s)", shortName_.c_str(),
        name.c_str(), key.c_str());
    {
        std::lock_guard lock(mutex_);
        // The matcher calls what it finds; a caller that wants nothing gets
        // a callable that does nothing.
        completionCallbacks_[key] =
            completion ? completion : ServiceProxyHandler([](const PluginServiceProxyResponse&) {});
    }
    MatchPendingAnswers();
    return {};
}

void ServiceProxyClient::InvokeSerialized(std::string_view service, std::string_view method,
                                          const Maybe<std::string>& payload,
                                          std::string_view responseMethod, std::string_view extra,
                                          ServiceProxyHandler completion) {
    std::string error = SendSerialized(service, method, payload, responseMethod, extra, completion);
    if (error.empty()) {
        return;
    }
    // Never from inside the call: the caller may still be setting up, and a
    // completion must not run under its caller's feet.
    PluginServiceProxyResponse failed;
    failed.serviceName = std::string(service);
    failed.methodName = std::string(method);
    failed.error = std::move(error);
    delayedCalls_.ScheduleAt(Format("%1.%2", service, method), DelayedCalls::Clock::now(),
                             [completion = std::move(completion), failed = std::move(failed)] {
                                 if (completion) {
                                     completion(failed);
                                 }
                             });
}

void ServiceProxyClient::RegisterHandler(std::string_view service, std::string_view method,
                                         ServiceProxyHandler handler) {
    {
        std::lock_guard lock(mutex_);
        asyncHandlers_[Format("%1.%2", service, method)] = std::move(handler);
    }
    // Whether the login plugin took the registration changes nothing here:
    // without it the messages just never come.
    (void)rest_.Request(HttpMethod::Post, Format(kServiceProxyAsyncRequests, service, method),
                        host_.PluginHandle());
}

// ---- Answers ------------------------------------------------------------------

void ServiceProxyClient::OnUuidAnswer(const PluginServiceProxyResponse& response) {
    {
        std::lock_guard lock(mutex_);
        unmatchedAnswers_[response.uuid] = response;
    }
    MatchPendingAnswers();
}

void ServiceProxyClient::OnMethodAnswer(const PluginServiceProxyResponse& response) {
    {
        std::lock_guard lock(mutex_);
        unmatchedAnswers_[Format("%1.%2", response.serviceName, response.methodName)] = response;
    }
    MatchPendingAnswers();
}

void ServiceProxyClient::OnAsyncMessage(const PluginServiceProxyResponse& response) {
    const std::string key = Format("%1.%2", response.serviceName, response.methodName);
    ServiceProxyHandler handler;
    {
        std::lock_guard lock(mutex_);
        if (auto found = asyncHandlers_.find(key); found != asyncHandlers_.end()) {
            handler = found->second;
        }
    }
    if (handler) {
        handler(response);
    } else {
        Log(kError, kGroupDbg,
            "%s: Could not find registered handler for async service proxy event %s",
            shortName_.c_str(), key.c_str());
    }
}

void ServiceProxyClient::MatchPendingAnswers() {
    std::lock_guard lock(mutex_);
    for (auto answer = unmatchedAnswers_.begin(); answer != unmatchedAnswers_.end(); ++answer) {
        auto callback = completionCallbacks_.find(answer->first);
        if (callback == completionCallbacks_.end()) {
            continue;
        }
        callback->second(answer->second);
        Log(kAlways, kGroupDbg, "%s: Fulfilled service proxy request: %s", shortName_.c_str(),
            answer->first.c_str());
        completionCallbacks_.erase(callback);
        unmatchedAnswers_.erase(answer);
        return;
    }
}

void ServiceProxyClient::Clear() {
    std::lock_guard lock(mutex_);
    completionCallbacks_.clear();
    asyncHandlers_.clear();
    unmatchedAnswers_.clear();
}

}  // namespace Orvan::Framework
