// Publishing and following REST resources: the AppModule operations
// SendEvent, PublishResource, DeleteResource and AddResourceHandler (declared
// in AppModule.h, templates defined here; include this header to call them).
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
// Threads: the host's thread. Handlers run from the module's event dispatch
// and may add or remove handlers.
#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/host/AppModule.h"
#include "framework/resources/TypedResource.h"
#include "framework/rest/RestArguments.h"

namespace Orvan::Framework {

// Root name of resource data in conversion messages.
inline constexpr std::string_view kResourceValueName = "<value>";

template <class T>
void AppModule::PublishResource(std::string_view uri, const T& value,
                                PluginResourceEventType eventType) {
    Maybe<BindingProperty> data = ToBindingValue(Registry(), value);
    if (!data) {
        Trace("%s: Couldn't convert resource %s for event uri \"%.*s\"", ShortName().c_str(),
              StaticType::Of<T>().name, static_cast<int>(uri.size()), uri.data());
        return;
    }
    PublishResourceValue(uri, eventType, *data);
}

template <class T>
void AppModule::AddResourceHandler(std::string_view uri,
                                   std::function<void(const TypedResource<T>&)> handler) {
    AddResourceHandler(
        uri, ResourceHandler([this, handler = std::move(handler)](const Resource& resource) {
            TypedResource<T> typed{resource.uri, resource.eventType, T{}};
            if (resource.eventType != PluginResourceEventType::Delete) {
                Maybe<> assigned =
                    AssignFromProperty(Registry(), resource.data, kResourceValueName, typed.value);
                if (!assigned) {
                    Trace("%s: Couldn't convert resource %s for url \"%s\": %s",
                          ShortName().c_str(), StaticType::Of<T>().name, resource.uri.c_str(),
                          assigned.GetFailure().message.c_str());
                    return;
                }
            }
            if (handler) {
                handler(typed);
            }
        }));
}

}  // namespace Orvan::Framework
