// AppModule's side of host events: handler registration, the two C
// dispatchers, resource subscriptions with their dispatch to exact and
// pattern handlers, and the answers of the service proxy.
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "framework/binding/NativeConversion.h"
#include "framework/host/AppModule.h"
#include "framework/host/HostValueConversion.h"
#include "framework/host/ResourceEventKey.h"
#include "framework/log/Log.h"

namespace Orvan::Framework {

namespace {

// Root name of a host payload in conversion messages.
constexpr std::string_view kPayloadName = "<result>";

bool IsDeliverable(const HostEvent* event) {
    return event != nullptr && event->context != nullptr && event->name != nullptr &&
           event->name[0] != '\0' && event->payload.type != kHostValueNull;
}

// Service proxy messages arrive as objects of six texts. Reading one straight
// into the record spares a value tree and the interning of a payload that
// can run to kilobytes. Any other shape (other kinds of value, a missing key,
// a broken span) is left to the general conversion, so that both paths give
// the same record or the same refusal.
bool ReadServiceProxyResponse(const HostValue& value, PluginServiceProxyResponse& out) {
    if (value.type != kHostValueObject) {
        return false;
    }
    const auto* entries = static_cast<const HostObjectEntry*>(value.payload.span.address);
    const uint32_t count = value.payload.span.length;
    if (entries == nullptr && count != 0) {
        return false;
    }
    struct Member {
        const char* name;
        std::string PluginServiceProxyResponse::*field;
    };
    static constexpr Member kMembers[] = {
        {"uuid", &PluginServiceProxyResponse::uuid},
        {"serviceName", &PluginServiceProxyResponse::serviceName},
        {"methodName", &PluginServiceProxyResponse::methodName},
        {"payload", &PluginServiceProxyResponse::payload},
        {"status", &PluginServiceProxyResponse::status},
        {"error", &PluginServiceProxyResponse::error},
    };
    constexpr size_t kMemberCount = std::size(kMembers);
    // A repeated key keeps its last value, as in a structure.
    const HostValue* values[kMemberCount] = {};
    for (uint32_t i = 0; i < count; ++i) {
        const HostObjectEntry& entry = entries[i];
        if (entry.key == nullptr) {
            return false;
        }
        const uint32_t type = entry.value.type;
        if (type != kHostValueNull && type != kHostValueTextUnowned &&
            type != kHostValueTextOwned) {
            return false;
        }
        if (type == kHostValueTextOwned && entry.value.payload.span.address == nullptr &&
            entry.value.payload.span.length != 0) {
            return false;
        }
        for (size_t m = 0; m < kMemberCount; ++m) {
            if (std::strcmp(entry.key, kMembers[m].name) == 0) {
                values[m] = &entry.value;
                break;
            }
        }
    }
    for (size_t m = 0; m < kMemberCount; ++m) {
        const HostValue* text = values[m];
        // Null leaves the member as it was, like a missing one.
        if (text == nullptr || text->type == kHostValueNull) {
            continue;
        }
        const char* address = static_cast<const char*>(text->payload.span.address);
        std::string& target = out.*kMembers[m].field;
        if (address == nullptr) {
            target.clear();
        } else if (text->type == kHostValueTextUnowned) {
            target.assign(address);
        } else {
            target.assign(address, text->payload.span.length);
        }
    }
    return true;
}

}  // namespace

// ---- Event keys -------------------------------------------------------------

std::string ResourceEventKey(std::string_view uri) {
    // Built in one string: keys are made for every event sent.
    std::string key;
    key.reserve(std::string_view(kJsonApiEvent).size() + uri.size() + 1);
    key += kJsonApiEvent;
    size_t elements = 1;
    size_t limit = 4;
    size_t start = 0;
    while (start <= uri.size() && elements < limit) {
        size_t end = uri.find('/', start);
        if (end == std::string_view::npos) {
            end = uri.size();
        }
        if (end > start) {
            const std::string_view piece = uri.substr(start, end - start);
            if (elements == 1 && piece == "qel-platform-config") {
                limit = 6;
            }
            key += '_';
            key += piece;
            ++elements;
        }
        start = end + 1;
    }
    return key;
}

bool ResourcePatternMatches(std::string_view pattern, std::string_view uri) {
    size_t p = 0;
    size_t u = 0;
    while (p < pattern.size() && u < uri.size()) {
        if (pattern[p] == '*') {
            if (uri[u] == '/') {
                ++p;
            } else if (++u == uri.size()) {
                ++p;
            }
        } else {
            if (pattern[p] != uri[u]) {
                return false;
            }
            ++p;
            ++u;
        }
    }
    return p == pattern.size() && u == uri.size();
}

// ---- Handlers and dispatchers ----------------------------------------------

void AppModule::RegisterEventHandler(std::string_view name, ResourceHandler handler,
                                     uint32_t flags) {
    StoreEventHandler(name, EventHandler{std::move(handler), {}}, &AppModule::DispatchResourceEvent,
                      flags);
}

void AppModule::RegisterEventHandler(std::string_view name, ServiceProxyHandler handler,
                                     uint32_t flags) {
    StoreEventHandler(name, EventHandler{{}, std::move(handler)},
                      &AppModule::DispatchServiceProxyEvent, flags);
}

void AppModule::StoreEventHandler(std::string_view name, EventHandler handler,
                                  HostEventCallback dispatcher, uint32_t flags) {
    std::string key(name);
    eventHandlers_[key] = std::make_shared<const EventHandler>(std::move(handler));
    CallHostRegisterEvent(key.c_str(), pluginHandle_, dispatcher, this, flags);
}

std::shared_ptr<const AppModule::EventHandler> AppModule::FindEventHandler(const char* name) const {
    auto found = eventHandlers_.find(name);
    return found != eventHandlers_.end() ? found->second : nullptr;
}

void QEL_HOST_CALL AppModule::DispatchResourceEvent(HostEvent* event) {
    if (!IsDeliverable(event)) {
        return;
    }
    auto* module = static_cast<AppModule*>(event->context);
    // A copy keeps the handler alive if it replaces itself while running.
    std::shared_ptr<const EventHandler> handler = module->FindEventHandler(event->name);
    if (handler == nullptr || !handler->onResource) {
        return;
    }
    Maybe<BindingProperty> payload = FromHostValue(event->payload, kPayloadName);
    if (!payload) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", module->ShortName().c_str(), "",
              event->name, payload.GetFailure().message.c_str());
        return;
    }
    Maybe<Resource> resource =
        ConvertFromProperty<Resource>(module->Registry(), *payload, kPayloadName);
    if (!resource) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", module->ShortName().c_str(),
              payload->KindName(), event->name, resource.GetFailure().message.c_str());
        return;
    }
    Trace("%s: Handling event %s", module->ShortName().c_str(), event->name);
    handler->onResource(*resource);
}

void QEL_HOST_CALL AppModule::DispatchServiceProxyEvent(HostEvent* event) {
    if (!IsDeliverable(event)) {
        return;
    }
    auto* module = static_cast<AppModule*>(event->context);
    std::shared_ptr<const EventHandler> handler = module->FindEventHandler(event->name);
    if (handler == nullptr || !handler->onServiceProxy) {
        return;
    }
    if (PluginServiceProxyResponse direct; ReadServiceProxyResponse(event->payload, direct)) {
        Trace("%s: Handling event %s", module->ShortName().c_str(), event->name);
        handler->onServiceProxy(direct);
        return;
    }
    Maybe<BindingProperty> payload = FromHostValue(event->payload, kPayloadName);
    if (!payload) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", module->ShortName().c_str(), "",
              event->name, payload.GetFailure().message.c_str());
        return;
    }
    Maybe<PluginServiceProxyResponse> response =
        ConvertFromProperty<PluginServiceProxyResponse>(module->Registry(), *payload, kPayloadName);
    if (!response) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", module->ShortName().c_str(),
              payload->KindName(), event->name, response.GetFailure().message.c_str());
        return;
    }
    Trace("%s: Handling event %s", module->ShortName().c_str(), event->name);
    handler->onServiceProxy(*response);
}

// ---- Resource subscriptions ------------------------------------------------

Maybe<> AppModule::Subscribe(std::string_view uri) {
    std::string key = ResourceEventKey(uri);
    if (++subscriptionCounts_[key] == 1) {
        Trace("%s: Subscribing to event: %s", ShortName().c_str(), key.c_str());
        RegisterEventHandler(
            key, ResourceHandler([this](const Resource& resource) { DispatchResource(resource); }),
            0);
    }
    return Maybe<>::Success();
}

Maybe<> AppModule::Unsubscribe(std::string_view uri) {
    const std::string key = ResourceEventKey(uri);
    auto count = subscriptionCounts_.find(key);
    if (count == subscriptionCounts_.end() || count->second == 0) {
        return Maybe<>::Success();
    }
    if (--count->second == 0) {
        CallHostUnregisterEvent(key.c_str(), pluginHandle_);
        eventHandlers_.erase(key);
        Trace("%s: Unsubscribing to event: %s", ShortName().c_str(), key.c_str());
    }
    return Maybe<>::Success();
}

void AppModule::SetExactResourceHandler(std::string_view uri, ResourceHandler handler) {
    exactResourceHandlers_[std::string(uri)] = std::move(handler);
}

void AppModule::SetPatternResourceHandler(std::string_view pattern, ResourceHandler handler) {
    patternResourceHandlers_[std::string(pattern)] = std::move(handler);
}

void AppModule::DispatchResource(const Resource& event) {
    Resource resource = event;
    if (resource.uri.empty() || resource.uri.front() != '/') {
        resource.uri = "/" + resource.uri;
    }
    // Handlers may add or remove handlers; work on copies.
    ResourceHandler exact;
    if (auto found = exactResourceHandlers_.find(resource.uri);
        found != exactResourceHandlers_.end()) {
        exact = found->second;
    }
    std::vector<ResourceHandler> matching;
    for (const auto& [pattern, handler] : patternResourceHandlers_) {
        if (ResourcePatternMatches(pattern, resource.uri)) {
            matching.push_back(handler);
        }
    }
    if (exact) {
        exact(resource);
    }
    for (const ResourceHandler& handler : matching) {
        if (handler) {
            handler(resource);
        }
    }
}

// ---- Service-proxy answers -------------------------------------------------

void AppModule::OnServiceProxyUuidEvent(const PluginServiceProxyResponse& response) {
    {
        std::lock_guard lock(serviceProxyMutex_);
        unmatchedAnswers_[response.uuid] = response;
    }
    MatchPendingAnswers();
}

void AppModule::OnServiceProxyMethodEvent(const PluginServiceProxyResponse& response) {
    {
        std::lock_guard lock(serviceProxyMutex_);
        unmatchedAnswers_[Format("%1.%2", response.serviceName, response.methodName)] = response;
    }
    MatchPendingAnswers();
}

void AppModule::OnServiceProxyAsyncEvent(const PluginServiceProxyResponse& response) {
    const std::string key = Format("%1.%2", response.serviceName, response.methodName);
    ServiceProxyHandler handler;
    {
        std::lock_guard lock(serviceProxyMutex_);
        if (auto found = asyncHandlers_.find(key); found != asyncHandlers_.end()) {
            handler = found->second;
        }
    }
    if (handler) {
        handler(response);
    } else {
        Log(kError, kGroupDbg,
            "%s: Could not find registered handler for async service proxy event %s",
            ShortName().c_str(), key.c_str());
    }
}

void AppModule::MatchPendingAnswers() {
    std::lock_guard lock(serviceProxyMutex_);
    for (auto answer = unmatchedAnswers_.begin(); answer != unmatchedAnswers_.end(); ++answer) {
        auto callback = completionCallbacks_.find(answer->first);
        if (callback == completionCallbacks_.end()) {
            continue;
        }
        callback->second(answer->second);
        Log(kAlways, kGroupDbg, "%s: Fulfilled service proxy request: %s", ShortName().c_str(),
            answer->first.c_str());
        completionCallbacks_.erase(callback);
        unmatchedAnswers_.erase(answer);
        return;
    }
}

}  // namespace Orvan::Framework
