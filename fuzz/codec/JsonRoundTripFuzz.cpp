// Read, write, read again: the two values must agree, in both layouts. JSON
// never yields blobs (which compare by identity) nor NaN. Three changes are
// allowed. An infinite float (the reader's default-precision scan turns
// "98e308" into infinity rather than failing) is written as null and reads
// back as "empty". "-0" reads as a "signed" zero, is written as 0 and reads back as an
// "unsigned" zero; and a float may move by a few units in the last place,
// because the writer prints the shortest text that reads back exactly while
// the reader's default-precision number scan is not always correctly rounded
// (1844674407370956261512720 reads as 1.8446744073709565e24, is written so,
// and that text reads as 1.8446744073709568e24).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/codec/Json.h"

namespace {

using Orvan::Framework::BindingKind;
using Orvan::Framework::BindingProperty;

constexpr uint64_t kMaxUlps = 4;

bool CloseFloats(double a, double b) {
    if (a == b) {
        return true;
    }
    if ((a < 0) != (b < 0)) {
        return false;
    }
    uint64_t x;
    uint64_t y;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    return (x > y ? x - y : y - x) <= kMaxUlps;
}

bool Equivalent(const BindingProperty& first, const BindingProperty& second) {
    std::vector<std::pair<const BindingProperty*, const BindingProperty*>> todo{{&first, &second}};
    while (!todo.empty()) {
        auto [a, b] = todo.back();
        todo.pop_back();
        if (a->Kind() == BindingKind::Signed && a->GetSigned() == 0 &&
            b->Kind() == BindingKind::Unsigned && b->GetUnsigned() == 0) {
            continue;
        }
        if (a->Kind() == BindingKind::Float && std::isinf(a->GetFloat()) && b->IsEmpty()) {
            continue;
        }
        if (a->Kind() != b->Kind() || a->Size() != b->Size()) {
            return false;
        }
        if (a->Kind() == BindingKind::Collection) {
            for (size_t i = 0; i < a->Size(); ++i) {
                todo.emplace_back(&a->Elements()[i], &b->Elements()[i]);
            }
        } else if (a->Kind() == BindingKind::Structure) {
            auto fa = a->Fields().begin();
            auto fb = b->Fields().begin();
            for (; fa != a->Fields().end(); ++fa, ++fb) {
                if ((*fa).name != (*fb).name) {
                    return false;
                }
                todo.emplace_back(&(*fa).value, &(*fb).value);
            }
        } else if (a->Kind() == BindingKind::Float) {
            if (!CloseFloats(a->GetFloat(), b->GetFloat())) {
                return false;
            }
        } else if (!(*a == *b)) {
            return false;
        }
    }
    return true;
}

void Check(const BindingProperty& first, const std::string& text) {
    using namespace Orvan::Framework;
    Maybe<BindingProperty> again = ReadJson(text);
    if (!again) {
        std::fprintf(stderr, "written text does not read back: %s\n%s\n",
                     again.GetFailure().message.c_str(), text.c_str());
        std::abort();
    }
    if (!Equivalent(first, *again)) {
        std::fprintf(stderr, "value changed across a round trip:\n%s\n", text.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvan::Framework;
    Maybe<BindingProperty> read =
        ReadJson(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!read || read->IsEmpty()) {
        return 0;
    }
    Check(*read, WriteJson(*read));
    Check(*read, WriteJson(*read, nullptr, "\n"));
    return 0;
}
