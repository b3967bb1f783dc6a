// Entry points of conversion between native values and BindingProperty,
// through the type registry.
//
// Value to native fills a target and yields the first failure's message as a
// Failure (code 0); the partially filled target is not to be used then. The
// name given is the "%1" of top-level messages: callers name a whole received
// payload "<value>" and the result of a call to another plugin "<result>".
// Members missing from the input keep the target's previous values.
//
// Any thread; conversions share nothing but the registry.
#pragma once

#include <string_view>

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/Failure.h"

namespace Orvan::Framework {

namespace Detail {

Failure ConversionFailure(const BindingConversionResult& result);

template <class T>
const BindingTypeInfo* TopLevelInfo(const BindingTypeRegistry& registry) {
    const StaticType* type = InfoStaticTypeOf<T>();
    return type != nullptr ? registry.Find(*type) : nullptr;
}

}  // namespace Detail

template <class T>
Maybe<> AssignFromProperty(const BindingTypeRegistry& registry, const BindingProperty& value,
                           std::string_view name, T& target) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    BindingTraits<T>::Assign(conversion, value, name, target, Detail::TopLevelInfo<T>(registry));
    if (!conversion.Ok()) {
        return Detail::ConversionFailure(result);
    }
    return Maybe<>::Success();
}

// Converts into a default-constructed T.
template <class T>
Maybe<T> ConvertFromProperty(const BindingTypeRegistry& registry, const BindingProperty& value,
                             std::string_view name) {
    T target{};
    QEL_RETURN_IF_FAILED(AssignFromProperty(registry, value, name, target));
    return target;
}

template <class T>
Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry, const T& source) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    BindingProperty output;
    BindingTraits<T>::Convert(conversion, source, output, Detail::TopLevelInfo<T>(registry));
    if (!conversion.Ok()) {
        return Detail::ConversionFailure(result);
    }
    return output;
}

// Type-erased forms for dispatch code. The type is a registered struct or
// enum; an identity that is not registered converts like an unregistered
// structure.
Maybe<> AssignFromProperty(const BindingTypeRegistry& registry, const StaticType& type,
                           const BindingProperty& value, std::string_view name, void* target);
Maybe<> AssignFromProperty(const BindingTypeRegistry& registry, const BindingTypeInfo& type,
                           const BindingProperty& value, std::string_view name, void* target);
Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const StaticType& type, const void* source);
Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const BindingTypeInfo& type, const void* source);
// In-place native to value, writing into `output` (which may be an element or
// field of a larger tree); on failure `output` is left unspecified.
Maybe<> ConvertToProperty(const BindingTypeRegistry& registry, const BindingTypeInfo& type,
                          const void* source, BindingProperty& output);

// Through a converter made by MakeFieldConverter<T>(), for any native type.
Maybe<> AssignFromProperty(const BindingTypeRegistry& registry,
                           const BindingFieldConverter& converter, const BindingProperty& value,
                           std::string_view name, void* target);
Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const BindingFieldConverter& converter,
                                         const void* source);

}  // namespace Orvan::Framework
