// Typed registration of native records and enumerations: one declarative line
// per field, with the member's offset, type identifier and converter deduced
// from a member pointer.
//
//   RegisterStruct<Lobby>(registry, "QelLobbyTeamBuilderLobby")
//       .Field("queueId", &Lobby::queueId)
//       .Field("members", &Lobby::members)
//       .Field("gameMode", &Lobby::gameMode, kOmitIfEmpty)
//       .Field("token", &Lobby::token, "Opaque join token", kRequired)
//       .Description("...")
//       .Tags({"..."});
//   RegisterEnum<Phase>(registry, "QelLobbyTeamBuilderPhase")
//       .Value("DRAFT_PREMADE", Phase::DRAFT_PREMADE)
//       .Value("MATCHMAKING", Phase::MATCHMAKING, "Searching for a game");
//
// A name registered before keeps its first registration; the calls on the
// second builder change nothing. A field's help record reports it as
// optional when the member is a std::optional or carries kOmitIfEmpty.
//
// Threads: the start-up path (see BindingTypeRegistry).
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <type_traits>

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/StaticType.h"

namespace Orvan::Framework {

namespace Detail {

template <class T>
struct IsOptional : std::false_type {};
template <class U>
struct IsOptional<std::optional<U>> : std::true_type {};

// The byte offset of a member, found on uninitialised storage so that T need
// not be default-constructible.
template <class T, class M, class C>
uint32_t MemberOffset(M C::*member) {
    union Storage {
        char none;
        T object;
        Storage() : none(0) {}
        ~Storage() {}
    } storage;
    const T& object = storage.object;
    const char* base = reinterpret_cast<const char*>(&object);
    const char* field = reinterpret_cast<const char*>(&(object.*member));
    return static_cast<uint32_t>(field - base);
}

}  // namespace Detail

template <class T>
class StructRegistration {
public:
    explicit StructRegistration(BindingTypeBuilder builder) : builder_(builder) {
        builder_.SetConverter(MakeFieldConverter<T>());
    }

    template <class M, class C>
    StructRegistration& Field(std::string_view name, M C::*member,
                              BindingFieldFlags flags = kNoFieldFlags) {
        return Field(name, member, std::string_view{}, flags);
    }

    template <class M, class C>
    StructRegistration& Field(std::string_view name, M C::*member, std::string_view description,
                              BindingFieldFlags flags = kNoFieldFlags) {
        static_assert(std::is_base_of_v<C, T>, "the member must belong to the record");
        static_assert(!std::is_function_v<M>, "register data members only");
        if (builder_.AlreadyRegistered()) {
            return *this;
        }
        const BindingTypeRegistry* registry = builder_.Info().registry;
        const bool optional = Detail::IsOptional<M>::value || (flags & kOmitIfEmpty) != 0;
        if constexpr (Detail::IsOptional<M>::value) {
            flags = flags | kOptionalMember;
        }
        builder_.AddField(name, description, Detail::MemberOffset<T>(member), StaticType::Of<M>(),
                          IdentifierOf<M>(registry), BindingTypeIdentifier{}, flags,
                          MakeFieldConverter<M>(), optional);
        return *this;
    }

    StructRegistration& Description(std::string_view description) {
        builder_.SetDescription(description);
        return *this;
    }
    StructRegistration& NameSpace(std::string_view nameSpace) {
        builder_.SetNameSpace(nameSpace);
        return *this;
    }
    StructRegistration& Tag(std::string_view tag) {
        builder_.AddTag(tag);
        return *this;
    }
    StructRegistration& Tags(std::initializer_list<std::string_view> tags) {
        builder_.AddTags(tags);
        return *this;
    }

    const BindingTypeInfo& Info() const { return builder_.Info(); }
    bool AlreadyRegistered() const { return builder_.AlreadyRegistered(); }

private:
    BindingTypeBuilder builder_;
};

template <class E>
class EnumRegistration {
public:
    explicit EnumRegistration(BindingTypeBuilder builder) : builder_(builder) {
        builder_.SetConverter(MakeFieldConverter<E>());
    }

    EnumRegistration& Value(std::string_view name, E value, std::string_view description = {}) {
        builder_.AddValue(name, static_cast<int32_t>(value), description);
        return *this;
    }
    EnumRegistration& Description(std::string_view description) {
        builder_.SetDescription(description);
        return *this;
    }
    EnumRegistration& NameSpace(std::string_view nameSpace) {
        builder_.SetNameSpace(nameSpace);
        return *this;
    }
    EnumRegistration& Tag(std::string_view tag) {
        builder_.AddTag(tag);
        return *this;
    }
    EnumRegistration& Tags(std::initializer_list<std::string_view> tags) {
        builder_.AddTags(tags);
        return *this;
    }

    const BindingTypeInfo& Info() const { return builder_.Info(); }
    bool AlreadyRegistered() const { return builder_.AlreadyRegistered(); }

private:
    BindingTypeBuilder builder_;
};

template <class T>
StructRegistration<T> RegisterStruct(BindingTypeRegistry& registry, std::string_view name) {
    static_assert(std::is_class_v<T>, "RegisterStruct takes a record type");
    return StructRegistration<T>(registry.BeginType(static_cast<uint32_t>(sizeof(T)), name,
                                                    StaticType::Of<T>(),
                                                    BindingTypeCategory::Structure));
}

template <class E>
EnumRegistration<E> RegisterEnum(BindingTypeRegistry& registry, std::string_view name) {
    static_assert(std::is_enum_v<E>, "RegisterEnum takes an enumeration type");
    return EnumRegistration<E>(registry.BeginType(static_cast<uint32_t>(sizeof(E)), name,
                                                  StaticType::Of<E>(),
                                                  BindingTypeCategory::Enumeration));
}

}  // namespace Orvan::Framework
