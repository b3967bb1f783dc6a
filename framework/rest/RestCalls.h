// RestClient: REST calls to other plugins' endpoints through host entry 0,
// behind the module's Request, RequestValue and RequestNamed.
//
//   Maybe<> sent = module.Request(HttpMethod::Post, "/qel-gameflow/v1/session/event", "name");
//   Maybe<LoginSession> session =
//       module.RequestValue<LoginSession>(HttpMethod::Get, "/qel-login/v1/session");
//   Maybe<> posted = module.RequestNamed(HttpMethod::Post, url, {{"id", BindingProperty("x")}});
//
// Arguments are sent positionally, in order, each converted through the
// module's registry. The call is synchronous (host entry 0 returns with the
// reply) except that a streamed reply gives the host a turn whenever a read
// comes back short with more data announced; events may then reach the
// module re-entrantly. The failures and their codes:
//   400  "Request not sent: Error converting parameters for {method} {url}: {error}"
//   the reply's status  "Error response for {method} {url}: {error}"
//   0    "Error reading streamed response for {method} {url}: {error}"
//   0    "Error converting response for {method} {url}: {error}"
// each keeping method_str, url_str and error_str among its parameters. Once
// the host was called, the reply's release function runs exactly once.
//
// Threads: the host's thread.
#pragma once

#include <functional>
#include <string_view>
#include <type_traits>

#include "framework/binding/NativeConversion.h"
#include "framework/dispatch/HttpMethod.h"
#include "framework/host/HostEntries.h"
#include "framework/rest/RestArguments.h"

namespace Orvan::Framework {

// Root name of a reply body in conversion messages.
inline constexpr std::string_view kRestResultName = "<result>";

// Receives a reply body; a failure becomes the call's conversion failure.
using RestValueSink = std::function<Maybe<>(const BindingProperty&)>;

class RestClient {
public:
    RestClient(HostEntries& host, const BindingTypeRegistry& registry)
        : host_(host), registry_(registry) {}
    RestClient(const RestClient&) = delete;
    RestClient& operator=(const RestClient&) = delete;

    // The arguments go positionally, converted through the registry.
    template <class... Args>
    Maybe<> Request(HttpMethod method, std::string_view url, const Args&... arguments) {
        return Send(method, url, RestArguments::Of(registry_, arguments...), nullptr);
    }

    // The reply body converted into T (text, BindingProperty or any type the
    // registry converts).
    template <class T, class... Args>
    Maybe<T> RequestValue(HttpMethod method, std::string_view url, const Args&... arguments) {
        T value{};
        const BindingTypeRegistry& registry = registry_;
        const RestValueSink sink = [&value, &registry](const BindingProperty& body) -> Maybe<> {
            if constexpr (std::is_same_v<T, BindingProperty>) {
                value = body;
                return Maybe<>::Success();
            } else {
                return AssignFromProperty(registry, body, kRestResultName, value);
            }
        };
        QEL_RETURN_IF_FAILED(Send(method, url, RestArguments::Of(registry, arguments...), &sink));
        return value;
    }

    // The pairs go as one object argument.
    Maybe<> RequestNamed(HttpMethod method, std::string_view url, const NamedArguments& arguments);

    // The call itself; with a sink the reply body is read and handed to it.
    Maybe<> Send(HttpMethod method, std::string_view url, const RestArguments& arguments,
                 const RestValueSink* sink);

private:
    HostEntries& host_;
    const BindingTypeRegistry& registry_;
};

}  // namespace Orvan::Framework
