// FuzzInput: the fuzzer's bytes read as a sequence of small decisions and
// texts. Reads past the end give zeros and empty texts, so every input,
// however short, is a complete run.
//
// Header-only, no state beyond the position. Threads: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Orvan::Fuzzing {

class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    bool Empty() const { return at_ >= size_; }
    size_t Remaining() const { return at_ < size_ ? size_ - at_ : 0; }

    uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
    bool Flag() { return (Byte() & 1) != 0; }
    // A number below `count` (count > 0).
    size_t Pick(size_t count) { return count == 0 ? 0 : Byte() % count; }
    uint32_t U32() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = (value << 8) | Byte();
        }
        return value;
    }
    uint64_t U64() { return (static_cast<uint64_t>(U32()) << 32) | U32(); }
    double Double() {
        const uint64_t bits = U64();
        double value = 0.0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    // A text of up to `maxLength` bytes: a length byte, then the bytes.
    std::string Text(size_t maxLength = 32) {
        const size_t length = Pick(maxLength + 1);
        return Bytes(length);
    }
    std::string Bytes(size_t length) {
        const size_t count = length < Remaining() ? length : Remaining();
        std::string text(reinterpret_cast<const char*>(data_ + at_), count);
        at_ += count;
        return text;
    }
    // Everything left.
    std::string Rest() { return Bytes(Remaining()); }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

}  // namespace Orvan::Fuzzing
