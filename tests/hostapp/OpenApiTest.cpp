// The OpenAPI document against what the real plugin says of itself: the same
// routes and operation names as its endpoints and help, the same records and
// enumerations, references that resolve, and request bodies in exactly the
// media types the plugin decodes.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <cctype>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/Demo.h"
#include "host/HostRuntime.h"
#include "host/OpenApi.h"
#include "host/PluginLibrary.h"
#include "host/StandIns.h"
#include "sim/ServiceSimulator.h"

namespace Orvan::Host {
namespace {

using rapidjson::Value;

PluginLoadOptions RealPlugin() {
    PluginLoadOptions options;
    options.path = DefaultPluginPath();
    return options;
}

std::string Text(const Value& object, const char* name) {
    const auto member = object.FindMember(name);
    return member != object.MemberEnd() && member->value.IsString() ? member->value.GetString()
                                                                    : "";
}

// Every "$ref" in the value that does not resolve inside `root`.
void CollectBrokenRefs(const Value& root, const Value& value, std::vector<std::string>& broken,
                       size_t& seen) {
    if (value.IsObject()) {
        for (const auto& member : value.GetObject()) {
            if (std::string(member.name.GetString()) == "$ref" && member.value.IsString()) {
                ++seen;
                const std::string ref = member.value.GetString();
                const bool local = ref.rfind("#/", 0) == 0;
                if (!local || rapidjson::Pointer(ref.substr(1).c_str()).Get(root) == nullptr) {
                    broken.push_back(ref);
                }
            } else {
                CollectBrokenRefs(root, member.value, broken, seen);
            }
        }
    } else if (value.IsArray()) {
        for (const Value& element : value.GetArray()) {
            CollectBrokenRefs(root, element, broken, seen);
        }
    }
}

std::vector<std::string> BrokenRefs(const rapidjson::Document& document, size_t& seen) {
    std::vector<std::string> broken;
    seen = 0;
    CollectBrokenRefs(document, document, broken, seen);
    return broken;
}

// "{+rest}" and "{id}" as OpenAPI writes them, and the parameter names.
std::string OpenApiPath(const std::string& templateText, std::set<std::string>& parameters) {
    std::string path;
    for (size_t i = 0; i < templateText.size(); ++i) {
        if (templateText[i] != '{') {
            path += templateText[i];
            continue;
        }
        const size_t close = templateText.find('}', i);
        std::string name = templateText.substr(i + 1, close - i - 1);
        if (!name.empty() && (name[0] == '+' || name[0] == '#')) {
            name.erase(0, 1);
        }
        parameters.insert(name);
        path += "{" + name + "}";
        i = close;
    }
    return path;
}

class OpenApiDocument : public ::testing::Test {
protected:
    static void SetUpTestSuite() { world_ = new World(); }
    static void TearDownTestSuite() {
        delete world_;
        world_ = nullptr;
    }

    void SetUp() override {
        ASSERT_NE(world_->library, nullptr) << world_->error;
        ASSERT_FALSE(world_->text.empty()) << world_->error;
        ASSERT_FALSE(world_->document.HasParseError());
        ASSERT_TRUE(world_->help.IsObject());
    }

    // One plugin, signed in with the services running, for the whole suite:
    // the document does not change between tests, and some tests send the
    // plugin requests.
    struct World {
        World() {
            library = PluginLibrary::Load(RealPlugin(), error);
            if (library == nullptr) {
                return;
            }
            standIns.SetServices(&services);
            standIns.Install();
            plugin = runtime.Attach(*library);
            if (!runtime.Start(plugin)) {
                error = "the plugin did not start";
                return;
            }
            standIns.SignIn();
            runtime.RunFor(1.0);
            std::optional<std::string> helpText = FetchApiHelp(runtime, error);
            if (!helpText) {
                return;
            }
            help.Parse(helpText->c_str());
            OpenApiOptions options;
            options.title = "test";
            options.version = "1.2.3";
            options.serverUrl = "http://127.0.0.1:1";
            text = BuildOpenApiDocument(*library, *helpText, options, error);
            document.Parse(text.c_str());
        }
        ~World() {
            if (plugin != 0) {
                runtime.Destroy(plugin);
            }
        }
        std::string error;
        std::unique_ptr<PluginLibrary> library;
        HostClock clock{0.0};
        HostRuntime runtime{clock};
        StandIns standIns{runtime, StandInOptions{}};
        Simulation::ServiceSimulator services{standIns, *Simulation::FindScenario("draft")};
        uint32_t plugin = 0;
        rapidjson::Document help;
        std::string text;
        rapidjson::Document document;
    };

    static const Value& Paths() { return world_->document["paths"]; }
    static const Value& Schemas() { return world_->document["components"]["schemas"]; }

    static World* world_;
};

OpenApiDocument::World* OpenApiDocument::world_ = nullptr;

TEST_F(OpenApiDocument, HasEveryRouteOfThePluginAndNoOther) {
    std::set<std::string> operationIds;
    for (const EndpointRecord* endpoint : world_->library->Endpoints()) {
        const std::string name = endpoint->function.name;
        const std::string templateText =
            endpoint->urlTemplate != nullptr ? endpoint->urlTemplate : "";
        if (templateText.empty()) {
            continue;  // a direct call such as Help
        }
        std::set<std::string> expectedParameters;
        const std::string path = OpenApiPath(templateText, expectedParameters);
        std::string method(MethodName(endpoint->method));
        for (char& c : method) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        SCOPED_TRACE(method + " " + path);
        ASSERT_TRUE(Paths().HasMember(path.c_str()));
        ASSERT_TRUE(Paths()[path.c_str()].HasMember(method.c_str()));
        const Value& operation = Paths()[path.c_str()][method.c_str()];
        EXPECT_EQ(Text(operation, "operationId"), name);
        operationIds.insert(name);

        std::set<std::string> pathParameters;
        if (operation.HasMember("parameters")) {
            for (const Value& parameter : operation["parameters"].GetArray()) {
                if (Text(parameter, "in") == "path") {
                    pathParameters.insert(Text(parameter, "name"));
                    EXPECT_TRUE(parameter["required"].GetBool());
                }
            }
        }
        EXPECT_EQ(pathParameters, expectedParameters);
    }

    // The plugin's operations are exactly the functions of the help that have
    // a route; the gateway adds its own three paths and nothing else.
    std::set<std::string> routed;
    for (const Value& function : world_->help["functions"].GetArray()) {
        if (Text(function, "name") != "Help") {
            routed.insert(Text(function, "name"));
        }
    }
    EXPECT_EQ(operationIds, routed);
    size_t operations = 0;
    for (const auto& item : Paths().GetObject()) {
        operations += item.value.MemberCount();
    }
    EXPECT_EQ(operations, routed.size() + 3);
    for (const char* own : {"/health", "/openapi.json", "/events"}) {
        EXPECT_TRUE(Paths().HasMember(own)) << own;
    }
}

TEST_F(OpenApiDocument, EveryArgumentOfTheHelpIsAParameterOrTheBody) {
    std::map<std::string, const Value*> operations;
    for (const auto& item : Paths().GetObject()) {
        for (const auto& operation : item.value.GetObject()) {
            operations[Text(operation.value, "operationId")] = &operation.value;
        }
    }
    for (const Value& function : world_->help["functions"].GetArray()) {
        const std::string name = Text(function, "name");
        if (name == "Help") {
            continue;
        }
        SCOPED_TRACE(name);
        ASSERT_EQ(operations.count(name), 1u);
        const Value& operation = *operations[name];
        std::set<std::string> declared;
        if (operation.HasMember("parameters")) {
            for (const Value& parameter : operation["parameters"].GetArray()) {
                declared.insert(Text(parameter, "name"));
            }
        }
        size_t bodies = 0;
        for (const Value& argument : function["arguments"].GetArray()) {
            if (declared.count(Text(argument, "name")) == 0) {
                ++bodies;
                ASSERT_TRUE(operation.HasMember("requestBody")) << Text(argument, "name");
                EXPECT_EQ(operation["requestBody"]["required"].GetBool(),
                          !argument["optional"].GetBool());
            }
        }
        EXPECT_LE(bodies, 1u);
        EXPECT_EQ(operation.HasMember("requestBody"), bodies == 1);

        // A result is described as JSON; no result as a reply without a body.
        const Value& ok = operation["responses"]["200"];
        EXPECT_EQ(ok.HasMember("content"), !Text(function["returns"], "type").empty());
        EXPECT_TRUE(operation["responses"].HasMember("4XX"));
    }
}

TEST_F(OpenApiDocument, EveryRecordAndEnumerationOfTheHelpIsASchema) {
    size_t records = 0, enumerations = 0;
    for (const Value& type : world_->help["types"].GetArray()) {
        const std::string name = Text(type, "name");
        SCOPED_TRACE(name);
        ASSERT_TRUE(Schemas().HasMember(name.c_str()));
        const Value& schema = Schemas()[name.c_str()];
        if (!type["values"].Empty()) {
            ++enumerations;
            EXPECT_EQ(Text(schema, "type"), "string");
            std::set<std::string> names, listed;
            for (const Value& value : type["values"].GetArray()) {
                names.insert(Text(value, "name"));
            }
            for (const Value& value : schema["enum"].GetArray()) {
                listed.insert(value.GetString());
            }
            EXPECT_EQ(listed, names);
            EXPECT_EQ(schema["enum"].Size(), names.size());
            continue;
        }
        ++records;
        EXPECT_EQ(Text(schema, "type"), "object");
        std::vector<std::string> fields, required, properties, listedRequired;
        for (const Value& field : type["fields"].GetArray()) {
            fields.push_back(Text(field, "name"));
            if (!field["optional"].GetBool()) {
                required.push_back(Text(field, "name"));
            }
            // A field of a registered type refers to that type's schema.
            const std::string fieldType = Text(field["type"], "type");
            const std::string element = Text(field["type"], "elementType");
            const Value& property = schema["properties"][Text(field, "name").c_str()];
            if (Schemas().HasMember(fieldType.c_str())) {
                EXPECT_EQ(Text(property, "$ref"), "#/components/schemas/" + fieldType);
            } else if (fieldType == "vector" && Schemas().HasMember(element.c_str())) {
                EXPECT_EQ(Text(property["items"], "$ref"), "#/components/schemas/" + element);
            } else if (fieldType == "map" && Schemas().HasMember(element.c_str())) {
                EXPECT_EQ(Text(property["additionalProperties"], "$ref"),
                          "#/components/schemas/" + element);
            }
        }
        for (const auto& property : schema["properties"].GetObject()) {
            properties.push_back(property.name.GetString());
        }
        if (schema.HasMember("required")) {
            for (const Value& listed : schema["required"].GetArray()) {
                listedRequired.push_back(listed.GetString());
            }
        }
        EXPECT_EQ(properties, fields) << "the fields, in registration order";
        EXPECT_EQ(listedRequired, required) << "the fields not marked optional";
    }
    EXPECT_GT(records, 40u);
    EXPECT_GT(enumerations, 5u);
}

TEST_F(OpenApiDocument, EveryReferenceResolvesInsideTheDocument) {
    size_t seen = 0;
    EXPECT_EQ(BrokenRefs(world_->document, seen), std::vector<std::string>{});
    EXPECT_GT(seen, 100u);
    EXPECT_EQ(Text(world_->document, "openapi"), "3.1.0");
    EXPECT_EQ(Text(world_->document["servers"][0], "url"), "http://127.0.0.1:1");
    // Only /health is open without the token.
    EXPECT_TRUE(Paths()["/health"]["get"]["security"].Empty());
    EXPECT_EQ(world_->document["security"].Size(), 2u);
}

// The body media types offered are those the plugin decodes: each one listed
// gets past the plugin's content-type check, and common names left out do not.
TEST_F(OpenApiDocument, BodyMediaTypesAreExactlyThoseThePluginDecodes) {
    const std::string bodyPath = "/qel-lobby-team-builder/v1/position-preferences";
    const Value& body = Paths()[bodyPath.c_str()]["post"]["requestBody"]["content"];
    // An empty object in each encoding.
    const std::map<std::string, std::string> samples = {
        {"application/json", "{}"},
        {"application/vnd.api+json", "{}"},
        {"application/x-msgpack", std::string(1, '\x80')},
        {"application/x-yaml", "{}"},
    };
    auto send = [&](const std::string& type, const std::string& bytes) {
        RestRequest request;
        request.method = kHostMethodPost;
        request.uri = bodyPath;
        request.hasBody = true;
        request.body = bytes;
        request.contentType = type;
        return world_->runtime.Route(request);
    };
    std::set<std::string> listed;
    for (const auto& media : body.GetObject()) {
        const std::string type = media.name.GetString();
        listed.insert(type);
        ASSERT_EQ(samples.count(type), 1u) << "no sample body for " << type;
        const RestReply reply = send(type, samples.at(type));
        EXPECT_NE(reply.error, "Unsupported body content type") << type;
        EXPECT_TRUE(reply.Ok()) << type << ": " << reply.error;
    }
    EXPECT_EQ(listed.size(), samples.size());
    for (const char* unlisted : {"application/msgpack", "application/yaml", "text/plain"}) {
        EXPECT_EQ(send(unlisted, "{}").error, "Unsupported body content type") << unlisted;
    }
}

// A help the plugin might answer tomorrow: a new record with fields of every
// kind, a new enumeration, and a field whose type nobody registered.
TEST_F(OpenApiDocument, NewRecordsAndTypesOfEveryKindAreDescribed) {
    const std::string help = R"({"functions":[],"events":[],"types":[
        {"name":"ZzColor","values":[{"name":"Red","value":2},{"name":"Blue","value":1}],"fields":[]},
        {"name":"ZzRecord","values":[],"fields":[
          {"name":"flag","optional":false,"type":{"type":"bool","elementType":""}},
          {"name":"small","optional":false,"type":{"type":"uint8","elementType":""}},
          {"name":"signed","optional":true,"type":{"type":"int16","elementType":""}},
          {"name":"big","optional":false,"type":{"type":"uint64","elementType":""}},
          {"name":"ratio","optional":false,"type":{"type":"float","elementType":""}},
          {"name":"bytes","optional":false,"type":{"type":"blob","elementType":""}},
          {"name":"any","optional":false,"type":{"type":"object","elementType":""}},
          {"name":"colors","optional":false,"type":{"type":"vector","elementType":"ZzColor"}},
          {"name":"counts","optional":true,"type":{"type":"map","elementType":"int32"}},
          {"name":"grid","optional":false,"type":{"type":"vector","elementType":"vector"}},
          {"name":"stranger","optional":false,"type":{"type":"ZzUnregistered","elementType":""}}
        ]}]})";
    std::string error;
    const std::string text = BuildOpenApiDocument(*world_->library, help, OpenApiOptions{}, error);
    ASSERT_FALSE(text.empty()) << error;
    rapidjson::Document document;
    document.Parse(text.c_str());
    size_t seen = 0;
    EXPECT_EQ(BrokenRefs(document, seen), std::vector<std::string>{});

    const Value& color = document["components"]["schemas"]["ZzColor"];
    ASSERT_EQ(color["enum"].Size(), 2u);
    EXPECT_STREQ(color["enum"][0].GetString(), "Blue") << "in the order of the values";

    const Value& fields = document["components"]["schemas"]["ZzRecord"]["properties"];
    struct Case {
        const char* field;
        const char* pointer;  // inside the field's schema
        const char* expected;
    };
    const Case cases[] = {
        {"flag", "/type", R"("boolean")"},
        {"small", "/type", R"("integer")"},
        {"small", "/minimum", "0"},
        {"small", "/maximum", "255"},
        {"signed", "/minimum", "-32768"},
        {"big", "/minimum", "0"},
        {"big", "/format", R"("uint64")"},
        {"ratio", "/type", R"("number")"},
        {"bytes", "/contentEncoding", R"("base64")"},
        {"colors", "/items/$ref", R"("#/components/schemas/ZzColor")"},
        {"counts", "/additionalProperties/format", R"("int32")"},
        {"grid", "/items/type", R"("array")"},
    };
    for (const Case& c : cases) {
        const Value* found =
            rapidjson::Pointer((std::string("/") + c.field + c.pointer).c_str()).Get(fields);
        ASSERT_NE(found, nullptr) << c.field << c.pointer;
        rapidjson::Document expected;
        expected.Parse(c.expected);
        EXPECT_TRUE(*found == expected) << c.field << c.pointer;
    }
    EXPECT_FALSE(fields["any"].HasMember("type")) << "any JSON value";
    EXPECT_FALSE(fields["stranger"].HasMember("$ref"));
    EXPECT_EQ(document["components"]["schemas"]["ZzRecord"]["required"].Size(), 9u);
}

TEST(OpenApiHelp, RefusesAHelpThatIsNotTheFullDescription) {
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(RealPlugin(), error);
    ASSERT_NE(library, nullptr) << error;
    for (const char* help : {"", "not json", "[]", R"({"functions":{}})",
                             R"({"functions":{"Help":"epytext"},"types":{}})"}) {
        error.clear();
        EXPECT_EQ(BuildOpenApiDocument(*library, help, OpenApiOptions{}, error), "") << help;
        EXPECT_FALSE(error.empty()) << help;
    }
}

TEST(OpenApiPrinting, PrintsTheDocumentOrExitsWithTwoWhenThePluginDoesNotLoad) {
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    PluginLoadOptions missing;
    missing.path = "/nonexistent/plugin.so";
    EXPECT_EQ(PrintOpenApi(missing, out), 2);
    EXPECT_EQ(std::ftell(out), 0L);

    ASSERT_EQ(PrintOpenApi(RealPlugin(), out), 0);
    std::string text(static_cast<size_t>(std::ftell(out)), '\0');
    std::rewind(out);
    ASSERT_EQ(std::fread(text.data(), 1, text.size(), out), text.size());
    std::fclose(out);
    rapidjson::Document document;
    document.Parse(text.c_str());
    ASSERT_FALSE(document.HasParseError());
    EXPECT_EQ(Text(document["info"], "title"), "qel-lobby-team-builder");
    EXPECT_TRUE(document["paths"].HasMember("/qel-lobby-team-builder/v1/lobby"));
}

}  // namespace
}  // namespace Orvan::Host
