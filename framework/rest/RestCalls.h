// REST calls to other plugins' endpoints: the AppModule operations Request,
// RequestValue and RequestNamed (declared in AppModule.h, templates defined
// here; include this header to call them).
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

#include <string_view>
#include <type_traits>

#include "framework/binding/NativeConversion.h"
#include "framework/dispatch/HttpMethod.h"
#include "framework/host/AppModule.h"
#include "framework/rest/RestArguments.h"

namespace Orvan::Framework {

// Root name of a reply body in conversion messages.
inline constexpr std::string_view kRestResultName = "<result>";

template <class... Args>
Maybe<> AppModule::Request(HttpMethod method, std::string_view url, const Args&... arguments) {
    return SendRestRequest(method, url, RestArguments::Of(Registry(), arguments...), nullptr);
}

template <class T, class... Args>
Maybe<T> AppModule::RequestValue(HttpMethod method, std::string_view url,
                                 const Args&... arguments) {
    T value{};
    const BindingTypeRegistry& registry = Registry();
    const RestValueSink sink = [&value, &registry](const BindingProperty& body) -> Maybe<> {
        if constexpr (std::is_same_v<T, BindingProperty>) {
            value = body;
            return Maybe<>::Success();
        } else {
            return AssignFromProperty(registry, body, kRestResultName, value);
        }
    };
    QEL_RETURN_IF_FAILED(
        SendRestRequest(method, url, RestArguments::Of(registry, arguments...), &sink));
    return value;
}

}  // namespace Orvan::Framework
