// The service-proxy client: calls to game services through the login
// plugin's service-proxy endpoints, and the messages the services push. The
// AppModule operations SendServiceProxyRequest, InvokeServiceProxy,
// CallServiceProxyRaw, CallServiceProxy<T> and RegisterServiceProxyHandler
// are declared in AppModule.h; their templates are defined here (include this
// header to call them).
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
// Threads: the host's thread. Completions run under the service-proxy mutex
// and must not send requests; handlers of pushed messages run without it and
// may.
#pragma once

#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/codec/Json.h"
#include "framework/host/AppModule.h"
#include "framework/rest/RestArguments.h"

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

// The answer handed to raw callers; an answer carrying an error text fails
// with that text.
Maybe<AppModule::ServiceProxyRawResponse> ToServiceProxyRawResponse(
    const PluginServiceProxyResponse& answer);

// "methodName=%1, status=%2" for an answer, the failure's message otherwise.
std::string DescribeServiceProxyResponse(const Maybe<AppModule::ServiceProxyRawResponse>& response);

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

template <class P>
std::string AppModule::SendServiceProxyRequest(std::string_view service, std::string_view method,
                                               const P& payload, std::string_view responseMethod,
                                               std::string_view extra,
                                               const ServiceProxyHandler& completion) {
    return SendSerializedServiceProxyRequest(service, method,
                                             SerializeServiceProxyPayload(Registry(), payload),
                                             responseMethod, extra, completion);
}

template <class P>
void AppModule::InvokeServiceProxy(std::string_view service, std::string_view method,
                                   const P& payload, std::string_view responseMethod,
                                   std::string_view extra, ServiceProxyHandler completion) {
    InvokeSerializedServiceProxy(service, method, SerializeServiceProxyPayload(Registry(), payload),
                                 responseMethod, extra, std::move(completion));
}

template <class P>
std::future<Maybe<AppModule::ServiceProxyRawResponse>> AppModule::CallServiceProxyRaw(
    std::string_view service, std::string_view method, const P& payload,
    std::string_view responseMethod, std::string_view extra) {
    auto answer = std::make_shared<Detail::ServiceProxyAnswer<Maybe<ServiceProxyRawResponse>>>();
    std::future<Maybe<ServiceProxyRawResponse>> future = answer->Future();
    InvokeServiceProxy(service, method, payload, responseMethod, extra,
                       [answer](const PluginServiceProxyResponse& response) {
                           answer->Answer(ToServiceProxyRawResponse(response));
                       });
    return future;
}

template <class T, class P>
std::future<Maybe<T>> AppModule::CallServiceProxy(std::string_view service, std::string_view method,
                                                  const P& payload, std::string_view responseMethod,
                                                  std::string_view extra) {
    auto answer = std::make_shared<Detail::ServiceProxyAnswer<Maybe<T>>>();
    std::future<Maybe<T>> future = answer->Future();
    InvokeServiceProxy(
        service, method, payload, responseMethod, extra,
        [this, answer](const PluginServiceProxyResponse& response) {
            if (!response.error.empty()) {
                answer->Answer(Failure(response.error));
            } else {
                answer->Answer(ConvertServiceProxyPayload<T>(Registry(), response.payload));
            }
        });
    return future;
}

template <class T>
void AppModule::RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                            std::function<void(const T&)> handler) {
    RegisterServiceProxyHandler(
        service, method,
        ServiceProxyHandler(
            [this, handler = std::move(handler)](const PluginServiceProxyResponse& message) {
                Maybe<T> value = ConvertServiceProxyPayload<T>(Registry(), message.payload);
                if (!value) {
                    Trace("%s: Couldn't convert service proxy message %s.%s: %s",
                          ShortName().c_str(), message.serviceName.c_str(),
                          message.methodName.c_str(), value.GetFailure().message.c_str());
                    return;
                }
                if (handler) {
                    handler(*value);
                }
            }));
}

}  // namespace Orvan::Framework
