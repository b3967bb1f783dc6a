// AppModule: the base of every plugin module. It owns the module's link to
// the host: the host's function table and the plugin handle, the handlers of
// host events, resource subscriptions, the waiting primitives (Await, Yield)
// with which plugin code blocks on a result while the host keeps running,
// delayed calls, the module's registry, names and API description, and the C
// callbacks through which the host drives it (ModuleCallbacks).
//
// A plugin derives from it and overrides the destructor, RegisterEndpoints
// and OnStart. The virtual operations keep this order (slots 1 to 15):
// Subscribe, Unsubscribe, the destructor, Stop, the nine host entries 0 to 8,
// RegisterEndpoints, OnStart; HostEntries (framework/host) declares them in
// that order and the module implements it. Apart from log lines, which the
// module's PluginLogTarget writes through entry 9, the host-entry slots are
// the only way the module reaches the host.
//
// The module is composed of the framework's services, each with its own
// state in its own folder; the module wires them to its host slots and
// forwards its operations to them:
//   framework/host/          the host link: HostEntries (the module's slots
//                            as the services reach them, one dispatch each),
//                            waits, DelayedCalls, HostEvents (event handlers
//                            and their dispatch)
//   framework/rest/          RestClient (REST calls to other plugins) and the
//                            TelemetryAdapter
//   framework/resources/     ResourceEvents (publishing, subscriptions,
//                            resource handlers)
//   framework/serviceproxy/  ServiceProxyClient (service requests, answers,
//                            pushed messages)
//   framework/module/        this class: construction, handshake, start, stop,
//                            the slots, the C callbacks, endpoint registration
//
// Lifecycle: constructed by the entry (no host table; no host call may be
// made), started by the host (StartModule), finalizing once DestroyModule
// began, then stopped and deleted.
//
// Ownership: the module owns its registry, log target, handler maps, delayed
// calls and API description; module objects are allocated through the
// module's counting hooks (ModuleMemory.h), zero-filled.
// Threads: the host calls everything on its one thread; waits give it turns
// during which it may call back into the module (events, delayed calls,
// requests). The service-proxy mutex and the delayed-call mutex guard their
// maps and are never held together.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/Failure.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/StaticType.h"
#include "framework/dispatch/HttpMethod.h"
#include "framework/host/ApiDescriptor.h"
#include "framework/host/DelayedCalls.h"
#include "framework/host/FrameworkTypes.h"
#include "framework/host/HostAbi.h"
#include "framework/host/HostEntries.h"
#include "framework/host/HostEvents.h"
#include "framework/host/PluginApiVersion.h"
#include "framework/host/PluginNames.h"
#include "framework/log/LogRecord.h"
#include "framework/platform/Clock.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/resources/TypedResource.h"
#include "framework/rest/RestArguments.h"
#include "framework/rest/RestCalls.h"
#include "framework/serviceproxy/ServiceProxyClient.h"

namespace Orvan::Framework {

class PluginLogTarget;
class TelemetryAdapter;

class AppModule : private HostEntries {
public:
    using ResourceHandler = Framework::ResourceHandler;
    using ServiceProxyHandler = Framework::ServiceProxyHandler;
    // The monotonic clock of delayed calls (a stand-in host may replay it).
    using Clock = DelayedCalls::Clock;

    AppModule();
    AppModule(const AppModule&) = delete;
    AppModule& operator=(const AppModule&) = delete;

    // ---- Virtual operations, in slot order -------------------------------

    // Slots 1 and 2: follow a resource's event key (nestable per key).
    Maybe<> Subscribe(std::string_view uri) override;
    Maybe<> Unsubscribe(std::string_view uri) override;
    // Slot 3.
    ~AppModule() override;
    // Slot 4: unregisters every event from the host and clears the handler,
    // service-proxy and resource maps; subscription counts stay.
    void Stop() override;
    // Slots 5 to 13: host entries 0 to 8. Without a host table (before
    // StartModule) they do nothing and return 0.
    void CallHostRequest(HostResponse* reply, HostRequest* request) override;
    uint32_t CallHostEntry1(uint32_t first, uint32_t second) override;
    void CallHostEmitEvent(HostEvent* event) override;
    void CallHostRegisterEvent(const char* name, uint32_t pluginHandle, HostEventCallback callback,
                               void* context, uint32_t flags) override;
    void CallHostUnregisterEvent(const char* name, uint32_t pluginHandle) override;
    void CallHostScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                              double delaySeconds, uint32_t flags) override;
    void CallHostServeOnce() override;
    void CallHostBeginWait(const std::string& label, uint32_t value) override;
    uint64_t CallHostEndWait() override;
    // Slot 14: the plugin registers its types and routes here.
    void RegisterEndpoints() override;
    // Slot 15: the plugin's start; its result is StartModule's.
    bool OnStart() override;

    // ---- Load and the host's callbacks -----------------------------------

    // The handshake of the entry: checks the core's version (an incompatible
    // core ends the process with a fatal report), stores the names, labels
    // and route base, registers the framework's types and events, calls
    // RegisterEndpoints, builds the API description and fills the record.
    void RunHandshake(PluginLoadRecord& record, std::string_view shortName);

    // The table handed to the host; it lives inside the module.
    ModuleCallbacks* Callbacks() { return &callbacks_; }

    static uint8_t QEL_HOST_CALL StartModule(void* module, HostLink* link);
    static void QEL_HOST_CALL DestroyModule(void* module);
    static void QEL_HOST_CALL GetMemoryStatistics(void* module, uint32_t* out);

    // ---- Events ----------------------------------------------------------

    // Stores the handler under the event name (replacing an earlier one) and
    // registers the matching dispatcher with the host (entry 3). The host's
    // payload is converted into the handler's record through the registry;
    // a payload that does not convert never reaches the handler.
    void RegisterEventHandler(std::string_view name, ResourceHandler handler, uint32_t flags);
    void RegisterEventHandler(std::string_view name, ServiceProxyHandler handler, uint32_t flags);

    // Resource handlers by exact URI or by pattern (a URI holding "*"); the
    // subscription's dispatch calls the exact one, then every matching
    // pattern. Registering does not subscribe.
    void SetExactResourceHandler(std::string_view uri, ResourceHandler handler);
    void SetPatternResourceHandler(std::string_view pattern, ResourceHandler handler);

    // ---- REST calls to other plugins (framework/rest/RestCalls.h) -------

    // Receives a reply body; a failure becomes the call's conversion failure.
    using RestValueSink = Framework::RestValueSink;

    // The arguments go positionally, converted through the registry.
    template <class... Args>
    Maybe<> Request(HttpMethod method, std::string_view url, const Args&... arguments);
    // The reply body converted into T (text, BindingProperty or any type the
    // registry converts).
    template <class T, class... Args>
    Maybe<T> RequestValue(HttpMethod method, std::string_view url, const Args&... arguments);
    // The pairs go as one object argument.
    Maybe<> RequestNamed(HttpMethod method, std::string_view url, const NamedArguments& arguments);
    // The call itself; with a sink the reply body is read and handed to it.
    Maybe<> SendRestRequest(HttpMethod method, std::string_view url, const RestArguments& arguments,
                            const RestValueSink* sink);

    // POST "/telemetry/v1/events/<event name>" of the named values through
    // the module's telemetry adapter; the future is fulfilled on return.
    std::future<Maybe<>> PostTelemetryEvent(std::string_view eventName,
                                            const NamedArguments& values);

    // ---- Resources (framework/resources/ResourceEvents.h) ---------------

    // Emits the resource under its URI's event key and under the base name.
    Maybe<> SendEvent(std::string_view baseEventName, const Resource& resource);
    // Publishes a value of any type the registry converts; one that does not
    // convert is not published.
    template <class T>
    void PublishResource(std::string_view uri, const T& value,
                         PluginResourceEventType eventType = PluginResourceEventType::Update);
    void PublishResourceValue(std::string_view uri, PluginResourceEventType eventType,
                              const BindingProperty& data);
    void DeleteResource(std::string_view uri);
    // Stores the handler (exact URI, or pattern when it holds "*"),
    // subscribes, and hands an exact resource's current value over at once.
    void AddResourceHandler(std::string_view uri, const ResourceHandler& handler);
    // The same with the data converted into T; events that do not convert
    // are dropped.
    template <class T>
    void AddResourceHandler(std::string_view uri,
                            std::function<void(const TypedResource<T>&)> handler);

    // ---- Service proxy (framework/serviceproxy/ServiceProxyClient.h) -----

    // A service's answer as raw callers get it.
    struct ServiceProxyRawResponse {
        std::string methodName;
        BindingProperty payload;
        std::string status;
    };

    // Starts a request; the error text, or empty when it was started. An
    // empty response method makes it uuid-based.
    template <class P>
    std::string SendServiceProxyRequest(std::string_view service, std::string_view method,
                                        const P& payload, std::string_view responseMethod,
                                        std::string_view extra,
                                        const ServiceProxyHandler& completion);
    // The same; an error reaches the completion on a later host turn.
    template <class P>
    void InvokeServiceProxy(std::string_view service, std::string_view method, const P& payload,
                            std::string_view responseMethod, std::string_view extra,
                            ServiceProxyHandler completion);
    template <class P>
    std::future<Maybe<ServiceProxyRawResponse>> CallServiceProxyRaw(
        std::string_view service, std::string_view method, const P& payload,
        std::string_view responseMethod = {}, std::string_view extra = {});
    template <class T, class P>
    std::future<Maybe<T>> CallServiceProxy(std::string_view service, std::string_view method,
                                           const P& payload, std::string_view responseMethod = {},
                                           std::string_view extra = {});
    // Handlers of pushed messages; they run without the service-proxy mutex.
    void RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                     ServiceProxyHandler handler);
    template <class T>
    void RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                     std::function<void(const T&)> handler);
    // The non-template cores, with the payload already written as JSON.
    std::string SendSerializedServiceProxyRequest(std::string_view service, std::string_view method,
                                                  const Maybe<std::string>& payload,
                                                  std::string_view responseMethod,
                                                  std::string_view extra,
                                                  const ServiceProxyHandler& completion);
    void InvokeSerializedServiceProxy(std::string_view service, std::string_view method,
                                      const Maybe<std::string>& payload,
                                      std::string_view responseMethod, std::string_view extra,
                                      ServiceProxyHandler completion);

    // ---- Waiting and delayed calls --------------------------------------

    // Returns the value of a future of a MaybeType, giving the host turns
    // until it is ready: entry 7 once ("Wait: future<T>"), entry 6 per turn,
    // entry 8 once; no host call when it is ready at once. A broken future
    // ends the process with a fatal report.
    template <class T>
    T Await(std::future<T> future);

    // One turn of the host: entries 7 ("Wait: yield"), 6 and 8; returns
    // entry 8's result.
    uint64_t Yield();

    // Runs the callable on the host's thread once the deadline has passed.
    // Calls are numbered from 1 in scheduling order.
    void ScheduleAt(std::string_view label, Clock::time_point deadline,
                    std::function<void()> callable);

    // ---- State -----------------------------------------------------------

    BindingTypeRegistry& Registry() { return *registry_; }
    const BindingTypeRegistry& Registry() const { return *registry_; }
    const PluginNames& Names() const { return names_; }
    const std::string& ShortName() const { return names_.shortName; }
    const std::string& RouteBase() const { return routeBase_; }
    // "Plugins" and "Plugin <short name>", attached to what endpoint
    // registration registers.
    const std::string& PluginsLabel() const { return pluginsLabel_; }
    const std::string& PluginLabel() const { return pluginLabel_; }
    const std::string& UserAgent() const { return userAgent_; }
    const PluginApiVersion& CoreVersion() const { return coreVersion_; }
    uint32_t PluginHandle() const { return HostEntries::PluginHandle(); }
    const HostApi* Api() const { return hostApi_; }
    bool IsFinalizing() const { return finalizing_.load(std::memory_order_acquire); }
    size_t PendingDelayedCalls() const;

    // Extension point of the dispatch layer: one description per endpoint,
    // given during RegisterEndpoints; the API description lists them.
    void AddEndpoint(EndpointDescription endpoint);
    const PluginApiDescriptor* ApiDescription() const { return apiDescriptor_.Record(); }

    // ---- Allocation through the module's counting hooks ------------------

    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* block) noexcept;
    static void operator delete(void* block, const std::nothrow_t&) noexcept;

protected:
    // Discarded trace lines of the framework (handling, subscribing, sending,
    // dropped conversions). The arguments are still checked against the
    // format.
    static void Trace(const char* format, ...) QEL_PRINTF_FORMAT(1, 2);

private:
    bool Start(const HostLink& link);

    static void QEL_HOST_CALL DispatchResourceEvent(HostEvent* event);
    static void QEL_HOST_CALL DispatchServiceProxyEvent(HostEvent* event);

    // Host link.
    HostApi* hostApi_ = nullptr;
    std::string userAgent_;
    std::unique_ptr<TelemetryAdapter> telemetry_;

    std::atomic<bool> finalizing_{false};

    PluginApiVersion coreVersion_;
    std::unique_ptr<PluginLogTarget> logTarget_;
    PluginNames names_;
    std::string routeBase_;
    std::string pluginsLabel_;
    std::string pluginLabel_;

    std::unique_ptr<BindingTypeRegistry> registry_;

    // The services, in the order they build on each other; they reach the
    // host through this module's slots (HostEntries).
    HostEvents events_;
    DelayedCalls delayedCalls_{*this};
    RestClient rest_;
    ResourceEvents resources_;
    ServiceProxyClient serviceProxy_;

    ModuleCallbacks callbacks_{};
    std::vector<EndpointDescription> endpoints_;
    ApiDescriptor apiDescriptor_;
};

// The answer handed to raw callers; an answer carrying an error text fails
// with that text.
Maybe<AppModule::ServiceProxyRawResponse> ToServiceProxyRawResponse(
    const PluginServiceProxyResponse& answer);
// "methodName=%1, status=%2" for an answer, the failure's message otherwise.
std::string DescribeServiceProxyResponse(const Maybe<AppModule::ServiceProxyRawResponse>& response);

// ---- Inline and template definitions --------------------------------------

inline void AppModule::Trace(const char*, ...) {}

template <class T>
T AppModule::Await(std::future<T> future) {
    return AwaitOn(static_cast<HostEntries&>(*this), std::move(future));
}

template <class... Args>
Maybe<> AppModule::Request(HttpMethod method, std::string_view url, const Args&... arguments) {
    return rest_.Request(method, url, arguments...);
}

template <class T, class... Args>
Maybe<T> AppModule::RequestValue(HttpMethod method, std::string_view url,
                                 const Args&... arguments) {
    return rest_.RequestValue<T>(method, url, arguments...);
}

template <class T>
void AppModule::PublishResource(std::string_view uri, const T& value,
                                PluginResourceEventType eventType) {
    resources_.Publish(uri, value, eventType);
}

template <class T>
void AppModule::AddResourceHandler(std::string_view uri,
                                   std::function<void(const TypedResource<T>&)> handler) {
    AddResourceHandler(uri, resources_.Typed<T>(std::move(handler)));
}

template <class P>
std::string AppModule::SendServiceProxyRequest(std::string_view service, std::string_view method,
                                               const P& payload, std::string_view responseMethod,
                                               std::string_view extra,
                                               const ServiceProxyHandler& completion) {
    return serviceProxy_.Send(service, method, payload, responseMethod, extra, completion);
}

template <class P>
void AppModule::InvokeServiceProxy(std::string_view service, std::string_view method,
                                   const P& payload, std::string_view responseMethod,
                                   std::string_view extra, ServiceProxyHandler completion) {
    serviceProxy_.Invoke(service, method, payload, responseMethod, extra, std::move(completion));
}

template <class P>
std::future<Maybe<AppModule::ServiceProxyRawResponse>> AppModule::CallServiceProxyRaw(
    std::string_view service, std::string_view method, const P& payload,
    std::string_view responseMethod, std::string_view extra) {
    auto answer = std::make_shared<Detail::ServiceProxyAnswer<Maybe<ServiceProxyRawResponse>>>();
    std::future<Maybe<ServiceProxyRawResponse>> future = answer->Future();
    serviceProxy_.Invoke(service, method, payload, responseMethod, extra,
                         [answer](const PluginServiceProxyResponse& response) {
                             answer->Answer(ToServiceProxyRawResponse(response));
                         });
    return future;
}

template <class T, class P>
std::future<Maybe<T>> AppModule::CallServiceProxy(std::string_view service, std::string_view method,
                                                  const P& payload, std::string_view responseMethod,
                                                  std::string_view extra) {
    return serviceProxy_.template Call<T>(service, method, payload, responseMethod, extra);
}

template <class T>
void AppModule::RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                            std::function<void(const T&)> handler) {
    RegisterServiceProxyHandler(service, method, serviceProxy_.Typed<T>(std::move(handler)));
}

}  // namespace Orvan::Framework
