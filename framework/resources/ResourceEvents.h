// ResourceEvents: publishing and following REST resources, behind the
// module's SendEvent, PublishResource, DeleteResource, AddResourceHandler,
// Subscribe and Unsubscribe.
//
//   module.PublishResource("/qel-lobby-team-builder/v1/lobby", lobby);  // Update
//   module.PublishResource(uri, search, PluginResourceEventType::Create);
//   module.DeleteResource("/qel-lobby-team-builder/v1/matchmaking");
//   module.AddResourceHandler<GameflowSession>(
//       "/qel-gameflow/v1/session",
//       [this](const TypedResource<GameflowSession>& event) { ... });
//
// Publishing emits the event under the URI's event key and again under
// "OnJsonApiEvent" (once when the two are the same). A value that does not
// convert is not published and nothing is reported. Following subscribes the
// URI's event key (counted per key) and, for an exact URI, reads the resource
// once at once and hands it over as a "Create" event. Typed handlers drop
// events whose data does not convert into their type; "Delete" events reach
// them with the type's default value.
//
// Ownership: owns the subscription counts and the resource handlers.
// Threads: the host's thread. Handlers run from the event dispatch and may
// add or remove handlers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/host/HostEvents.h"
#include "framework/log/LogRecord.h"
#include "framework/resources/TypedResource.h"
#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

// Root name of resource data in conversion messages.
inline constexpr std::string_view kResourceValueName = "<value>";

class ResourceEvents {
public:
    ResourceEvents(HostEntries& host, HostEvents& events, RestClient& rest,
                   const BindingTypeRegistry& registry, const std::string& shortName)
        : host_(host), events_(events), rest_(rest), registry_(registry), shortName_(shortName) {}
    ResourceEvents(const ResourceEvents&) = delete;
    ResourceEvents& operator=(const ResourceEvents&) = delete;

    // Follows a resource's event key (nestable per key).
    Maybe<> Subscribe(std::string_view uri);
    Maybe<> Unsubscribe(std::string_view uri);

    // Emits the resource under its URI's event key and under the base name.
    Maybe<> Send(std::string_view baseEventName, std::string_view uri,
                 PluginResourceEventType eventType, const BindingProperty& data);
    void PublishValue(std::string_view uri, PluginResourceEventType eventType,
                      const BindingProperty& data);
    template <class T>
    void Publish(std::string_view uri, const T& value, PluginResourceEventType eventType);

    // Handlers by exact URI or by pattern (a URI holding "*"); dispatch calls
    // the exact one, then every matching pattern.
    void SetExactHandler(std::string_view uri, ResourceHandler handler);
    void SetPatternHandler(std::string_view pattern, ResourceHandler handler);
    // Stores the handler by pattern or exact URI; true for an exact URI.
    bool StoreHandler(std::string_view uri, const ResourceHandler& handler);
    // Reads an exact resource's current value and hands it over as a
    // "Create" event; a resource that cannot be read yet waits for its first
    // event.
    void HandOverCurrent(std::string_view uri, const ResourceHandler& handler);
    void ClearHandlers();
    void Dispatch(const Resource& event);

    // A handler that converts the data into T first.
    template <class T>
    ResourceHandler Typed(std::function<void(const TypedResource<T>&)> handler) const;

private:
    // Discarded trace lines; the arguments are still checked.
    static void Trace(const char* format, ...) QEL_PRINTF_FORMAT(1, 2);

    HostEntries& host_;
    HostEvents& events_;
    RestClient& rest_;
    const BindingTypeRegistry& registry_;
    const std::string& shortName_;
    // Subscriptions by event key.
    std::unordered_map<std::string, uint32_t> subscriptionCounts_;
    std::unordered_map<std::string, ResourceHandler> exactHandlers_;
    std::unordered_map<std::string, ResourceHandler> patternHandlers_;
};

inline void ResourceEvents::Trace(const char*, ...) {}

template <class T>
void ResourceEvents::Publish(std::string_view uri, const T& value,
                             PluginResourceEventType eventType) {
    Maybe<BindingProperty> data = ToBindingValue(registry_, value);
    if (!data) {
        Trace("%s: Couldn't convert resource %s for event uri \"%.*s\"", shortName_.c_str(),
              StaticType::Of<T>().name, static_cast<int>(uri.size()), uri.data());
        return;
    }
    PublishValue(uri, eventType, *data);
}

template <class T>
ResourceHandler ResourceEvents::Typed(std::function<void(const TypedResource<T>&)> handler) const {
    return [this, handler = std::move(handler)](const Resource& resource) {
        TypedResource<T> typed{resource.uri, resource.eventType, T{}};
        if (resource.eventType != PluginResourceEventType::Delete) {
            Maybe<> assigned =
                AssignFromProperty(registry_, resource.data, kResourceValueName, typed.value);
            if (!assigned) {
                Trace("%s: Couldn't convert resource %s for url \"%s\": %s", shortName_.c_str(),
                      StaticType::Of<T>().name, resource.uri.c_str(),
                      assigned.GetFailure().message.c_str());
                return;
            }
        }
        if (handler) {
            handler(typed);
        }
    };
}

}  // namespace Orvan::Framework
