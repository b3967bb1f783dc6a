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

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "framework/binding/BindingProperty.h"

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

struct WalkFrame {
    // Collections: the elements and the next index.
    const BindingProperty* elements = nullptr;
    size_t count = 0;
    size_t index = 0;
    // Structures: the next field, the end, and the name of the field in progress.
    BindingProperty::FieldIterator field;
    BindingProperty::FieldIterator fieldEnd;
    // Kept as two words: the name arrives inside a returned FieldRef, and
    // copying it as one 16-byte block stalls on the two stores that wrote it.
    const char* nameData = nullptr;
    size_t nameSize = 0;
    bool isCollection = false;
    bool inItem = false;  // an element or field value has been visited and awaits its end
};

// Visits a scalar directly, or opens a container (pushing a frame).
template <class Visitor>
void VisitOrOpen(const BindingProperty& value, Visitor& visitor, std::vector<WalkFrame>& stack) {
    switch (value.Kind()) {
        case BindingKind::Empty:
            visitor.VisitEmpty();
            break;
        case BindingKind::Bool:
            visitor.VisitBool(value.GetBool());
            break;
        case BindingKind::Signed:
            visitor.VisitSigned(value.GetSigned());
            break;
        case BindingKind::Unsigned:
            visitor.VisitUnsigned(value.GetUnsigned());
            break;
        case BindingKind::Float:
            visitor.VisitFloat(value.GetFloat());
            break;
        case BindingKind::String:
            visitor.VisitString(value.GetString());
            break;
        case BindingKind::Blob:
            visitor.VisitBlob(value.GetBlob());
            break;
        case BindingKind::Enum:
            visitor.VisitEnum(value.GetEnum());
            break;
        case BindingKind::Collection: {
            std::span<const BindingProperty> elements = value.Elements();
            visitor.BeginCollection(elements.size());
            // Filled in place: copying a whole frame costs more than the walk step.
            WalkFrame& frame = stack.emplace_back();
            frame.elements = elements.data();
            frame.count = elements.size();
            frame.isCollection = true;
            break;
        }
        case BindingKind::Structure: {
            BindingProperty::FieldRange fields = value.Fields();
            visitor.BeginStructure(fields.size());
            WalkFrame& frame = stack.emplace_back();
            frame.field = fields.begin();
            frame.fieldEnd = fields.end();
            break;
        }
    }
}

}  // namespace CodecInternal

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
                frame.inItem = false;
            }
            if (frame.index == frame.count) {
                stack.pop_back();
                visitor.EndCollection();
                continue;
            }
            frame.inItem = true;
            visitor.BeginElement(frame.index);
            // The push below may move the frame; nothing reads it afterwards.
            CodecInternal::VisitOrOpen(frame.elements[frame.index], visitor, stack);
        } else {
            if (frame.inItem) {
                visitor.EndField(std::string_view(frame.nameData, frame.nameSize));
                ++frame.field;
                frame.inItem = false;
            }
            if (frame.field == frame.fieldEnd) {
                stack.pop_back();
                visitor.EndStructure();
                continue;
            }
            BindingProperty::FieldRef field = *frame.field;
            const char* nameData = field.name.data();
            size_t nameSize = field.name.size();
            frame.nameData = nameData;
            frame.nameSize = nameSize;
            frame.inItem = true;
            visitor.FieldName(std::string_view(nameData, nameSize));
            CodecInternal::VisitOrOpen(field.value, visitor, stack);
        }
    }
}

}  // namespace Orvan::Framework
