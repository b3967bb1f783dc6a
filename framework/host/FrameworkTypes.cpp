#include "framework/host/FrameworkTypes.h"

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/TypeRegistration.h"

namespace Orvan::Framework {

namespace {

template <class T>
void AddEvent(BindingTypeRegistry& registry, const char* name, const char* description) {
    BindingEventInfo event;
    event.name = name;
    event.nameSpace = kFrameworkNameSpace;
    event.type = IdentifierOf<T>(&registry);
    event.description = description;
    registry.AddEvent(std::move(event));
}

}  // namespace

void RegisterFrameworkTypes(BindingTypeRegistry& registry) {
    RegisterEnum<PluginManagerState>(registry, "PluginManagerState")
        .Value("NotReady", PluginManagerState::NotReady)
        .Value("PluginsInitialized", PluginManagerState::PluginsInitialized)
        .NameSpace(kFrameworkNameSpace);
    RegisterStruct<PluginManagerResource>(registry, "PluginManagerResource")
        .Field("state", &PluginManagerResource::state)
        .NameSpace(kFrameworkNameSpace);

    RegisterEnum<PluginResourceEventType>(registry, "PluginResourceEventType")
        .Value("Create", PluginResourceEventType::Create)
        .Value("Update", PluginResourceEventType::Update)
        .Value("Delete", PluginResourceEventType::Delete)
        .NameSpace(kFrameworkNameSpace);
    RegisterStruct<Resource>(registry, "PluginResourceEvent")
        .Field("uri", &Resource::uri)
        .Field("eventType", &Resource::eventType)
        .Field("data", &Resource::data)
        .NameSpace(kFrameworkNameSpace);

    RegisterStruct<PluginLcdsEvent>(registry, "PluginLcdsEvent")
        .Field("clientId", &PluginLcdsEvent::clientId)
        .Field("subtopic", &PluginLcdsEvent::subtopic)
        .Field("typeName", &PluginLcdsEvent::typeName)
        .Field("body", &PluginLcdsEvent::body)
        .NameSpace(kFrameworkNameSpace);
    RegisterStruct<PluginLcdsResponse>(registry, "PluginLcdsResponse")
        .Field("typeName", &PluginLcdsResponse::typeName)
        .Field("body", &PluginLcdsResponse::body)
        .NameSpace(kFrameworkNameSpace);

    RegisterStruct<PluginServiceProxyResponse>(registry, "PluginServiceProxyResponse")
        .Field("uuid", &PluginServiceProxyResponse::uuid)
        .Field("serviceName", &PluginServiceProxyResponse::serviceName)
        .Field("methodName", &PluginServiceProxyResponse::methodName)
        .Field("payload", &PluginServiceProxyResponse::payload)
        .Field("status", &PluginServiceProxyResponse::status)
        .Field("error", &PluginServiceProxyResponse::error)
        .NameSpace(kFrameworkNameSpace);

    AddEvent<Resource>(registry, kJsonApiEvent, "Fired when a resource is changed.");
    AddEvent<PluginLcdsEvent>(registry, kLcdsEvent,
                              "Fired when a message is received over the LCDS connection.");
    AddEvent<PluginServiceProxyResponse>(
        registry, kServiceProxyUuidEvent,
        "Fired when a uuid-based service proxy message is received.");
    AddEvent<PluginServiceProxyResponse>(
        registry, kServiceProxyMethodEvent,
        "Fired when a method-based service proxy message is received.");
    AddEvent<PluginServiceProxyResponse>(registry, kServiceProxyAsyncEvent,
                                         "Fired when an async service proxy message is received.");
}

}  // namespace Orvan::Framework
