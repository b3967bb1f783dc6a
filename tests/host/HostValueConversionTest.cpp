#include "framework/host/HostValueConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/MessageFormat.h"
#include "framework/binding/TypeRegistration.h"
#include "framework/codec/Json.h"
#include "tests/support/TestHost.h"

namespace Orvan::Framework {
namespace {

using Testing::SameHostValue;
using Testing::Unpacked;

enum class Colour : int32_t { Red = 1, Green = 2 };

BindingProperty FromJson(std::string_view text) {
    Maybe<BindingProperty> value = ReadJson(text);
    EXPECT_TRUE(value.HasValue()) << text;
    return value ? *value : BindingProperty();
}

TEST(HostValueConversionTest, EveryKindCrossesWithItsCodeAndComesBack) {
    struct Case {
        BindingProperty value;
        uint32_t code;
    };
    std::vector<Case> cases;
    cases.push_back({BindingProperty(), kHostValueNull});
    cases.push_back({BindingProperty(true), kHostValueBool});
    cases.push_back({BindingProperty(int64_t{-5}), kHostValueSigned});
    cases.push_back({BindingProperty(uint64_t{1} << 63), kHostValueUnsigned});
    cases.push_back({BindingProperty(2.5), kHostValueFloat});
    cases.push_back({BindingProperty(std::string_view("a\0b", 3)), kHostValueTextOwned});
    cases.push_back({BindingProperty(std::vector<uint8_t>{0, 1, 255}), kHostValueBytesOwned});
    cases.push_back({FromJson(R"([1,"two",[3]])"), kHostValueArray});
    cases.push_back({FromJson(R"({"b":{"c":null},"a":[]})"), kHostValueObject});

    for (const Case& c : cases) {
        OwnedHostValue host;
        ASSERT_TRUE(ToHostValue(c.value, host.Get()).HasValue());
        EXPECT_EQ(Unpacked(host.Get().type), c.code) << c.value.KindName();
        Maybe<BindingProperty> back = FromHostValue(host.Get(), "<result>");
        ASSERT_TRUE(back.HasValue());
        if (c.value.Kind() == BindingKind::Blob) {
            // Blobs compare by identity; compare their bytes.
            EXPECT_TRUE(std::ranges::equal(back->GetBlob(), c.value.GetBlob()));
        } else {
            EXPECT_EQ(WriteJson(*back), WriteJson(c.value)) << c.value.KindName();
        }
    }
}

TEST(HostValueConversionTest, OwnedTextsAndKeysAreTerminatedAndFlagged) {
    OwnedHostValue host;
    ASSERT_TRUE(ToHostValue(FromJson(R"({"name":"Ann"})"), host.Get()).HasValue());
    ASSERT_EQ(Unpacked(host.Get().payload.span.length), 1u);
    const auto* entry = static_cast<const HostObjectEntry*>(host.Get().payload.span.address);
    EXPECT_STREQ(entry->key, "name");
    EXPECT_EQ(entry->keyOwned, 1);
    EXPECT_EQ(Unpacked(entry->value.type), kHostValueTextOwned);
    EXPECT_EQ(Unpacked(entry->value.payload.span.length), 3u);
    EXPECT_STREQ(static_cast<const char*>(entry->value.payload.span.address), "Ann");
}

TEST(HostValueConversionTest, EnumsCrossByNameWhenTheRegistryNamesThem) {
    BindingTypeRegistry registry;
    RegisterEnum<Colour>(registry, "Colour").Value("Red", Colour::Red);
    const StaticType& type = StaticType::Of<Colour>();

    OwnedHostValue named;
    ASSERT_TRUE(ToHostValue(BindingProperty(BindingEnumValue{1, &type}), named.Get(), &registry)
                    .HasValue());
    ASSERT_EQ(Unpacked(named.Get().type), kHostValueTextOwned);
    EXPECT_STREQ(static_cast<const char*>(named.Get().payload.span.address), "Red");

    OwnedHostValue unnamed;
    ASSERT_TRUE(ToHostValue(BindingProperty(BindingEnumValue{2, &type}), unnamed.Get(), &registry)
                    .HasValue());
    EXPECT_EQ(Unpacked(unnamed.Get().type), kHostValueSigned);
    EXPECT_EQ(Unpacked(unnamed.Get().payload.signedValue), 2);

    OwnedHostValue withoutRegistry;
    ASSERT_TRUE(
        ToHostValue(BindingProperty(BindingEnumValue{1, &type}), withoutRegistry.Get()).HasValue());
    EXPECT_EQ(Unpacked(withoutRegistry.Get().type), kHostValueSigned);
}

TEST(HostValueConversionTest, HostRecordsConvertInOrderAndReleaseOnlyWhatTheyOwn) {
    // A host-built object: unowned texts and bytes, a key that is not owned.
    static const char kText[] = "hello";
    static const uint8_t kBytes[] = {7, 8};
    HostValue items[3]{};
    items[0].type = kHostValueTextUnowned;
    items[0].payload.span.address = const_cast<char*>(kText);
    items[1].type = kHostValueBytesUnowned;
    items[1].payload.span.address = const_cast<uint8_t*>(kBytes);
    items[1].payload.span.length = 2;
    items[2].type = kHostValueSigned;
    items[2].payload.signedValue = 3;
    HostObjectEntry entries[2]{};
    entries[0].key = "list";
    entries[0].value.type = kHostValueArray;
    entries[0].value.payload.span.address = items;
    entries[0].value.payload.span.length = 3;
    entries[1].key = "list";  // a repeated key keeps its last value
    entries[1].value.type = kHostValueBool;
    entries[1].value.payload.boolValue = 1;
    HostValue object{};
    object.type = kHostValueObject;
    object.payload.span.address = entries;
    object.payload.span.length = 1;

    Maybe<BindingProperty> value = FromHostValue(object, "<result>");
    ASSERT_TRUE(value.HasValue());
    const BindingProperty& list = value->Field("list");
    ASSERT_EQ(list.Size(), 3u);
    EXPECT_EQ(list.Element(0).GetString(), "hello");
    EXPECT_EQ(list.Element(1).GetBlob().size(), 2u);
    EXPECT_EQ(list.Element(2).GetSigned(), 3);

    object.payload.span.length = 2;
    EXPECT_EQ(WriteJson(*FromHostValue(object, "<result>")), R"({"list":true})");

    // Release on a copy whose owned parts are the module's: the unowned key
    // and texts stay untouched (the sanitizers would report a bad free).
    OwnedHostValue copy;
    ASSERT_TRUE(ToHostValue(*value, copy.Get()).HasValue());
    auto* copied = static_cast<HostObjectEntry*>(copy.Get().payload.span.address);
    char* ownedKey = const_cast<char*>(copied->key);
    copied->key = "list";
    copied->keyOwned = 0;
    ReleaseHostValue(copy.Get());
    EXPECT_EQ(Unpacked(copy.Get().type), kHostValueNull);
    EXPECT_STREQ(entries[0].key, "list");
    std::free(ownedKey);
}

TEST(HostValueConversionTest, MalformedHostValuesFailWithTheRootName) {
    HostValue unknown{};
    unknown.type = 11;
    HostValue textWithoutAddress{};
    textWithoutAddress.type = kHostValueTextOwned;
    textWithoutAddress.payload.span.length = 3;
    HostObjectEntry keyless{};
    HostValue objectWithoutKey{};
    objectWithoutKey.type = kHostValueObject;
    objectWithoutKey.payload.span.address = &keyless;
    objectWithoutKey.payload.span.length = 1;

    const struct {
        const HostValue* value;
        const char* message;
    } cases[] = {
        {&unknown, "Couldn't convert host value '<result>': unknown type code 11"},
        {&textWithoutAddress,
         "Couldn't convert host value '<result>': type code 6 has no address for a length of 3"},
        {&objectWithoutKey, "Couldn't convert host value '<result>': object entry 0 has no key"},
    };
    for (const auto& c : cases) {
        Maybe<BindingProperty> value = FromHostValue(*c.value, "<result>");
        ASSERT_FALSE(value.HasValue());
        EXPECT_EQ(value.GetFailure().message, c.message);
    }
}

TEST(HostValueConversionTest, NestingBeyondTheLimitFailsInBothDirections) {
    std::vector<HostValue> chain(kMaxHostValueDepth + 2);
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
        chain[i].type = kHostValueArray;
        chain[i].payload.span.address = &chain[i + 1];
        chain[i].payload.span.length = 1;
    }
    EXPECT_FALSE(FromHostValue(chain[0], "<result>").HasValue());
    EXPECT_TRUE(FromHostValue(chain[2], "<result>").HasValue());

    BindingProperty deep;
    BindingProperty* cursor = &deep;
    for (size_t i = 0; i <= kMaxHostValueDepth; ++i) {
        cursor = &cursor->Append();
    }
    HostValue out{};
    EXPECT_FALSE(ToHostValue(deep, out).HasValue());
    EXPECT_EQ(Unpacked(out.type), kHostValueNull);  // nothing left allocated
}

TEST(HostValueConversionTest, ValuesBuiltInAnArenaMatchThoseBuiltPieceByPiece) {
    BindingTypeRegistry registry;
    RegisterEnum<Colour>(registry, "Colour").Value("Red", Colour::Red);
    const StaticType& type = StaticType::Of<Colour>();

    BindingProperty mixed = FromJson(R"({"b":{"c":null,"d":[1,-2,2.5,true]},"a":[],"e":""})");
    mixed.MutableField("blob").SetBlob(std::vector<uint8_t>{0, 1, 255});
    mixed.MutableField("empty blob").SetBlob(std::vector<uint8_t>{});
    mixed.MutableField("named").SetEnum(BindingEnumValue{1, &type});
    mixed.MutableField("unnamed").SetEnum(BindingEnumValue{2, &type});
    mixed.MutableField("nul").SetString(std::string_view("a\0b", 3));
    // More than the arena's first blocks hold, in one text and in many parts.
    BindingProperty large;
    large.MutableField("text").SetString(std::string(20000, 'x'));
    for (int i = 0; i < 3000; ++i) {
        large.MutableField("list").Append().MutableField("n").SetSigned(i);
    }

    for (const BindingProperty* value : {&mixed, &large}) {
        OwnedHostValue pieces;
        ASSERT_TRUE(ToHostValue(*value, pieces.Get(), &registry).HasValue());
        HostValueArena arena;
        HostValue packed{};
        ASSERT_TRUE(ToHostValue(*value, packed, &registry, arena).HasValue());
        EXPECT_TRUE(SameHostValue(pieces.Get(), packed)) << WriteJson(*value).substr(0, 80);
    }
}

TEST(HostValueConversionTest, AnArenaValueStartingBelowTheRootMeetsTheLimitSooner) {
    BindingProperty deep;
    BindingProperty* cursor = &deep;
    for (size_t i = 0; i + 1 < kMaxHostValueDepth; ++i) {
        cursor = &cursor->Append();
    }
    cursor->Append().SetSigned(1);  // the deepest the limit lets through
    HostValueArena arena;
    HostValue out{};
    EXPECT_TRUE(ToHostValue(deep, out, nullptr, arena).HasValue());
    Maybe<> nested = ToHostValue(deep, out, nullptr, arena, 1);
    ASSERT_FALSE(nested.HasValue());
    EXPECT_EQ(nested.GetFailure().message,
              Format("Couldn't convert a value nested deeper than %1 levels for the host",
                     static_cast<uint64_t>(kMaxHostValueDepth)));
    EXPECT_EQ(Unpacked(out.type), kHostValueNull);
}

}  // namespace
}  // namespace Orvan::Framework
