#include "framework/binding/ApiHelp.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/TypeRegistration.h"

namespace Orvan::Framework {
namespace {

enum class Mode : int32_t { Solo = 0, Team = 1 };

struct Lobby {
    int32_t queueId = 0;
    std::vector<std::string> members;
};

struct Unlisted {
    int32_t a = 0;
};

// A small API: the built-in types, one record, one enumeration, two functions
// and the built-in event.
void RegisterSmallApi(BindingTypeRegistry& registry) {
    RegisterBuiltinTypes(registry);
    RegisterStruct<Lobby>(registry, "Lobby")
        .Field("queueId", &Lobby::queueId, "Queue")
        .Field("members", &Lobby::members)
        .Description("A lobby")
        .Tags({"t"});
    RegisterEnum<Mode>(registry, "Mode").Value("Solo", Mode::Solo).Value("Team", Mode::Team);

    BindingFunctionInfo get;
    get.name = "GetQelLobbyTeamBuilderV1Lobby";
    get.description = "Returns the lobby.";
    get.returnType = IdentifierOf<Lobby>(&registry);
    registry.AddFunction(get);

    BindingFunctionInfo post;
    post.name = "PostThing";
    post.nameSpace = "things";
    post.description = "Creates {things}";
    post.help = "-More";
    post.arguments.push_back(
        {"id", HashFnv1a32("id"), "Thing id", IdentifierOf<int32_t>(), 1, ArgumentLocation::Path});
    post.arguments.push_back({"body", HashFnv1a32("body"), "", IdentifierOf<Lobby>(&registry), 0,
                              ArgumentLocation::Body});
    post.returnType = IdentifierOf<std::vector<Lobby>>(&registry);
    post.asyncType = IdentifierOf<Lobby>(&registry);
    post.tags = {"Plugins", "Plugin x"};
    post.threadSafe = true;
    post.async = true;
    registry.AddFunction(post);
}

TEST(EpytextTest, Escape) {
    const std::pair<const char*, const char*> cases[] = {
        {"-1 means {none}", "E{-}1 means E{lb}noneE{rb}"},
        {"a-b", "a-b"},
        {"--", "E{-}-"},
        {"}{", "E{rb}E{lb}"},
        {"", ""},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(EpytextEscape(text), expected) << text;
    }
}

TEST(EpytextTest, TypeNamesAndIdentifierDescriptions) {
    BindingTypeRegistry registry;
    RegisterStruct<Lobby>(registry, "Lobby");
    RegisterEnum<Mode>(registry, "Mode");
    struct Case {
        BindingTypeIdentifier identifier;
        const char* epytext;
        const char* type;
        const char* elementType;
    };
    const Case cases[] = {
        {IdentifierOf<std::vector<Lobby>>(&registry), "list[L{Lobby}]", "vector", "Lobby"},
        {IdentifierOf<std::map<std::string, int32_t>>(), "dict[int32]", "map", "int32"},
        {IdentifierOf<std::vector<Mode>>(), "list[L{Mode}]", "vector", "Mode"},
        {IdentifierOf<Mode>(), "L{Mode}", "Mode", ""},
        {IdentifierOf<std::vector<uint8_t>>(), "bytearray", "blob", ""},
        {IdentifierOf<BindingProperty>(), "object", "object", ""},
        {IdentifierOf<uint64_t>(), "uint64", "uint64", ""},
        {IdentifierOf<float>(), "float", "float", ""},
        {IdentifierOf<Unlisted>(), "L{}", "struct", ""},
        {BindingTypeIdentifier{BindingTypeCode::Enum}, "L{}", "enum", ""},
        {BindingTypeIdentifier{BindingTypeCode::Callback}, "callback", "callback", ""},
        {BindingTypeIdentifier{}, "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.epytext);
        EXPECT_EQ(EpytextTypeName(registry, c.identifier), c.epytext);
        BindingFullTypeIdentifier description = DescribeTypeIdentifier(registry, c.identifier);
        EXPECT_EQ(description.type, c.type);
        EXPECT_EQ(description.elementType, c.elementType);
    }
}

TEST(ApiHelpTest, EpytextFormat) {
    BindingTypeRegistry registry;
    RegisterSmallApi(registry);
    Maybe<BindingProperty> help = BuildApiHelp(registry, BindingHelpFormat::Epytext);
    ASSERT_TRUE(help);

    const BindingProperty& functions = help->Field("functions");
    EXPECT_EQ(functions.Field("GetQelLobbyTeamBuilderV1Lobby").GetString(),
              "Returns the lobby.\r\n\r\n@rtype: L{Lobby}\r\n");
    EXPECT_EQ(functions.Field("PostThing").GetString(),
              "Creates E{lb}thingsE{rb}\r\n\r\n"
              "E{-}More\r\n\r\n"
              "@param id: (optional) Thing id\r\n"
              "@type id: int32\r\n"
              "@type body: L{Lobby}\r\n"
              "@rtype: list[L{Lobby}]\r\n"
              "@tags: Plugins,Plugin x\r\n"
              "@threadsafe: true\r\n"
              "@async: list[L{Lobby}]\r\n");

    const BindingProperty& types = help->Field("types");
    EXPECT_EQ(types.Field("Lobby").GetString(),
              "A lobby\r\n\r\n"
              "@ivar queueId: Queue\r\n"
              "@type queueId: int32\r\n"
              "@ivar members: \r\n"
              "@type members: list[string]\r\n"
              "@tags: t\r\n");
    EXPECT_EQ(types.Field("BindingAsyncState").GetString(),
              "Possible states of an asynchronous operation.\r\n\r\n"
              "@cvar None: (0) Invalid state\r\n"
              "@cvar Running: (1) The operation is in flight\r\n"
              "@cvar Cancelling: (2) A request to cancel the operation has been made\r\n"
              "@cvar Cancelled: (3) The operation was cancelled\r\n"
              "@cvar Succeeded: (4) The operation completed successfully\r\n"
              "@cvar Failed: (5) The operation encountered an error\r\n"
              "@tags: $builtin,async\r\n"
              "@size: 4\r\n");
    EXPECT_EQ(types.Field("Mode").GetString(),
              "\r\n\r\n@cvar Solo: (0)\r\n@cvar Team: (1)\r\n@size: 4\r\n");
    EXPECT_EQ(help->Field("events").Field("OnCallback").GetString(),
              "Fired when a callback is invoked.\r\n\r\n@tags: $builtin\r\n");
}

TEST(ApiHelpTest, FullFormat) {
    BindingTypeRegistry registry;
    RegisterSmallApi(registry);
    Maybe<BindingProperty> help = BuildApiHelp(registry, BindingHelpFormat::Full);
    ASSERT_TRUE(help) << help.GetFailure().message;

    const BindingProperty& functions = help->Field("functions");
    ASSERT_EQ(functions.Size(), 2u);
    EXPECT_EQ(functions.Element(0).Field("name").GetString(), "GetQelLobbyTeamBuilderV1Lobby");
    const BindingProperty& post = functions.Element(1);
    EXPECT_EQ(post.Field("nameSpace").GetString(), "things");
    EXPECT_EQ(post.Field("arguments").Element(0).Field("type").Field("type").GetString(), "int32");
    EXPECT_TRUE(post.Field("arguments").Element(0).Field("optional").GetBool());
    EXPECT_EQ(post.Field("arguments").Element(1).Field("type").Field("type").GetString(), "Lobby");
    EXPECT_EQ(post.Field("returns").Field("type").GetString(), "vector");
    EXPECT_EQ(post.Field("returns").Field("elementType").GetString(), "Lobby");
    EXPECT_EQ(post.Field("async").GetString(), "Lobby");
    EXPECT_TRUE(post.Field("threadSafe").GetBool());
    EXPECT_EQ(post.Field("tags").Element(1).GetString(), "Plugin x");

    // Types in name order, each a converted BindingFullTypeHelp.
    const BindingProperty& types = help->Field("types");
    ASSERT_EQ(types.Size(), registry.Types().size());
    std::string previous;
    const BindingProperty* lobby = nullptr;
    const BindingProperty* format = nullptr;
    for (const BindingProperty& type : types.Elements()) {
        std::string name(type.Field("name").GetString());
        EXPECT_LT(previous, name);
        previous = name;
        lobby = name == "Lobby" ? &type : lobby;
        format = name == "BindingHelpFormat" ? &type : format;
    }
    ASSERT_NE(lobby, nullptr);
    EXPECT_EQ(lobby->Field("size").GetUnsigned(), sizeof(Lobby));
    EXPECT_EQ(lobby->Field("fields").Element(1).Field("type").Field("elementType").GetString(),
              "string");
    EXPECT_EQ(lobby->Field("fields").Element(0).Field("description").GetString(), "Queue");
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(format->Field("values").Element(0).Field("name").GetString(), "Epytext");
    EXPECT_EQ(format->Field("values").Element(0).Field("value").GetSigned(), 2);

    const BindingProperty& events = help->Field("events");
    ASSERT_EQ(events.Size(), 1u);
    EXPECT_EQ(events.Element(0).Field("type").Field("type").GetString(), "BindingCallbackEvent");
}

TEST(ApiHelpTest, UnknownFormatAndMissingBuiltins) {
    BindingTypeRegistry registry;
    RegisterSmallApi(registry);
    Maybe<BindingProperty> unknown = BuildApiHelp(registry, static_cast<BindingHelpFormat>(3));
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->Size(), 3u);
    for (const char* field : {"functions", "types", "events"}) {
        EXPECT_TRUE(unknown->HasField(field));
        EXPECT_TRUE(unknown->Field(field).IsEmpty());
    }

    BindingTypeRegistry bare;
    RegisterStruct<Lobby>(bare, "Lobby");
    Maybe<BindingProperty> full = BuildApiHelp(bare, BindingHelpFormat::Full);
    ASSERT_FALSE(full);
    EXPECT_EQ(full.GetFailure().message,
              "Couldn't convert native value because it's an unregistered structure.");
}

TEST(ApiHelpTest, BuiltinTypesRegisterOnce) {
    BindingTypeRegistry registry;
    RegisterBuiltinTypes(registry);
    const size_t types = registry.Types().size();
    RegisterBuiltinTypes(registry);
    EXPECT_EQ(registry.Types().size(), types);
    EXPECT_EQ(types, 15u);
    EXPECT_EQ(registry.Events().size(), 1u);
    const BindingTypeInfo* callback = registry.FindByName("BindingCallbackEvent");
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(callback->fields.size(), 2u);
    EXPECT_EQ(callback->fields[1].type.elementType, BindingTypeCode::Object);
    EXPECT_EQ(callback->fields[1].description, "Callback parameters");
}

}  // namespace
}  // namespace Orvan::Framework
