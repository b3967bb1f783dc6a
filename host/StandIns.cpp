#include "host/StandIns.h"

#include <rapidjson/document.h>

#include <cstdio>

#include "host/HostJson.h"

namespace Orvan::Host {

namespace {

constexpr const char* kLogin = "qel-login";
constexpr const char* kGameflow = "qel-gameflow";
constexpr const char* kPlatformConfig = "qel-platform-config";
constexpr const char* kConnectionLost = "The connection to the services was lost";

// An argument as text: a JSON string's characters, a number's digits.
std::string ArgumentText(const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    if (document.HasParseError()) {
        return json;
    }
    if (document.IsString()) {
        return std::string(document.GetString(), document.GetStringLength());
    }
    if (document.IsUint64()) {
        return std::to_string(document.GetUint64());
    }
    if (document.IsInt64()) {
        return std::to_string(document.GetInt64());
    }
    if (document.IsNull()) {
        return {};
    }
    return json;
}

std::string ProxyResponse(std::string_view uuid, std::string_view service, std::string_view method,
                          std::string_view payload, std::string_view status,
                          std::string_view error) {
    return "{\"uuid\":" + QuoteJson(uuid) + ",\"serviceName\":" + QuoteJson(service) +
           ",\"methodName\":" + QuoteJson(method) + ",\"payload\":" + QuoteJson(payload) +
           ",\"status\":" + QuoteJson(status) + ",\"error\":" + QuoteJson(error) + "}";
}

}  // namespace

StandIns::StandIns(HostRuntime& runtime, StandInOptions options)
    : runtime_(runtime), options_(std::move(options)) {}

StandIns::~StandIns() = default;

void StandIns::Install() {
    runtime_.AddRoute(
        kLogin, kHostMethodPost, "/qel-login/v1/service-proxy-uuid-requests",
        [this](const RestRequest& request, const PathParameters&) { return UuidRequest(request); });
    runtime_.AddRoute(kLogin, kHostMethodPost, "/qel-login/v1/service-proxy-method-requests",
                      [this](const RestRequest& request, const PathParameters&) {
                          return MethodRequest(request);
                      });
    runtime_.AddRoute(kLogin, kHostMethodPost,
                      "/qel-login/v1/service-proxy-async-requests/{service}/{method}",
                      [this](const RestRequest& request, const PathParameters& parameters) {
                          return AsyncRequest(request, parameters);
                      });
    runtime_.AddRoute(kGameflow, kHostMethodPost, "/qel-gameflow/v1/session/event",
                      [this](const RestRequest& request, const PathParameters&) {
                          std::string event = ArgumentText(request.Argument(0));
                          if (event.empty() && request.hasBody) {
                              event = ArgumentText(request.body);
                          }
                          gameflowEvents_.push_back(event);
                          Narrate("game flow", "hears " + event);
                          return RestReply::Json("");
                      });
    runtime_.AddRoute(kPlatformConfig, kHostMethodPut,
                      "/qel-platform-config/v1/namespaces/{namespace}/{name}",
                      [this](const RestRequest& request, const PathParameters&) {
                          std::string json = request.hasBody ? request.body : request.Argument(0);
                          HostValueHolder check;
                          std::string error;
                          if (!JsonToHostValue(json, check.Get(), error)) {
                              return RestReply::Error(400, "The setting is not JSON: " + error);
                          }
                          SetSetting(request.Path(), CompactJson(json));
                          return RestReply::Json("");
                      });
    runtime_.AddRoute("telemetry", kHostMethodPost, "/telemetry/v1/events/{+name}",
                      [this](const RestRequest& request, const PathParameters& parameters) {
                          auto name = parameters.find("name");
                          telemetry_.push_back((name != parameters.end() ? name->second : "") +
                                               " " + request.Argument(0));
                          return RestReply::Json("");
                      });
    runtime_.AddRoute("host", kHostMethodPost, "/orvanclient/ux-show",
                      [this](const RestRequest&, const PathParameters&) {
                          ++windowShows_;
                          Narrate("host", "brings its window to the front");
                          return RestReply::Json("");
                      });

    // The state the plugin finds at its start: a login in progress, no game.
    runtime_.PutResource(kLogin, kLoginSessionUri,
                         "{\"state\":\"IN_PROGRESS\",\"summonerId\":0,\"accountId\":0,"
                         "\"connected\":false}",
                         false);
    runtime_.PutResource(kGameflow, kGameflowSessionUri, "{\"gameClient\":{\"running\":false}}",
                         false);
    runtime_.PutResource(kPlatformConfig, kChatDomainSettingUri,
                         QuoteJson(options_.champSelectDomainName), false);
    runtime_.PutResource(kPlatformConfig, kLogAllMessagesSettingUri,
                         options_.logAllMessages ? "true" : "false", false);
}

void StandIns::PublishLogin() {
    runtime_.PutResource(
        kLogin, kLoginSessionUri,
        std::string("{\"state\":\"") + (signedIn_ ? "SUCCEEDED" : "IN_PROGRESS") +
            "\",\"summonerId\":" + std::to_string(signedIn_ ? options_.summonerId : 0) +
            ",\"accountId\":" + std::to_string(signedIn_ ? options_.accountId : 0) +
            ",\"connected\":" + (connected_ ? "true" : "false") + "}");
}

void StandIns::SignIn() {
    signedIn_ = true;
    connected_ = true;
    PublishLogin();
    Narrate("login", "signed in as summoner " + std::to_string(options_.summonerId) +
                         ", connected to the services");
}

void StandIns::SetConnected(bool connected) {
    if (connected_ == connected) {
        return;
    }
    connected_ = connected;
    PublishLogin();
    Narrate("login", connected ? "the connection to the services is back"
                               : "the connection to the services is lost");
}

void StandIns::SetSetting(const std::string& uri, const std::string& json) {
    runtime_.PutResource(kPlatformConfig, uri, json);
    Narrate("platform config", uri.substr(uri.find_last_of('/') + 1) + " = " + json);
}

std::set<std::string> StandIns::AsyncRegistrations() const {
    std::set<std::string> names;
    for (const auto& [name, plugins] : asyncHandlers_) {
        if (!plugins.empty()) {
            names.insert(name);
        }
    }
    return names;
}

// ---- Service proxy ---------------------------------------------------------------------

Simulation::ServiceAnswer StandIns::Ask(const Simulation::ServiceRequest& request) {
    if (services_ == nullptr || !services_->Serves(request.service)) {
        Simulation::ServiceAnswer answer;
        answer.method = "callFailedV1";
        answer.payload = "{}";
        answer.status = "SERVICE UNKNOWN";
        return answer;
    }
    return services_->Handle(request);
}

void StandIns::Deliver(const std::string& eventName, uint32_t target, std::string payload,
                       std::string lostPayload) {
    runtime_.After(options_.serviceLatency, eventName,
                   [this, eventName, target, payload = std::move(payload),
                    lostPayload = std::move(lostPayload)] {
                       if (connected_) {
                           runtime_.Emit(eventName, payload, target);
                           return;
                       }
                       // A push is simply lost; a call in flight fails, so
                       // its caller is not left waiting.
                       ++dropped_;
                       if (!lostPayload.empty()) {
                           runtime_.Emit(eventName, lostPayload, target);
                       }
                   });
}

RestReply StandIns::UuidRequest(const RestRequest& request) {
    if (!connected_) {
        return RestReply::Error(503, "Not connected to the services");
    }
    Simulation::ServiceRequest call;
    call.service = ArgumentText(request.Argument(0));
    call.method = ArgumentText(request.Argument(1));
    call.payload = ArgumentText(request.Argument(3));
    char uuid[40];
    std::snprintf(uuid, sizeof uuid, "5e77c0de-0000-4000-8000-%012llx",
                  static_cast<unsigned long long>(runtime_.NextServiceProxyId()));
    const Simulation::ServiceAnswer answer = Ask(call);
    calls_.push_back(ProxiedCall{Now(), "uuid", call.service, call.method, call.payload,
                                 answer.method, answer.status, answer.error});
    Deliver("OnServiceProxyUuidEvent", request.caller,
            ProxyResponse(uuid, call.service, answer.method, answer.payload, answer.status,
                          answer.error),
            ProxyResponse(uuid, call.service, answer.method, "", "", kConnectionLost));
    return RestReply::Json(QuoteJson(uuid));
}

RestReply StandIns::MethodRequest(const RestRequest& request) {
    if (!connected_) {
        return RestReply::Error(503, "Not connected to the services");
    }
    Simulation::ServiceRequest call;
    call.service = ArgumentText(request.Argument(0));
    call.method = ArgumentText(request.Argument(1));
    call.responseMethod = ArgumentText(request.Argument(2));
    call.errorMethod = ArgumentText(request.Argument(3));
    call.payload = ArgumentText(request.Argument(5));
    const Simulation::ServiceAnswer answer = Ask(call);
    calls_.push_back(ProxiedCall{Now(), "method", call.service, call.method, call.payload,
                                 answer.method, answer.status, answer.error});
    // The proxy waits for the response method or the error method and hands
    // either to the caller under the response method.
    std::string error = answer.error;
    if (error.empty() && !call.errorMethod.empty() && answer.method == call.errorMethod) {
        error = call.errorMethod + ": " + answer.payload;
    }
    if (error.empty() && answer.method != call.responseMethod) {
        error = "Unexpected answer " + answer.method + " (status " + answer.status + ")";
    }
    Deliver(
        "OnServiceProxyMethodEvent", request.caller,
        ProxyResponse("", call.service, call.responseMethod, answer.payload, answer.status, error),
        ProxyResponse("", call.service, call.responseMethod, "", "", kConnectionLost));
    return RestReply::Json("");
}

RestReply StandIns::AsyncRequest(const RestRequest& request, const PathParameters& parameters) {
    auto service = parameters.find("service");
    auto method = parameters.find("method");
    if (service == parameters.end() || method == parameters.end() || service->second.empty() ||
        method->second.empty()) {
        return RestReply::Error(400, "Service and method are required");
    }
    asyncHandlers_[service->second + "." + method->second].insert(request.caller);
    return RestReply::Json("");
}

// ---- SimEnvironment --------------------------------------------------------------------

double StandIns::Now() const {
    return runtime_.Now();
}

void StandIns::After(double seconds, std::string label, std::function<void()> task) {
    runtime_.After(seconds, std::move(label), std::move(task));
}

void StandIns::Push(std::string_view service, std::string_view method, std::string payload) {
    const std::string key = std::string(service) + "." + std::string(method);
    auto handlers = asyncHandlers_.find(key);
    if (handlers == asyncHandlers_.end() || handlers->second.empty()) {
        ++dropped_;
        return;
    }
    const std::string response = ProxyResponse("", service, method, payload, "OK", "");
    for (uint32_t plugin : handlers->second) {
        Deliver("OnServiceProxyAsyncEvent", plugin, response, "");
    }
}

void StandIns::Narrate(std::string_view actor, std::string text) {
    if (narrator_) {
        narrator_(actor, text);
    }
}

void StandIns::StartGame() {
    gameClientRunning_ = true;
    runtime_.PutResource(kGameflow, kGameflowSessionUri, "{\"gameClient\":{\"running\":true}}");
    Narrate("game flow", "the game client is running");
}

void StandIns::InterruptConnection(double seconds) {
    SetConnected(false);
    runtime_.After(seconds, "connection returns", [this] { SetConnected(true); });
}

}  // namespace Orvan::Host
