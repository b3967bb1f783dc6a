// Resource events out (SendEvent and the publishing operations) and the
// registration of resource handlers with the initial read of exact URIs.
#include "framework/resources/ResourceEvents.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "framework/binding/MessageFormat.h"
#include "framework/host/HostValueConversion.h"
#include "framework/host/ResourceEventKey.h"
#include "framework/rest/RestCalls.h"

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
    char* dataKey = arena.CopyText("data");
    char* typeKey = arena.CopyText("eventType");
    char* uriKey = arena.CopyText("uri");
    const int32_t typeNumber = static_cast<int32_t>(eventType);
    const char* typeName =
        registry.EnumeratorName(StaticType::Of<PluginResourceEventType>(), typeNumber);
    char* typeText = typeName != nullptr ? arena.CopyText(typeName) : nullptr;
    char* uriText = arena.CopyText(uri);
    if (entries == nullptr || dataKey == nullptr || typeKey == nullptr || uriKey == nullptr ||
        uriText == nullptr || (typeName != nullptr && typeText == nullptr)) {
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
        entries[1].value.payload.span.address = typeText;
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

Maybe<> AppModule::SendEvent(std::string_view baseEventName, const Resource& resource) {
    return SendResourceEvent(baseEventName, resource.uri, resource.eventType, resource.data);
}

Maybe<> AppModule::SendResourceEvent(std::string_view baseEventName, std::string_view uri,
                                     PluginResourceEventType eventType,
                                     const BindingProperty& data) {
    const std::string key = ResourceEventKey(uri);
    Trace("%s: Sending event: %s", ShortName().c_str(), key.c_str());

    // Released as a whole when the call returns; the host copies what it
    // keeps.
    HostValueArena arena;
    HostValue payload{};
    if (Maybe<> converted = ResourceEventPayload(uri, eventType, data, Registry(), arena, payload);
        !converted) {
        return Failure(converted.GetFailure().message);
    }
    HostEvent event{};
    event.name = key.c_str();
    event.payload = payload;
    CallHostEmitEvent(&event);
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
        CallHostEmitEvent(&event);
    }
    return Maybe<>::Success();
}

void AppModule::PublishResourceValue(std::string_view uri, PluginResourceEventType eventType,
                                     const BindingProperty& data) {
    Maybe<> sent = SendResourceEvent(kJsonApiEvent, uri, eventType, data);
    if (!sent) {
        Trace("%s: Couldn't send event for uri \"%.*s\": %s", ShortName().c_str(),
              static_cast<int>(uri.size()), uri.data(), sent.GetFailure().message.c_str());
    }
}

void AppModule::DeleteResource(std::string_view uri) {
    PublishResourceValue(uri, PluginResourceEventType::Delete, BindingProperty());
}

void AppModule::AddResourceHandler(std::string_view uri, ResourceHandler handler) {
    const bool pattern = uri.find('*') != std::string_view::npos;
    if (pattern) {
        SetPatternResourceHandler(uri, handler);
    } else {
        SetExactResourceHandler(uri, handler);
    }
    (void)Subscribe(uri);
    if (pattern) {
        return;
    }
    // The current value, so the handler need not wait for the first change.
    // A resource that cannot be read yet simply waits for its first event.
    Maybe<BindingProperty> current = RequestValue<BindingProperty>(HttpMethod::Get, uri);
    if (current && handler) {
        handler(Resource{std::string(uri), PluginResourceEventType::Create,
                         std::move(current).Value()});
    }
}

}  // namespace Orvan::Framework
