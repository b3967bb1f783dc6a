#include "framework/binding/BindingTypeRegistry.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "framework/binding/TypeRegistration.h"

namespace Orvan::Framework {
namespace {

enum class Phase : int32_t { Draft = 0, Search = 1, Ready = 2 };

struct Base {
    int64_t id = 0;
};

struct Member : Base {
    char tag = 0;
    std::string name;
    std::optional<uint16_t> slot;
    std::vector<Member> children;
    std::map<std::string, Phase> phases;
};

TEST(StaticTypeTest, IdentityAndNames) {
    EXPECT_EQ(&StaticType::Of<int>(), &StaticType::Of<int>());
    EXPECT_NE(StaticType::Of<int>().id, StaticType::Of<long long>().id);
    EXPECT_NE(StaticType::Of<Member>().id, StaticType::Of<Base>().id);
    EXPECT_STREQ(StaticType::Of<int>().name, "int");
    EXPECT_EQ(StaticType::Name<Member>(), StaticType::Of<Member>().name);
    EXPECT_NE(std::string_view(StaticType::Of<Member>().name).find("Member"), std::string::npos);
    EXPECT_EQ(StaticType::None().id, 0x1BE7EF8Eu);
    EXPECT_STREQ(StaticType::None().name, "#1BE7EF8E");
    static_assert(HashFnv1a32("") == 0x811c9dc5u);
    static_assert(HashFnv1a32("a") == 0xe40c292cu);
}

// The names reach messages and the API help, where they are checked; here
// only the bounds.
TEST(BindingTypeCodeTest, NamesEndAtTheLastCode) {
    EXPECT_STREQ(BindingTypeCodeName(0), "");
    EXPECT_STREQ(BindingTypeCodeName(19), "map");
    EXPECT_STREQ(BindingTypeCodeName(20), "");
    EXPECT_STREQ(BindingTypeCodeName(0xFFFFFFFFu), "");
}

TEST(BindingTypeRegistryTest, FieldRecordsFromMemberPointers) {
    BindingTypeRegistry registry;
    RegisterEnum<Phase>(registry, "Phase").Value("Draft", Phase::Draft);
    RegisterStruct<Member>(registry, "Member")
        .Field("id", &Member::id)
        .Field("tag", &Member::tag, "One letter", kRequired)
        .Field("slot", &Member::slot)
        .Field("children", &Member::children, kOmitIfEmpty)
        .Field("phases", &Member::phases)
        .Description("A member")
        .NameSpace("test")
        .Tags({"a", "", "b"});

    const BindingTypeInfo* info = registry.FindByName("Member");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(registry.Find(StaticType::Of<Member>()), info);
    EXPECT_EQ(info->size, sizeof(Member));
    EXPECT_EQ(info->category, BindingTypeCategory::Structure);
    EXPECT_EQ(info->description, "A member");
    EXPECT_EQ(info->nameSpace, "test");
    EXPECT_EQ(info->tags, (std::vector<std::string>{"a", "b"}));
    ASSERT_EQ(info->fields.size(), 5u);

    struct Expected {
        const char* name;
        size_t offset;
        BindingTypeCode type;
        BindingTypeCode element;
        const BindingTypeInfo* info;
        uint32_t flags;
        uint8_t optional;
    };
    const BindingTypeInfo* phase = registry.FindByName("Phase");
    const Member sample;
    auto at = [&sample](const auto& member) {
        return static_cast<size_t>(reinterpret_cast<const char*>(&member) -
                                   reinterpret_cast<const char*>(&sample));
    };
    const Expected expected[] = {
        {"id", at(sample.id), BindingTypeCode::Int64, BindingTypeCode::None, nullptr, 0, 0},
        {"tag", at(sample.tag), BindingTypeCode::Int8, BindingTypeCode::None, nullptr, kRequired,
         0},
        {"slot", at(sample.slot), BindingTypeCode::Uint16, BindingTypeCode::None, nullptr,
         kOptionalMember, 1},
        // A record's own type is entered before its fields are added.
        {"children", at(sample.children), BindingTypeCode::Vector, BindingTypeCode::Struct, info,
         kOmitIfEmpty, 1},
        {"phases", at(sample.phases), BindingTypeCode::Map, BindingTypeCode::Enum, phase, 0, 0},
    };
    for (size_t i = 0; i < std::size(expected); ++i) {
        const BindingFieldInfo& field = info->fields[i];
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(field.name, expected[i].name);
        EXPECT_EQ(field.nameHash, HashFnv1a32(expected[i].name));
        EXPECT_EQ(field.offset, expected[i].offset);
        EXPECT_EQ(field.type.type, expected[i].type);
        EXPECT_EQ(field.type.elementType, expected[i].element);
        EXPECT_EQ(field.type.info, expected[i].info);
        EXPECT_EQ(field.flags, expected[i].flags);
        EXPECT_EQ(field.optional, expected[i].optional);
        EXPECT_EQ(field.owner, info);
        EXPECT_NE(field.converter, nullptr);
        EXPECT_TRUE(field.secondType.IsNone());
    }
    EXPECT_EQ(info->fields[1].description, "One letter");
    EXPECT_EQ(registry.Resolve(info->fields[3].type), info);
}

TEST(BindingTypeRegistryTest, SecondRegistrationOfANameChangesNothing) {
    BindingTypeRegistry registry;
    auto first = RegisterEnum<Phase>(registry, "Phase");
    first.Value("Draft", Phase::Draft).Description("first");
    EXPECT_FALSE(first.AlreadyRegistered());

    auto second = RegisterEnum<Phase>(registry, "Phase");
    EXPECT_TRUE(second.AlreadyRegistered());
    second.Value("Search", Phase::Search).Description("second").Tags({"x"});

    const BindingTypeInfo* info = registry.FindByName("Phase");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->values.size(), 1u);
    EXPECT_EQ(info->description, "first");
    EXPECT_TRUE(info->tags.empty());
    EXPECT_EQ(registry.Types().size(), 1u);

    // A struct registered again under its name keeps its first field list.
    RegisterStruct<Base>(registry, "Base").Field("id", &Base::id);
    RegisterStruct<Base>(registry, "Base").Field("id", &Base::id).Field("again", &Base::id);
    EXPECT_EQ(registry.FindByName("Base")->fields.size(), 1u);
}

TEST(BindingTypeRegistryTest, EnumeratorsAndTheirNames) {
    BindingTypeRegistry registry;
    RegisterEnum<Phase>(registry, "Phase")
        .Value("Search", Phase::Search)
        .Value("Looking", Phase::Search)  // an alias: name order decides
        .Value("Ready", Phase::Ready, "old")
        .Value("Ready", Phase::Ready, "overwritten");
    const BindingTypeInfo* info = registry.FindByName("Phase");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->category, BindingTypeCategory::Enumeration);
    EXPECT_EQ(info->values.size(), 3u);
    EXPECT_EQ(info->FindValue("Ready")->description, "overwritten");
    EXPECT_STREQ(registry.EnumeratorName(StaticType::Of<Phase>(), 1), "Looking");
    EXPECT_STREQ(registry.EnumeratorName(StaticType::Of<Phase>(), 2), "Ready");
    EXPECT_EQ(registry.EnumeratorName(StaticType::Of<Phase>(), 0), nullptr);
    EXPECT_EQ(registry.EnumeratorName(StaticType::Of<Base>(), 1), nullptr);
}

TEST(BindingTypeRegistryTest, NoTypeIdentityIsFoundByNameOnly) {
    BindingTypeRegistry registry;
    registry.BeginType(4, "Loose", StaticType::None(), BindingTypeCategory::Enumeration)
        .AddValue("One", 1);
    ASSERT_NE(registry.FindByName("Loose"), nullptr);
    EXPECT_EQ(registry.FindById(StaticType::kNoTypeId), nullptr);

    // By id, the first record registered for an identity stays.
    RegisterStruct<Base>(registry, "First");
    RegisterStruct<Base>(registry, "Second");
    EXPECT_EQ(registry.Find(StaticType::Of<Base>()), registry.FindByName("First"));
}

TEST(BindingTypeRegistryTest, FunctionsAndEventsKeepTheFirstOfAName) {
    BindingTypeRegistry registry;
    BindingFunctionInfo function;
    function.name = "GetThing";
    function.description = "first";
    BindingFunctionInfo* stored = registry.AddFunction(function);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->registry, &registry);
    function.description = "second";
    EXPECT_EQ(registry.AddFunction(function), nullptr);
    EXPECT_EQ(registry.FindFunction("GetThing")->description, "first");
    EXPECT_EQ(registry.Functions().size(), 1u);

    BindingEventInfo event;
    event.name = "OnThing";
    EXPECT_TRUE(registry.AddEvent(event));
    EXPECT_FALSE(registry.AddEvent(event));
    EXPECT_EQ(registry.Events().size(), 1u);
    EXPECT_NE(registry.FindEvent("OnThing"), nullptr);
}

}  // namespace
}  // namespace Orvan::Framework
