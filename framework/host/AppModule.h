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
// RegisterEndpoints, OnStart. Apart from log lines, which the module's
// PluginLogTarget writes through entry 9, the host-entry slots are the only
// way the module reaches the host.
//
// Operations of the module frame are defined by the folder that owns them:
//   framework/host/AppModule.cpp               construction, handshake, start,
//                                              stop, host entries, waits,
//                                              delayed calls, C callbacks
//   framework/host/AppModuleEvents.cpp         event handlers and dispatchers,
//                                              resource subscriptions and
//                                              dispatch, service-proxy answers
//   framework/resources/, framework/serviceproxy/, framework/rest/
//                                              publishing resources, service
//                                              requests, REST calls (each adds
//                                              its members here)
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
#include "framework/host/FrameworkTypes.h"
#include "framework/host/HostAbi.h"
#include "framework/host/PluginApiVersion.h"
#include "framework/host/PluginNames.h"
#include "framework/log/LogRecord.h"
#include "framework/platform/Clock.h"
#include "framework/resources/TypedResource.h"
#include "framework/rest/RestArguments.h"

namespace Orvan::Framework {

class PluginLogTarget;
class TelemetryAdapter;

class AppModule {
public:
    using ResourceHandler = std::function<void(const Resource&)>;
    using ServiceProxyHandler = std::function<void(const PluginServiceProxyResponse&)>;
    // The monotonic clock of delayed calls (a stand-in host may replay it).
    using Clock = Platform::MonotonicClock;

    AppModule();
    AppModule(const AppModule&) = delete;
    AppModule& operator=(const AppModule&) = delete;

    // ---- Virtual operations, in slot order -------------------------------

    // Slots 1 and 2: follow a resource's event key (nestable per key).
    virtual Maybe<> Subscribe(std::string_view uri);
    virtual Maybe<> Unsubscribe(std::string_view uri);
    // Slot 3.
    virtual ~AppModule();
    // Slot 4: unregisters every event from the host and clears the handler,
    // service-proxy and resource maps; subscription counts stay.
    virtual void Stop();
    // Slots 5 to 13: host entries 0 to 8. Without a host table (before
    // StartModule) they do nothing and return 0.
    virtual void CallHostRequest(HostResponse* reply, HostRequest* request);
    virtual uint32_t CallHostEntry1(uint32_t first, uint32_t second);
    virtual void CallHostEmitEvent(HostEvent* event);
    virtual void CallHostRegisterEvent(const char* name, uint32_t pluginHandle,
                                       HostEventCallback callback, void* context, uint32_t flags);
    virtual void CallHostUnregisterEvent(const char* name, uint32_t pluginHandle);
    virtual void CallHostScheduleCall(const char* label, HostDelayedCallback callback,
                                      void* context, double delaySeconds, uint32_t flags);
    virtual void CallHostServeOnce();
    virtual void CallHostBeginWait(const std::string& label, uint32_t value);
    virtual uint64_t CallHostEndWait();
    // Slot 14: the plugin registers its types and routes here.
    virtual void RegisterEndpoints();
    // Slot 15: the plugin's start; its result is StartModule's.
    virtual bool OnStart();

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
    using RestValueSink = std::function<Maybe<>(const BindingProperty&)>;

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
    void AddResourceHandler(std::string_view uri, ResourceHandler handler);
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
    uint32_t PluginHandle() const { return pluginHandle_; }
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
    struct EventHandler {
        ResourceHandler onResource;
        ServiceProxyHandler onServiceProxy;
    };

    struct DelayedCall {
        AppModule* module = nullptr;
        uint64_t id = 0;
        std::function<void()> callable;
    };

    bool Start(const HostLink& link);
    // SendEvent without a Resource record around the data.
    Maybe<> SendResourceEvent(std::string_view baseEventName, std::string_view uri,
                              PluginResourceEventType eventType, const BindingProperty& data);
    void StoreEventHandler(std::string_view name, EventHandler handler,
                           HostEventCallback dispatcher, uint32_t flags);
    // The handler stored under an event name, or null.
    std::shared_ptr<const EventHandler> FindEventHandler(const char* name) const;
    void DispatchResource(const Resource& resource);
    void OnServiceProxyUuidEvent(const PluginServiceProxyResponse& response);
    void OnServiceProxyMethodEvent(const PluginServiceProxyResponse& response);
    void OnServiceProxyAsyncEvent(const PluginServiceProxyResponse& response);
    // Delivers at most one unmatched answer to its waiting caller.
    void MatchPendingAnswers();
    [[noreturn]] static void FailAwait(int code, const char* text);

    static void QEL_HOST_CALL DispatchResourceEvent(HostEvent* event);
    static void QEL_HOST_CALL DispatchServiceProxyEvent(HostEvent* event);
    static void QEL_HOST_CALL RunDelayedCall(void* context);

    // Host link.
    HostApi* hostApi_ = nullptr;
    uint32_t pluginHandle_ = 0;
    std::string userAgent_;
    std::unique_ptr<TelemetryAdapter> telemetry_;

    // Event handlers by event name.
    std::unordered_map<std::string, std::shared_ptr<const EventHandler>> eventHandlers_;
    // Subscriptions by event key.
    std::unordered_map<std::string, uint32_t> subscriptionCounts_;
    // Resource handlers by exact URI and by pattern.
    std::unordered_map<std::string, ResourceHandler> exactResourceHandlers_;
    std::unordered_map<std::string, ResourceHandler> patternResourceHandlers_;

    // Service proxy: callers waiting by request key, handlers of pushed
    // messages by "service.method", answers not matched yet by key.
    std::mutex serviceProxyMutex_;
    std::unordered_map<std::string, ServiceProxyHandler> completionCallbacks_;
    std::unordered_map<std::string, ServiceProxyHandler> asyncHandlers_;
    std::unordered_map<std::string, PluginServiceProxyResponse> unmatchedAnswers_;

    // Delayed calls by id.
    std::unordered_map<uint64_t, std::unique_ptr<DelayedCall>> delayedCalls_;
    uint64_t nextCallId_ = 1;
    mutable std::mutex delayedCallMutex_;

    std::atomic<bool> finalizing_{false};

    PluginApiVersion coreVersion_;
    std::unique_ptr<PluginLogTarget> logTarget_;
    PluginNames names_;
    std::string routeBase_;
    std::string pluginsLabel_;
    std::string pluginLabel_;

    std::unique_ptr<BindingTypeRegistry> registry_;

    ModuleCallbacks callbacks_{};
    std::vector<EndpointDescription> endpoints_;
    ApiDescriptor apiDescriptor_;
};

// ---- Inline and template definitions --------------------------------------

inline void AppModule::Trace(const char*, ...) {}

template <class T>
T AppModule::Await(std::future<T> future) {
    try {
        bool waiting = false;
        // A deferred future runs in get(); only a pending one needs turns.
        while (future.wait_for(std::chrono::seconds(0)) == std::future_status::timeout) {
            if (!waiting) {
                waiting = true;
                CallHostBeginWait(Format("Wait: future<%1>", StaticType::Of<T>().name), 0);
            }
            CallHostServeOnce();
        }
        if (waiting) {
            CallHostEndWait();
        }
        return future.get();
    } catch (const std::future_error& error) {
        FailAwait(error.code().value(), error.what());
    }
}

}  // namespace Orvan::Framework
