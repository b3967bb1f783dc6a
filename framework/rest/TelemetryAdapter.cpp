#include "framework/rest/TelemetryAdapter.h"

#include <string>

#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

std::future<Maybe<>> TelemetryAdapter::PostTelemetryEvent(std::string_view eventName,
                                                          const NamedArguments& values) {
    std::string url(kTelemetryEventsPath);
    url += eventName;
    std::promise<Maybe<>> outcome;
    outcome.set_value(module_.RequestNamed(HttpMethod::Post, url, values));
    return outcome.get_future();
}

std::future<Maybe<>> AppModule::PostTelemetryEvent(std::string_view eventName,
                                                   const NamedArguments& values) {
    if (telemetry_ == nullptr) {
        // Not started yet: no adapter, and no host the request could reach.
        return TelemetryAdapter(*this).PostTelemetryEvent(eventName, values);
    }
    return telemetry_->PostTelemetryEvent(eventName, values);
}

}  // namespace Orvan::Framework
