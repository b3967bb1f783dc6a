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
// Ownership: the root is owned by the caller and must outlive the builder.
// Threads: one builder is used by one thread.
#pragma once

#include <cassert>
#include <cstddef>
#include <string_view>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/codec/CodecLimits.h"

namespace Orvan::Framework::CodecInternal {

class ValueBuilder {
public:
    explicit ValueBuilder(BindingProperty& root) : root_(&root) { stack_.reserve(16); }

    ValueBuilder(const ValueBuilder&) = delete;
    ValueBuilder& operator=(const ValueBuilder&) = delete;

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
        field_ = &stack_.back().value->MutableField(name);
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
        if (stack_.empty()) {
            rootDone_ = true;
            return *root_;
        }
        Frame& top = stack_.back();
        if (top.isCollection) {
            return top.value->Append();
        }
        if (hasDeferredKey_) {
            hasDeferredKey_ = false;
            return top.value->MutableField(deferredKey_);
        }
        assert(field_);
        BindingProperty* target = field_;
        field_ = nullptr;
        return *target;
    }

    // Opens a collection (or structure) at the next target. Returns null,
    // changing nothing, when that would nest deeper than kMaxNestingDepth.
    BindingProperty* BeginCollection(size_t reserve = 0) {
        if (stack_.size() >= kMaxNestingDepth) {
            return nullptr;
        }
        BindingProperty& target = Target();
        target.SetEmptyCollection();
        if (reserve != 0) {
            target.Reserve(reserve);
        }
        stack_.push_back(Frame{&target, true});
        return &target;
    }

    BindingProperty* BeginStructure() {
        if (stack_.size() >= kMaxNestingDepth) {
            return nullptr;
        }
        BindingProperty& target = Target();
        target.SetEmptyStructure();
        stack_.push_back(Frame{&target, false});
        return &target;
    }

    // Closes the innermost container and returns it.
    BindingProperty* End() {
        assert(!stack_.empty());
        BindingProperty* closed = stack_.back().value;
        stack_.pop_back();
        field_ = nullptr;
        hasDeferredKey_ = false;
        return closed;
    }

private:
    struct Frame {
        BindingProperty* value;
        bool isCollection;
    };

    BindingProperty* root_;
    BindingProperty* field_ = nullptr;  // the target named by the last key
    std::string_view deferredKey_;
    bool hasDeferredKey_ = false;
    std::vector<Frame> stack_;
    bool rootDone_ = false;
};

}  // namespace Orvan::Framework::CodecInternal
