// EndpointHandler: the type-erased handler behind a registered endpoint, and
// the adapter that turns a typed callable into one.
//
// A typed handler is any callable returning Maybe<T> (or Maybe<> for an empty
// result) whose parameters are native types the registry converts: the
// adapter converts each bound argument into its parameter (an empty argument
// of an optional parameter keeps the parameter's default), calls the handler,
// and converts its value back into a BindingProperty. A failed argument
// conversion ends the call with the conversion's failure (code 0); a result
// that does not convert fails with code 400.
//
// Ownership: the function record of the registry owns its handler; a handler
// made from a plugin's member function refers to the plugin object, which
// owns the registry. Threads: invoked on the host's thread; the handler may
// wait (giving the host turns), so nothing here holds state across the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/Failure.h"
#include "framework/binding/NativeConversion.h"

namespace Orvan::Framework {

// What a handler learns about the call besides its arguments.
struct EndpointCall {
    const BindingFunctionInfo& function;
    const BindingTypeRegistry& registry;
    // The handle the host passed with the request.
    uint32_t pluginHandle = 0;
};

class EndpointHandler {
public:
    virtual ~EndpointHandler() = default;
    // `arguments` holds one value per declared argument, in order; the
    // handler may move from them. Success carries the reply's body value
    // ("empty" for an empty result).
    virtual Maybe<BindingProperty> Invoke(std::span<BindingProperty> arguments,
                                          const EndpointCall& call) const = 0;
};

namespace Detail {

template <class T>
struct MaybeValue {
    static constexpr bool kIsMaybe = false;
};
template <class T>
struct MaybeValue<MaybeType<Failure, T>> {
    static constexpr bool kIsMaybe = true;
    using Type = T;
};

template <class T>
struct IsStdOptional : std::false_type {};
template <class T>
struct IsStdOptional<std::optional<T>> : std::true_type {};

// The result and parameter types of a handler: a member function (any
// qualifiers), a function pointer or a callable object with one operator().
template <class F>
struct HandlerSignature : HandlerSignature<decltype(&F::operator())> {
    static constexpr bool kMember = false;
};

template <class R, class... P>
struct HandlerSignature<R (*)(P...)> {
    static constexpr bool kMember = false;
    using Result = R;
    using Parameters = std::tuple<P...>;
};

// `qualifiers` are a member function's cv and reference qualifiers, which
// parentheses would not leave as such.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define QEL_HANDLER_SIGNATURE_(qualifiers)               \
    template <class R, class C, class... P>              \
    struct HandlerSignature<R (C::*)(P...) qualifiers> { \
        static constexpr bool kMember = true;            \
        using Result = R;                                \
        using Class = C;                                 \
        using Parameters = std::tuple<P...>;             \
    };
QEL_HANDLER_SIGNATURE_()
QEL_HANDLER_SIGNATURE_(const)
QEL_HANDLER_SIGNATURE_(noexcept)
QEL_HANDLER_SIGNATURE_(const noexcept)
QEL_HANDLER_SIGNATURE_(&)
QEL_HANDLER_SIGNATURE_(const&)
#undef QEL_HANDLER_SIGNATURE_
// NOLINTEND(bugprone-macro-parentheses)

template <class Result>
Maybe<BindingProperty> ResultToProperty(const BindingTypeRegistry& registry, Result&& result) {
    using Value = typename MaybeValue<std::decay_t<Result>>::Type;
    if (!result.HasValue()) {
        // The handler's result is consumed here, whoever holds it.
        return std::move(result).GetFailure();  // NOLINT(bugprone-move-forwarding-reference)
    }
    if constexpr (std::is_void_v<Value>) {
        return BindingProperty();
    } else {
        Maybe<BindingProperty> converted = ConvertToProperty(registry, result.Value());
        if (!converted) {
            Failure failure = std::move(converted).GetFailure();
            failure.code = 400;
            return failure;
        }
        return converted;
    }
}

// Converts one bound argument into its parameter; an empty value of an
// optional argument leaves the parameter as constructed.
template <class T>
Maybe<> ArgumentToNative(const BindingTypeRegistry& registry, const BindingProperty& value,
                         const BindingArgumentInfo& argument, T& target) {
    if (value.IsEmpty() && argument.optional != 0) {
        return Maybe<>::Success();
    }
    return AssignFromProperty(registry, value, argument.name, target);
}

}  // namespace Detail

// Adapts `Callable`, invoked as callable(P...) and returning Maybe<T>.
template <class Callable, class... P>
class TypedEndpointHandler final : public EndpointHandler {
public:
    explicit TypedEndpointHandler(Callable callable) : callable_(std::move(callable)) {}

    Maybe<BindingProperty> Invoke(std::span<BindingProperty> arguments,
                                  const EndpointCall& call) const override {
        if (arguments.size() != sizeof...(P) || call.function.arguments.size() != sizeof...(P)) {
            return Failure("Argument count mismatch for '" + call.function.name + "'", 500);
        }
        return InvokeWith(arguments, call, std::index_sequence_for<P...>{});
    }

private:
    template <size_t... I>
    Maybe<BindingProperty> InvokeWith([[maybe_unused]] std::span<BindingProperty> arguments,
                                      const EndpointCall& call, std::index_sequence<I...>) const {
        [[maybe_unused]] std::tuple<std::decay_t<P>...> natives{};
        std::optional<Failure> failure;
        // Left to right, stopping at the first argument that does not convert.
        const bool converted =
            (ConvertOne<I>(arguments, call, std::get<I>(natives), failure) && ...);
        if (!converted) {
            return std::move(*failure);
        }
        return Detail::ResultToProperty(call.registry,
                                        callable_(std::forward<P>(std::get<I>(natives))...));
    }

    template <size_t I, class T>
    static bool ConvertOne(std::span<BindingProperty> arguments, const EndpointCall& call,
                           T& target, std::optional<Failure>& failure) {
        Maybe<> result = Detail::ArgumentToNative(call.registry, arguments[I],
                                                  call.function.arguments[I], target);
        if (!result) {
            failure.emplace(std::move(result).GetFailure());
            return false;
        }
        return true;
    }

    Callable callable_;
};

}  // namespace Orvan::Framework
