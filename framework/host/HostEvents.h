// HostEvents: the module's handlers of host events by event name, their
// registration with the host (entries 3 and 4), and delivery: the host's
// payload converted into the handler's record (a resource event or a
// service-proxy answer) through the registry. A payload that does not
// convert never reaches the handler.
//
// The host calls the C dispatchers given at construction with the context
// given there; they hand the event to DeliverResource or
// DeliverServiceProxy.
//
// Ownership: owns the handlers; a handler is shared so that it survives
// replacing itself while it runs. Threads: the host's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/host/FrameworkTypes.h"
#include "framework/host/HostEntries.h"

namespace Orvan::Framework {

using ResourceHandler = std::function<void(const Resource&)>;
using ServiceProxyHandler = std::function<void(const PluginServiceProxyResponse&)>;

class HostEvents {
public:
    struct Dispatchers {
        void* context = nullptr;
        HostEventCallback resource = nullptr;
        HostEventCallback serviceProxy = nullptr;
    };

    HostEvents(HostEntries& host, const BindingTypeRegistry& registry, const std::string& shortName,
               Dispatchers dispatchers)
        : host_(host), registry_(registry), shortName_(shortName), dispatchers_(dispatchers) {}
    HostEvents(const HostEvents&) = delete;
    HostEvents& operator=(const HostEvents&) = delete;

    // Stores the handler under the name (replacing an earlier one) and
    // registers the matching dispatcher with the host.
    void Register(std::string_view name, ResourceHandler handler, uint32_t flags);
    void Register(std::string_view name, ServiceProxyHandler handler, uint32_t flags);
    // Unregisters one name from the host and drops its handler.
    void Unregister(const std::string& name);
    // Unregisters every name from the host and drops every handler.
    void UnregisterAll();

    void DeliverResource(HostEvent* event) const;
    void DeliverServiceProxy(HostEvent* event) const;

private:
    struct Handlers {
        ResourceHandler onResource;
        ServiceProxyHandler onServiceProxy;
    };

    void Store(std::string_view name, Handlers handlers, HostEventCallback dispatcher,
               uint32_t flags);
    std::shared_ptr<const Handlers> Find(const char* name) const;
    template <class Record>
    void Deliver(HostEvent* event, std::function<void(const Record&)> Handlers::*slot) const;

    HostEntries& host_;
    const BindingTypeRegistry& registry_;
    const std::string& shortName_;
    Dispatchers dispatchers_;
    std::unordered_map<std::string, std::shared_ptr<const Handlers>> handlers_;
};

}  // namespace Orvan::Framework
