// BindingVisitor: the walk of a BindingProperty tree that every writer
// implements, and WalkBinding, which drives it.
//
// The walk visits a collection as BeginCollection, then per element
// BeginElement, the element, EndElement, then EndCollection; a structure as
// BeginStructure, then per field (in the structure's name order) FieldName,
// the value, EndField, then EndStructure. WalkBinding keeps its own stack on
// the heap, so a tree of any depth is walked without recursion.
//
// WalkBinding is a template: given a final visitor class the calls bind
// statically; given a BindingVisitor& they go through the virtual table.
//
// Ownership: the walk borrows the value and the visitor for its duration.
// Threads: one walk on one thread; the tree must not change during the walk.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/internal/TreeAppend.h"

namespace Orvan::Framework {

class BindingVisitor {
public:
    virtual void VisitEmpty() = 0;
    virtual void VisitBool(bool value) = 0;
    virtual void VisitSigned(int64_t value) = 0;
    virtual void VisitUnsigned(uint64_t value) = 0;
    virtual void VisitFloat(double value) = 0;
    virtual void VisitString(std::string_view text) = 0;
    virtual void VisitBlob(std::span<const uint8_t> bytes) = 0;
    virtual void VisitEnum(BindingEnumValue value) = 0;
    virtual void BeginCollection(size_t size) = 0;
    virtual void BeginElement(size_t index) = 0;
    virtual void EndElement(size_t index) = 0;
    virtual void EndCollection() = 0;
    virtual void BeginStructure(size_t fieldCount) = 0;
    virtual void FieldName(std::string_view name) = 0;
    virtual void EndField(std::string_view name) = 0;
    virtual void EndStructure() = 0;
    virtual ~BindingVisitor() = default;
};

namespace CodecInternal {

// The walk reads the tree's records directly: it runs once per value of
// every document written, and the public accessors are calls into the
// value library.
struct WalkFrame {
    // Collections: the next element and the end, and the next index.
    const BindingProperty* element = nullptr;
    const BindingProperty* elementEnd = nullptr;
    size_t index = 0;
    // Structures: the next field, the end, and the name of the field in progress.
    const Internal::FieldEntry* field = nullptr;
    const Internal::FieldEntry* fieldEnd = nullptr;
    const Internal::InternEntry* name = nullptr;
    bool isCollection = false;
    bool inItem = false;  // an element or field value has been visited and awaits its end
};

inline bool IsContainer(const BindingProperty& value) {
    return value.Kind() == BindingKind::Collection || value.Kind() == BindingKind::Structure;
}

// Visits a scalar directly, or opens a container (pushing a frame).
template <class Visitor>
void VisitOrOpen(const BindingProperty& value, Visitor& visitor, std::vector<WalkFrame>& stack) {
    uint64_t payload = BindingContext::Payload(value);
    switch (value.Kind()) {
        case BindingKind::Empty:
            visitor.VisitEmpty();
            break;
        case BindingKind::Bool:
            visitor.VisitBool(payload != 0);
            break;
        case BindingKind::Signed:
            visitor.VisitSigned(static_cast<int64_t>(payload));
            break;
        case BindingKind::Unsigned:
            visitor.VisitUnsigned(payload);
            break;
        case BindingKind::Float:
            visitor.VisitFloat(std::bit_cast<double>(payload));
            break;
        case BindingKind::String:
            visitor.VisitString(Internal::StringEntryOf(value)->View());
            break;
        case BindingKind::Blob:
            visitor.VisitBlob(value.GetBlob());
            break;
        case BindingKind::Enum:
            visitor.VisitEnum(value.GetEnum());
            break;
        case BindingKind::Collection: {
            const Internal::CollectionRecord* record = Internal::CollectionOf(value);
            visitor.BeginCollection(record->size);
            // Filled in place: copying a whole frame costs more than the walk step.
            WalkFrame& frame = stack.emplace_back();
            frame.element = record->items;
            frame.elementEnd = record->items + record->size;
            frame.isCollection = true;
            break;
        }
        case BindingKind::Structure: {
            const Internal::StructureRecord* record = Internal::StructureOf(value);
            visitor.BeginStructure(record->size);
            WalkFrame& frame = stack.emplace_back();
            frame.field = record->items;
            frame.fieldEnd = record->items + record->size;
            break;
        }
    }
}

}  // namespace CodecInternal

// Runs of scalars inside a container are visited in an inner loop; the frame
// is touched again only when a nested container opens or the run ends.
template <class Visitor>
void WalkBinding(const BindingProperty& value, Visitor& visitor) {
    std::vector<CodecInternal::WalkFrame> stack;
    stack.reserve(16);
    CodecInternal::VisitOrOpen(value, visitor, stack);
    while (!stack.empty()) {
        CodecInternal::WalkFrame& frame = stack.back();
        if (frame.isCollection) {
            if (frame.inItem) {
                visitor.EndElement(frame.index);
                ++frame.index;
                ++frame.element;
                frame.inItem = false;
            }
            const BindingProperty* element = frame.element;
            const BindingProperty* end = frame.elementEnd;
            size_t index = frame.index;
            for (; element != end; ++element, ++index) {
                visitor.BeginElement(index);
                if (CodecInternal::IsContainer(*element)) {
                    break;
                }
                CodecInternal::VisitOrOpen(*element, visitor, stack);
                visitor.EndElement(index);
            }
            if (element == end) {
                stack.pop_back();
                visitor.EndCollection();
                continue;
            }
            frame.element = element;
            frame.index = index;
            frame.inItem = true;
            // The push below may move the frame; nothing reads it afterwards.
            CodecInternal::VisitOrOpen(*element, visitor, stack);
        } else {
            if (frame.inItem) {
                visitor.EndField(frame.name->View());
                ++frame.field;
                frame.inItem = false;
            }
            const Internal::FieldEntry* field = frame.field;
            const Internal::FieldEntry* end = frame.fieldEnd;
            for (; field != end; ++field) {
                std::string_view name = field->name->View();
                visitor.FieldName(name);
                if (CodecInternal::IsContainer(field->value)) {
                    break;
                }
                CodecInternal::VisitOrOpen(field->value, visitor, stack);
                visitor.EndField(name);
            }
            if (field == end) {
                stack.pop_back();
                visitor.EndStructure();
                continue;
            }
            frame.field = field;
            frame.name = field->name;
            frame.inItem = true;
            CodecInternal::VisitOrOpen(field->value, visitor, stack);
        }
    }
}

}  // namespace Orvan::Framework
