// EndpointRoutes: a module's REST endpoints, registered one line per route:
// the method, the URL template, the handler and the names of its parameters
// in order, with the path arguments and the body argument marked.
//
//   using namespace Framework::Routes;
//   EndpointRoutes routes(*this);
//   routes.Add(kGet, "/qel-lobby-team-builder/v1/lobby", &Plugin::GetLobby);
//   routes.Add(kPost, "/qel-lobby-team-builder/v1/lobby", &Plugin::CreatePremade, Body("lobby"));
//   routes.Add(kPost, "/qel-lobby-team-builder/v1/lobby/members/{id}/kick", &Plugin::KickMember,
//              Path("id"));
//
// A handler returns Maybe<T> (Maybe<> for an empty result); a Failure's code
// is the reply's HTTP status. Argument types come from the handler's
// parameter types, results are converted through the registry, so every
// record a handler takes or returns must be registered first. Plain names
// ("x" or Arg("x")) may come from anywhere (headers, query, call arguments);
// Query and Header restrict an argument to that source; Optional() lets an
// argument be left out (std::optional parameters are optional by themselves).
//
// Each route becomes a function of the module's registry, named after its
// method and template (FunctionNameFromRoute), in the module's route base as
// nameSpace and tagged with the module's two labels, and an endpoint record
// of the API description whose callback dispatches to the handler. The first
// EndpointRoutes of a module also registers the built-in "Help", reached by a
// direct call. A route that cannot be registered (duplicate, a path argument
// the template lacks, two body arguments, an unknown method) is left out and
// logged as an error; Failures() lists the refusals.
//
// Ownership: the registry owns the functions, their handlers and compiled
// routes; handlers of member functions point at the module. Threads: the
// module's endpoint registration (the load path), before any request.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/Failure.h"
#include "framework/dispatch/EndpointHandler.h"
#include "framework/dispatch/HttpMethod.h"
#include "framework/module/AppModule.h"

namespace Orvan::Framework {

// One named parameter of a route's handler.
struct RouteArgument {
    std::string name;
    ArgumentLocation location = ArgumentLocation::Any;
    bool optional = false;
    std::string description;

    RouteArgument(const char* argumentName) : name(argumentName) {}       // NOLINT: plain names
    RouteArgument(std::string_view argumentName) : name(argumentName) {}  // NOLINT
    RouteArgument(std::string_view argumentName, ArgumentLocation where)
        : name(argumentName), location(where) {}

    RouteArgument&& Optional() && {
        optional = true;
        return std::move(*this);
    }
    RouteArgument&& Description(std::string_view text) && {
        description = text;
        return std::move(*this);
    }
};

// The vocabulary of route lines; bring it in with a using-directive where the
// routes are registered.
namespace Routes {

inline constexpr HttpMethod kDelete = HttpMethod::Delete;
inline constexpr HttpMethod kGet = HttpMethod::Get;
inline constexpr HttpMethod kHead = HttpMethod::Head;
inline constexpr HttpMethod kOptions = HttpMethod::Options;
inline constexpr HttpMethod kPatch = HttpMethod::Patch;
inline constexpr HttpMethod kPost = HttpMethod::Post;
inline constexpr HttpMethod kPut = HttpMethod::Put;

// A template parameter ("{id}").
inline RouteArgument Path(std::string_view name) {
    return {name, ArgumentLocation::Path};
}
// The request body (at most one per route).
inline RouteArgument Body(std::string_view name) {
    return {name, ArgumentLocation::Body};
}
inline RouteArgument Query(std::string_view name) {
    return {name, ArgumentLocation::Query};
}
inline RouteArgument Header(std::string_view name) {
    return {name, ArgumentLocation::Header};
}
// From any source.
inline RouteArgument Arg(std::string_view name) {
    return {name, ArgumentLocation::Any};
}

}  // namespace Routes

// Everything a route registers, with the handler already type-erased.
struct EndpointDefinition {
    HttpMethod method = HttpMethod::None;
    std::string routeTemplate;
    std::vector<BindingArgumentInfo> arguments;
    BindingTypeIdentifier returnType;
    std::shared_ptr<EndpointHandler> handler;
};

// Registers the function, its compiled route and its endpoint record. Logs
// and returns the reason when the route is refused.
Maybe<BindingFunctionInfo*> RegisterEndpoint(AppModule& module, EndpointDefinition definition);

// Registers the built-in "Help" (a direct call answered with the API
// description) unless the module's registry has it already.
void RegisterHelpEndpoint(AppModule& module);

// Further description of a registered route; does nothing for a refused one.
class EndpointRegistration {
public:
    explicit EndpointRegistration(BindingFunctionInfo* function) : function_(function) {}

    bool Registered() const { return function_ != nullptr; }
    const BindingFunctionInfo* Function() const { return function_; }

    EndpointRegistration& Description(std::string_view text) {
        if (function_ != nullptr) {
            function_->description = text;
        }
        return *this;
    }
    EndpointRegistration& Help(std::string_view text) {
        if (function_ != nullptr) {
            function_->help = text;
        }
        return *this;
    }

private:
    BindingFunctionInfo* function_;
};

namespace Detail {

// A member function bound to its object, callable with the parameters only.
template <class Object, class Member, class... P>
struct BoundMember {
    Object* object;
    Member member;

    auto operator()(P... arguments) const {
        return (object->*member)(std::forward<P>(arguments)...);
    }
};

template <class Callable, class Tuple>
struct TypedHandlerFor;
template <class Callable, class... P>
struct TypedHandlerFor<Callable, std::tuple<P...>> {
    using Type = TypedEndpointHandler<Callable, P...>;
};

template <class Object, class Member, class Tuple>
struct BoundMemberFor;
template <class Object, class Member, class... P>
struct BoundMemberFor<Object, Member, std::tuple<P...>> {
    using Type = BoundMember<Object, Member, P...>;
};

template <class T>
BindingArgumentInfo DeclareArgument(const BindingTypeRegistry& registry, RouteArgument&& route) {
    using Native = std::decay_t<T>;
    BindingArgumentInfo argument;
    argument.nameHash = HashFnv1a32(route.name);
    argument.name = std::move(route.name);
    argument.description = std::move(route.description);
    argument.type = IdentifierOf<Native>(&registry);
    argument.optional = route.optional || IsStdOptional<Native>::value ? 1 : 0;
    argument.location = route.location;
    return argument;
}

template <class... P, class... Names, size_t... I>
std::vector<BindingArgumentInfo> DeclareArguments(const BindingTypeRegistry& registry,
                                                  std::tuple<P...>*, std::index_sequence<I...>,
                                                  Names&&... names) {
    std::vector<BindingArgumentInfo> arguments;
    arguments.reserve(sizeof...(P));
    (arguments.push_back(DeclareArgument<std::tuple_element_t<I, std::tuple<P...>>>(
         registry, RouteArgument(std::forward<Names>(names)))),
     ...);
    return arguments;
}

}  // namespace Detail

template <class Module>
class EndpointRoutes {
public:
    static_assert(std::is_base_of_v<AppModule, Module>, "routes belong to an AppModule");

    explicit EndpointRoutes(Module& module) : module_(module) { RegisterHelpEndpoint(module); }

    // `handler`: a member function of the module (or of one of its bases), or
    // any callable; `names`: one per handler parameter, in order.
    template <class Handler, class... Names>
    EndpointRegistration Add(HttpMethod method, std::string_view routeTemplate, Handler handler,
                             Names&&... names) {
        using Signature = Detail::HandlerSignature<Handler>;
        using Result = typename Signature::Result;
        using Parameters = typename Signature::Parameters;
        static_assert(Detail::MaybeValue<Result>::kIsMaybe,
                      "a route handler returns Maybe<T> or Maybe<>");
        static_assert(std::tuple_size_v<Parameters> == sizeof...(Names),
                      "name every handler parameter, in order");

        EndpointDefinition definition;
        definition.method = method;
        definition.routeTemplate = std::string(routeTemplate);
        definition.arguments = Detail::DeclareArguments(
            module_.Registry(), static_cast<Parameters*>(nullptr),
            std::make_index_sequence<sizeof...(Names)>{}, std::forward<Names>(names)...);
        definition.returnType =
            IdentifierOf<typename Detail::MaybeValue<Result>::Type>(&module_.Registry());
        definition.handler = MakeHandler<Signature, Parameters>(std::move(handler));

        Maybe<BindingFunctionInfo*> function = RegisterEndpoint(module_, std::move(definition));
        if (!function) {
            failures_.push_back(std::move(function).GetFailure());
            return EndpointRegistration(nullptr);
        }
        return EndpointRegistration(function.Value());
    }

    const std::vector<Failure>& Failures() const { return failures_; }

private:
    template <class Signature, class Parameters, class Handler>
    std::shared_ptr<EndpointHandler> MakeHandler(Handler handler) {
        if constexpr (Signature::kMember) {
            using Class = typename Signature::Class;
            static_assert(std::is_base_of_v<Class, Module>,
                          "a member-function handler belongs to the module");
            using Bound = typename Detail::BoundMemberFor<Class, Handler, Parameters>::Type;
            using Typed = typename Detail::TypedHandlerFor<Bound, Parameters>::Type;
            return std::make_shared<Typed>(Bound{static_cast<Class*>(&module_), handler});
        } else {
            using Typed = typename Detail::TypedHandlerFor<Handler, Parameters>::Type;
            return std::make_shared<Typed>(std::move(handler));
        }
    }

    Module& module_;
    std::vector<Failure> failures_;
};

}  // namespace Orvan::Framework
