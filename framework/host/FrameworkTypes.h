// The framework's own records and events, registered by every module at load
// in its registry under the name space "oclient": the plugin manager's state,
// resource events, LCDS messages and service-proxy answers, and the five
// events that carry them.
//
// `Resource` is the native form of a resource event (registered as
// "PluginResourceEvent"); `PluginServiceProxyResponse` the native form of a
// service-proxy answer. The module's event dispatchers convert host payloads
// into these two.
//
// Ownership: plain records, copied by value. Threads: registration runs on
// the load path; the records are used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "framework/binding/BindingProperty.h"

namespace Orvan::Framework {

class BindingTypeRegistry;

inline constexpr const char* kFrameworkNameSpace = "oclient";

enum class PluginManagerState : int32_t {
    NotReady = 0,
    PluginsInitialized = 1,
};

struct PluginManagerResource {
    PluginManagerState state = PluginManagerState::NotReady;
};

enum class PluginResourceEventType : int32_t {
    Create = 0,
    Update = 1,
    Delete = 2,
};

struct Resource {
    std::string uri;
    PluginResourceEventType eventType = PluginResourceEventType::Create;
    BindingProperty data;
};

struct PluginLcdsEvent {
    std::string clientId;
    std::string subtopic;
    std::string typeName;
    BindingProperty body;
};

struct PluginLcdsResponse {
    std::string typeName;
    BindingProperty body;
};

struct PluginServiceProxyResponse {
    std::string uuid;
    std::string serviceName;
    std::string methodName;
    std::string payload;
    std::string status;
    std::string error;
};

// Event names of the host.
inline constexpr const char* kJsonApiEvent = "OnJsonApiEvent";
inline constexpr const char* kLcdsEvent = "OnLcdsEvent";
inline constexpr const char* kServiceProxyUuidEvent = "OnServiceProxyUuidEvent";
inline constexpr const char* kServiceProxyMethodEvent = "OnServiceProxyMethodEvent";
inline constexpr const char* kServiceProxyAsyncEvent = "OnServiceProxyAsyncEvent";

// Registers the records, enumerations and events above. A second call
// changes nothing.
void RegisterFrameworkTypes(BindingTypeRegistry& registry);

}  // namespace Orvan::Framework
