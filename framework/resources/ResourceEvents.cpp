// Resource events out (SendEvent and the publishing operations) and the
// registration of resource handlers with the initial read of exact URIs.
#include "framework/resources/ResourceEvents.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "framework/binding/MessageFormat.h"
#include "framework/host/HostValueConversion.h"
#include "framework/resources/ResourceEventKey.h"

namespace Orvan::Framework {

namespace {

// The payload of a resource event exactly as the registry converts a
// PluginResourceEvent and the host conversion copies it: an object of
// "data", "eventType" and "uri" in name order. Built straight into the arena,
// so the data is neither copied into a record value first nor allocated piece
// by piece.
Maybe<> ResourceEventPayload(std::string_view uri, PluginResourceEventType eventType,
                             const BindingProperty& data, const BindingTypeRegistry& registry,
                             HostValueArena& arena, HostValue& out) {
    out = HostValue{};
    constexpr size_t kFields = 3;
    auto* entries =
        static_cast<HostObjectEntry*>(arena.Allocate(kFields * sizeof(HostObjectEntry)));
    // The keys and the enumerator's name are texts that outlive the call, as
    // the data's own texts are: the payload points at them.
    const char* const dataKey = "data";
    const char* const typeKey = "eventType";
    const char* const uriKey = "uri";
    const int32_t typeNumber = static_cast<int32_t>(eventType);
    const char* typeText =
        registry.EnumeratorName(StaticType::Of<PluginResourceEventType>(), typeNumber);
    char* uriText = arena.CopyText(uri);
    if (entries == nullptr || uriText == nullptr) {
        return Failure("Out of memory converting a value for the host");
    }
    std::memset(static_cast<void*>(entries), 0, kFields * sizeof(HostObjectEntry));
    // The record is the root; its members sit one level down.
    QEL_RETURN_IF_FAILED(ToHostValue(data, entries[0].value, &registry, arena, 1));
    entries[0].key = dataKey;
    entries[0].keyOwned = 1;

    entries[1].key = typeKey;
    entries[1].keyOwned = 1;
    if (typeText != nullptr) {
        entries[1].value.type = kHostValueTextOwned;
        entries[1].value.payload.span.address = const_cast<char*>(typeText);
        entries[1].value.payload.span.length = static_cast<uint32_t>(std::strlen(typeText));
    } else {
        entries[1].value.type = kHostValueSigned;
        entries[1].value.payload.signedValue = typeNumber;
    }

    entries[2].key = uriKey;
    entries[2].keyOwned = 1;
    if (uri.size() > std::numeric_limits<uint32_t>::max()) {
        return Failure(Format("Couldn't convert a value of %1 bytes or elements for the host",
                              static_cast<uint64_t>(uri.size())));
    }
    entries[2].value.type = kHostValueTextOwned;
    entries[2].value.payload.span.address = uriText;
    entries[2].value.payload.span.length = static_cast<uint32_t>(uri.size());

    out.type = kHostValueObject;
    out.payload.span.address = entries;
    out.payload.span.length = kFields;
    return Maybe<>::Success();
}

}  // namespace

Maybe<> ResourceEvents::Subscribe(std::string_view uri) {
    std::string key = ResourceEventKey(uri);
    if (++subscriptionCounts_[key] == 1) {
        Trace("%s: Subscribing to event: %s", shortName_.c_str(), key.c_str());
        events_.Register(
            key, ResourceHandler([this](const Resource& resource) { Dispatch(resource); }), 0);
    }
    return Maybe<>::Success();
}

Maybe<> ResourceEvents::Unsubscribe(std::string_view uri) {
    const std::string key = ResourceEventKey(uri);
    auto count = subscriptionCounts_.find(key);
    if (count == subscriptionCounts_.end() || count->second == 0) {
        return Maybe<>::Success();
    }
    if (--count->second == 0) {
        events_.Unregister(key);
        Trace("%s: Unsubscribing to event: %s", shortName_.c_str(), key.c_str());
    }
    return Maybe<>::Success();
}

Maybe<> ResourceEvents::Send(std::string_view baseEventName, std::string_view uri,
                             PluginResourceEventType eventType, const BindingProperty& data) {
    const std::string key = ResourceEventKey(uri);
    Trace("%s: Sending event: %s", shortName_.c_str(), key.c_str());

    // Released as a whole when the call returns; the host copies what it
    // keeps.
    HostValueArena arena;
    HostValue payload{};
    if (Maybe<> converted = ResourceEventPayload(uri, eventType, data, registry_, arena, payload);
        !converted) {
        return Failure(converted.GetFailure().message);
    }
    HostEvent event{};
    event.name = key.c_str();
    event.payload = payload;
    host_.EmitEvent(&event);
    if (key != baseEventName) {
        // Subscribers of every resource event get it under the base name.
        std::string base;
        const char* baseName = kJsonApiEvent;
        if (baseEventName != kJsonApiEvent) {
            base.assign(baseEventName);
            baseName = base.c_str();
        }
        event = HostEvent{};
        event.name = baseName;
        event.payload = payload;
        host_.EmitEvent(&event);
    }
    return Maybe<>::Success();
}

void ResourceEvents::PublishValue(std::string_view uri, PluginResourceEventType eventType,
                                  const BindingProperty& data) {
    Maybe<> sent = Send(kJsonApiEvent, uri, eventType, data);
    if (!sent) {
        Trace("%s: Couldn't send event for uri \"%.*s\": %s", shortName_.c_str(),
              static_cast<int>(uri.size()), uri.data(), sent.GetFailure().message.c_str());
    }
}

void ResourceEvents::SetExactHandler(std::string_view uri, ResourceHandler handler) {
    exactHandlers_[std::string(uri)] = std::move(handler);
}

void ResourceEvents::SetPatternHandler(std::string_view pattern, ResourceHandler handler) {
    patternHandlers_[std::string(pattern)] = std::move(handler);
}

bool ResourceEvents::StoreHandler(std::string_view uri, const ResourceHandler& handler) {
    if (uri.find('*') != std::string_view::npos) {
        SetPatternHandler(uri, handler);
        return false;
    }
    SetExactHandler(uri, handler);
    return true;
}

void ResourceEvents::HandOverCurrent(std::string_view uri, const ResourceHandler& handler) {
    // The current value, so the handler need not wait for the first change.
    Maybe<BindingProperty> current = rest_.RequestValue<BindingProperty>(HttpMethod::Get, uri);
    if (current && handler) {
        handler(Resource{std::string(uri), PluginResourceEventType::Create,
                         std::move(current).Value()});
    }
}

void ResourceEvents::ClearHandlers() {
    exactHandlers_.clear();
    patternHandlers_.clear();
}

void ResourceEvents::Dispatch(const Resource& event) {
    Resource resource = event;
    if (resource.uri.empty() || resource.uri.front() != '/') {
        resource.uri = "/" + resource.uri;
    }
    // Handlers may add or remove handlers; work on copies.
    ResourceHandler exact;
    if (auto found = exactHandlers_.find(resource.uri); found != exactHandlers_.end()) {
        exact = found->second;
    }
    std::vector<ResourceHandler> matching;
    for (const auto& [pattern, handler] : patternHandlers_) {
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

}  // namespace Orvan::Framework
