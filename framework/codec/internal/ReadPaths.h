// The readers with the sibling models of ValueBuilder turned off, so that
// every field goes through the general path. Both paths must build the same
// tree; the tests and fuzzers that check it read each input through both.
//
// Pure functions; any thread.
#pragma once

#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"
#include "framework/codec/MsgPack.h"

namespace Orvan::Framework::CodecInternal {

Maybe<BindingProperty> ReadJsonGeneralPath(std::string_view text);
MsgPackResult DecodeMsgPackGeneralPath(const uint8_t* data, size_t size);

}  // namespace Orvan::Framework::CodecInternal
