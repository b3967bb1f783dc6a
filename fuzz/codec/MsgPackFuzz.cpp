// Arbitrary bytes as a MessagePack body: a clean failure, or a value and a
// consumed count within the input; the general path alone (no sibling
// models) must decode the same tree and consume as much.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "framework/codec/Json.h"
#include "framework/codec/MsgPack.h"
#include "framework/codec/internal/ReadPaths.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    MsgPackResult result = DecodeMsgPack(data, size);
    if (result.consumed > size) {
        std::abort();
    }
    MsgPackResult general = CodecInternal::DecodeMsgPackGeneralPath(data, size);
    if (bool(result.value) != bool(general.value) || result.consumed != general.consumed) {
        std::abort();
    }
    if (result.value) {
        if (!(*result.value == *general.value) ||
            WriteJson(*result.value) != WriteJson(*general.value)) {
            std::abort();
        }
    }
    return 0;
}
