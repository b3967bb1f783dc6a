// BindingProperty: the one dynamic value of the system. Request and response
// bodies, resources, service messages and every codec speak it.
//
// A value is a small handle: 64 bits of payload, a reference to the storage
// context of its tree, a kind byte and an owns-context byte. Strings, blobs,
// enum records, collections and structures live in the context, which is
// shared by every element and field of the tree and created on first need.
// A standalone value (every public constructor makes one) owns its context;
// elements and fields borrow their parent's.
//
// Ownership: an element or field reference is valid while its tree is alive
// and unchanged in shape; copy it into a standalone value to keep it.
// Threads: a tree is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Orvan::Framework {

struct StaticType;
class BindingContext;

// The numbering is part of the messages, which print kind names.
enum class BindingKind : uint8_t {
    Empty = 0,
    Bool = 1,
    Signed = 2,
    Unsigned = 3,
    Float = 4,
    String = 5,
    Blob = 6,
    Enum = 7,
    Collection = 8,
    Structure = 9,
};

// "empty", "bool", ... "structure"; the empty text for codes outside 0..9.
const char* BindingKindName(uint32_t code);

// The payload of an "enum" value: its number and the identity of its type.
struct BindingEnumValue {
    int32_t value = 0;
    const StaticType* type = nullptr;
};

class BindingProperty {
public:
    BindingProperty() = default;
    ~BindingProperty();

    // Copies are deep and land in the target's own context.
    BindingProperty(const BindingProperty& other);
    BindingProperty& operator=(const BindingProperty& other);
    // Swaps when both sides own their contexts; otherwise deep-copies and
    // clears the source.
    BindingProperty(BindingProperty&& other) noexcept;
    BindingProperty& operator=(BindingProperty&& other) noexcept;

    explicit BindingProperty(bool value);
    explicit BindingProperty(int64_t value);
    explicit BindingProperty(uint64_t value);
    explicit BindingProperty(double value);
    explicit BindingProperty(std::string_view text);
    explicit BindingProperty(const char* text);
    explicit BindingProperty(const std::vector<uint8_t>& bytes);
    explicit BindingProperty(std::vector<uint8_t>&& bytes);
    explicit BindingProperty(BindingEnumValue value);

    // Setters clear the value first, then set the kind.
    void SetBool(bool value);
    void SetSigned(int64_t value);
    void SetUnsigned(uint64_t value);
    void SetFloat(double value);
    void SetString(std::string_view text);  // "" and null share one static empty string
    void SetBlob(const uint8_t* data, size_t size);
    void SetBlob(std::vector<uint8_t>&& bytes);
    void SetEnum(BindingEnumValue value);
    void SetEmptyCollection();
    void SetEmptyStructure();
    void Clear();

    BindingKind Kind() const { return kind_; }
    const char* KindName() const { return BindingKindName(static_cast<uint32_t>(kind_)); }
    bool IsEmpty() const { return kind_ == BindingKind::Empty; }

    // Observers, with the conversion rules of each kind.
    size_t Size() const;
    bool IsTrue() const;
    int64_t AsSigned() const;                          // strings through strtoll, base 0
    uint64_t AsUnsigned() const;                       // strings through strtoull, base 0
    uint64_t AsUnsigned(uint64_t defaultValue) const;  // the stored value only when "unsigned"
    std::string AsText() const;                        // "%f" floats, base64 blobs

    // Raw payload access; each returns a zero value for another kind.
    bool GetBool() const;
    int64_t GetSigned() const;
    uint64_t GetUnsigned() const;
    double GetFloat() const;
    std::string_view GetString() const;
    std::span<const uint8_t> GetBlob() const;
    BindingEnumValue GetEnum() const;

    // Collections. Mutable access turns a non-collection into an empty
    // collection and grows it to reach the index; read-only access returns the
    // shared empty value when out of range or not a collection.
    BindingProperty& MutableElement(size_t index);
    const BindingProperty& Element(size_t index) const;
    BindingProperty& Append();  // makes the value a collection if it is not one
    // Reserve on a structure makes room for fields; on anything else it makes
    // the value a collection first. It is a hint: counts above 2^20 reserve
    // 2^20. Resize makes the value a collection, then grows or shrinks it.
    void Reserve(size_t count);
    void Resize(size_t count);
    std::span<const BindingProperty> Elements() const;  // empty unless a collection
    std::span<BindingProperty> MutableElements();

    // Structures, ordered by unsigned byte order of field names. Mutable
    // access turns a non-structure into an empty structure and inserts a
    // missing field; read-only access never changes anything.
    BindingProperty& MutableField(std::string_view name);
    const BindingProperty& Field(std::string_view name) const;
    bool HasField(std::string_view name) const;
    bool RemoveField(std::string_view name);

    struct FieldRef {
        std::string_view name;
        const BindingProperty& value;
    };
    class FieldIterator;
    class FieldRange;
    FieldRange Fields() const;  // empty unless a structure; name order

    // Equality as the value model defines it: kinds must agree, blobs compare
    // by identity of the stored record, floats as doubles.
    bool operator==(const BindingProperty& other) const;
    bool operator!=(const BindingProperty& other) const { return !(*this == other); }

    // The shared read-only empty value.
    static const BindingProperty& EmptyValue();

private:
    friend class BindingContext;
    friend struct BindingPropertyAccess;

    uint64_t payload_ = 0;
    BindingContext* context_ = nullptr;
    BindingKind kind_ = BindingKind::Empty;
    uint8_t ownsContext_ = 1;
};

// Iteration over a structure's fields in name order. The implementation
// defines how the fields are stored; callers see (name, value) pairs.
class BindingProperty::FieldIterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = FieldRef;
    using difference_type = std::ptrdiff_t;

    FieldIterator() = default;
    FieldIterator(const void* entry, size_t stride) : entry_(entry), stride_(stride) {}
    FieldRef operator*() const;
    FieldIterator& operator++() {
        entry_ = static_cast<const char*>(entry_) + stride_;
        return *this;
    }
    bool operator==(const FieldIterator& other) const { return entry_ == other.entry_; }
    bool operator!=(const FieldIterator& other) const { return entry_ != other.entry_; }

private:
    const void* entry_ = nullptr;
    size_t stride_ = 0;
};

class BindingProperty::FieldRange {
public:
    FieldRange() = default;
    FieldRange(FieldIterator first, FieldIterator last, size_t count)
        : first_(first), last_(last), count_(count) {}
    FieldIterator begin() const { return first_; }
    FieldIterator end() const { return last_; }
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }

private:
    FieldIterator first_;
    FieldIterator last_;
    size_t count_ = 0;
};

}  // namespace Orvan::Framework
