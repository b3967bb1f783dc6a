// ServiceCaller: a plugin's awaited calls to one game service, with the count
// of its calls in progress. Each call logs the count when it starts and when
// it ends ("<short name>: Concurrent requests: %u", ALWAYS), makes the raw or
// typed service-proxy call and waits for it with Await, so the host keeps
// running (and may start further calls) meanwhile. There is no limit; the
// count only reports how many calls wait at once.
//
//   ServiceCaller teamBuilder_{*this, "teambuilder-draft"};
//   Maybe<AppModule::ServiceProxyRawResponse> raw =
//       teamBuilder_.CallRaw("createDraftPremadeV1", queueId);
//   Maybe<TbdGameDtoV1> dto = teamBuilder_.Call<TbdGameDtoV1>("updateActionV1", action);
//
// Ownership: held by the plugin object, whose module it refers to. Threads:
// the host's thread; the count is atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "framework/module/AppModule.h"
#include "framework/serviceproxy/ServiceProxyClient.h"

namespace Orvan::Framework {

class ServiceCaller {
public:
    ServiceCaller(AppModule& module, std::string serviceName)
        : module_(module), serviceName_(std::move(serviceName)) {}
    ServiceCaller(const ServiceCaller&) = delete;
    ServiceCaller& operator=(const ServiceCaller&) = delete;

    template <class P = BindingProperty>
    Maybe<AppModule::ServiceProxyRawResponse> CallRaw(std::string_view method,
                                                      const P& payload = P{},
                                                      std::string_view responseMethod = {},
                                                      std::string_view extra = {}) {
        const InProgress counted(*this);
        return module_.Await(
            module_.CallServiceProxyRaw(serviceName_, method, payload, responseMethod, extra));
    }

    template <class T, class P = BindingProperty>
    Maybe<T> Call(std::string_view method, const P& payload = P{},
                  std::string_view responseMethod = {}, std::string_view extra = {}) {
        const InProgress counted(*this);
        return module_.Await(module_.template CallServiceProxy<T>(serviceName_, method, payload,
                                                                  responseMethod, extra));
    }

    uint32_t CallsInProgress() const { return inProgress_.load(std::memory_order_acquire); }
    const std::string& ServiceName() const { return serviceName_; }

private:
    // Counts one call from before its request to after its result.
    class InProgress {
    public:
        explicit InProgress(ServiceCaller& caller) : caller_(caller) { caller_.Enter(); }
        ~InProgress() { caller_.Leave(); }
        InProgress(const InProgress&) = delete;
        InProgress& operator=(const InProgress&) = delete;

    private:
        ServiceCaller& caller_;
    };

    void Enter();
    void Leave();

    AppModule& module_;
    std::string serviceName_;
    std::atomic<uint32_t> inProgress_{0};
};

}  // namespace Orvan::Framework
