// Resource events out (SendEvent and the publishing operations) and the
// registration of resource handlers with the initial read of exact URIs.
#include "framework/resources/ResourceEvents.h"

#include <string>

#include "framework/host/HostValueConversion.h"
#include "framework/host/ResourceEventKey.h"
#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

Maybe<> AppModule::SendEvent(std::string_view baseEventName, const Resource& resource) {
    Maybe<BindingProperty> value = ConvertToProperty(Registry(), resource);
    if (!value) {
        return std::move(value).GetFailure();
    }
    const std::string key = ResourceEventKey(resource.uri);
    Trace("%s: Sending event: %s", ShortName().c_str(), key.c_str());

    OwnedHostValue payload;
    if (Maybe<> converted = ToHostValue(*value, payload.Get(), &Registry()); !converted) {
        return Failure(converted.GetFailure().message);
    }
    HostEvent event{};
    event.name = key.c_str();
    event.payload = payload.Get();
    CallHostEmitEvent(&event);
    if (key != baseEventName) {
        // Subscribers of every resource event get it under the base name.
        const std::string base(baseEventName);
        event = HostEvent{};
        event.name = base.c_str();
        event.payload = payload.Get();
        CallHostEmitEvent(&event);
    }
    return Maybe<>::Success();
}

void AppModule::PublishResourceValue(std::string_view uri, PluginResourceEventType eventType,
                                     BindingProperty data) {
    Resource resource{std::string(uri), eventType, std::move(data)};
    Maybe<> sent = SendEvent(kJsonApiEvent, resource);
    if (!sent) {
        Trace("%s: Couldn't send event for uri \"%s\": %s", ShortName().c_str(),
              resource.uri.c_str(), sent.GetFailure().message.c_str());
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
