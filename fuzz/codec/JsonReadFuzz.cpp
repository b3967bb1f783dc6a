// Arbitrary bytes as a JSON body: the reader must fail cleanly or build a
// value no deeper than the nesting limit, and writing that value must work.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "framework/codec/Json.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    Maybe<BindingProperty> read =
        ReadJson(std::string_view(reinterpret_cast<const char*>(data), size));
    if (read) {
        (void)WriteJson(*read, nullptr, "\r\n");
    }
    return 0;
}
