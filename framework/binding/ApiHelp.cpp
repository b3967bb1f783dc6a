#include "framework/binding/ApiHelp.h"

#include <algorithm>
#include <string>
#include <vector>

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/NativeConversion.h"

namespace Orvan::Framework {

namespace {

constexpr std::string_view kLineEnd = "\r\n";

// The identifier of a vector's or map's element: its code, and the struct or
// enum record the outer identifier carries.
BindingTypeIdentifier ElementOf(const BindingTypeIdentifier& identifier) {
    BindingTypeIdentifier element;
    element.type = identifier.elementType;
    element.info = identifier.info;
    element.staticType = identifier.staticType;
    return element;
}

std::string RegisteredName(const BindingTypeRegistry& registry,
                           const BindingTypeIdentifier& identifier, std::string_view fallback) {
    const BindingTypeInfo* info = registry.Resolve(identifier);
    return info != nullptr ? info->name : std::string(fallback);
}

void AppendTags(std::string& out, const std::vector<std::string>& tags) {
    if (tags.empty()) {
        return;
    }
    out += "@tags: ";
    for (size_t i = 0; i < tags.size(); ++i) {
        if (i != 0) {
            out += ',';
        }
        out += tags[i];
    }
    out += kLineEnd;
}

void AppendParagraph(std::string& out, std::string_view text) {
    out += EpytextEscape(text);
    out += kLineEnd;
    out += kLineEnd;
}

template <class Record>
std::vector<const Record*> SortedByName(std::vector<const Record*> records) {
    std::stable_sort(records.begin(), records.end(),
                     [](const Record* a, const Record* b) { return a->name < b->name; });
    return records;
}

// Converts a help record in place into a new element of `list`.
template <class Record>
Maybe<> AppendRecord(const BindingTypeRegistry& registry, BindingProperty& list,
                     const Record& record) {
    BindingConversionResult result;
    BindingConversion conversion{registry, result};
    BindingTraits<Record>::Convert(conversion, record, list.Append(),
                                   registry.Find(StaticType::Of<Record>()));
    if (!conversion.Ok()) {
        return Failure(std::string(result.Error()));
    }
    return Maybe<>::Success();
}

}  // namespace

BindingFullTypeIdentifier DescribeTypeIdentifier(const BindingTypeRegistry& registry,
                                                 const BindingTypeIdentifier& identifier) {
    BindingFullTypeIdentifier description;
    switch (identifier.type) {
        case BindingTypeCode::Vector:
        case BindingTypeCode::Map:
            description.type = BindingTypeCodeName(identifier.type);
            description.elementType = DescribeTypeIdentifier(registry, ElementOf(identifier)).type;
            break;
        case BindingTypeCode::Enum:
            description.type = RegisteredName(registry, identifier, "enum");
            break;
        case BindingTypeCode::Struct:
            description.type = RegisteredName(registry, identifier, "struct");
            break;
        default:
            description.type = BindingTypeCodeName(identifier.type);
            break;
    }
    return description;
}

std::string EpytextTypeName(const BindingTypeRegistry& registry,
                            const BindingTypeIdentifier& identifier) {
    switch (identifier.type) {
        case BindingTypeCode::Blob:
            return "bytearray";
        case BindingTypeCode::Vector:
            return "list[" + EpytextTypeName(registry, ElementOf(identifier)) + "]";
        case BindingTypeCode::Map:
            return "dict[" + EpytextTypeName(registry, ElementOf(identifier)) + "]";
        case BindingTypeCode::Enum:
        case BindingTypeCode::Struct:
            return "L{" + RegisteredName(registry, identifier, "") + "}";
        default:
            return BindingTypeCodeName(identifier.type);
    }
}

std::string EpytextEscape(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    if (!text.empty() && text.front() == '-') {
        out += "E{-}";
        text.remove_prefix(1);
    }
    for (char c : text) {
        if (c == '{') {
            out += "E{lb}";
        } else if (c == '}') {
            out += "E{rb}";
        } else {
            out += c;
        }
    }
    return out;
}

std::string EpytextOfFunction(const BindingTypeRegistry& registry,
                              const BindingFunctionInfo& function) {
    std::string out;
    if (!function.description.empty()) {
        AppendParagraph(out, function.description);
    }
    if (!function.help.empty()) {
        AppendParagraph(out, function.help);
    }
    for (const BindingArgumentInfo& argument : function.arguments) {
        if (!argument.description.empty()) {
            out += "@param " + argument.name + ": ";
            if (argument.optional != 0) {
                out += "(optional) ";
            }
            out += EpytextEscape(argument.description);
            out += kLineEnd;
        }
        out += "@type " + argument.name + ": " + EpytextTypeName(registry, argument.type);
        out += kLineEnd;
    }
    const std::string returnType = EpytextTypeName(registry, function.returnType);
    if (!function.returnType.IsNone()) {
        out += "@rtype: " + returnType;
        out += kLineEnd;
    }
    AppendTags(out, function.tags);
    if (function.threadSafe) {
        out += "@threadsafe: true";
        out += kLineEnd;
    }
    if (function.async) {
        out += "@async: " + returnType;
        out += kLineEnd;
    }
    return out;
}

std::string EpytextOfStruct(const BindingTypeRegistry& registry, const BindingTypeInfo& type) {
    std::string out;
    AppendParagraph(out, type.description);
    for (const BindingFieldInfo& field : type.fields) {
        out += "@ivar " + field.name + ": " + EpytextEscape(field.description);
        out += kLineEnd;
        out += "@type " + field.name + ": " + EpytextTypeName(registry, field.type);
        out += kLineEnd;
    }
    AppendTags(out, type.tags);
    return out;
}

std::string EpytextOfEnum(const BindingTypeInfo& type) {
    std::string out;
    AppendParagraph(out, type.description);
    std::vector<const BindingEnumValueInfo*> values;
    values.reserve(type.values.size());
    for (const auto& [name, value] : type.values) {
        values.push_back(&value);
    }
    // Equal values keep their name order.
    std::stable_sort(values.begin(), values.end(),
                     [](const BindingEnumValueInfo* a, const BindingEnumValueInfo* b) {
                         return a->value < b->value;
                     });
    for (const BindingEnumValueInfo* value : values) {
        out += "@cvar " + value->name + ": (" + std::to_string(value->value) + ")";
        if (!value->description.empty()) {
            out += " " + value->description;
        }
        out += kLineEnd;
    }
    AppendTags(out, type.tags);
    out += "@size: " + std::to_string(type.size);
    out += kLineEnd;
    return out;
}

std::string EpytextOfEvent(const BindingEventInfo& event) {
    std::string out;
    AppendParagraph(out, event.description);
    AppendTags(out, event.tags);
    return out;
}

BindingFullFunctionHelp DescribeFunction(const BindingTypeRegistry& registry,
                                         const BindingFunctionInfo& function) {
    BindingFullFunctionHelp help;
    help.name = function.name;
    help.nameSpace = function.nameSpace;
    help.arguments.reserve(function.arguments.size());
    for (const BindingArgumentInfo& argument : function.arguments) {
        help.arguments.push_back({argument.name, argument.description,
                                  DescribeTypeIdentifier(registry, argument.type),
                                  argument.optional != 0});
    }
    help.returns = DescribeTypeIdentifier(registry, function.returnType);
    help.description = function.description;
    help.help = function.help;
    help.threadSafe = function.threadSafe;
    if (function.async) {
        help.async = DescribeTypeIdentifier(registry, function.asyncType).type;
    }
    help.tags = function.tags;
    return help;
}

BindingFullTypeHelp DescribeType(const BindingTypeRegistry& registry, const BindingTypeInfo& type) {
    BindingFullTypeHelp help;
    help.name = type.name;
    help.nameSpace = type.nameSpace;
    help.size = type.size;
    help.description = type.description;
    help.tags = type.tags;
    help.fields.reserve(type.fields.size());
    for (const BindingFieldInfo& field : type.fields) {
        help.fields.push_back({field.name, field.description, field.offset,
                               DescribeTypeIdentifier(registry, field.type), field.optional != 0});
    }
    help.values.reserve(type.values.size());
    for (const auto& [name, value] : type.values) {
        help.values.push_back({value.name, value.description, value.value});
    }
    return help;
}

BindingFullEventHelp DescribeEvent(const BindingTypeRegistry& registry,
                                   const BindingEventInfo& event) {
    BindingFullEventHelp help;
    help.name = event.name;
    help.nameSpace = event.nameSpace;
    help.type = DescribeTypeIdentifier(registry, event.type);
    help.description = event.description;
    help.tags = event.tags;
    return help;
}

Maybe<BindingProperty> BuildApiHelp(const BindingTypeRegistry& registry, BindingHelpFormat format) {
    BindingProperty help;
    help.SetEmptyStructure();
    help.MutableField("functions");
    help.MutableField("types");
    help.MutableField("events");

    const auto functions = SortedByName(registry.Functions());
    const auto types = SortedByName(registry.Types());
    const auto events = SortedByName(registry.Events());

    switch (format) {
        case BindingHelpFormat::Full:
            for (const BindingFunctionInfo* function : functions) {
                QEL_RETURN_IF_FAILED(AppendRecord(registry, help.MutableField("functions"),
                                                  DescribeFunction(registry, *function)));
            }
            for (const BindingTypeInfo* type : types) {
                QEL_RETURN_IF_FAILED(AppendRecord(registry, help.MutableField("types"),
                                                  DescribeType(registry, *type)));
            }
            for (const BindingEventInfo* event : events) {
                QEL_RETURN_IF_FAILED(AppendRecord(registry, help.MutableField("events"),
                                                  DescribeEvent(registry, *event)));
            }
            break;
        case BindingHelpFormat::Epytext:
            for (const BindingFunctionInfo* function : functions) {
                help.MutableField("functions")
                    .MutableField(function->name)
                    .SetString(EpytextOfFunction(registry, *function));
            }
            for (const BindingTypeInfo* type : types) {
                help.MutableField("types")
                    .MutableField(type->name)
                    .SetString(type->IsEnum() ? EpytextOfEnum(*type)
                                              : EpytextOfStruct(registry, *type));
            }
            for (const BindingEventInfo* event : events) {
                help.MutableField("events")
                    .MutableField(event->name)
                    .SetString(EpytextOfEvent(*event));
            }
            break;
    }
    return help;
}

}  // namespace Orvan::Framework
