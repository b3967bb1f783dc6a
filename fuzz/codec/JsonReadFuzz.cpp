// Arbitrary bytes as a JSON body: the reader must fail cleanly or build a
// value no deeper than the nesting limit, and writing that value must work.
// The reader fills records through their previous siblings' names; the
// general path alone must build the same tree (or fail the same way).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "framework/codec/Json.h"
#include "framework/codec/internal/ReadPaths.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    Maybe<BindingProperty> read = ReadJson(text);
    Maybe<BindingProperty> general = CodecInternal::ReadJsonGeneralPath(text);
    if (bool(read) != bool(general)) {
        std::abort();
    }
    if (read) {
        if (!(*read == *general) || WriteJson(*read) != WriteJson(*general)) {
            std::abort();
        }
        (void)WriteJson(*read, nullptr, "\r\n");
    } else if (read.GetFailure().message != general.GetFailure().message) {
        std::abort();
    }
    return 0;
}
