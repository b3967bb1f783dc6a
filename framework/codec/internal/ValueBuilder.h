// ValueBuilder: builds one BindingProperty tree in place from the events of a
// reader (JSON, MessagePack, YAML). Every reader speaks the same small event
// set, so the rules for where a value lands (appended to the open collection,
// stored in the field named by the last key, or at the root) and the nesting
// limit live here once.
//
// The builder keeps raw pointers to the open containers. They stay valid
// because only the innermost open container ever grows: a parent's storage
// does not move while one of its children is open.
//
// Each container opened where an earlier sibling of the same kind sits (the
// previous element of its array, or the same field of the previous sibling
// record) takes that sibling as its model and is filled through the steps of
// TreeAppend: names matching the model's are appended with the model's
// interned names (a name of the model the container lacks is passed over),
// texts equal to the model's reuse its entries, and arrays are sized to the
// model's. Anything else (another name, a name out of order or repeated, a
// NUL inside a name) ends the model for that container and
// goes through MutableField, so both paths build the same tree; the general
// path alone is chosen at construction for the tests and fuzzers that
// compare them. Finished containers give back the unused end of their arrays.
//
// Ownership: the root is owned by the caller and must outlive the builder.
// Threads: one builder is used by one thread.
#pragma once

#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/internal/TreeAppend.h"
#include "framework/codec/CodecLimits.h"

namespace Orvan::Framework::CodecInternal {

class ValueBuilder {
public:
    enum class Path { WithModels, General };

    explicit ValueBuilder(BindingProperty& root, Path path = Path::WithModels)
        : root_(&root), useModels_(path == Path::WithModels) {
        stack_.reserve(16);
    }

    ValueBuilder(const ValueBuilder&) = delete;
    ValueBuilder& operator=(const ValueBuilder&) = delete;

    // Sizes the tree's string table for an input of `bytes` bytes in which
    // a text takes about `bytesPerText` bytes; small inputs are left alone
    // (a lone scalar needs no table).
    void ExpectInput(size_t bytes, size_t bytesPerText) {
        if (bytes >= 512) {
            Internal::ReserveStrings(*root_, bytes / bytesPerText);
        }
    }

    // Called once the input has been read: drops what ExpectInput reserved
    // beyond what the tree needs.
    void Finish() { Internal::FitStrings(*root_); }

    // Number of open containers.
    size_t Depth() const { return stack_.size(); }

    // True when the innermost open container is a structure waiting for a key.
    bool InKeyPosition() const {
        return !stack_.empty() && !stack_.back().isCollection && !field_ && !hasDeferredKey_;
    }

    // True when the innermost open container is a collection.
    bool InCollection() const { return !stack_.empty() && stack_.back().isCollection; }

    // True once a top-level value has been completed (nothing open, root set).
    bool RootDone() const { return rootDone_; }

    // Names the field that receives the next value of the open structure. A
    // repeated name reuses its field, so the last value wins.
    void Key(std::string_view name) {
        assert(InKeyPosition());
        field_ = &NamedField(stack_.back(), name);
    }

    // Like Key, but the field is created only when its value arrives, so input
    // that ends after a key leaves no field behind. The text must stay valid
    // until then.
    void DeferredKey(std::string_view name) {
        assert(InKeyPosition());
        deferredKey_ = name;
        hasDeferredKey_ = true;
    }

    // The value that the next event fills: a new element of the open
    // collection, the field named by the last key, or the root.
    BindingProperty& Target() {
        if (field_ != nullptr) {
            // The value of a named field, the most common target.
            BindingProperty* target = field_;
            field_ = nullptr;
            model_ = fieldModel_;
            lastTarget_ = target;
            return *target;
        }
        model_ = nullptr;
        if (stack_.empty()) {
            rootDone_ = true;
            lastTarget_ = root_;
            return *root_;
        }
        Frame& top = stack_.back();
        if (top.isCollection) {
            BindingProperty& element = Internal::AppendElement(*top.value);
            if (useModels_) {
                // The previous element, or for the first one the first
                // element of the model array.
                const Internal::CollectionRecord* record = Internal::CollectionOf(*top.value);
                if (record->size > 1) {
                    model_ = &record->items[record->size - 2];
                } else if (top.model != nullptr && Internal::CollectionOf(*top.model)->size != 0) {
                    model_ = Internal::CollectionOf(*top.model)->items;
                }
            }
            lastTarget_ = &element;
            return element;
        }
        assert(hasDeferredKey_);
        hasDeferredKey_ = false;
        lastTarget_ = &NamedField(top, deferredKey_);
        return *lastTarget_;
    }

    // The value the last scalar event filled.
    BindingProperty& LastTarget() { return *lastTarget_; }

    // Scalars at the next target; a fresh target (the usual case) is set in
    // place, one that a repeated name reached is cleared first.
    void Null() {
        BindingProperty& target = ScalarTarget();
        if (!target.IsEmpty()) {
            target.Clear();  // a repeated name: the last value, null, wins
        }
    }
    void Bool(bool value) {
        BindingProperty& target = ScalarTarget();
        if (target.IsEmpty()) {
            Internal::SetInline(target, BindingKind::Bool, value ? 1 : 0);
        } else {
            target.SetBool(value);
        }
    }
    void Signed(int64_t value) {
        BindingProperty& target = ScalarTarget();
        if (target.IsEmpty()) {
            Internal::SetInline(target, BindingKind::Signed, static_cast<uint64_t>(value));
        } else {
            target.SetSigned(value);
        }
    }
    void Unsigned(uint64_t value) {
        BindingProperty& target = ScalarTarget();
        if (target.IsEmpty()) {
            Internal::SetInline(target, BindingKind::Unsigned, value);
        } else {
            target.SetUnsigned(value);
        }
    }
    void Float(double value) {
        BindingProperty& target = ScalarTarget();
        if (target.IsEmpty()) {
            Internal::SetInline(target, BindingKind::Float, std::bit_cast<uint64_t>(value));
        } else {
            target.SetFloat(value);
        }
    }

    // Sets the next target to a string, reusing the model's entry when the
    // model holds the same text.
    void String(std::string_view text) {
        BindingProperty& target = Target();
        if (model_ != nullptr && model_->Kind() == BindingKind::String &&
            target.Kind() == BindingKind::Empty &&
            Internal::SameText(Internal::StringEntryOf(*model_), text)) {
            Internal::AdoptString(target, Internal::StringEntryOf(*model_));
            return;
        }
        BindingContext* context = BindingContext::Context(target);
        if (target.IsEmpty() && context != nullptr) {
            // A fresh value inside the tree: nothing to clear.
            Internal::TakeString(target, text.empty() ? Internal::InternTable::Empty()
                                                      : context->Strings().Intern(text));
            return;
        }
        target.SetString(text);
    }

    // Opens a collection (or structure) at the next target. Returns null,
    // changing nothing, when that would nest deeper than kMaxNestingDepth.
    BindingProperty* BeginCollection(size_t reserve = 0) {
        if (stack_.size() >= kMaxNestingDepth) {
            return nullptr;
        }
        BindingProperty& target = Target();
        const BindingProperty* model =
            model_ != nullptr && model_->Kind() == BindingKind::Collection ? model_ : nullptr;
        if (reserve != 0) {
            target.SetEmptyCollection();
            target.Reserve(reserve);
        } else if (model != nullptr) {
            Internal::BeginSizedCollection(target, Internal::CollectionOf(*model)->size);
        } else {
            target.SetEmptyCollection();
        }
        Push(&target, model, true);
        return &target;
    }

    // A structure's `reserve` is the field count its input announces (the
    // caller bounds it by what the input can hold).
    BindingProperty* BeginStructure(size_t reserve = 0) {
        if (stack_.size() >= kMaxNestingDepth) {
            return nullptr;
        }
        BindingProperty& target = Target();
        const BindingProperty* model =
            model_ != nullptr && model_->Kind() == BindingKind::Structure ? model_ : nullptr;
        if (reserve != 0) {
            Internal::BeginSizedStructure(target, reserve);
        } else if (model != nullptr) {
            Internal::BeginSizedStructure(target, Internal::StructureOf(*model)->size);
        } else {
            target.SetEmptyStructure();
        }
        Push(&target, model, false);
        return &target;
    }

    // Closes the innermost container and returns it.
    BindingProperty* End() {
        assert(!stack_.empty());
        BindingProperty* closed = stack_.back().value;
        stack_.pop_back();
        Internal::TrimToSize(*closed);
        field_ = nullptr;
        hasDeferredKey_ = false;
        return closed;
    }

private:
    // Target for a scalar, which has no use for a model: an element is
    // appended without looking for the previous one.
    BindingProperty& ScalarTarget() {
        if (field_ != nullptr) {
            BindingProperty* target = field_;
            field_ = nullptr;
            lastTarget_ = target;
            return *target;
        }
        if (!stack_.empty() && stack_.back().isCollection) {
            BindingProperty& element = Internal::AppendElement(*stack_.back().value);
            lastTarget_ = &element;
            return element;
        }
        return Target();
    }

    struct Frame {
        BindingProperty* value;
        const BindingProperty* model;  // an earlier sibling of the same kind, or null
        size_t next;                   // structures: the model's field the next name should match
        bool isCollection;
    };

    // Filled in place: a frame built aside and copied in is read back as
    // whole 16-byte words before its separate stores have landed.
    void Push(BindingProperty* value, const BindingProperty* model, bool isCollection) {
        Frame& frame = stack_.emplace_back();
        frame.value = value;
        frame.model = model;
        frame.next = 0;
        frame.isCollection = isCollection;
    }

    // The field of the open structure named `name`: appended with the model's
    // name when it is the model's next one, else through MutableField (which
    // ends the model). Sets the model of the field's value.
    BindingProperty& NamedField(Frame& top, std::string_view name) {
        if (top.model != nullptr) {
            const Internal::StructureRecord* model = Internal::StructureOf(*top.model);
            size_t at =
                top.next < model->size && Internal::SameText(model->items[top.next].name, name)
                    ? top.next
                    : Internal::FindModelName(*model, top.next, name);
            if (at < model->size) {
                const Internal::FieldEntry& entry = model->items[at];
                top.next = at + 1;
                fieldModel_ = &entry.value;
                model_ = &entry.value;
                return Internal::AppendField(*top.value, entry.name);
            }
            top.model = nullptr;
        }
        fieldModel_ = nullptr;
        model_ = nullptr;
        return top.value->MutableField(name);
    }

    BindingProperty* root_;
    bool useModels_;
    const BindingProperty* model_ = nullptr;       // the model of the last target
    const BindingProperty* fieldModel_ = nullptr;  // the model of the value of field_
    BindingProperty* field_ = nullptr;             // the target named by the last key
    BindingProperty* lastTarget_ = nullptr;
    std::string_view deferredKey_;
    bool hasDeferredKey_ = false;
    std::vector<Frame> stack_;
    bool rootDone_ = false;
};

}  // namespace Orvan::Framework::CodecInternal
