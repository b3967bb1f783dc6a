// TelemetryAdapter: the module's way of posting telemetry events to the host.
// An event is a POST of one object (the named values) to
// "/telemetry/v1/events/<event name>", made synchronously; the caller gets a
// future that is already fulfilled with the outcome.
//
// Ownership: the module owns its adapter (created at start) and outlives it;
// the adapter only refers to the module's REST client. Threads: the host's thread.
#pragma once

#include <future>
#include <string_view>

#include "framework/binding/Failure.h"
#include "framework/rest/RestArguments.h"

namespace Orvan::Framework {

class RestClient;

inline constexpr std::string_view kTelemetryEventsPath = "/telemetry/v1/events/";

class TelemetryAdapter {
public:
    explicit TelemetryAdapter(RestClient& rest) : rest_(rest) {}
    TelemetryAdapter(const TelemetryAdapter&) = delete;
    TelemetryAdapter& operator=(const TelemetryAdapter&) = delete;

    std::future<Maybe<>> PostTelemetryEvent(std::string_view eventName,
                                            const NamedArguments& values);

private:
    RestClient& rest_;
};

}  // namespace Orvan::Framework
