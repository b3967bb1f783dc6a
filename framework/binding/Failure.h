// Failure: the error value of the whole system, and MaybeType, the result of
// every fallible operation. Failures travel as values; nothing is thrown
// across the library boundary.
//
// Choosing a code: 0 when there is no HTTP meaning (conversion and parse
// failures); 400 when the caller may not act or sent something unusable; 403
// for restrictions; 404 when the thing asked for does not exist; 500 when a
// service call failed; 503 when a needed service (the feature toggles) could
// not be reached.
#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "framework/binding/BindingProperty.h"

namespace Orvan::Framework {

struct Failure {
    uint32_t code = 0;
    std::string message;
    // Named values of the message template, each under its name with a type
    // suffix ("_bool", "_int", "_float", "_str"); a non-zero code as "errorCode_int".
    BindingProperty parameters;

    Failure() = default;
    explicit Failure(std::string text, uint32_t status = 0)
        : code(status), message(std::move(text)) {}
};

template <class E, class T = void>
class [[nodiscard]] MaybeType {
public:
    MaybeType(T value)
        : state_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
    MaybeType(E failure) : state_(std::in_place_index<1>, std::move(failure)) {}  // NOLINT

    bool HasValue() const { return state_.index() == 0; }
    explicit operator bool() const { return HasValue(); }

    T& Value() & {
        assert(HasValue());
        return std::get<0>(state_);
    }
    const T& Value() const& {
        assert(HasValue());
        return std::get<0>(state_);
    }
    T&& Value() && {
        assert(HasValue());
        return std::get<0>(std::move(state_));
    }
    T* operator->() { return &Value(); }
    const T* operator->() const { return &Value(); }
    T& operator*() & { return Value(); }
    const T& operator*() const& { return Value(); }

    const E& GetFailure() const& {
        assert(!HasValue());
        return std::get<1>(state_);
    }
    E&& GetFailure() && {
        assert(!HasValue());
        return std::get<1>(std::move(state_));
    }

private:
    std::variant<T, E> state_;
};

// An operation without a value: success, or a failure.
template <class E>
class [[nodiscard]] MaybeType<E, void> {
public:
    MaybeType() = default;
    MaybeType(E failure) : failure_(std::move(failure)) {}  // NOLINT: implicit by design

    static MaybeType Success() { return MaybeType(); }

    bool HasValue() const { return !failure_.has_value(); }
    explicit operator bool() const { return HasValue(); }

    const E& GetFailure() const& {
        assert(!HasValue());
        return *failure_;
    }
    E&& GetFailure() && {
        assert(!HasValue());
        return std::move(*failure_);
    }

private:
    std::optional<E> failure_;
};

template <class T = void>
using Maybe = MaybeType<Failure, T>;

}  // namespace Orvan::Framework

// Propagation helpers: return the failure of an expression to the caller.
#define QEL_RETURN_IF_FAILED(expr)                     \
    do {                                               \
        auto&& qelResult_ = (expr);                    \
        if (!qelResult_.HasValue()) {                  \
            return std::move(qelResult_).GetFailure(); \
        }                                              \
    } while (false)

#define QEL_CONCAT_INNER_(a, b) a##b
#define QEL_CONCAT_(a, b) QEL_CONCAT_INNER_(a, b)
// `lhs` may be a declaration ("auto value"), so it cannot be parenthesised.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define QEL_ASSIGN_OR_RETURN_IMPL_(tmp, lhs, expr) \
    auto tmp = (expr);                             \
    if (!tmp.HasValue()) {                         \
        return std::move(tmp).GetFailure();        \
    }                                              \
    lhs = std::move(tmp).Value()
#define QEL_ASSIGN_OR_RETURN(lhs, expr) \
    QEL_ASSIGN_OR_RETURN_IMPL_(QEL_CONCAT_(qelMaybe_, __LINE__), lhs, expr)
// NOLINTEND(bugprone-macro-parentheses)
