// RestArguments: the arguments of a REST call to another plugin, converted in
// order into BindingProperty values before anything reaches the host, and
// NamedArguments, the name and value pairs of a call that sends one object.
//
// Every native value the type registry can convert is accepted: texts in any
// spelling (std::string, string views, literals), numbers, BindingProperty
// and registered records and enumerations. The first argument that does not
// convert stops the list; its message is kept and the call is not sent.
//
// Ownership: holds copies of the converted values. Threads: one caller at a
// time; the registry is only read.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/Failure.h"
#include "framework/binding/NativeConversion.h"

namespace Orvan::Framework {

// Name and value pairs, gathered into one structure when sent.
using NamedArguments = std::vector<std::pair<std::string, BindingProperty>>;

// A native value as a BindingProperty; texts of every spelling become strings.
template <class T>
Maybe<BindingProperty> ToBindingValue(const BindingTypeRegistry& registry, const T& value) {
    if constexpr (std::is_same_v<T, BindingProperty>) {
        return value;
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        return BindingProperty(std::string_view(value));
    } else {
        return ConvertToProperty<T>(registry, value);
    }
}

class RestArguments {
public:
    RestArguments() = default;

    template <class... Args>
    static RestArguments Of(const BindingTypeRegistry& registry, const Args&... values) {
        RestArguments arguments;
        arguments.values_.reserve(sizeof...(Args));
        (arguments.Add(registry, values), ...);
        return arguments;
    }

    template <class T>
    void Add(const BindingTypeRegistry& registry, const T& value) {
        if (Failed()) {
            return;
        }
        Maybe<BindingProperty> converted = ToBindingValue(registry, value);
        if (!converted) {
            error_ = converted.GetFailure().message;
            failed_ = true;
            return;
        }
        values_.push_back(std::move(converted).Value());
    }

    void Add(BindingProperty value) {
        if (!Failed()) {
            values_.push_back(std::move(value));
        }
    }

    // One structure holding every pair (a later pair of the same name wins).
    static RestArguments FromNamed(const NamedArguments& named) {
        BindingProperty object;
        object.SetEmptyStructure();
        for (const auto& [name, value] : named) {
            object.MutableField(name) = value;
        }
        RestArguments arguments;
        arguments.Add(std::move(object));
        return arguments;
    }

    const std::vector<BindingProperty>& Values() const { return values_; }
    bool Failed() const { return failed_; }
    // The message of the argument that did not convert.
    const std::string& Error() const { return error_; }

private:
    std::vector<BindingProperty> values_;
    std::string error_;
    bool failed_ = false;
};

}  // namespace Orvan::Framework
