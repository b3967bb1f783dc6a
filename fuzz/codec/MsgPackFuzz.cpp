// Arbitrary bytes as a MessagePack body: a clean failure, or a value and a
// consumed count within the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "framework/codec/Json.h"
#include "framework/codec/MsgPack.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    MsgPackResult result = DecodeMsgPack(data, size);
    if (result.consumed > size) {
        std::abort();
    }
    if (result.value) {
        (void)WriteJson(*result.value);
    }
    return 0;
}
