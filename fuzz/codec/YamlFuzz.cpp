// Arbitrary bytes as a YAML body: a clean failure or a value, with the parser
// and every event released either way.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "framework/codec/Json.h"
#include "framework/codec/Yaml.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    Maybe<BindingProperty> read =
        ReadYaml(std::string_view(reinterpret_cast<const char*>(data), size));
    if (read) {
        (void)WriteJson(*read);
    }
    return 0;
}
