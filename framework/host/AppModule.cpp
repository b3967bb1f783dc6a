#include "framework/host/AppModule.h"

#include "framework/binding/BuiltinTypes.h"
#include "framework/dispatch/RouteTable.h"
#include "framework/host/ModuleMemory.h"
#include "framework/log/FatalReport.h"
#include "framework/log/Logger.h"
#include "framework/log/PluginLogTarget.h"
#include "framework/rest/TelemetryAdapter.h"

namespace Orvan::Framework {

AppModule::AppModule() : registry_(std::make_unique<BindingTypeRegistry>()) {
    Logger::Acquire();
    callbacks_.StartModule = &AppModule::StartModule;
    callbacks_.DestroyModule = &AppModule::DestroyModule;
    callbacks_.GetMemoryStatistics = &AppModule::GetMemoryStatistics;
}

AppModule::~AppModule() {
    {
        std::lock_guard lock(delayedCallMutex_);
        delayedCalls_.clear();
    }
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
    pluginHandle_ = link.pluginHandle;
    telemetry_ = std::make_unique<TelemetryAdapter>(*this);

    RegisterEventHandler(kServiceProxyUuidEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             OnServiceProxyUuidEvent(answer);
                         }),
                         1);
    RegisterEventHandler(kServiceProxyMethodEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             OnServiceProxyMethodEvent(answer);
                         }),
                         1);
    RegisterEventHandler(kServiceProxyAsyncEvent,
                         ServiceProxyHandler([this](const PluginServiceProxyResponse& answer) {
                             OnServiceProxyAsyncEvent(answer);
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
    for (const auto& entry : eventHandlers_) {
        CallHostUnregisterEvent(entry.first.c_str(), pluginHandle_);
    }
    eventHandlers_.clear();
    {
        std::lock_guard lock(serviceProxyMutex_);
        completionCallbacks_.clear();
        asyncHandlers_.clear();
        unmatchedAnswers_.clear();
    }
    exactResourceHandlers_.clear();
    patternResourceHandlers_.clear();
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
    CallHostBeginWait("Wait: yield", 0);
    CallHostServeOnce();
    return CallHostEndWait();
}

void AppModule::FailAwait(int code, const char* text) {
    const std::string message =
        Format("Caught std::future_error in AppModule::Await: (%1) %2", code, text);
    QEL_FATAL("ALE-6D828C10", message);
}

void AppModule::ScheduleAt(std::string_view label, Clock::time_point deadline,
                           std::function<void()> callable) {
    const int64_t remaining =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
    const double delaySeconds = remaining > 0 ? static_cast<double>(remaining) * 1e-9 : 0.0;

    DelayedCall* call = nullptr;
    {
        std::lock_guard lock(delayedCallMutex_);
        auto entry = std::make_unique<DelayedCall>();
        entry->module = this;
        entry->id = nextCallId_++;
        entry->callable = std::move(callable);
        call = entry.get();
        delayedCalls_.emplace(call->id, std::move(entry));
    }
    const std::string text(label);
    CallHostScheduleCall(text.c_str(), &AppModule::RunDelayedCall, call, delaySeconds, 0);
}

void QEL_HOST_CALL AppModule::RunDelayedCall(void* context) {
    auto* call = static_cast<DelayedCall*>(context);
    if (call == nullptr) {
        return;
    }
    AppModule* module = call->module;
    const uint64_t id = call->id;
    if (call->callable) {
        call->callable();
    }
    // Destroyed outside the lock: the callable's captures may run anything.
    std::unique_ptr<DelayedCall> finished;
    {
        std::lock_guard lock(module->delayedCallMutex_);
        auto found = module->delayedCalls_.find(id);
        if (found != module->delayedCalls_.end()) {
            finished = std::move(found->second);
            module->delayedCalls_.erase(found);
        }
    }
}

size_t AppModule::PendingDelayedCalls() const {
    std::lock_guard lock(delayedCallMutex_);
    return delayedCalls_.size();
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
