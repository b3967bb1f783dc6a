// MessagePack decoding into the shared value builder, with an explicit stack
// of item counts beside the builder's stack of open containers.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "framework/codec/MsgPack.h"
#include "framework/codec/internal/ReadPaths.h"
#include "framework/codec/internal/ValueBuilder.h"

namespace Orvan::Framework {
namespace {

class Decoder {
public:
    Decoder(const uint8_t* data, size_t size, CodecInternal::ValueBuilder::Path path)
        : data_(data), size_(size), builder_(result_, path) {
        // A record's text (key or value) every 32 bytes or so.
        builder_.ExpectInput(size, 32);
    }

    MsgPackResult Run() {
        while (pos_ < size_) {
            while (!counts_.empty() && counts_.back().received == counts_.back().expected) {
                counts_.pop_back();
                builder_.End();
            }
            if (counts_.empty() && builder_.RootDone()) {
                break;
            }
            bool keyPosition = false;
            if (!counts_.empty()) {
                Count& top = counts_.back();
                keyPosition = !builder_.InCollection() && top.received % 2 == 0;
                ++top.received;
            }
            bool ok = keyPosition ? ReadKey() : ReadValue();
            if (!ok) {
                return MsgPackResult{Failure(std::move(error_)), pos_};
            }
        }
        return MsgPackResult{std::move(result_), pos_};
    }

private:
    struct Count {
        uint64_t expected;  // for a map, twice the entry count
        uint64_t received;
    };

    bool Fail(const char* format, size_t a, size_t b = 0) {
        char text[128];
        std::snprintf(text, sizeof text, format, a, b);
        error_ = text;
        return false;
    }
    bool Invalid() { return Fail("Invalid MessagePack data at position %zu.", pos_); }

    // Reads a big-endian unsigned number of Width bytes.
    template <size_t Width>
    bool ReadBig(uint64_t& out) {
        if (size_ - pos_ < Width) {
            return Fail(
                "Invalid MessagePack data. %zu-bit integer value at position %zu is truncated.",
                Width * 8, pos_);
        }
        uint64_t v = 0;
        for (size_t i = 0; i < Width; ++i) {
            v = (v << 8) | data_[pos_ + i];
        }
        pos_ += Width;
        out = v;
        return true;
    }

    template <size_t Width>
    bool ReadLength(uint64_t& n) {
        return ReadBig<Width>(n);
    }

    bool ReadString(uint64_t n, std::string_view& text) {
        if (size_ - pos_ < n) {
            return Fail(
                "Invalid MessagePack data. String of size %zu at position %zu is truncated.",
                static_cast<size_t>(n), pos_);
        }
        text =
            std::string_view(reinterpret_cast<const char*>(data_ + pos_), static_cast<size_t>(n));
        pos_ += static_cast<size_t>(n);
        return true;
    }

    // The string length of a str type byte, or false for any other type.
    template <size_t Width>
    bool StringOfWidth(std::string_view& text) {
        uint64_t n = 0;
        return ReadLength<Width>(n) && ReadString(n, text);
    }

    bool ReadStringBody(uint8_t type, std::string_view& text) {
        if (type >= 0xA0 && type <= 0xBF) {
            return ReadString(type & 0x1F, text);
        }
        switch (type) {
            case 0xD9:
                return StringOfWidth<1>(text);
            case 0xDA:
                return StringOfWidth<2>(text);
            default:  // 0xDB
                return StringOfWidth<4>(text);
        }
    }

    static bool IsStringType(uint8_t type) {
        return (type >= 0xA0 && type <= 0xBF) || (type >= 0xD9 && type <= 0xDB);
    }

    bool ReadKey() {
        uint8_t type = data_[pos_++];
        if (!IsStringType(type)) {
            return Fail("Invalid MessagePack data at position %zu. Map keys must be strings.",
                        pos_);
        }
        std::string_view key;
        if (!ReadStringBody(type, key)) {
            return false;
        }
        builder_.DeferredKey(key);
        return true;
    }

    bool OpenCollection(uint64_t n) {
        // Each element takes at least one byte, so never reserve beyond the input.
        size_t reserve = static_cast<size_t>(n < size_ - pos_ ? n : size_ - pos_);
        if (builder_.BeginCollection(reserve) == nullptr) {
            return TooDeep();
        }
        counts_.push_back(Count{n, 0});
        return true;
    }
    bool OpenStructure(uint64_t n) {
        // Each entry takes at least two bytes.
        size_t available = (size_ - pos_) / 2;
        size_t reserve = static_cast<size_t>(n < available ? n : available);
        if (builder_.BeginStructure(reserve) == nullptr) {
            return TooDeep();
        }
        counts_.push_back(Count{n * 2, 0});
        return true;
    }
    bool TooDeep() {
        return Fail("Invalid MessagePack data at position %zu. Nesting is deeper than 512.", pos_);
    }

    template <size_t Width>
    bool ReadUnsigned() {
        uint64_t v = 0;
        if (!ReadBig<Width>(v)) {
            return false;
        }
        builder_.Unsigned(v);
        return true;
    }
    template <size_t Width, class T>
    bool ReadSigned() {
        uint64_t v = 0;
        if (!ReadBig<Width>(v)) {
            return false;
        }
        builder_.Signed(static_cast<T>(v));
        return true;
    }
    template <size_t Width>
    bool ReadBlob() {
        uint64_t n = 0;
        if (!ReadLength<Width>(n)) {
            return false;
        }
        if (size_ - pos_ < n) {
            return Fail(
                "Invalid MessagePack data. Raw bytes of size %zu at position %zu are truncated.",
                static_cast<size_t>(n), pos_);
        }
        builder_.Target().SetBlob(data_ + pos_, static_cast<size_t>(n));
        pos_ += static_cast<size_t>(n);
        return true;
    }
    template <size_t Width>
    bool ReadArray() {
        uint64_t n = 0;
        return ReadLength<Width>(n) && OpenCollection(n);
    }
    template <size_t Width>
    bool ReadMap() {
        uint64_t n = 0;
        return ReadLength<Width>(n) && OpenStructure(n);
    }

    bool ReadValue() {
        uint8_t type = data_[pos_++];
        if (type <= 0x7F) {
            builder_.Signed(type);
            return true;
        }
        if (type >= 0xE0) {
            builder_.Signed(static_cast<int8_t>(type));
            return true;
        }
        if (type <= 0x8F) {
            return OpenStructure(type & 0x0F);
        }
        if (type <= 0x9F) {
            return OpenCollection(type & 0x0F);
        }
        if (type <= 0xBF || (type >= 0xD9 && type <= 0xDB)) {
            std::string_view text;
            if (!ReadStringBody(type, text)) {
                return false;
            }
            builder_.String(text);
            return true;
        }
        switch (type) {
            case 0xC0:
                builder_.Null();
                return true;
            case 0xC2:
            case 0xC3:
                builder_.Bool(type == 0xC3);
                return true;
            case 0xC4:
                return ReadBlob<1>();
            case 0xC5:
                return ReadBlob<2>();
            case 0xC6:
                return ReadBlob<4>();
            case 0xCA: {
                uint64_t bits = 0;
                if (!ReadBig<4>(bits)) {
                    return false;
                }
                uint32_t narrow = static_cast<uint32_t>(bits);
                float f;
                std::memcpy(&f, &narrow, sizeof f);
                builder_.Float(f);
                return true;
            }
            case 0xCB: {
                uint64_t bits = 0;
                if (!ReadBig<8>(bits)) {
                    return false;
                }
                double d;
                std::memcpy(&d, &bits, sizeof d);
                builder_.Float(d);
                return true;
            }
            case 0xCC:
                return ReadUnsigned<1>();
            case 0xCD:
                return ReadUnsigned<2>();
            case 0xCE:
                return ReadUnsigned<4>();
            case 0xCF:
                return ReadUnsigned<8>();
            case 0xD0:
                return ReadSigned<1, int8_t>();
            case 0xD1:
                return ReadSigned<2, int16_t>();
            case 0xD2:
                return ReadSigned<4, int32_t>();
            case 0xD3:
                return ReadSigned<8, int64_t>();
            case 0xDC:
                return ReadArray<2>();
            case 0xDD:
                return ReadArray<4>();
            case 0xDE:
                return ReadMap<2>();
            case 0xDF:
                return ReadMap<4>();
            default:  // 0xC1, ext 8/16/32, fixext 1..16
                return Invalid();
        }
    }

    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    BindingProperty result_;
    CodecInternal::ValueBuilder builder_;
    std::vector<Count> counts_;
    std::string error_;
};

MsgPackResult Decode(const uint8_t* data, size_t size, CodecInternal::ValueBuilder::Path path) {
    if (size == 0) {
        return MsgPackResult{BindingProperty(), 0};
    }
    Decoder decoder(data, size, path);
    return decoder.Run();
}

}  // namespace

MsgPackResult DecodeMsgPack(const uint8_t* data, size_t size) {
    return Decode(data, size, CodecInternal::ValueBuilder::Path::WithModels);
}

namespace CodecInternal {

MsgPackResult DecodeMsgPackGeneralPath(const uint8_t* data, size_t size) {
    return Decode(data, size, ValueBuilder::Path::General);
}

}  // namespace CodecInternal

}  // namespace Orvan::Framework
