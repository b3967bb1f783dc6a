#include "framework/rest/TelemetryAdapter.h"

#include <string>

#include "framework/rest/RestCalls.h"

namespace Orvan::Framework {

std::future<Maybe<>> TelemetryAdapter::PostTelemetryEvent(std::string_view eventName,
                                                          const NamedArguments& values) {
    std::string url(kTelemetryEventsPath);
    url += eventName;
    std::promise<Maybe<>> outcome;
    outcome.set_value(rest_.RequestNamed(HttpMethod::Post, url, values));
    return outcome.get_future();
}

}  // namespace Orvan::Framework
