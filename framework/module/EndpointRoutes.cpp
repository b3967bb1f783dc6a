#include "framework/module/EndpointRoutes.h"

#include <set>

#include "framework/binding/BuiltinTypes.h"
#include "framework/binding/MessageFormat.h"
#include "framework/dispatch/RequestDispatch.h"
#include "framework/dispatch/RouteTable.h"
#include "framework/log/Log.h"

namespace Orvan::Framework {

namespace {

constexpr std::string_view kHelpName = "Help";

Failure Refuse(const AppModule& module, const EndpointDefinition& definition,
               std::string_view reason) {
    const uint32_t method = static_cast<uint32_t>(definition.method);
    const std::string_view methodName = HttpMethodName(method);
    const std::string text =
        Format("Couldn't register endpoint %1 '%2': %3",
               methodName.empty() ? std::to_string(method) : std::string(methodName),
               definition.routeTemplate, reason);
    Log(kError, kGroupGen, "%s: %s", module.ShortName().c_str(), text.c_str());
    return Failure(text);
}

// The reason the arguments cannot serve the template, or empty.
std::string CheckArguments(const EndpointDefinition& definition, const RouteEntry& route) {
    std::set<std::string, std::less<>> names;
    std::set<std::string, std::less<>> parameters;
    for (const PathParameter& parameter : route.parameters) {
        parameters.insert(parameter.name);
    }
    size_t bodies = 0;
    for (const BindingArgumentInfo& argument : definition.arguments) {
        if (!names.insert(argument.name).second) {
            return Format("argument '%1' is named twice", argument.name);
        }
        if (argument.location == ArgumentLocation::Path && parameters.count(argument.name) == 0) {
            return Format("path argument '%1' is not a parameter of the template", argument.name);
        }
        if (argument.location == ArgumentLocation::Body && ++bodies > 1) {
            return "a route takes at most one body argument";
        }
    }
    return {};
}

}  // namespace

Maybe<BindingFunctionInfo*> RegisterEndpoint(AppModule& module, EndpointDefinition definition) {
    const uint32_t method = static_cast<uint32_t>(definition.method);
    if (method < kHostMethodDelete || method > kHostMethodPut) {
        return Refuse(module, definition, "a route needs an HTTP method");
    }
    if (definition.handler == nullptr) {
        return Refuse(module, definition, "no handler");
    }
    Maybe<RouteEntry> route = MakeRouteEntry(method, definition.routeTemplate, nullptr);
    if (!route) {
        return Refuse(module, definition, route.GetFailure().message);
    }
    if (std::string reason = CheckArguments(definition, route.Value()); !reason.empty()) {
        return Refuse(module, definition, reason);
    }

    BindingFunctionInfo function;
    function.name = FunctionNameFromRoute(method, definition.routeTemplate);
    function.arguments = std::move(definition.arguments);
    function.returnType = definition.returnType;
    function.nameSpace = module.RouteBase();
    function.tags = {module.PluginsLabel(), module.PluginLabel()};
    BindingFunctionInfo* stored = module.Registry().AddFunction(std::move(function));
    if (stored == nullptr) {
        return Refuse(module, definition,
                      Format("a function named '%1' exists already",
                             FunctionNameFromRoute(method, definition.routeTemplate)));
    }
    route.Value().function = stored;
    stored->route = std::make_shared<RouteEntry>(std::move(route).Value());
    stored->handler = std::move(definition.handler);

    EndpointDescription endpoint;
    endpoint.function = stored;
    endpoint.dispatch = &DispatchEndpointRequest;
    endpoint.dispatchContext = stored;
    endpoint.urlTemplate = std::move(definition.routeTemplate);
    endpoint.method = method;
    module.AddEndpoint(std::move(endpoint));
    return stored;
}

void RegisterHelpEndpoint(AppModule& module) {
    BindingTypeRegistry& registry = module.Registry();
    if (registry.FindFunction(kHelpName) != nullptr) {
        return;
    }
    BindingFunctionInfo function;
    function.name = std::string(kHelpName);
    function.description = "Describes the functions, types and events of this API.";
    function.returnType = IdentifierOf<BindingFullApiHelp>(&registry);
    function.tags = {"$builtin"};
    BindingFunctionInfo* stored = registry.AddFunction(std::move(function));
    if (stored == nullptr) {
        return;
    }
    // Reached by a direct call naming it, never by a path.
    Maybe<RouteEntry> route = MakeRouteEntry(kHostMethodDirectCall, {}, stored, {},
                                             CallKind{kHostMethodDirectCall, stored->name});
    if (!route) {
        return;  // a template without parameters always compiles
    }
    stored->route = std::make_shared<RouteEntry>(std::move(route).Value());

    EndpointDescription endpoint;
    endpoint.function = stored;
    endpoint.dispatch = &DispatchEndpointRequest;
    endpoint.dispatchContext = stored;
    endpoint.method = kHostMethodDirectCall;
    module.AddEndpoint(std::move(endpoint));
}

}  // namespace Orvan::Framework
