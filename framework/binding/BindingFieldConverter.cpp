#include "framework/binding/BindingFieldConverter.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "framework/binding/MessageFormat.h"
#include "framework/binding/ScalarConversion.h"
#include "framework/binding/internal/BindingContext.h"
#include "framework/binding/internal/TreeAppend.h"

namespace Orvan::Framework {

void BindingConversionResult::Fail(std::string_view message) {
    if (ok == 0) {
        return;  // the first failure wins
    }
    value.Clear();
    ok = 0;
    value.MutableField("error").SetString(message);
}

std::string_view BindingConversionResult::Error() const {
    return value.Field("error").GetString();
}

namespace Detail {

namespace {

void ReportInvalidType(BindingConversion& c, std::string_view field, BindingTypeCode code,
                       const BindingProperty& input) {
    c.Fail(
        Format("Couldn't assign value to '%1' of type %2 because the input is of an invalid "
               "type %3.",
               field, BindingTypeCodeName(code), input.KindName()));
}

template <class Number>
void ReportOutOfRange(BindingConversion& c, Number value, std::string_view field,
                      BindingTypeCode code) {
    c.Fail(Format("Value %1 for '%2' of type %3 is out of range", value, field,
                  BindingTypeCodeName(code)));
}

// Base64 with the standard alphabet; "=" padding is optional. Returns false
// for any other character or a dangling sextet.
bool DecodeBase64(std::string_view text, std::vector<uint8_t>& bytes) {
    static constexpr auto kTable = [] {
        std::array<int8_t, 256> table{};
        table.fill(-1);
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i) {
            table[static_cast<uint8_t>(alphabet[i])] = static_cast<int8_t>(i);
        }
        return table;
    }();
    while (!text.empty() && text.back() == '=') {
        text.remove_suffix(1);
    }
    if (text.size() % 4 == 1) {
        return false;
    }
    bytes.clear();
    bytes.reserve(text.size() * 3 / 4);
    uint32_t accumulator = 0;
    int bits = 0;
    for (char ch : text) {
        const int8_t sextet = kTable[static_cast<uint8_t>(ch)];
        if (sextet < 0) {
            return false;
        }
        accumulator = (accumulator << 6) | static_cast<uint32_t>(sextet);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<uint8_t>(accumulator >> bits));
            accumulator &= (1u << bits) - 1;
        }
    }
    return true;
}

bool IsOmittable(const BindingProperty& value) {
    switch (value.Kind()) {
        case BindingKind::Empty:
            return true;
        case BindingKind::Bool:
            return !value.GetBool();
        case BindingKind::Signed:
            return value.GetSigned() == 0;
        case BindingKind::Unsigned:
            return value.GetUnsigned() == 0;
        case BindingKind::Float:
            return value.GetFloat() == 0.0;
        case BindingKind::Enum:
            return value.GetEnum().value == 0;
        case BindingKind::String:
        case BindingKind::Blob:
        case BindingKind::Collection:
        case BindingKind::Structure:
            return value.Size() == 0;
    }
    return false;
}

// The input value of each registered field, by registration index; null when
// the input lacks it. Small records stay on the stack.
class FieldValues {
public:
    explicit FieldValues(size_t count) {
        if (count > kInline) {
            heap_.assign(count, nullptr);
            data_ = heap_.data();
        } else {
            inline_.fill(nullptr);
        }
    }
    const BindingProperty*& operator[](size_t index) { return data_[index]; }

private:
    static constexpr size_t kInline = 32;
    std::array<const BindingProperty*, kInline> inline_;
    std::vector<const BindingProperty*> heap_;
    const BindingProperty** data_ = inline_.data();
};

bool LeftOut(const BindingFieldInfo& member, const BindingProperty& slot) {
    if ((member.flags & kOmitIfEmpty) == 0) {
        return false;
    }
    return (member.flags & kOptionalMember) != 0 ? slot.IsEmpty() : IsOmittable(slot);
}

void ConvertMember(BindingConversion& c, const BindingFieldInfo& member, const char* base,
                   BindingProperty& output) {
    BindingProperty& slot = output.MutableField(member.name);
    member.converter->ConvertToProperty(c, base + member.offset, slot);
    if (c.Ok() && LeftOut(member, slot)) {
        output.RemoveField(member.name);
    }
}

// The usual case: names that append in order. Each field goes at the end of
// an array sized for all of them, its name interned with the ordering key
// worked out at registration, and a field left out is the last one, taken
// off again; no name is searched for or measured. The structure is the one
// ConvertMember builds. Returns false at the first failure.
bool AppendMembers(BindingConversion& c, const BindingTypeInfo& info, const char* base,
                   BindingProperty& output) {
    using Internal::InternEntry;
    using Internal::InternTable;
    Internal::BeginSizedStructure(output, info.fields.size());
    InternTable& strings = BindingContext::Ensure(output).Strings();
    Internal::StructureRecord* record = Internal::StructureOf(output);
    for (uint32_t index : info.fieldsByName) {
        const BindingFieldInfo& member = info.fields[index];
        InternEntry* name = member.name.empty() ? InternTable::Empty()
                                                : strings.Intern(member.name, member.namePrefix);
        BindingProperty& slot = Internal::AppendField(output, name);
        strings.Release(name);  // the field holds its own reference
        member.converter->ConvertToProperty(c, base + member.offset, slot);
        if (!c.Ok()) {
            return false;
        }
        if (LeftOut(member, slot)) {
            slot.Clear();
            --record->size;
            strings.Release(record->items[record->size].name);
        }
    }
    return true;
}

}  // namespace

void ReportRequired(BindingConversion& c, std::string_view field) {
    c.Fail(Format("A value for '%1' is required.", field));
}

void AssignBool(BindingConversion& c, const BindingProperty& input, std::string_view field,
                bool& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Bool:
            target = input.GetBool();
            return;
        case BindingKind::String: {
            const std::string_view text = input.GetString();
            if (text == "1" || text == "true") {
                target = true;
            } else if (text == "0" || text == "false") {
                target = false;
            } else {
                c.Fail(
                    Format("Value %1 for '%2' of type bool is in an incorrect format. Options "
                           "are \"true\", \"false\", \"1\", \"0\".",
                           text, field));
            }
            return;
        }
        default:
            c.Fail(
                Format("Couldn't assign value to '%1' of type bool because the input is of an "
                       "invalid type %2.",
                       field, input.KindName()));
            return;
    }
}

void AssignSigned(BindingConversion& c, const BindingProperty& input, std::string_view field,
                  BindingTypeCode code, int64_t min, int64_t max, int64_t& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Signed: {
            const int64_t value = input.GetSigned();
            if (value < min || value > max) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = value;
            }
            return;
        }
        case BindingKind::Unsigned: {
            const uint64_t value = input.GetUnsigned();
            if (value > static_cast<uint64_t>(max)) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = static_cast<int64_t>(value);
            }
            return;
        }
        case BindingKind::Float: {
            const double value = input.GetFloat();
            const double low = static_cast<double>(min);
            const double high = static_cast<double>(max);
            if (!(low <= value && value <= high)) {
                ReportOutOfRange(c, value, field, code);
            } else if (value >= high) {
                // The 64-bit maximum rounds up to 2^63 as a double; truncating
                // that would overflow.
                target = max;
            } else {
                target = static_cast<int64_t>(value);
            }
            return;
        }
        case BindingKind::String: {
            Maybe<int64_t> parsed =
                ParseSignedText(input.GetString(), field, BindingTypeCodeName(code), min, max);
            if (!parsed) {
                c.Fail(parsed.GetFailure().message);
            } else {
                target = *parsed;
            }
            return;
        }
        case BindingKind::Enum: {
            const int32_t value = input.GetEnum().value;
            if (value < min || value > max) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = value;
            }
            return;
        }
        default:
            ReportInvalidType(c, field, code, input);
            return;
    }
}

void AssignUnsigned(BindingConversion& c, const BindingProperty& input, std::string_view field,
                    BindingTypeCode code, uint64_t max, uint64_t& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Signed: {
            const int64_t value = input.GetSigned();
            if (value < 0 || static_cast<uint64_t>(value) > max) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = static_cast<uint64_t>(value);
            }
            return;
        }
        case BindingKind::Unsigned: {
            const uint64_t value = input.GetUnsigned();
            if (value > max) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = value;
            }
            return;
        }
        case BindingKind::Float: {
            const double value = input.GetFloat();
            const double high = static_cast<double>(max);
            if (!(0.0 <= value && value <= high)) {
                ReportOutOfRange(c, value, field, code);
            } else if (value >= high) {
                target = max;  // 2^64 as a double; see AssignSigned
            } else {
                target = static_cast<uint64_t>(value);
            }
            return;
        }
        case BindingKind::String: {
            Maybe<uint64_t> parsed =
                ParseUnsignedText(input.GetString(), field, BindingTypeCodeName(code), max);
            if (!parsed) {
                c.Fail(parsed.GetFailure().message);
            } else {
                target = *parsed;
            }
            return;
        }
        case BindingKind::Enum: {
            const int32_t value = input.GetEnum().value;
            if (value < 0 || static_cast<uint64_t>(value) > max) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = static_cast<uint64_t>(value);
            }
            return;
        }
        default:
            ReportInvalidType(c, field, code, input);
            return;
    }
}

void AssignFloating(BindingConversion& c, const BindingProperty& input, std::string_view field,
                    BindingTypeCode code, double limit, double& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Float: {
            const double value = input.GetFloat();
            if (!(value >= -limit && value <= limit)) {
                ReportOutOfRange(c, value, field, code);
            } else {
                target = value;
            }
            return;
        }
        // Both limits lie beyond the 64-bit range, so every integer fits.
        case BindingKind::Signed:
            target = static_cast<double>(input.GetSigned());
            return;
        case BindingKind::Unsigned:
            target = static_cast<double>(input.GetUnsigned());
            return;
        case BindingKind::String: {
            Maybe<double> parsed =
                ParseDoubleText(input.GetString(), field, BindingTypeCodeName(code), limit);
            if (!parsed) {
                c.Fail(parsed.GetFailure().message);
            } else {
                target = *parsed;
            }
            return;
        }
        case BindingKind::Enum:
            target = static_cast<double>(input.GetEnum().value);
            return;
        default:
            ReportInvalidType(c, field, code, input);
            return;
    }
}

void AssignString(BindingConversion& c, const BindingProperty& input, std::string_view field,
                  std::string& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::String:
            target.assign(input.GetString());
            return;
        case BindingKind::Enum: {
            const BindingEnumValue value = input.GetEnum();
            const char* name = value.type != nullptr
                                   ? c.registry.EnumeratorName(*value.type, value.value)
                                   : nullptr;
            if (name == nullptr) {
                c.Fail(Format("%1 is not a valid enumeration value for '%2'.", value.value, field));
            } else {
                target.assign(name);
            }
            return;
        }
        default:
            c.Fail(
                Format("Couldn't assign value to '%1' because the input is not a string.", field));
            return;
    }
}

void AssignBlob(BindingConversion& c, const BindingProperty& input, std::string_view field,
                std::vector<uint8_t>& target) {
    if (!c.Ok()) {
        return;
    }
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Blob: {
            std::span<const uint8_t> bytes = input.GetBlob();
            target.assign(bytes.begin(), bytes.end());
            return;
        }
        case BindingKind::String:
            // Blobs travel as base64 text in JSON and YAML.
            if (!DecodeBase64(input.GetString(), target)) {
                c.Fail(IncorrectFormatMessage(input.GetString(), field,
                                              BindingTypeCodeName(BindingTypeCode::Blob)));
            }
            return;
        default:
            ReportInvalidType(c, field, BindingTypeCode::Blob, input);
            return;
    }
}

void AssignEnum(BindingConversion& c, const BindingTypeInfo* info, const BindingProperty& input,
                std::string_view field, int32_t& target) {
    if (!c.Ok()) {
        return;
    }
    const std::string_view typeName = info != nullptr ? std::string_view(info->name) : "enum";
    auto isRegistered = [info](int32_t value) {
        return info != nullptr && info->FindValue(value) != nullptr;
    };
    auto reportNotValid = [&](const auto& shown) {
        c.Fail(Format("%1 is not a valid %2 enumeration value for '%3'.", shown, typeName, field));
    };
    switch (input.Kind()) {
        case BindingKind::Empty:
            ReportRequired(c, field);
            return;
        case BindingKind::Signed: {
            const int64_t value = input.GetSigned();
            const auto low = static_cast<int32_t>(static_cast<uint32_t>(value));
            if (isRegistered(low)) {
                target = low;
            } else {
                reportNotValid(value);
            }
            return;
        }
        case BindingKind::Unsigned: {
            const uint64_t value = input.GetUnsigned();
            const auto low = static_cast<int32_t>(static_cast<uint32_t>(value));
            if (isRegistered(low)) {
                target = low;
            } else {
                reportNotValid(value);
            }
            return;
        }
        case BindingKind::Enum: {
            const int32_t value = input.GetEnum().value;
            if (isRegistered(value)) {
                target = value;
            } else {
                reportNotValid(value);
            }
            return;
        }
        case BindingKind::String: {
            const std::string_view text = input.GetString();
            if (info != nullptr) {
                if (const BindingEnumValueInfo* entry = info->FindValue(text)) {
                    target = entry->value;
                    return;
                }
            }
            // A number that spells a registered value is accepted too; the
            // message of a failed number is replaced by the enum's own.
            Maybe<int64_t> number = ParseSignedText(text, field, typeName, INT32_MIN, INT32_MAX);
            if (number && isRegistered(static_cast<int32_t>(*number))) {
                target = static_cast<int32_t>(*number);
            } else {
                reportNotValid(text);
            }
            return;
        }
        default:
            c.Fail(
                Format("Couldn't assign value to '%1' of enum type because the input is of an "
                       "invalid type %2.",
                       field, input.KindName()));
            return;
    }
}

void AssignStruct(BindingConversion& c, const BindingTypeInfo* info, const BindingProperty& input,
                  std::string_view field, void* target) {
    if (!c.Ok()) {
        return;
    }
    if (input.IsEmpty()) {
        ReportRequired(c, field);
        return;
    }
    if (info == nullptr || info->IsEnum()) {
        c.Fail(
            Format("Couldn't assign value to '%1' because the input is an unregistered "
                   "structure or not a structure at all.",
                   field));
        return;
    }
    if (input.Kind() != BindingKind::Structure) {
        c.Fail(Format("Couldn't assign value to '%1' of type %2 because the input not a structure.",
                      field, info->name));
        return;
    }
    // Pair the input's fields with the registered ones in one walk over both
    // name-ordered lists, then convert in registration order, which decides
    // whose failure is reported.
    const size_t count = info->fields.size();
    FieldValues values(count);
    size_t next = 0;
    for (BindingProperty::FieldRef entry : input.Fields()) {
        while (next < count) {
            const uint32_t index = info->fieldsByName[next];
            const int order = entry.name.compare(info->fields[index].name);
            if (order < 0) {
                break;  // an input field nobody registered
            }
            if (order == 0) {
                values[index] = &entry.value;
            }
            ++next;
            if (order == 0 &&
                (next == count || info->fields[info->fieldsByName[next]].name != entry.name)) {
                break;
            }
        }
        if (next == count) {
            break;
        }
    }
    char* base = static_cast<char*>(target);
    for (size_t i = 0; i < count; ++i) {
        const BindingFieldInfo& member = info->fields[i];
        if (values[i] == nullptr || values[i]->IsEmpty()) {
            // Absent and not required: the member keeps what it held.
            if ((member.flags & kRequired) != 0) {
                c.Fail(
                    Format("Couldn't assign value to '%1' of type %2 because the input "
                           "structure doesn't have required field '%3'.",
                           field, info->name, member.name));
                return;
            }
            continue;
        }
        member.converter->AssignFromProperty(c, *values[i], member.name, base + member.offset);
        if (!c.Ok()) {
            return;
        }
    }
}

bool CheckVectorInput(BindingConversion& c, const BindingProperty& input, std::string_view field) {
    if (input.Kind() == BindingKind::Collection) {
        return true;
    }
    c.Fail(
        Format("Couldn't assign value to '%1' of type vector because the input not a "
               "collection.",
               field));
    return false;
}

bool CheckMapInput(BindingConversion& c, const BindingProperty& input, std::string_view field) {
    if (input.Kind() == BindingKind::Structure) {
        return true;
    }
    c.Fail(Format("Couldn't assign value to '%1' of type map because the input not a structure.",
                  field));
    return false;
}

void ConvertStruct(BindingConversion& c, const BindingTypeInfo* info, const void* source,
                   BindingProperty& output) {
    if (!c.Ok()) {
        return;
    }
    if (info == nullptr || info->IsEnum()) {
        c.Fail("Couldn't convert native value because it's an unregistered structure.");
        return;
    }
    const char* base = static_cast<const char*>(source);
    if (info->namesAppendInOrder) {
        if (AppendMembers(c, *info, base, output)) {
            return;
        }
    } else {
        // Fields are added in name order, so each one lands at the end of
        // the structure without a search or a shift.
        output.SetEmptyStructure();
        output.Reserve(info->fields.size());
        for (uint32_t index : info->fieldsByName) {
            const BindingFieldInfo& member = info->fields[index];
            ConvertMember(c, member, base, output);
            if (!c.Ok()) {
                break;
            }
        }
        if (c.Ok()) {
            return;
        }
    }
    // The failure found in name order need not be the first in registration
    // order, which decides the message. Failures are rare and converting to a
    // value has no side effects: start over in registration order.
    c.result.ok = 1;
    c.result.value.Clear();
    output.SetEmptyStructure();
    for (const BindingFieldInfo& member : info->fields) {
        ConvertMember(c, member, base, output);
        if (!c.Ok()) {
            return;
        }
    }
}

int32_t LoadEnumValue(const void* source, uint32_t size) {
    switch (size) {
        case 1: {
            int8_t v;
            std::memcpy(&v, source, 1);
            return v;
        }
        case 2: {
            int16_t v;
            std::memcpy(&v, source, 2);
            return v;
        }
        case 8: {
            int64_t v;
            std::memcpy(&v, source, 8);
            return static_cast<int32_t>(v);
        }
        default: {
            int32_t v;
            std::memcpy(&v, source, 4);
            return v;
        }
    }
}

void StoreEnumValue(void* target, uint32_t size, int32_t value) {
    switch (size) {
        case 1: {
            const auto v = static_cast<int8_t>(value);
            std::memcpy(target, &v, 1);
            return;
        }
        case 2: {
            const auto v = static_cast<int16_t>(value);
            std::memcpy(target, &v, 2);
            return;
        }
        case 8: {
            const int64_t v = value;
            std::memcpy(target, &v, 8);
            return;
        }
        default:
            std::memcpy(target, &value, 4);
            return;
    }
}

}  // namespace Detail

}  // namespace Orvan::Framework
