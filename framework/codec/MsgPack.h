// MessagePack bytes to BindingProperty. Nothing in the system writes
// MessagePack.
//
// Positive fixints and the int family decode as "signed", the uint family as
// "unsigned", float 32 (widened) and float 64 as "float", str as "string", bin
// as "blob", arrays as "collection" and maps as "structure" (keys must be
// strings; a repeated key keeps its last value). The nil byte gives "empty".
// The unused byte 0xC1 and every ext and fixext type fail. Numbers and lengths
// are big-endian. The decoder keeps its own stack of open containers and
// refuses nesting deeper than kMaxNestingDepth containers.
//
// Decoding stops after the first complete top-level value; the bytes consumed
// are reported and the caller decides whether trailing bytes are an error.
// Input that ends inside an open container is not a failure: each container
// holds the items read so far. An empty input gives "empty" with nothing
// consumed. On failure, consumed is the offset at which decoding stopped.
//
// Failure messages (positions are 0-based byte offsets: for truncations the
// offset where the missing part begins, otherwise just after the type byte):
//   "Invalid MessagePack data at position %1."
//   "Invalid MessagePack data at position %1. Map keys must be strings."
//   "Invalid MessagePack data at position %1. Nesting is deeper than 512."
//   "Invalid MessagePack data. {8,16,32,64}-bit integer value at position %1 is truncated."
//   "Invalid MessagePack data. String of size %1 at position %2 is truncated."
//   "Invalid MessagePack data. Raw bytes of size %1 at position %2 are truncated."
//
// Pure function; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"

namespace Orvan::Framework {

struct MsgPackResult {
    Maybe<BindingProperty> value;
    size_t consumed = 0;
};

MsgPackResult DecodeMsgPack(const uint8_t* data, size_t size);

}  // namespace Orvan::Framework
