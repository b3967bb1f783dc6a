// BindingTypeRegistry: the description of a module's native records and
// enumerations (fields with offsets, types and flags; enumerator names and
// values), through which every record is converted to and from
// BindingProperty, plus the module's API functions and events.
//
// Ownership: each module owns one registry; it owns every type, field,
// enumerator, function and event record for its own lifetime, and the field
// converters. Records are never removed, so pointers to them stay valid while
// the registry lives.
// Threads: registration runs on the start-up path. One lock guards the
// indexes (and the function and event lists) for every lookup and insertion;
// a type record is not changed once its registration is finished and is then
// read without the lock.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingTypeIdentifier.h"
#include "framework/binding/StaticType.h"

namespace Orvan::Framework {

class BindingFieldConverter;
class BindingTypeRegistry;
struct BindingTypeInfo;

// Field flags. OmitIfEmpty leaves the field out of the output when its value
// is empty, false, zero or of size 0; Required makes input without a
// non-empty value fail.
enum BindingFieldFlags : uint32_t {
    kNoFieldFlags = 0,
    kOmitIfEmpty = 1u << 0,
    kRequired = 1u << 1,
    // Set by registration for std::optional members: such a field is left out
    // only when absent, so a present "" or 0 still reaches the output.
    kOptionalMember = 1u << 2,
};
constexpr BindingFieldFlags operator|(BindingFieldFlags a, BindingFieldFlags b) {
    return static_cast<BindingFieldFlags>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

enum class BindingTypeCategory : uint8_t {
    Structure = 0,
    Enumeration = 1,
};

struct BindingEnumValueInfo {
    int32_t value = 0;
    std::string name;
    std::string description;
    const BindingTypeInfo* owner = nullptr;
};

struct BindingFieldInfo {
    std::string name;
    uint32_t nameHash = 0;
    // The ordering key a structure compares this name by (its first eight
    // bytes, big-endian), worked out once for conversion to values.
    uint64_t namePrefix = 0;
    std::string description;
    const StaticType* staticType = nullptr;  // of the member's native type
    uint32_t offset = 0;
    BindingTypeIdentifier type;
    BindingTypeIdentifier secondType;
    uint32_t flags = 0;
    std::unique_ptr<BindingFieldConverter> converter;
    const BindingTypeInfo* owner = nullptr;
    // Reported by the field's help record; plays no part in conversion.
    uint8_t optional = 0;

    BindingFieldInfo();
    ~BindingFieldInfo();
    BindingFieldInfo(BindingFieldInfo&&) noexcept;
    BindingFieldInfo& operator=(BindingFieldInfo&&) noexcept;
};

struct BindingTypeInfo {
    uint32_t size = 0;
    BindingTypeCategory category = BindingTypeCategory::Structure;
    std::string name;
    uint32_t id = 0;
    const StaticType* staticType = nullptr;
    std::string nameSpace;
    std::string description;
    std::vector<std::string> tags;
    std::vector<BindingFieldInfo> fields;  // registration order
    // Indexes into `fields` in the order a structure keeps its field names
    // (unsigned byte order); conversion walks values in that order.
    std::vector<uint32_t> fieldsByName;
    // True while the names are distinct and free of NUL bytes, so that in
    // the order of `fieldsByName` each one sorts strictly after the one
    // before and a value can be built by appending them.
    bool namesAppendInOrder = true;
    std::map<std::string, BindingEnumValueInfo, std::less<>> values;  // by name
    const BindingTypeRegistry* registry = nullptr;
    // The converter of the type itself, set by the typed registration calls;
    // type-erased conversion uses it (it knows, for one, the signedness of an
    // enumeration's underlying type).
    std::unique_ptr<BindingFieldConverter> converter;

    BindingTypeInfo();
    ~BindingTypeInfo();
    BindingTypeInfo(const BindingTypeInfo&) = delete;
    BindingTypeInfo& operator=(const BindingTypeInfo&) = delete;

    bool IsEnum() const { return category == BindingTypeCategory::Enumeration; }
    // The enumerator of that name, or null.
    const BindingEnumValueInfo* FindValue(std::string_view valueName) const;
    // The first enumerator (in name order) with that value, or null.
    const BindingEnumValueInfo* FindValue(int32_t value) const;
};

// The builder handed out when a type's registration begins. When the name
// was registered before, it refers to the existing record and every call
// does nothing: the first registration of a name wins.
class BindingTypeBuilder {
public:
    BindingTypeBuilder(BindingTypeInfo* info, bool alreadyRegistered)
        : info_(info), alreadyRegistered_(alreadyRegistered) {}

    bool AlreadyRegistered() const { return alreadyRegistered_; }
    const BindingTypeInfo& Info() const { return *info_; }

    // Enumerations: an existing enumerator name is overwritten.
    BindingTypeBuilder& AddValue(std::string_view name, int32_t value,
                                 std::string_view description = {});
    // Structures: one call per member, in output order. The second type is
    // kept only when its code is not None.
    BindingTypeBuilder& AddField(std::string_view name, std::string_view description,
                                 uint32_t offset, const StaticType& memberType,
                                 const BindingTypeIdentifier& type,
                                 const BindingTypeIdentifier& secondType, uint32_t flags,
                                 std::unique_ptr<BindingFieldConverter> converter, bool optional);
    BindingTypeBuilder& SetConverter(std::unique_ptr<BindingFieldConverter> converter);
    BindingTypeBuilder& SetDescription(std::string_view description);
    BindingTypeBuilder& SetNameSpace(std::string_view nameSpace);
    BindingTypeBuilder& AddTag(std::string_view tag);  // empty tags are not added
    BindingTypeBuilder& AddTags(std::initializer_list<std::string_view> tags);

private:
    BindingTypeInfo* info_;
    bool alreadyRegistered_;
};

class BindingTypeRegistry {
public:
    BindingTypeRegistry();
    ~BindingTypeRegistry();
    BindingTypeRegistry(const BindingTypeRegistry&) = delete;
    BindingTypeRegistry& operator=(const BindingTypeRegistry&) = delete;

    // Begins the registration of a type. A new record is entered in the
    // by-name index and, unless `type` is the no-type identity, in the by-id
    // index (where an id keeps the first record registered for it).
    BindingTypeBuilder BeginType(uint32_t size, std::string_view name, const StaticType& type,
                                 BindingTypeCategory category);

    const BindingTypeInfo* FindByName(std::string_view name) const;
    const BindingTypeInfo* FindById(uint32_t id) const;
    const BindingTypeInfo* Find(const StaticType& type) const { return FindById(type.id); }
    // The identifier's record, looked up by its identity when the identifier
    // was made before its type was registered.
    const BindingTypeInfo* Resolve(const BindingTypeIdentifier& identifier) const;

    // The name of the first enumerator (in name order) of the enumeration
    // registered for `type` whose value is `value`, or null.
    const char* EnumeratorName(const StaticType& type, int32_t value) const;

    // Every registered type, in name order.
    std::vector<const BindingTypeInfo*> Types() const;

    // Adds a function; returns the stored record for further filling, or null
    // when a function of that name exists (the first one stays).
    BindingFunctionInfo* AddFunction(BindingFunctionInfo function);
    const BindingFunctionInfo* FindFunction(std::string_view name) const;
    std::vector<const BindingFunctionInfo*> Functions() const;  // registration order

    // Adds an event; false when an event of that name exists (the first stays).
    bool AddEvent(BindingEventInfo event);
    const BindingEventInfo* FindEvent(std::string_view name) const;
    std::vector<const BindingEventInfo*> Events() const;  // registration order

private:
    mutable std::mutex lock_;
    std::map<std::string, std::unique_ptr<BindingTypeInfo>, std::less<>> byName_;
    std::map<uint32_t, BindingTypeInfo*> byId_;
    std::vector<std::unique_ptr<BindingFunctionInfo>> functions_;
    std::vector<std::unique_ptr<BindingEventInfo>> events_;
};

}  // namespace Orvan::Framework
