#include "framework/module/AppModule.h"

#include "framework/binding/BuiltinTypes.h"
#include "framework/dispatch/RouteTable.h"
#include "framework/host/ModuleMemory.h"
#include "framework/host/PluginLogTarget.h"
#include "framework/log/FatalReport.h"
#include "framework/log/Logger.h"
#include "framework/rest/TelemetryAdapter.h"

namespace Orvan::Framework {

AppModule::AppModule()
    : registry_(std::make_unique<BindingTypeRegistry>()),
      events_(*this, *registry_, names_.shortName,
              {this, &AppModule::DispatchResourceEvent, &AppModule::DispatchServiceProxyEvent}),
      rest_(*this, *registry_),
      resources_(*this, events_, rest_, *registry_, names_.shortName),
      serviceProxy_(*this, rest_, delayedCalls_, *registry_, names_.shortName, finalizing_) {
    Logger::Acquire();
    callbacks_.StartModule = &AppModule::StartModule;
    callbacks_.DestroyModule = &AppModule::DestroyModule;
    callbacks_.GetMemoryStatistics = &AppModule::GetMemoryStatistics;
}

AppModule::~AppModule() {
    delayedCalls_.Clear();
    // The target leaves the logger before this module's reference does.
    logTarget_.reset();
    Logger::Release();
}

// ---- Handshake and the host's callbacks -----------------------------------

void AppModule::RunHandshake(PluginLoadRecord& record, std::string_view shortName) {
    const PluginApiVersion& own = OwnPluginApiVersion();
    PluginApiVersion core{record.major, record.minor, record.patch, {}, {}};
    if (!IsCompatible(own, core)) {
        const std::string message =
            Format("%1 which supports plugin API %2 is not compatible with core's plugin API %3",
                   shortName, own.Text(), core.Text());
        FatalReport("ALE-EECF0606", message, {}, 0, {});
    }
    coreVersion_ = std::move(core);

    names_ = GetFullNameFromShortNameAndType(shortName, kBackendPluginType);
    pluginsLabel_ = "Plugins";
    pluginLabel_ = "Plugin " + names_.shortName;
    routeBase_ = FunctionNameFromRoute(kHostMethodNone, names_.shortName);

    RegisterBuiltinTypes(*registry_);
    RegisterFrameworkTypes(*registry_);
    RegisterEndpoints();
    apiDescriptor_.Build(*registry_, endpoints_);

    record.major = own.major;
    record.minor = own.minor;
    record.patch = own.patch;
    record.callbacks = &callbacks_;
    record.module = this;
    record.shortName = names_.shortName.c_str();
    record.apiDescriptor = apiDescriptor_.Record();
}

uint8_t QEL_HOST_CALL AppModule::StartModule(void* module, HostLink* link) {
    if (module == nullptr || link == nullptr || link->api == nullptr) {
        return 0;
    }
    try {
        return static_cast<AppModule*>(module)->Start(*link) ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

bool AppModule::Start(const HostLink& link) {
    hostApi_ = link.api;
    if (logTarget_ == nullptr) {
        logTarget_ = SetUpModuleLogging(hostApi_);
    }
    userAgent_ = Format("OrvanClient/%1 (%2)", coreVersion_.Text(), names_.shortName);
    SetPluginHandle(link.pluginHandle);
    telemetry_ = std::make_unique<TelemetryAdapter>(rest_);

    RegisterEventHandler(kServiceProxyUuidEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             serviceProxy_.OnUuidAnswer(answer);
                         }),
                         1);
    RegisterEventHandler(kServiceProxyMethodEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             serviceProxy_.OnMethodAnswer(answer);
                         }),
                         1);
    RegisterEventHandler(kServiceProxyAsyncEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             serviceProxy_.OnAsyncMessage(answer);
                         }),
                         1);
    return OnStart();
}

void QEL_HOST_CALL AppModule::DestroyModule(void* module) {
    if (module == nullptr) {
        return;
    }
    auto* self = static_cast<AppModule*>(module);
    self->finalizing_.store(true, std::memory_order_release);
    self->Stop();
    delete self;
}

void QEL_HOST_CALL AppModule::GetMemoryStatistics(void*, uint32_t* out) {
    if (out != nullptr) {
        ProcessMemoryStatistics().WriteWords(out);
    }
}

// ---- Virtual operations ----------------------------------------------------

void AppModule::Stop() {
    events_.UnregisterAll();
    serviceProxy_.Clear();
    resources_.ClearHandlers();
}

Maybe<> AppModule::Subscribe(std::string_view uri) {
    return resources_.Subscribe(uri);
}

Maybe<> AppModule::Unsubscribe(std::string_view uri) {
    return resources_.Unsubscribe(uri);
}

void AppModule::CallHostRequest(HostResponse* reply, HostRequest* request) {
    if (hostApi_ != nullptr && hostApi_->Request != nullptr) {
        hostApi_->Request(hostApi_, reply, request);
    }
}

uint32_t AppModule::CallHostEntry1(uint32_t first, uint32_t second) {
    if (hostApi_ != nullptr && hostApi_->Entry1 != nullptr) {
        return hostApi_->Entry1(hostApi_, first, second);
    }
    return 0;
}

void AppModule::CallHostEmitEvent(HostEvent* event) {
    if (hostApi_ != nullptr && hostApi_->EmitEvent != nullptr) {
        hostApi_->EmitEvent(hostApi_, event);
    }
}

void AppModule::CallHostRegisterEvent(const char* name, uint32_t pluginHandle,
                                      HostEventCallback callback, void* context, uint32_t flags) {
    if (hostApi_ != nullptr && hostApi_->RegisterEvent != nullptr) {
        hostApi_->RegisterEvent(hostApi_, name, pluginHandle, callback, context, flags);
    }
}

void AppModule::CallHostUnregisterEvent(const char* name, uint32_t pluginHandle) {
    if (hostApi_ != nullptr && hostApi_->UnregisterEvent != nullptr) {
        hostApi_->UnregisterEvent(hostApi_, name, pluginHandle);
    }
}

void AppModule::CallHostScheduleCall(const char* label, HostDelayedCallback callback, void* context,
                                     double delaySeconds, uint32_t flags) {
    if (hostApi_ != nullptr && hostApi_->ScheduleCall != nullptr) {
        hostApi_->ScheduleCall(hostApi_, label, callback, context, delaySeconds, flags);
    }
}

void AppModule::CallHostServeOnce() {
    if (hostApi_ != nullptr && hostApi_->ServeOnce != nullptr) {
        hostApi_->ServeOnce(hostApi_);
    }
}

void AppModule::CallHostBeginWait(const std::string& label, uint32_t value) {
    if (hostApi_ != nullptr && hostApi_->BeginWait != nullptr) {
        hostApi_->BeginWait(hostApi_, label.c_str(), value);
    }
}

uint64_t AppModule::CallHostEndWait() {
    if (hostApi_ != nullptr && hostApi_->EndWait != nullptr) {
        return hostApi_->EndWait(hostApi_);
    }
    return 0;
}

void AppModule::RegisterEndpoints() {}

bool AppModule::OnStart() {
    return true;
}

// ---- Waiting and delayed calls ---------------------------------------------

uint64_t AppModule::Yield() {
    return Framework::Yield(*this);
}

void AppModule::ScheduleAt(std::string_view label, Clock::time_point deadline,
                           std::function<void()> callable) {
    delayedCalls_.ScheduleAt(label, deadline, std::move(callable));
}

size_t AppModule::PendingDelayedCalls() const {
    return delayedCalls_.Pending();
}

// ---- Events ------------------------------------------------------------------

void AppModule::RegisterEventHandler(std::string_view name, ResourceHandler handler,
                                     uint32_t flags) {
    events_.Register(name, std::move(handler), flags);
}

void AppModule::RegisterEventHandler(std::string_view name, ServiceProxyHandler handler,
                                     uint32_t flags) {
    events_.Register(name, std::move(handler), flags);
}

void QEL_HOST_CALL AppModule::DispatchResourceEvent(HostEvent* event) {
    if (event != nullptr && event->context != nullptr) {
        static_cast<AppModule*>(event->context)->events_.DeliverResource(event);
    }
}

void QEL_HOST_CALL AppModule::DispatchServiceProxyEvent(HostEvent* event) {
    if (event != nullptr && event->context != nullptr) {
        static_cast<AppModule*>(event->context)->events_.DeliverServiceProxy(event);
    }
}

// ---- Resources ---------------------------------------------------------------

void AppModule::SetExactResourceHandler(std::string_view uri, ResourceHandler handler) {
    resources_.SetExactHandler(uri, std::move(handler));
}

void AppModule::SetPatternResourceHandler(std::string_view pattern, ResourceHandler handler) {
    resources_.SetPatternHandler(pattern, std::move(handler));
}

Maybe<> AppModule::SendEvent(std::string_view baseEventName, const Resource& resource) {
    return resources_.Send(baseEventName, resource.uri, resource.eventType, resource.data);
}

void AppModule::PublishResourceValue(std::string_view uri, PluginResourceEventType eventType,
                                     const BindingProperty& data) {
    resources_.PublishValue(uri, eventType, data);
}

void AppModule::DeleteResource(std::string_view uri) {
    resources_.PublishValue(uri, PluginResourceEventType::Delete, BindingProperty());
}

void AppModule::AddResourceHandler(std::string_view uri, const ResourceHandler& handler) {
    const bool exact = resources_.StoreHandler(uri, handler);
    // Through the slot, as a module may follow resources its own way.
    (void)Subscribe(uri);
    if (exact) {
        resources_.HandOverCurrent(uri, handler);
    }
}

// ---- REST calls ----------------------------------------------------------------

Maybe<> AppModule::RequestNamed(HttpMethod method, std::string_view url,
                                const NamedArguments& arguments) {
    return rest_.RequestNamed(method, url, arguments);
}

Maybe<> AppModule::SendRestRequest(HttpMethod method, std::string_view url,
                                   const RestArguments& arguments, const RestValueSink* sink) {
    return rest_.Send(method, url, arguments, sink);
}

std::future<Maybe<>> AppModule::PostTelemetryEvent(std::string_view eventName,
                                                   const NamedArguments& values) {
    if (telemetry_ == nullptr) {
        // Not started yet: no adapter, and no host the request could reach.
        return TelemetryAdapter(rest_).PostTelemetryEvent(eventName, values);
    }
    return telemetry_->PostTelemetryEvent(eventName, values);
}

// ---- Service proxy -------------------------------------------------------------

std::string AppModule::SendSerializedServiceProxyRequest(std::string_view service,
                                                         std::string_view method,
                                                         const Maybe<std::string>& payload,
                                                         std::string_view responseMethod,
                                                         std::string_view extra,
                                                         const ServiceProxyHandler& completion) {
    return serviceProxy_.SendSerialized(service, method, payload, responseMethod, extra,
                                        completion);
}

void AppModule::InvokeSerializedServiceProxy(std::string_view service, std::string_view method,
                                             const Maybe<std::string>& payload,
                                             std::string_view responseMethod,
                                             std::string_view extra,
                                             ServiceProxyHandler completion) {
    serviceProxy_.InvokeSerialized(service, method, payload, responseMethod, extra,
                                   std::move(completion));
}

void AppModule::RegisterServiceProxyHandler(std::string_view service, std::string_view method,
                                            ServiceProxyHandler handler) {
    serviceProxy_.RegisterHandler(service, method, std::move(handler));
}

// ---- Service-proxy answers as raw callers get them ---------------------------

Maybe<AppModule::ServiceProxyRawResponse> ToServiceProxyRawResponse(
    const PluginServiceProxyResponse& answer) {
    if (!answer.error.empty()) {
        return Failure(answer.error);
    }
    Maybe<BindingProperty> payload =
        ParseServiceProxyPayload(answer.payload, StaticType::Of<BindingProperty>().name);
    if (!payload) {
        return std::move(payload).GetFailure();
    }
    return AppModule::ServiceProxyRawResponse{answer.methodName, std::move(payload).Value(),
                                              answer.status};
}

std::string DescribeServiceProxyResponse(
    const Maybe<AppModule::ServiceProxyRawResponse>& response) {
    if (!response) {
        return response.GetFailure().message;
    }
    return Format("methodName=%1, status=%2", response->methodName, response->status);
}

// ---- Endpoints and allocation ----------------------------------------------

void AppModule::AddEndpoint(EndpointDescription endpoint) {
    endpoints_.push_back(std::move(endpoint));
}

void* AppModule::operator new(std::size_t size) {
    void* block = ModuleMemory::AllocateZeroed(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* AppModule::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return ModuleMemory::AllocateZeroed(size);
}

void AppModule::operator delete(void* block) noexcept {
    ModuleMemory::Free(block);
}

void AppModule::operator delete(void* block, const std::nothrow_t&) noexcept {
    ModuleMemory::Free(block);
}

}  // namespace Orvan::Framework
