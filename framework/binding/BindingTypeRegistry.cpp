#include "framework/binding/BindingTypeRegistry.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/internal/InternTable.h"

namespace Orvan::Framework {

const char* BindingTypeCodeName(uint32_t code) {
    static constexpr const char* kNames[] = {
        "",       "bool",   "int8",   "uint8",  "int16",    "uint16", "int32",
        "uint32", "int64",  "uint64", "float",  "double",   "string", "object",
        "blob",   "vector", "enum",   "struct", "callback", "map",
    };
    return code < std::size(kNames) ? kNames[code] : "";
}

BindingFieldInfo::BindingFieldInfo() = default;
BindingFieldInfo::~BindingFieldInfo() = default;
BindingFieldInfo::BindingFieldInfo(BindingFieldInfo&&) noexcept = default;
BindingFieldInfo& BindingFieldInfo::operator=(BindingFieldInfo&&) noexcept = default;

BindingTypeInfo::BindingTypeInfo() = default;
BindingTypeInfo::~BindingTypeInfo() = default;

const BindingEnumValueInfo* BindingTypeInfo::FindValue(std::string_view valueName) const {
    auto it = values.find(valueName);
    return it != values.end() ? &it->second : nullptr;
}

const BindingEnumValueInfo* BindingTypeInfo::FindValue(int32_t value) const {
    for (const auto& entry : values) {
        if (entry.second.value == value) {
            return &entry.second;
        }
    }
    return nullptr;
}

BindingTypeBuilder& BindingTypeBuilder::AddValue(std::string_view name, int32_t value,
                                                 std::string_view description) {
    if (alreadyRegistered_) {
        return *this;
    }
    BindingEnumValueInfo& entry = info_->values[std::string(name)];
    entry.value = value;
    entry.name.assign(name);
    entry.description.assign(description);
    entry.owner = info_;
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::AddField(
    std::string_view name, std::string_view description, uint32_t offset,
    const StaticType& memberType, const BindingTypeIdentifier& type,
    const BindingTypeIdentifier& secondType, uint32_t flags,
    std::unique_ptr<BindingFieldConverter> converter, bool optional) {
    if (alreadyRegistered_) {
        return *this;
    }
    BindingFieldInfo field;
    field.name.assign(name);
    field.nameHash = HashFnv1a32(name);
    field.namePrefix = Internal::PrefixKey(name.data(), name.size());
    field.description.assign(description);
    field.staticType = &memberType;
    field.offset = offset;
    field.type = type;
    if (!secondType.IsNone()) {
        field.secondType = secondType;
    }
    field.flags = flags;
    field.converter = std::move(converter);
    field.owner = info_;
    field.optional = optional ? 1 : 0;
    info_->fields.push_back(std::move(field));
    const auto index = static_cast<uint32_t>(info_->fields.size() - 1);
    auto position = std::upper_bound(
        info_->fieldsByName.begin(), info_->fieldsByName.end(), name,
        [this](std::string_view key, uint32_t other) { return key < info_->fields[other].name; });
    // A repeated name (the later one lands right after the earlier) or a NUL
    // byte, which ends a structure's name early, leaves the general path.
    if (name.find('\0') != std::string_view::npos ||
        (position != info_->fieldsByName.begin() &&
         info_->fields[*std::prev(position)].name == name)) {
        info_->namesAppendInOrder = false;
    }
    info_->fieldsByName.insert(position, index);
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::SetConverter(
    std::unique_ptr<BindingFieldConverter> converter) {
    if (!alreadyRegistered_) {
        info_->converter = std::move(converter);
    }
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::SetDescription(std::string_view description) {
    if (!alreadyRegistered_) {
        info_->description.assign(description);
    }
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::SetNameSpace(std::string_view nameSpace) {
    if (!alreadyRegistered_) {
        info_->nameSpace.assign(nameSpace);
    }
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::AddTag(std::string_view tag) {
    if (!alreadyRegistered_ && !tag.empty()) {
        info_->tags.emplace_back(tag);
    }
    return *this;
}

BindingTypeBuilder& BindingTypeBuilder::AddTags(std::initializer_list<std::string_view> tags) {
    for (std::string_view tag : tags) {
        AddTag(tag);
    }
    return *this;
}

BindingTypeRegistry::BindingTypeRegistry() = default;
BindingTypeRegistry::~BindingTypeRegistry() = default;

BindingTypeBuilder BindingTypeRegistry::BeginType(uint32_t size, std::string_view name,
                                                  const StaticType& type,
                                                  BindingTypeCategory category) {
    std::lock_guard<std::mutex> guard(lock_);
    auto existing = byName_.find(name);
    if (existing != byName_.end()) {
        return BindingTypeBuilder(existing->second.get(), true);
    }
    auto info = std::make_unique<BindingTypeInfo>();
    info->size = size;
    info->category = category;
    info->name.assign(name);
    info->id = type.id;
    info->staticType = &type;
    info->registry = this;
    BindingTypeInfo* record = info.get();
    byName_.emplace(std::string(name), std::move(info));
    if (!type.IsNone()) {
        byId_.emplace(type.id, record);
    }
    return BindingTypeBuilder(record, false);
}

const BindingTypeInfo* BindingTypeRegistry::FindByName(std::string_view name) const {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = byName_.find(name);
    return it != byName_.end() ? it->second.get() : nullptr;
}

const BindingTypeInfo* BindingTypeRegistry::FindById(uint32_t id) const {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = byId_.find(id);
    return it != byId_.end() ? it->second : nullptr;
}

const BindingTypeInfo* BindingTypeRegistry::Resolve(const BindingTypeIdentifier& identifier) const {
    if (identifier.info != nullptr) {
        return identifier.info;
    }
    return identifier.staticType != nullptr ? Find(*identifier.staticType) : nullptr;
}

const char* BindingTypeRegistry::EnumeratorName(const StaticType& type, int32_t value) const {
    const BindingTypeInfo* info = Find(type);
    if (info == nullptr || !info->IsEnum()) {
        return nullptr;
    }
    const BindingEnumValueInfo* entry = info->FindValue(value);
    return entry != nullptr ? entry->name.c_str() : nullptr;
}

std::vector<const BindingTypeInfo*> BindingTypeRegistry::Types() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<const BindingTypeInfo*> types;
    types.reserve(byName_.size());
    for (const auto& [name, info] : byName_) {
        types.push_back(info.get());
    }
    return types;
}

BindingFunctionInfo* BindingTypeRegistry::AddFunction(BindingFunctionInfo function) {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& existing : functions_) {
        if (existing->name == function.name) {
            return nullptr;
        }
    }
    function.registry = this;
    functions_.push_back(std::make_unique<BindingFunctionInfo>(std::move(function)));
    return functions_.back().get();
}

const BindingFunctionInfo* BindingTypeRegistry::FindFunction(std::string_view name) const {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& function : functions_) {
        if (function->name == name) {
            return function.get();
        }
    }
    return nullptr;
}

std::vector<const BindingFunctionInfo*> BindingTypeRegistry::Functions() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<const BindingFunctionInfo*> functions;
    functions.reserve(functions_.size());
    for (const auto& function : functions_) {
        functions.push_back(function.get());
    }
    return functions;
}

bool BindingTypeRegistry::AddEvent(BindingEventInfo event) {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& existing : events_) {
        if (existing->name == event.name) {
            return false;
        }
    }
    events_.push_back(std::make_unique<BindingEventInfo>(std::move(event)));
    return true;
}

const BindingEventInfo* BindingTypeRegistry::FindEvent(std::string_view name) const {
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& event : events_) {
        if (event->name == name) {
            return event.get();
        }
    }
    return nullptr;
}

std::vector<const BindingEventInfo*> BindingTypeRegistry::Events() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<const BindingEventInfo*> events;
    events.reserve(events_.size());
    for (const auto& event : events_) {
        events.push_back(event.get());
    }
    return events;
}

}  // namespace Orvan::Framework
