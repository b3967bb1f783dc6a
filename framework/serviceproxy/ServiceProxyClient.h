// ServiceProxyClient: calls to game services through the login plugin's
// service-proxy endpoints, and the messages the services push; behind the
// module's SendServiceProxyRequest, InvokeServiceProxy, CallServiceProxyRaw,
// CallServiceProxy<T> and RegisterServiceProxyHandler (the module turns
// answers into its raw responses).
//
//   std::future<Maybe<AppModule::ServiceProxyRawResponse>> raw =
//       module.CallServiceProxyRaw("wardSkins", "requestSelectedWardSkin", payload,
//                                  "receiveSelectedWardSkin");
//   std::future<Maybe<TbdGameDtoV1>> dto =
//       module.CallServiceProxy<TbdGameDtoV1>("teambuilder-draft", "updateActionV1", action);
//   module.RegisterServiceProxyHandler<TbdGameDtoV1>(
//       "teambuilder-draft", "tbdGameDtoV1", [this](const TbdGameDtoV1& dto) { ... });
//
// A request without a response method is uuid-based: the login plugin answers
// the POST with a uuid under which the answer arrives. With a response method
// it is method-based and waits under "<service>.<response method>"; a second
// such request while the first waits fails with "Request already in flight".
// Answers may arrive before their caller is registered; they wait, and every
// registration and every answer delivers at most one waiting answer.
//
// Payloads are a BindingProperty or any native value the registry converts;
// they travel as JSON text. Answer payloads are parsed back; one that does not
// parse or convert fails with
//   "Failed to deserialize response payload \"{payload}\" to a {type}".
//
// Ownership: owns the callers waiting by request key, the handlers of pushed
// messages by "service.method" and the answers not matched yet by key.
// Threads: the host's thread. One mutex guards the three maps. Completions
// run under it and must not send requests; handlers of pushed messages run
// without it and may.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/codec/Json.h"
#include "framework/host/DelayedCalls.h"
#include "framework/host/HostEvents.h"
#include "framework/log/LogRecord.h"
#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

// The login plugin's service-proxy endpoints.
inline constexpr std::string_view kServiceProxyUuidRequests =
    "/qel-login/v1/service-proxy-uuid-requests";
inline constexpr std::string_view kServiceProxyMethodRequests =
    "/qel-login/v1/service-proxy-method-requests";
inline constexpr std::string_view kServiceProxyAsyncRequests =
    "/qel-login/v1/service-proxy-async-requests/%1/%2";

// Root name of an answer payload in conversion messages.
inline constexpr std::string_view kServiceProxyValueName = "<value>";

// The payload as JSON text, or "Failed to convert type {type} to
// BindingProperty for serialization".
Failure ServiceProxySerializationFailure(std::string_view typeName);

template <class P>
Maybe<std::string> SerializeServiceProxyPayload(const BindingTypeRegistry& registry,
                                                const P& payload);

// An answer payload parsed into a value; an empty or blank text is no JSON
// document. `typeName` names the target in the deserialization failure.
Maybe<BindingProperty> ParseServiceProxyPayload(std::string_view payload,
                                                std::string_view typeName);
Failure ServiceProxyDeserializationFailure(std::string_view payload, std::string_view typeName);

// An answer payload converted into T.
template <class T>
Maybe<T> ConvertServiceProxyPayload(const BindingTypeRegistry& registry, std::string_view payload);

// ---- Template definitions -------------------------------------------------

namespace Detail {

// A promise that takes its first answer only, so no caller is answered twice.
template <class R>
class ServiceProxyAnswer {
public:
    std::future<R> Future() { return promise_.get_future(); }
    void Answer(R value) {
        if (!answered_) {
            answered_ = true;
            promise_.set_value(std::move(value));
        }
    }

private:
    std::promise<R> promise_;
    bool answered_ = false;
};

}  // namespace Detail

template <class P>
Maybe<std::string> SerializeServiceProxyPayload(const BindingTypeRegistry& registry,
                                                const P& payload) {
    Maybe<BindingProperty> value = ToBindingValue(registry, payload);
    if (!value) {
        return ServiceProxySerializationFailure(StaticType::Of<P>().name);
    }
    return WriteJson(*value, &registry);
}

template <class T>
Maybe<T> ConvertServiceProxyPayload(const BindingTypeRegistry& registry, std::string_view payload) {
    const std::string_view typeName = StaticType::Of<T>().name;
    Maybe<BindingProperty> value = ParseServiceProxyPayload(payload, typeName);
    if (!value) {
        return std::move(value).GetFailure();
    }
    T result{};
    if (!AssignFromProperty(registry, *value, kServiceProxyValueName, result)) {
        return ServiceProxyDeserializationFailure(payload, typeName);
    }
    return result;
}

class ServiceProxyClient {
public:
    ServiceProxyClient(HostEntries& host, RestClient& rest, DelayedCalls& delayedCalls,
                       const BindingTypeRegistry& registry, const std::string& shortName,
                       const std::atomic<bool>& finalizing)
        : host_(host),
          rest_(rest),
          delayedCalls_(delayedCalls),
          registry_(registry),
          shortName_(shortName),
          finalizing_(finalizing) {}
    ServiceProxyClient(const ServiceProxyClient&) = delete;
    ServiceProxyClient& operator=(const ServiceProxyClient&) = delete;

    // Starts a request; the error text, or empty when it was started. An
    // empty response method makes it uuid-based.
    std::string SendSerialized(std::string_view service, std::string_view method,
                               const Maybe<std::string>& payload, std::string_view responseMethod,
                               std::string_view extra, const ServiceProxyHandler& completion);
    // The same; an error reaches the completion on a later host turn.
    void InvokeSerialized(std::string_view service, std::string_view method,
                          const Maybe<std::string>& payload, std::string_view responseMethod,
                          std::string_view extra, ServiceProxyHandler completion);

    template <class P>
    std::string Send(std::string_view service, std::string_view method, const P& payload,
                     std::string_view responseMethod, std::string_view extra,
                     const ServiceProxyHandler& completion) {
        return SendSerialized(service, method, SerializeServiceProxyPayload(registry_, payload),
                              responseMethod, extra, completion);
    }
    template <class P>
    void Invoke(std::string_view service, std::string_view method, const P& payload,
                std::string_view responseMethod, std::string_view extra,
                ServiceProxyHandler completion) {  // NOLINT(performance-unnecessary-value-param)
        InvokeSerialized(service, method, SerializeServiceProxyPayload(registry_, payload),
                         responseMethod, extra, std::move(completion));
    }
    template <class T, class P>
    std::future<Maybe<T>> Call(std::string_view service, std::string_view method, const P& payload,
                               std::string_view responseMethod, std::string_view extra);

    // Handlers of pushed messages; they run without the mutex.
    void RegisterHandler(std::string_view service, std::string_view method,
                         ServiceProxyHandler handler);
    // A handler that converts the payload into T first.
    template <class T>
    ServiceProxyHandler Typed(std::function<void(const T&)> handler) const;

    // The three answer events.
    void OnUuidAnswer(const PluginServiceProxyResponse& response);
    void OnMethodAnswer(const PluginServiceProxyResponse& response);
    void OnAsyncMessage(const PluginServiceProxyResponse& response);

    void Clear();

private:
    // Discarded trace lines; the arguments are still checked.
    static void Trace(const char* format, ...) QEL_PRINTF_FORMAT(1, 2);
    // Delivers at most one unmatched answer to its waiting caller.
    void MatchPendingAnswers();

    HostEntries& host_;
    RestClient& rest_;
    DelayedCalls& delayedCalls_;
    const BindingTypeRegistry& registry_;
    const std::string& shortName_;
    const std::atomic<bool>& finalizing_;

    std::mutex mutex_;
    std::unordered_map<std::string, ServiceProxyHandler> completionCallbacks_;
    std::unordered_map<std::string, ServiceProxyHandler> asyncHandlers_;
    std::unordered_map<std::string, PluginServiceProxyResponse> unmatchedAnswers_;
};

inline void ServiceProxyClient::Trace(const char*, ...) {}

template <class T, class P>
std::future<Maybe<T>> ServiceProxyClient::Call(std::string_view service, std::string_view method,
                                               const P& payload, std::string_view responseMethod,
                                               std::string_view extra) {
    auto answer = std::make_shared<Detail::ServiceProxyAnswer<Maybe<T>>>();
    std::future<Maybe<T>> future = answer->Future();
    Invoke(service, method, payload, responseMethod, extra,
           [this, answer](const PluginServiceProxyResponse& response) {
               if (!response.error.empty()) {
                   answer->Answer(Failure(response.error));
               } else {
                   answer->Answer(ConvertServiceProxyPayload<T>(registry_, response.payload));
               }
           });
    return future;
}

template <class T>
ServiceProxyHandler ServiceProxyClient::Typed(std::function<void(const T&)> handler) const {
    return [this, handler = std::move(handler)](const PluginServiceProxyResponse& message) {
        Maybe<T> value = ConvertServiceProxyPayload<T>(registry_, message.payload);
        if (!value) {
            Trace("%s: Couldn't convert service proxy message %s.%s: %s", shortName_.c_str(),
                  message.serviceName.c_str(), message.methodName.c_str(),
                  value.GetFailure().message.c_str());
            return;
        }
        if (handler) {
            handler(*value);
        }
    };
}

}  // namespace Orvan::Framework
