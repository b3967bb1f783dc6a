// Conversion between BindingProperty and HostValue, the value record of the
// host's C interface, and the release of what a HostValue owns.
//
// To the host: empty -> 0, bool -> 1, signed -> 2, unsigned -> 3, float -> 4,
// string -> 6 (text copied, NUL-terminated), blob -> 8 (bytes copied), enum ->
// 2 (its number) or, when a registry names the value, 6 with the
// enumerator's name, collection -> 9, structure -> 10 with every key copied
// and flagged as owned.
// From the host: every code; 5 and 6 become strings, 7 and 8 blobs, 9
// collections and 10 structures (keys taken as field names, a repeated key
// keeping its last value). A code outside 0..10, an address missing where a
// length asks for one, an object entry without a key or nesting deeper than
// kMaxHostValueDepth fail, naming the value by the caller's root name.
//
// Ownership: a HostValue made here owns its texts, bytes, elements and owned
// keys, allocated through the module's counting hooks; ReleaseHostValue frees
// them (codes 6, 8, 9 and 10, keys whose flag is 1; never 5 or 7) and leaves
// code 0. The side that made a value releases it. A value made into a
// HostValueArena looks the same to the host, but its arrays and objects live
// in the arena's blocks and go with the arena, and its texts and keys are
// those of the value it was made from (interned, NUL-terminated): it is
// used while both last and never passed to ReleaseHostValue.
// Threads: pure functions; a value is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"
#include "framework/codec/CodecLimits.h"
#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

class BindingTypeRegistry;

// The readers stop at kMaxNestingDepth; the framework wraps read values in a
// few records of its own (events, resources, arguments) before they cross.
inline constexpr size_t kMaxHostValueDepth = kMaxNestingDepth + 16;

// Fills `out` (overwritten, not released) with a copy of `value`. On failure
// `out` is left as code 0 with nothing allocated.
Maybe<> ToHostValue(const BindingProperty& value, HostValue& out,
                    const BindingTypeRegistry* registry = nullptr);

// Storage for host values that are built, handed to the host and dropped
// within one call, such as the payload of an emitted event: a few large
// blocks of module memory instead of one allocation per text, array and
// object, all freed when the arena goes out of scope.
class HostValueArena {
public:
    HostValueArena() = default;
    ~HostValueArena();
    HostValueArena(const HostValueArena&) = delete;
    HostValueArena& operator=(const HostValueArena&) = delete;

    // Null when memory is refused. Blocks are aligned to 8 bytes.
    void* Allocate(size_t size);
    // A NUL-terminated copy of `text`, or null when memory is refused.
    char* CopyText(std::string_view text);

private:
    // Aligned like the slices cut after it, whatever the width of an address.
    struct alignas(8) Block {
        Block* next;
    };
    static constexpr size_t kFirstBlock = 4096;

    Block* blocks_ = nullptr;
    char* cursor_ = nullptr;
    char* limit_ = nullptr;
    size_t nextBlock_ = kFirstBlock;
};

// As above with every part of `out` in `arena`. `depth` is the nesting level
// `value` takes in the value being built (0 at its root), so that a value
// converted into a record built by hand meets the same depth limit.
Maybe<> ToHostValue(const BindingProperty& value, HostValue& out,
                    const BindingTypeRegistry* registry, HostValueArena& arena, size_t depth = 0);

Maybe<BindingProperty> FromHostValue(const HostValue& value, std::string_view rootName);

void ReleaseHostValue(HostValue& value);

// A HostValue released when the holder goes out of scope.
class OwnedHostValue {
public:
    OwnedHostValue() = default;
    ~OwnedHostValue() { ReleaseHostValue(value_); }
    OwnedHostValue(const OwnedHostValue&) = delete;
    OwnedHostValue& operator=(const OwnedHostValue&) = delete;

    HostValue& Get() { return value_; }
    const HostValue& Get() const { return value_; }
    // Hands the value over; the holder keeps code 0.
    HostValue Take() {
        HostValue taken = value_;
        value_ = HostValue{};
        return taken;
    }

private:
    HostValue value_{};
};

}  // namespace Orvan::Framework
