// MessagePack decoding into the shared value builder, with an explicit stack
// of item counts beside the builder's stack of open containers.
#include <bit>
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

// The reading of type bytes, lengths and numbers, with the failure messages,
// shared by both decoders.
class Cursor {
protected:
    Cursor(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    bool Fail(const char* format, size_t a, size_t b = 0) {
        char text[128];
        std::snprintf(text, sizeof text, format, a, b);
        error_ = text;
        return false;
    }
    bool Invalid() { return Fail("Invalid MessagePack data at position %zu.", pos_); }
    bool TooDeep() {
        return Fail("Invalid MessagePack data at position %zu. Nesting is deeper than 512.", pos_);
    }
    bool KeyNotString() {
        return Fail("Invalid MessagePack data at position %zu. Map keys must be strings.", pos_);
    }

    // Reads a big-endian unsigned number of Width bytes.
    template <size_t Width>
    bool ReadBig(uint64_t& out) {
        if (size_ - pos_ < Width) {
            return Fail(
                "Invalid MessagePack data. %zu-bit integer value at position %zu is truncated.",
                Width * 8, pos_);
        }
        const uint8_t* p = data_ + pos_;
        if constexpr (Width == 1) {
            out = p[0];
        } else if constexpr (Width == 2) {
            out = (uint64_t{p[0]} << 8) | p[1];
        } else if constexpr (Width == 4) {
            out = Internal::LoadBigEndian32(reinterpret_cast<const char*>(p));
        } else {
            out = Internal::LoadBigEndian64(reinterpret_cast<const char*>(p));
        }
        pos_ += Width;
        return true;
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

    template <size_t Width>
    bool StringOfWidth(std::string_view& text) {
        uint64_t n = 0;
        return ReadBig<Width>(n) && ReadString(n, text);
    }

    // The text of a str type byte (fixstr or str 8, 16, 32).
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

    // The bytes of a bin type of Width length bytes, in `bytes`/`n`.
    template <size_t Width>
    bool ReadBlobBody(const uint8_t*& bytes, size_t& n) {
        uint64_t length = 0;
        if (!ReadBig<Width>(length)) {
            return false;
        }
        if (size_ - pos_ < length) {
            return Fail(
                "Invalid MessagePack data. Raw bytes of size %zu at position %zu are truncated.",
                static_cast<size_t>(length), pos_);
        }
        bytes = data_ + pos_;
        n = static_cast<size_t>(length);
        pos_ += n;
        return true;
    }

    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    std::string error_;
};

// The general path: every event through ValueBuilder.
class Decoder : private Cursor {
public:
    Decoder(const uint8_t* data, size_t size, CodecInternal::ValueBuilder::Path path)
        : Cursor(data, size), builder_(result_, path) {
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
        builder_.Finish();
        return MsgPackResult{std::move(result_), pos_};
    }

private:
    struct Count {
        uint64_t expected;  // for a map, twice the entry count
        uint64_t received;
    };

    bool ReadKey() {
        uint8_t type = data_[pos_++];
        if (!IsStringType(type)) {
            return KeyNotString();
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
        const uint8_t* bytes = nullptr;
        size_t n = 0;
        if (!ReadBlobBody<Width>(bytes, n)) {
            return false;
        }
        builder_.Target().SetBlob(bytes, n);
        return true;
    }
    template <size_t Width>
    bool ReadArray() {
        uint64_t n = 0;
        return ReadBig<Width>(n) && OpenCollection(n);
    }
    template <size_t Width>
    bool ReadMap() {
        uint64_t n = 0;
        return ReadBig<Width>(n) && OpenStructure(n);
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

    BindingProperty result_;
    CodecInternal::ValueBuilder builder_;
    std::vector<Count> counts_;
};

// The usual path: values are read straight into their place in the tree. A
// record whose earlier sibling (the previous element of its array, or the
// same field of the previous record) has the same kind takes it as its model:
// names that match the model's next name are appended with the model's
// interned name (names of the model the record lacks are passed over), texts
// equal to the model's reuse its entry. Any other name
// goes through MutableField and ends the model for that record, so the tree
// is the one the general path builds.
class ModelDecoder : private Cursor {
public:
    ModelDecoder(const uint8_t* data, size_t size) : Cursor(data, size) {
        frames_.reserve(16);
        if (size >= 512) {
            // A record's text (key or value) every 32 bytes or so.
            Internal::ReserveStrings(result_, size / 32);
        }
    }

    MsgPackResult Run() {
        if (!ReadInto(result_, nullptr)) {
            return MsgPackResult{Failure(std::move(error_)), pos_};
        }
        while (!frames_.empty()) {
            // The items of the innermost container, until it is complete or
            // one of them opens a container of its own.
            size_t depth = frames_.size();
            Frame& top = frames_.back();
            bool ok = true;
            // The depth is checked first: a container opened by an item may
            // have moved the frames, and `top` with them.
            while (frames_.size() == depth && top.remaining != 0 && pos_ != size_) {
                --top.remaining;
                ok = top.isMap ? ReadEntry(top) : ReadElement(top);
                if (!ok) {
                    return MsgPackResult{Failure(std::move(error_)), pos_};
                }
            }
            if (frames_.size() != depth) {
                continue;  // `top` may have moved; the new container is read first
            }
            if (top.remaining != 0) {
                break;  // input ends inside the container: it keeps what it has
            }
            Internal::TrimToSize(*top.value);
            frames_.pop_back();
        }
        Internal::FitStrings(result_);
        return MsgPackResult{std::move(result_), pos_};
    }

private:
    struct Frame {
        BindingProperty* value;
        const BindingProperty* model;  // an earlier sibling of the same kind, or null
        uint64_t remaining;            // elements, or entries of a map, still to read
        size_t next;                   // maps: the model's field the next name should match
        bool isMap;
    };

    // A fixstr (nearly every name and most texts) is read here; the longer
    // forms through ReadStringBody.
    bool ReadText(uint8_t type, std::string_view& text) {
        if ((type & 0xE0) == 0xA0) {
            size_t n = type & 0x1F;
            if (size_ - pos_ < n) {
                return ReadString(n, text);  // the truncation message
            }
            text = std::string_view(reinterpret_cast<const char*>(data_ + pos_), n);
            pos_ += n;
            return true;
        }
        return ReadStringBody(type, text);
    }

    // `top` is not used once the value is read: opening a container may move it.
    bool ReadEntry(Frame& top) {
        uint8_t type = data_[pos_++];
        if (!IsStringType(type)) {
            return KeyNotString();
        }
        std::string_view key;
        if (!ReadText(type, key)) {
            return false;
        }
        if (pos_ == size_) {
            return true;  // a key without its value leaves no field
        }
        if (top.model != nullptr) {
            const Internal::StructureRecord* model = Internal::StructureOf(*top.model);
            size_t at =
                top.next < model->size && Internal::SameText(model->items[top.next].name, key)
                    ? top.next
                    : Internal::FindModelName(*model, top.next, key);
            if (at < model->size) {
                const Internal::FieldEntry& entry = model->items[at];
                top.next = at + 1;
                return ReadInto(Internal::AppendField(*top.value, entry.name), &entry.value);
            }
            top.model = nullptr;
        }
        return ReadInto(top.value->MutableField(key), nullptr);
    }

    bool ReadElement(Frame& top) {
        BindingProperty& element = Internal::AppendElement(*top.value);
        const Internal::CollectionRecord* record = Internal::CollectionOf(*top.value);
        const BindingProperty* model = nullptr;
        if (record->size > 1) {
            model = &record->items[record->size - 2];
        } else if (top.model != nullptr && Internal::CollectionOf(*top.model)->size != 0) {
            model = Internal::CollectionOf(*top.model)->items;
        }
        return ReadInto(element, model);
    }

    // A fresh target (the usual case) is set in place; one that a repeated
    // name reached is cleared first.
    static void SetScalar(BindingProperty& target, BindingKind kind, uint64_t payload) {
        if (target.IsEmpty()) {
            Internal::SetInline(target, kind, payload);
            return;
        }
        switch (kind) {
            case BindingKind::Bool:
                target.SetBool(payload != 0);
                break;
            case BindingKind::Signed:
                target.SetSigned(static_cast<int64_t>(payload));
                break;
            case BindingKind::Unsigned:
                target.SetUnsigned(payload);
                break;
            default:
                target.SetFloat(std::bit_cast<double>(payload));
                break;
        }
    }

    static void SetText(BindingProperty& target, const BindingProperty* model,
                        std::string_view text) {
        if (model != nullptr && model->Kind() == BindingKind::String && target.IsEmpty() &&
            Internal::SameText(Internal::StringEntryOf(*model), text)) {
            Internal::AdoptString(target, Internal::StringEntryOf(*model));
            return;
        }
        BindingContext* context = BindingContext::Context(target);
        if (target.IsEmpty() && context != nullptr) {
            // A fresh value inside the tree: nothing to clear.
            Internal::InternEntry* entry =
                text.empty() ? Internal::InternTable::Empty() : context->Strings().Intern(text);
            Internal::TakeString(target, entry);
            return;
        }
        target.SetString(text);
    }

    template <size_t Width>
    bool ReadNumber(BindingProperty& target, BindingKind kind) {
        uint64_t v = 0;
        if (!ReadBig<Width>(v)) {
            return false;
        }
        if (kind == BindingKind::Signed) {
            // Sign-extend from Width bytes.
            constexpr unsigned kShift = 64 - 8 * Width;
            v = static_cast<uint64_t>(static_cast<int64_t>(v << kShift) >> kShift);
        }
        SetScalar(target, kind, v);
        return true;
    }

    bool OpenMap(BindingProperty& target, const BindingProperty* model, uint64_t n) {
        if (frames_.size() >= kMaxNestingDepth) {
            return TooDeep();
        }
        // Each entry takes at least two bytes.
        size_t available = (size_ - pos_) / 2;
        size_t reserve = static_cast<size_t>(n < available ? n : available);
        if (reserve != 0) {
            Internal::BeginSizedStructure(target, reserve);
        } else {
            target.SetEmptyStructure();
        }
        if (n != 0) {
            bool sameKind = model != nullptr && model->Kind() == BindingKind::Structure;
            frames_.push_back(Frame{&target, sameKind ? model : nullptr, n, 0, true});
        }
        return true;
    }

    bool OpenArray(BindingProperty& target, const BindingProperty* model, uint64_t n) {
        if (frames_.size() >= kMaxNestingDepth) {
            return TooDeep();
        }
        // Each element takes at least one byte.
        size_t available = size_ - pos_;
        size_t reserve = static_cast<size_t>(n < available ? n : available);
        if (reserve != 0) {
            Internal::BeginSizedCollection(target, reserve);
        } else {
            target.SetEmptyCollection();
        }
        if (n != 0) {
            bool sameKind = model != nullptr && model->Kind() == BindingKind::Collection;
            frames_.push_back(Frame{&target, sameKind ? model : nullptr, n, 0, false});
        }
        return true;
    }

    template <size_t Width>
    bool ReadMapOf(BindingProperty& target, const BindingProperty* model) {
        uint64_t n = 0;
        return ReadBig<Width>(n) && OpenMap(target, model, n);
    }
    template <size_t Width>
    bool ReadArrayOf(BindingProperty& target, const BindingProperty* model) {
        uint64_t n = 0;
        return ReadBig<Width>(n) && OpenArray(target, model, n);
    }
    template <size_t Width>
    bool ReadBlobInto(BindingProperty& target) {
        const uint8_t* bytes = nullptr;
        size_t n = 0;
        if (!ReadBlobBody<Width>(bytes, n)) {
            return false;
        }
        target.SetBlob(bytes, n);
        return true;
    }

    // Reads the value at pos_ into `target`; a container is opened and its
    // items are read by Run.
    bool ReadInto(BindingProperty& target, const BindingProperty* model) {
        uint8_t type = data_[pos_++];
        if (type <= 0x7F) {
            SetScalar(target, BindingKind::Signed, type);
            return true;
        }
        if (type >= 0xE0) {
            SetScalar(target, BindingKind::Signed,
                      static_cast<uint64_t>(int64_t{static_cast<int8_t>(type)}));
            return true;
        }
        if (type <= 0x8F) {
            return OpenMap(target, model, type & 0x0F);
        }
        if (type <= 0x9F) {
            return OpenArray(target, model, type & 0x0F);
        }
        if (type <= 0xBF || (type >= 0xD9 && type <= 0xDB)) {
            std::string_view text;
            if (!ReadText(type, text)) {
                return false;
            }
            SetText(target, model, text);
            return true;
        }
        switch (type) {
            case 0xC0:
                if (!target.IsEmpty()) {
                    target.Clear();  // a repeated name: the last value, null, wins
                }
                return true;
            case 0xC2:
            case 0xC3:
                SetScalar(target, BindingKind::Bool, type == 0xC3 ? 1 : 0);
                return true;
            case 0xC4:
                return ReadBlobInto<1>(target);
            case 0xC5:
                return ReadBlobInto<2>(target);
            case 0xC6:
                return ReadBlobInto<4>(target);
            case 0xCA: {
                uint64_t bits = 0;
                if (!ReadBig<4>(bits)) {
                    return false;
                }
                float f = std::bit_cast<float>(static_cast<uint32_t>(bits));
                SetScalar(target, BindingKind::Float, std::bit_cast<uint64_t>(double{f}));
                return true;
            }
            case 0xCB: {
                uint64_t bits = 0;
                if (!ReadBig<8>(bits)) {
                    return false;
                }
                SetScalar(target, BindingKind::Float, bits);
                return true;
            }
            case 0xCC:
                return ReadNumber<1>(target, BindingKind::Unsigned);
            case 0xCD:
                return ReadNumber<2>(target, BindingKind::Unsigned);
            case 0xCE:
                return ReadNumber<4>(target, BindingKind::Unsigned);
            case 0xCF:
                return ReadNumber<8>(target, BindingKind::Unsigned);
            case 0xD0:
                return ReadNumber<1>(target, BindingKind::Signed);
            case 0xD1:
                return ReadNumber<2>(target, BindingKind::Signed);
            case 0xD2:
                return ReadNumber<4>(target, BindingKind::Signed);
            case 0xD3:
                return ReadNumber<8>(target, BindingKind::Signed);
            case 0xDC:
                return ReadArrayOf<2>(target, model);
            case 0xDD:
                return ReadArrayOf<4>(target, model);
            case 0xDE:
                return ReadMapOf<2>(target, model);
            case 0xDF:
                return ReadMapOf<4>(target, model);
            default:  // 0xC1, ext 8/16/32, fixext 1..16
                return Invalid();
        }
    }

    BindingProperty result_;
    std::vector<Frame> frames_;
};

MsgPackResult Decode(const uint8_t* data, size_t size, CodecInternal::ValueBuilder::Path path) {
    if (size == 0) {
        return MsgPackResult{BindingProperty(), 0};
    }
    if (path == CodecInternal::ValueBuilder::Path::WithModels) {
        ModelDecoder decoder(data, size);
        return decoder.Run();
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
