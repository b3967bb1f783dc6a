#include "framework/host/ApiDescriptor.h"

#include "framework/binding/ApiHelp.h"
#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingTypeRegistry.h"

namespace Orvan::Framework {

namespace {

constexpr const char kEmptyText[] = "";

// The type name the host shows next to a type code: the registered name of a
// struct or enum, the element's name of a vector or map, else nothing.
std::string TypeNameOf(const BindingTypeRegistry& registry,
                       const BindingTypeIdentifier& identifier) {
    switch (identifier.type) {
        case BindingTypeCode::Struct:
        case BindingTypeCode::Enum:
            return DescribeTypeIdentifier(registry, identifier).type;
        case BindingTypeCode::Vector:
        case BindingTypeCode::Map:
            return DescribeTypeIdentifier(registry, identifier).elementType;
        default:
            return {};
    }
}

uint32_t Code(BindingTypeCode code) {
    return static_cast<uint32_t>(code);
}

template <class Record>
void LinkRange(std::vector<Record>& records, size_t first, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        records[first + i].next = i + 1 < count ? &records[first + i + 1] : nullptr;
    }
}

}  // namespace

const char* ApiDescriptor::Text(std::string_view text) {
    if (text.empty()) {
        return kEmptyText;
    }
    return texts_.emplace_back(text).c_str();
}

const char* const* ApiDescriptor::TextArray(const std::vector<std::string>& texts) {
    if (texts.empty()) {
        return nullptr;
    }
    std::vector<const char*>& array = textArrays_.emplace_back();
    array.reserve(texts.size());
    for (const std::string& text : texts) {
        array.push_back(Text(text));
    }
    return array.data();
}

void ApiDescriptor::Build(const BindingTypeRegistry& registry,
                          std::span<const EndpointDescription> endpoints) {
    texts_.clear();
    textArrays_.clear();
    types_.clear();
    typeFields_.clear();
    typeEnumerators_.clear();
    fields_.clear();
    enumerators_.clear();
    events_.clear();
    endpoints_.clear();
    endpointArguments_.clear();
    endpointLocations_.clear();
    endpointStringLists_.clear();
    arguments_.clear();
    locations_.clear();
    stringLists_.clear();

    AddTypes(registry);
    AddEvents(registry);
    AddEndpoints(registry, endpoints);
    Link();
}

void ApiDescriptor::AddTypes(const BindingTypeRegistry& registry) {
    for (const BindingTypeInfo* type : registry.Types()) {
        TypeRecord record{};
        record.name = Text(type->name);
        record.nameSpace = Text(type->nameSpace);
        record.size = type->size;
        record.description = Text(type->description);
        record.tags = TextArray(type->tags);
        record.tagCount = static_cast<uint32_t>(type->tags.size());

        Range fieldRange{fields_.size(), type->fields.size()};
        for (const BindingFieldInfo& field : type->fields) {
            FieldRecord fieldRecord{};
            fieldRecord.name = Text(field.name);
            fieldRecord.description = Text(field.description);
            fieldRecord.offset = field.offset;
            fieldRecord.type = Code(field.type.type);
            fieldRecord.elementType = Code(field.type.elementType);
            fieldRecord.typeName = Text(TypeNameOf(registry, field.type));
            fieldRecord.optional = field.optional;
            fields_.push_back(fieldRecord);
        }
        Range enumeratorRange{enumerators_.size(), 0};
        if (type->fields.empty()) {
            for (const auto& [name, value] : type->values) {
                EnumeratorRecord enumerator{};
                enumerator.name = Text(name);
                enumerator.description = Text(value.description);
                enumerator.value = value.value;
                enumerators_.push_back(enumerator);
            }
            enumeratorRange.count = type->values.size();
            record.count = static_cast<uint32_t>(type->values.size());
        } else {
            record.count = static_cast<uint32_t>(type->fields.size());
        }
        types_.push_back(record);
        typeFields_.push_back(fieldRange);
        typeEnumerators_.push_back(enumeratorRange);
    }
}

void ApiDescriptor::AddEvents(const BindingTypeRegistry& registry) {
    for (const BindingEventInfo* event : registry.Events()) {
        EventRecord record{};
        record.name = Text(event->name);
        record.nameSpace = Text(event->nameSpace);
        record.payloadTypeName = Text(DescribeTypeIdentifier(registry, event->type).type);
        record.description = Text(event->description);
        record.tags = TextArray(event->tags);
        record.tagCount = static_cast<uint32_t>(event->tags.size());
        events_.push_back(record);
    }
}

void ApiDescriptor::AddEndpoints(const BindingTypeRegistry& registry,
                                 std::span<const EndpointDescription> endpoints) {
    static const BindingFunctionInfo kNoFunction;
    for (const EndpointDescription& endpoint : endpoints) {
        const BindingFunctionInfo& function =
            endpoint.function != nullptr ? *endpoint.function : kNoFunction;
        EndpointRecord record{};
        FunctionDescriptionRecord& help = record.function;
        help.dispatchContext = endpoint.dispatchContext;
        help.name = Text(function.name);
        help.nameSpace = Text(function.nameSpace);
        help.argumentCount = static_cast<uint32_t>(function.arguments.size());
        help.returnType = Code(function.returnType.type);
        help.returnElementType = Code(function.returnType.elementType);
        help.returnTypeName = Text(TypeNameOf(registry, function.returnType));
        help.description = Text(function.description);
        help.help = Text(function.help);
        help.threadSafe = function.threadSafe ? 1 : 0;
        help.asyncResultTypeName =
            Text(function.async ? DescribeTypeIdentifier(registry, function.asyncType).type
                                : std::string());
        help.tags = TextArray(function.tags);
        help.tagCount = static_cast<uint32_t>(function.tags.size());

        endpointArguments_.push_back(Range{arguments_.size(), function.arguments.size()});
        endpointLocations_.push_back(Range{locations_.size(), function.arguments.size()});
        for (const BindingArgumentInfo& argument : function.arguments) {
            ArgumentRecord argumentRecord{};
            argumentRecord.name = Text(argument.name);
            argumentRecord.description = Text(argument.description);
            argumentRecord.type = Code(argument.type.type);
            argumentRecord.elementType = Code(argument.type.elementType);
            argumentRecord.typeName = Text(TypeNameOf(registry, argument.type));
            argumentRecord.optional = argument.optional;
            arguments_.push_back(argumentRecord);

            const uint32_t location = static_cast<uint32_t>(argument.location);
            ArgumentLocationRecord locationRecord{};
            locationRecord.location = location >= 1 && location <= 5 ? location : 0;
            locations_.push_back(locationRecord);
        }

        record.dispatch = endpoint.dispatch;
        record.urlTemplate = Text(endpoint.urlTemplate);
        record.method = endpoint.method;
        record.flags = endpoint.flags;
        endpointStringLists_.push_back(Range{stringLists_.size(), endpoint.stringLists.size()});
        for (const std::vector<std::string>& list : endpoint.stringLists) {
            EndpointStringListRecord listRecord{};
            listRecord.texts = TextArray(list);
            listRecord.count = static_cast<uint32_t>(list.size());
            stringLists_.push_back(listRecord);
        }
        record.stringListCount = static_cast<uint32_t>(endpoint.stringLists.size());
        record.secondText = Text(endpoint.secondText);
        endpoints_.push_back(record);
    }
}

void ApiDescriptor::Link() {
    LinkRange(types_, 0, types_.size());
    for (size_t i = 0; i < types_.size(); ++i) {
        const Range& fields = typeFields_[i];
        LinkRange(fields_, fields.first, fields.count);
        types_[i].fields = fields.count != 0 ? &fields_[fields.first] : nullptr;
        const Range& enumerators = typeEnumerators_[i];
        LinkRange(enumerators_, enumerators.first, enumerators.count);
        types_[i].enumerators = enumerators.count != 0 ? &enumerators_[enumerators.first] : nullptr;
    }
    LinkRange(events_, 0, events_.size());

    for (size_t i = 0; i < endpoints_.size(); ++i) {
        EndpointRecord& record = endpoints_[i];
        record.function.next = i + 1 < endpoints_.size() ? &endpoints_[i + 1].function : nullptr;
        const Range& arguments = endpointArguments_[i];
        LinkRange(arguments_, arguments.first, arguments.count);
        record.function.arguments = arguments.count != 0 ? &arguments_[arguments.first] : nullptr;
        const Range& locations = endpointLocations_[i];
        LinkRange(locations_, locations.first, locations.count);
        record.argumentLocations = locations.count != 0 ? &locations_[locations.first] : nullptr;
        const Range& lists = endpointStringLists_[i];
        LinkRange(stringLists_, lists.first, lists.count);
        record.stringLists = lists.count != 0 ? &stringLists_[lists.first] : nullptr;
    }

    descriptor_ = PluginApiDescriptor{};
    descriptor_.endpoints = endpoints_.empty() ? nullptr : endpoints_.data();
    descriptor_.endpointCount = static_cast<uint32_t>(endpoints_.size());
    descriptor_.types = types_.empty() ? nullptr : types_.data();
    descriptor_.typeCount = static_cast<uint32_t>(types_.size());
    descriptor_.events = events_.empty() ? nullptr : events_.data();
    descriptor_.eventCount = static_cast<uint32_t>(events_.size());
}

}  // namespace Orvan::Framework
