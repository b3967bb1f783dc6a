#include "framework/binding/NativeConversion.h"

#include <string>

namespace Orvan::Framework {

namespace Detail {

Failure ConversionFailure(const BindingConversionResult& result) {
    return Failure(std::string(result.Error()));
}

}  // namespace Detail

namespace {

void AssignRegistered(BindingConversion& c, const BindingTypeInfo* type,
                      const BindingProperty& value, std::string_view name, void* target) {
    if (type != nullptr && type->converter != nullptr) {
        type->converter->AssignFromProperty(c, value, name, target);
    } else if (type != nullptr && type->IsEnum()) {
        int32_t number = Detail::LoadEnumValue(target, type->size);
        Detail::AssignEnum(c, type, value, name, number);
        if (c.Ok()) {
            Detail::StoreEnumValue(target, type->size, number);
        }
    } else {
        Detail::AssignStruct(c, type, value, name, target);
    }
}

void ConvertRegistered(BindingConversion& c, const BindingTypeInfo* type, const void* source,
                       BindingProperty& output) {
    if (type != nullptr && type->converter != nullptr) {
        type->converter->ConvertToProperty(c, source, output);
    } else if (type != nullptr && type->IsEnum()) {
        output.SetEnum(
            BindingEnumValue{Detail::LoadEnumValue(source, type->size), type->staticType});
    } else {
        Detail::ConvertStruct(c, type, source, output);
    }
}

Maybe<> Finish(const BindingConversionResult& result) {
    if (result.ok == 0) {
        return Detail::ConversionFailure(result);
    }
    return Maybe<>::Success();
}

}  // namespace

Maybe<> AssignFromProperty(const BindingTypeRegistry& registry, const StaticType& type,
                           const BindingProperty& value, std::string_view name, void* target) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    AssignRegistered(conversion, registry.Find(type), value, name, target);
    return Finish(result);
}

Maybe<> AssignFromProperty(const BindingTypeRegistry& registry, const BindingTypeInfo& type,
                           const BindingProperty& value, std::string_view name, void* target) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    AssignRegistered(conversion, &type, value, name, target);
    return Finish(result);
}

Maybe<> ConvertToProperty(const BindingTypeRegistry& registry, const BindingTypeInfo& type,
                          const void* source, BindingProperty& output) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    ConvertRegistered(conversion, &type, source, output);
    return Finish(result);
}

Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const BindingTypeInfo& type, const void* source) {
    BindingProperty output;
    QEL_RETURN_IF_FAILED(ConvertToProperty(registry, type, source, output));
    return output;
}

Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const StaticType& type, const void* source) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    BindingProperty output;
    ConvertRegistered(conversion, registry.Find(type), source, output);
    QEL_RETURN_IF_FAILED(Finish(result));
    return output;
}

Maybe<> AssignFromProperty(const BindingTypeRegistry& registry,
                           const BindingFieldConverter& converter, const BindingProperty& value,
                           std::string_view name, void* target) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    converter.AssignFromProperty(conversion, value, name, target);
    return Finish(result);
}

Maybe<BindingProperty> ConvertToProperty(const BindingTypeRegistry& registry,
                                         const BindingFieldConverter& converter,
                                         const void* source) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    BindingProperty output;
    converter.ConvertToProperty(conversion, source, output);
    QEL_RETURN_IF_FAILED(Finish(result));
    return output;
}

}  // namespace Orvan::Framework
