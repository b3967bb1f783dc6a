// Arbitrary bytes as a MessagePack body: a clean failure, or a value and a
// consumed count within the input; the general path alone (no sibling
// models) must decode the same tree (blobs compared by their bytes) and
// consume as much.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "framework/codec/Json.h"
#include "framework/codec/MsgPack.h"
#include "framework/codec/internal/ReadPaths.h"

namespace {

using Orvan::Framework::BindingKind;
using Orvan::Framework::BindingProperty;

// Equality with blobs compared by their bytes (the value model compares them
// by record, which differs between two trees). Depth is bounded by the
// decoder's nesting limit.
bool SameValue(const BindingProperty& a, const BindingProperty& b) {
    if (a.Kind() != b.Kind()) {
        return false;
    }
    switch (a.Kind()) {
        case BindingKind::Blob: {
            auto x = a.GetBlob();
            auto y = b.GetBlob();
            return std::equal(x.begin(), x.end(), y.begin(), y.end());
        }
        case BindingKind::Collection: {
            if (a.Size() != b.Size()) {
                return false;
            }
            for (size_t i = 0; i < a.Size(); ++i) {
                if (!SameValue(a.Element(i), b.Element(i))) {
                    return false;
                }
            }
            return true;
        }
        case BindingKind::Structure: {
            if (a.Size() != b.Size()) {
                return false;
            }
            auto x = a.Fields().begin();
            for (auto y : b.Fields()) {
                if ((*x).name != y.name || !SameValue((*x).value, y.value)) {
                    return false;
                }
                ++x;
            }
            return true;
        }
        case BindingKind::Float:
            return std::bit_cast<uint64_t>(a.GetFloat()) == std::bit_cast<uint64_t>(b.GetFloat());
        default:
            return a == b;
    }
}

}  // namespace

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
        if (!SameValue(*result.value, *general.value) ||
            WriteJson(*result.value) != WriteJson(*general.value)) {
            std::abort();
        }
    }
    return 0;
}
