// StaticType: the identity of a native type, used to find its registered
// record in the type registry and carried by enum values.
//
// Each native type has one identity record, created on first use and never
// freed. Its id is the 32-bit FNV-1a hash of the compiler's signature text for
// the type, so it is fixed when the module is built and the same in every
// module built from the same sources; compare identities by id, never by
// address (each shared object holds its own copy of the record).
//
// Threads: the records are constant; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Orvan::Framework {

// 32-bit FNV-1a (offset basis 0x811c9dc5, prime 16777619), over the bytes of
// the text. Interned strings, field names and argument names all use it.
constexpr uint32_t HashFnv1a32(std::string_view text) {
    uint32_t hash = 0x811c9dc5u;
    for (char c : text) {
        hash ^= static_cast<uint8_t>(c);
        hash *= 16777619u;
    }
    return hash;
}

namespace Detail {

// Returns a plain pointer so that the signature holds no other template
// parameter than T (GCC lists the aliases of the return type too).
template <class T>
constexpr const char* RawTypeSignature() {
#if defined(__clang__) || defined(__GNUC__)
    return __PRETTY_FUNCTION__;
#elif defined(_MSC_VER)
    return __FUNCSIG__;
#else
    return "";
#endif
}

// The part of the signature that names T, e.g. "int" or
// "std::vector<Orvan::Client::LobbyTeamBuilder::Api::Lobby>".
template <class T>
constexpr std::string_view TypeSignature() {
    constexpr std::string_view raw = RawTypeSignature<T>();
#if defined(__clang__) || defined(__GNUC__)
    // "... RawTypeSignature() [with T = int]" (GCC) or "[T = int]" (clang).
    constexpr size_t open = raw.find("T = ");
    if constexpr (open == std::string_view::npos) {
        return {};
    } else {
        constexpr size_t first = open + 4;
        constexpr size_t last = raw.rfind(']');
        return raw.substr(first, last - first);
    }
#elif defined(_MSC_VER)
    // "... RawTypeSignature<int>(void)"
    constexpr size_t first = raw.find("RawTypeSignature<");
    if constexpr (first == std::string_view::npos) {
        return {};
    } else {
        constexpr size_t begin = first + 17;
        constexpr size_t last = raw.rfind(">(void)");
        return raw.substr(begin, last - begin);
    }
#else
    return {};
#endif
}

// NUL-terminated storage for a type's printable name.
template <size_t N>
struct TypeNameText {
    std::array<char, N + 1> text{};
};

constexpr char kHexDigits[] = "0123456789ABCDEF";

template <class T>
constexpr auto MakeTypeNameText() {
    constexpr std::string_view signature = TypeSignature<T>();
    if constexpr (signature.empty()) {
        // No signature recorded: "#" and the id as eight hexadecimal digits.
        constexpr uint32_t id = HashFnv1a32(RawTypeSignature<T>());
        TypeNameText<9> name;
        name.text[0] = '#';
        for (int i = 0; i < 8; ++i) {
            name.text[1 + i] = kHexDigits[(id >> (28 - 4 * i)) & 0xF];
        }
        return name;
    } else {
        TypeNameText<signature.size()> name;
        for (size_t i = 0; i < signature.size(); ++i) {
            name.text[i] = signature[i];
        }
        return name;
    }
}

template <class T>
inline constexpr auto kTypeNameText = MakeTypeNameText<T>();

}  // namespace Detail

struct StaticType {
    uint32_t id = 0;
    const char* name = "";

    // The id of the no-type identity; types registered with it are found by
    // name only.
    static constexpr uint32_t kNoTypeId = 0x1BE7EF8Eu;

    // The compiler's full signature text of T (empty where none is recorded).
    template <class T>
    static constexpr std::string_view Name() {
        return Detail::TypeSignature<T>();
    }

    template <class T>
    static constexpr uint32_t Id() {
        return HashFnv1a32(Detail::RawTypeSignature<T>());
    }

    // The process-lifetime identity record of T.
    template <class T>
    static const StaticType& Of() {
        static const StaticType record{Id<T>(), Detail::kTypeNameText<T>.text.data()};
        return record;
    }

    // The identity that stands for "no native type".
    static const StaticType& None() {
        static const StaticType record{kNoTypeId, "#1BE7EF8E"};
        return record;
    }

    bool IsNone() const { return id == kNoTypeId; }
};

}  // namespace Orvan::Framework
