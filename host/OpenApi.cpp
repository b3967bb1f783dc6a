#include "host/OpenApi.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "host/HostClock.h"
#include "host/StandIns.h"

namespace Orvan::Host {

namespace {

using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

// The body content types the plugin's dispatch decodes. It compares by
// prefix, so "application/x-msgpack-ext" and parameters such as
// "; charset=utf-8" are accepted too; the short registered names
// (application/msgpack, application/yaml) are not, so they are not offered.
constexpr const char* kBodyContentTypes[] = {
    "application/json",
    "application/vnd.api+json",
    "application/x-msgpack",
    "application/x-yaml",
};

constexpr const char* kSchemaPrefix = "#/components/schemas/";
// The gateway's own schemas carry a dot, which registered type names (C++
// identifiers) never do, so they cannot collide with the plugin's.
constexpr const char* kProblemSchema = "Gateway.Problem";
constexpr const char* kEventSchema = "Gateway.Event";
constexpr const char* kProblemResponse = "Problem";

// A type as the help describes it: a type name or a registered type's name,
// and for vectors and maps the element's.
struct TypeText {
    std::string type;
    std::string element;
};

struct ArgumentHelp {
    std::string name;
    std::string description;
    TypeText type;
    bool optional = false;
};

struct FunctionHelp {
    std::string description;
    std::string help;
    std::vector<ArgumentHelp> arguments;
    TypeText returns;
    std::vector<std::string> tags;
};

std::string Text(const Value& object, const char* name) {
    if (!object.IsObject()) {
        return {};
    }
    const auto member = object.FindMember(name);
    return member != object.MemberEnd() && member->value.IsString()
               ? std::string(member->value.GetString(), member->value.GetStringLength())
               : std::string();
}

bool Flag(const Value& object, const char* name) {
    const auto member = object.FindMember(name);
    return member != object.MemberEnd() && member->value.IsBool() && member->value.GetBool();
}

const Value* List(const Value& object, const char* name) {
    const auto member = object.FindMember(name);
    return member != object.MemberEnd() && member->value.IsArray() ? &member->value : nullptr;
}

TypeText ReadType(const Value& object, const char* name) {
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd()) {
        return {};
    }
    return {Text(member->value, "type"), Text(member->value, "elementType")};
}

std::string_view CodeName(uint32_t code) {
    static constexpr std::string_view kNames[] = {
        "",       "bool",   "int8",   "uint8",  "int16",    "uint16", "int32",
        "uint32", "int64",  "uint64", "float",  "double",   "string", "object",
        "blob",   "vector", "enum",   "struct", "callback", "map"};
    return code < std::size(kNames) ? kNames[code] : std::string_view();
}

// The help's description of a type, rebuilt from an endpoint's records for a
// function the help leaves out.
TypeText RecordType(uint32_t code, uint32_t elementCode, const char* typeName) {
    const std::string name = typeName != nullptr ? typeName : "";
    auto named = [&](uint32_t c) {
        return (c == 16 || c == 17) && !name.empty() ? name : std::string(CodeName(c));
    };
    if (code == 15 || code == 19) {
        return {std::string(CodeName(code)), named(elementCode)};
    }
    return {named(code), {}};
}

// Component keys may hold letters, digits, ".", "-" and "_" only.
std::string SchemaKey(std::string_view name) {
    std::string key(name);
    for (char& c : key) {
        const bool kept =
            std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_';
        if (!kept) {
            c = '_';
        }
    }
    return key;
}

// A template's parameters in order, as (name, takes the rest of the path),
// and the template rewritten into OpenAPI's form: "{+rest}" and "{#part}"
// become "{rest}" and "{part}", since OpenAPI has no reserved expansion.
struct PathTemplate {
    std::string key;
    std::vector<std::pair<std::string, bool>> parameters;
};

PathTemplate ParseTemplate(std::string_view text) {
    PathTemplate parsed;
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] != '{') {
            parsed.key += text[i++];
            continue;
        }
        const size_t close = text.find('}', i);
        if (close == std::string_view::npos) {
            parsed.key += text.substr(i);
            break;
        }
        std::string_view name = text.substr(i + 1, close - i - 1);
        const bool rest = !name.empty() && (name[0] == '+' || name[0] == '#');
        if (rest) {
            name.remove_prefix(1);
        }
        parsed.key += "{" + std::string(name) + "}";
        parsed.parameters.emplace_back(std::string(name), rest);
        i = close + 1;
    }
    return parsed;
}

class DocumentBuilder {
public:
    DocumentBuilder() : a_(document_.GetAllocator()) { document_.SetObject(); }

    bool ReadHelp(const std::string& helpJson, std::string& error) {
        rapidjson::Document help;
        help.Parse(helpJson.c_str(), helpJson.size());
        if (help.HasParseError()) {
            error = std::string("the help is not JSON: ") +
                    rapidjson::GetParseError_En(help.GetParseError());
            return false;
        }
        const Value* functions = help.IsObject() ? List(help, "functions") : nullptr;
        const Value* types = help.IsObject() ? List(help, "types") : nullptr;
        if (functions == nullptr || types == nullptr) {
            error = "the help has no lists of functions and types (not the full format?)";
            return false;
        }
        for (const Value& entry : functions->GetArray()) {
            FunctionHelp function;
            function.description = Text(entry, "description");
            function.help = Text(entry, "help");
            function.returns = ReadType(entry, "returns");
            if (const Value* arguments = List(entry, "arguments")) {
                for (const Value& argument : arguments->GetArray()) {
                    function.arguments.push_back(
                        {Text(argument, "name"), Text(argument, "description"),
                         ReadType(argument, "type"), Flag(argument, "optional")});
                }
            }
            if (const Value* tags = List(entry, "tags")) {
                for (const Value& tag : tags->GetArray()) {
                    if (tag.IsString() && tag.GetStringLength() > 0) {
                        function.tags.emplace_back(tag.GetString(), tag.GetStringLength());
                    }
                }
            }
            functions_[Text(entry, "name")] = std::move(function);
        }
        types_.CopyFrom(*types, a_);
        for (const Value& type : types_.GetArray()) {
            const std::string name = Text(type, "name");
            if (!name.empty()) {
                registered_.insert(name);
            }
        }
        return true;
    }

    std::string Build(const PluginLibrary& library, const OpenApiOptions& options,
                      std::string& error) {
        document_.AddMember("openapi", "3.1.0", a_);
        Value info(rapidjson::kObjectType);
        info.AddMember("title", Str(options.title), a_);
        info.AddMember("version", Str(options.version), a_);
        info.AddMember("description",
                       Str("The REST API of the plugin " + library.ShortName() +
                           " as served by the host's gateway, described from the plugin's own "
                           "endpoint records and help. Request bodies may be JSON, MessagePack or "
                           "YAML; every reply body is JSON, and every failure a problem document "
                           "carrying the plugin's status and message."),
                       a_);
        document_.AddMember("info", info, a_);
        if (options.serverUrl) {
            Value servers(rapidjson::kArrayType);
            Value server(rapidjson::kObjectType);
            server.AddMember("url", Str(*options.serverUrl), a_);
            servers.PushBack(server, a_);
            document_.AddMember("servers", servers, a_);
        }
        Value security(rapidjson::kArrayType);
        for (const char* scheme : {"bearer", "token"}) {
            Value requirement(rapidjson::kObjectType);
            requirement.AddMember(Str(scheme), Value(rapidjson::kArrayType), a_);
            security.PushBack(requirement, a_);
        }
        document_.AddMember("security", security, a_);

        Value paths(rapidjson::kObjectType);
        AddGatewayPaths(paths);
        for (const EndpointRecord* endpoint : library.Endpoints()) {
            if (!AddEndpoint(*endpoint, paths, error)) {
                return {};
            }
        }
        document_.AddMember("paths", paths, a_);
        document_.AddMember("components", Components(), a_);

        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document_.Accept(writer);
        return std::string(buffer.GetString(), buffer.GetSize());
    }

private:
    Value Str(std::string_view text) {
        return Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), a_);
    }

    Value Ref(std::string_view target) { return Object("$ref", Str(target)); }

    Value Object(const char* name, Value value) {
        Value object(rapidjson::kObjectType);
        object.AddMember(Str(name), value, a_);
        return object;
    }

    Value ProblemReplies() {
        Value responses(rapidjson::kObjectType);
        for (const char* range : {"4XX", "5XX"}) {
            responses.AddMember(Str(range),
                                Ref(std::string("#/components/responses/") + kProblemResponse), a_);
        }
        return responses;
    }

    // A schema for one type of the help. Registered records and enumerations
    // are referenced; names the registry does not hold (or the bare "struct"
    // and "enum" of unnamed ones) fall back to what is known of them.
    Value Schema(const TypeText& type) {
        const std::string& t = type.type;
        Value schema(rapidjson::kObjectType);
        if (t == "bool") {
            schema.AddMember("type", "boolean", a_);
        } else if (t == "int8" || t == "int16" || t == "int32" || t == "int64" || t == "uint8" ||
                   t == "uint16" || t == "uint32" || t == "uint64") {
            schema.AddMember("type", "integer", a_);
            schema.AddMember("format", Str(t), a_);
            const bool isUnsigned = t[0] == 'u';
            const int bits = std::stoi(t.substr(isUnsigned ? 4 : 3));
            // 64-bit bounds are left out: most JSON readers cannot hold them.
            if (isUnsigned) {
                schema.AddMember("minimum", 0, a_);
                if (bits < 64) {
                    schema.AddMember("maximum", (uint64_t{1} << bits) - 1, a_);
                }
            } else if (bits < 64) {
                schema.AddMember("minimum", -(int64_t{1} << (bits - 1)), a_);
                schema.AddMember("maximum", (int64_t{1} << (bits - 1)) - 1, a_);
            }
        } else if (t == "float" || t == "double") {
            schema.AddMember("type", "number", a_);
            schema.AddMember("format", Str(t), a_);
        } else if (t == "string" || t == "enum") {
            // An unnamed enumeration arrives as its enumerator's name.
            schema.AddMember("type", "string", a_);
        } else if (t == "blob") {
            schema.AddMember("type", "string", a_);
            schema.AddMember("contentEncoding", "base64", a_);
        } else if (t == "vector") {
            schema.AddMember("type", "array", a_);
            if (!type.element.empty()) {
                schema.AddMember("items", Schema({type.element, {}}), a_);
            }
        } else if (t == "map") {
            schema.AddMember("type", "object", a_);
            if (!type.element.empty()) {
                schema.AddMember("additionalProperties", Schema({type.element, {}}), a_);
            }
        } else if (t == "struct") {
            schema.AddMember("type", "object", a_);
        } else if (registered_.count(t) != 0) {
            return Ref(kSchemaPrefix + SchemaKey(t));
        } else if (t == "object") {
            schema.AddMember("description", "Any JSON value", a_);
        } else {
            // "callback", or a name the registry does not know.
            schema.AddMember("description", Str("A value of type " + t), a_);
        }
        return schema;
    }

    // Adds a description beside whatever the schema already says ($ref
    // included: OpenAPI 3.1 schemas allow siblings of $ref).
    Value Described(Value schema, const std::string& description) {
        if (!description.empty() && !schema.HasMember("description")) {
            schema.AddMember("description", Str(description), a_);
        }
        return schema;
    }

    bool AddEndpoint(const EndpointRecord& endpoint, Value& paths, std::string& error) {
        const std::string name = endpoint.function.name != nullptr ? endpoint.function.name : "";
        const std::string templateText =
            endpoint.urlTemplate != nullptr ? endpoint.urlTemplate : "";
        const std::string method = LowerAscii(MethodName(endpoint.method));
        // Direct calls such as "Help" have no path; they are not HTTP routes.
        if (templateText.empty() || method.empty() || endpoint.method == kHostMethodDirectCall) {
            return true;
        }
        const PathTemplate path = ParseTemplate(templateText);
        const FunctionHelp function = HelpOf(endpoint, name);

        Value operation(rapidjson::kObjectType);
        operation.AddMember("operationId", Str(name), a_);
        if (!function.description.empty()) {
            operation.AddMember("summary", Str(function.description), a_);
        }
        if (!function.help.empty()) {
            operation.AddMember("description", Str(function.help), a_);
        }
        if (!function.tags.empty()) {
            Value tags(rapidjson::kArrayType);
            for (const std::string& tag : function.tags) {
                tags.PushBack(Str(tag), a_);
            }
            operation.AddMember("tags", tags, a_);
        }

        Value parameters(rapidjson::kArrayType);
        std::set<std::string> pathNamesSeen;
        std::vector<uint32_t> locations;
        for (const ArgumentLocationRecord* l = endpoint.argumentLocations;
             l != nullptr && locations.size() < function.arguments.size(); l = l->next) {
            locations.push_back(l->location);
        }
        locations.resize(function.arguments.size(), kArgumentLocationAnywhere);
        bool hasBody = false;
        for (size_t i = 0; i < function.arguments.size(); ++i) {
            const ArgumentHelp& argument = function.arguments[i];
            const bool inTemplate =
                std::any_of(path.parameters.begin(), path.parameters.end(),
                            [&](const auto& p) { return p.first == argument.name; });
            uint32_t location = locations[i];
            if (location == kArgumentLocationAnywhere) {
                // An unrestricted argument reaches the plugin from the path
                // when the template names it, else most plainly from the query.
                location = inTemplate ? kArgumentLocationPath : kArgumentLocationQuery;
            }
            if (location == kArgumentLocationBody) {
                if (hasBody) {
                    error = name + " declares two body arguments";
                    return false;
                }
                hasBody = true;
                operation.AddMember("requestBody", RequestBody(argument), a_);
                continue;
            }
            if (location == kArgumentLocationPath) {
                if (!inTemplate) {
                    error = name + ": the path argument '" + argument.name +
                            "' is not in the template " + templateText;
                    return false;
                }
                pathNamesSeen.insert(argument.name);
            }
            parameters.PushBack(Parameter(argument, location, path), a_);
        }
        // A template parameter no argument declares still has to be sent;
        // the plugin answers such a request with its unknown-argument message.
        for (const auto& [parameter, rest] : path.parameters) {
            if (pathNamesSeen.count(parameter) == 0) {
                Value entry(rapidjson::kObjectType);
                entry.AddMember("name", Str(parameter), a_);
                entry.AddMember("in", "path", a_);
                entry.AddMember("required", true, a_);
                entry.AddMember("description", "Not declared by the function", a_);
                entry.AddMember("schema", Object("type", Str("string")), a_);
                parameters.PushBack(entry, a_);
            }
        }
        if (!parameters.Empty()) {
            operation.AddMember("parameters", parameters, a_);
        }
        operation.AddMember("responses", Responses(function.returns), a_);

        auto item = paths.FindMember(path.key.c_str());
        if (item == paths.MemberEnd()) {
            paths.AddMember(Str(path.key), Value(rapidjson::kObjectType), a_);
            item = paths.FindMember(path.key.c_str());
        }
        if (item->value.HasMember(method.c_str())) {
            error =
                "two endpoints answer " + std::string(MethodName(endpoint.method)) + " " + path.key;
            return false;
        }
        item->value.AddMember(Str(method), operation, a_);
        return true;
    }

    // The help's entry for the endpoint's function; for one the help leaves
    // out, what the endpoint's own records say.
    FunctionHelp HelpOf(const EndpointRecord& endpoint, const std::string& name) const {
        const auto found = functions_.find(name);
        if (found != functions_.end()) {
            return found->second;
        }
        const FunctionDescriptionRecord& record = endpoint.function;
        FunctionHelp function;
        function.description = record.description != nullptr ? record.description : "";
        function.help = record.help != nullptr ? record.help : "";
        function.returns =
            RecordType(record.returnType, record.returnElementType, record.returnTypeName);
        const ArgumentRecord* argument = record.arguments;
        for (uint32_t i = 0; i < record.argumentCount && argument != nullptr;
             ++i, argument = argument->next) {
            function.arguments.push_back(
                {argument->name != nullptr ? argument->name : "",
                 argument->description != nullptr ? argument->description : "",
                 RecordType(argument->type, argument->elementType, argument->typeName),
                 argument->optional != 0});
        }
        return function;
    }

    Value Parameter(const ArgumentHelp& argument, uint32_t location, const PathTemplate& path) {
        Value entry(rapidjson::kObjectType);
        const bool inPath = location == kArgumentLocationPath;
        const bool inHeader = location == kArgumentLocationHeader;
        // The dispatch looks a header argument up by its name in lower case.
        entry.AddMember("name", Str(inHeader ? LowerAscii(argument.name) : argument.name), a_);
        entry.AddMember("in", Str(inPath ? "path" : inHeader ? "header" : "query"), a_);
        std::string description = argument.description;
        if (inPath) {
            for (const auto& [parameter, rest] : path.parameters) {
                if (parameter == argument.name && rest) {
                    description += std::string(description.empty() ? "" : " ") +
                                   "(takes the rest of the path, slashes included)";
                }
            }
        }
        if (!description.empty()) {
            entry.AddMember("description", Str(description), a_);
        }
        // An absent bool reads as false, so it is never needed.
        const bool required = inPath || (!argument.optional && argument.type.type != "bool");
        entry.AddMember("required", required, a_);
        const std::string& t = argument.type.type;
        const bool structured = t == "vector" || t == "object" || t == "struct" ||
                                (registered_.count(t) != 0 && !IsEnumeration(t));
        if (structured && !inPath) {
            // Such a value may be given as JSON text; the plugin reads a
            // value that starts with "{" or "[" as JSON.
            Value content(rapidjson::kObjectType);
            content.AddMember("application/json", Object("schema", Schema(argument.type)), a_);
            entry.AddMember("content", content, a_);
        } else {
            entry.AddMember("schema", Schema(argument.type), a_);
        }
        return entry;
    }

    bool IsEnumeration(const std::string& name) const {
        for (const Value& type : types_.GetArray()) {
            if (Text(type, "name") == name) {
                const Value* values = List(type, "values");
                return values != nullptr && !values->Empty();
            }
        }
        return false;
    }

    Value RequestBody(const ArgumentHelp& argument) {
        Value body(rapidjson::kObjectType);
        if (!argument.description.empty()) {
            body.AddMember("description", Str(argument.description), a_);
        }
        body.AddMember("required", !argument.optional, a_);
        Value content(rapidjson::kObjectType);
        for (const char* type : kBodyContentTypes) {
            content.AddMember(Str(type), Object("schema", Schema(argument.type)), a_);
        }
        body.AddMember("content", content, a_);
        return body;
    }

    Value Responses(const TypeText& returns) {
        Value responses = ProblemReplies();
        Value ok(rapidjson::kObjectType);
        if (returns.type.empty()) {
            // The plugin answers a function without a result with 200 and
            // no body at all (not even null).
            ok.AddMember("description", "Done; the reply has no body", a_);
        } else {
            ok.AddMember("description", "The result", a_);
            Value content(rapidjson::kObjectType);
            content.AddMember("application/json", Object("schema", Schema(returns)), a_);
            ok.AddMember("content", content, a_);
        }
        responses.AddMember("200", ok, a_);
        return responses;
    }

    Value JsonReply(const char* description, Value schema) {
        Value reply(rapidjson::kObjectType);
        reply.AddMember("description", Str(description), a_);
        Value content(rapidjson::kObjectType);
        content.AddMember("application/json", Object("schema", std::move(schema)), a_);
        reply.AddMember("content", content, a_);
        return reply;
    }

    void AddGatewayPaths(Value& paths) {
        {
            Value status(rapidjson::kObjectType);
            status.AddMember("type", "object", a_);
            Value properties(rapidjson::kObjectType);
            Value ok(rapidjson::kObjectType);
            ok.AddMember("type", "string", a_);
            Value okValues(rapidjson::kArrayType);
            okValues.PushBack("ok", a_);
            ok.AddMember("enum", okValues, a_);
            properties.AddMember("status", ok, a_);
            status.AddMember("properties", properties, a_);
            Value required(rapidjson::kArrayType);
            required.PushBack("status", a_);
            status.AddMember("required", required, a_);

            Value get(rapidjson::kObjectType);
            get.AddMember("operationId", "GatewayHealth", a_);
            get.AddMember("summary", "Whether the gateway answers; needs no token", a_);
            get.AddMember("security", Value(rapidjson::kArrayType), a_);
            Value responses(rapidjson::kObjectType);
            responses.AddMember("200", JsonReply("The gateway is up", std::move(status)), a_);
            get.AddMember("responses", responses, a_);
            paths.AddMember("/health", Object("get", std::move(get)), a_);
        }
        {
            Value get(rapidjson::kObjectType);
            get.AddMember("operationId", "GatewayOpenApi", a_);
            get.AddMember("summary", "This document", a_);
            Value responses = ProblemReplies();
            responses.AddMember(
                "200", JsonReply("An OpenAPI 3.1 document", Object("type", Str("object"))), a_);
            get.AddMember("responses", responses, a_);
            paths.AddMember("/openapi.json", Object("get", std::move(get)), a_);
        }
        {
            Value get(rapidjson::kObjectType);
            get.AddMember("operationId", "GatewayEvents", a_);
            get.AddMember("summary", "The plugin's resource events, as a WebSocket or a stream",
                          a_);
            get.AddMember(
                "description",
                "Upgraded to a WebSocket, the client sends {\"subscribe\": URI} and "
                "{\"unsubscribe\": URI} (a URI ending in * is a prefix), each acknowledged, and "
                "receives every matching event as a Gateway.Event. As a plain GET with at least "
                "one "
                "subscribe parameter it answers the same events as Server-Sent Events, each "
                "event's id being its seq. A new subscription first receives every existing "
                "matching resource as a Create event.",
                a_);
            Value parameters(rapidjson::kArrayType);
            {
                Value subscribe(rapidjson::kObjectType);
                subscribe.AddMember("name", "subscribe", a_);
                subscribe.AddMember("in", "query", a_);
                subscribe.AddMember("description",
                                    "A resource URI to follow; one ending in * is a prefix. "
                                    "Needed for the event stream, ignored by a WebSocket.",
                                    a_);
                subscribe.AddMember("required", false, a_);
                subscribe.AddMember("style", "form", a_);
                subscribe.AddMember("explode", true, a_);
                Value schema(rapidjson::kObjectType);
                schema.AddMember("type", "array", a_);
                schema.AddMember("items", Object("type", Str("string")), a_);
                subscribe.AddMember("schema", schema, a_);
                parameters.PushBack(subscribe, a_);
            }
            {
                Value last(rapidjson::kObjectType);
                last.AddMember("name", "Last-Event-ID", a_);
                last.AddMember("in", "header", a_);
                last.AddMember("description",
                               "Resumes an event stream after this seq while the later events "
                               "are still held; otherwise it starts over from the current state.",
                               a_);
                last.AddMember("required", false, a_);
                last.AddMember("schema", Object("type", Str("string")), a_);
                parameters.PushBack(last, a_);
            }
            get.AddMember("parameters", parameters, a_);
            Value responses = ProblemReplies();
            Value upgraded(rapidjson::kObjectType);
            upgraded.AddMember(
                "description",
                "WebSocket: text messages, each a Gateway.Event, an acknowledgement or an error",
                a_);
            responses.AddMember("101", upgraded, a_);
            Value stream(rapidjson::kObjectType);
            stream.AddMember("description",
                             "Server-Sent Events whose data are Gateway.Event objects as JSON", a_);
            Value content(rapidjson::kObjectType);
            Value eventStream(rapidjson::kObjectType);
            Value schema(rapidjson::kObjectType);
            schema.AddMember("type", "string", a_);
            schema.AddMember("contentMediaType", "text/event-stream", a_);
            eventStream.AddMember("schema", schema, a_);
            content.AddMember("text/event-stream", eventStream, a_);
            stream.AddMember("content", content, a_);
            responses.AddMember("200", stream, a_);
            get.AddMember("responses", responses, a_);
            paths.AddMember("/events", Object("get", std::move(get)), a_);
        }
    }

    Value Property(const char* type, const char* description) {
        Value property(rapidjson::kObjectType);
        if (type != nullptr) {
            property.AddMember("type", Str(type), a_);
        }
        property.AddMember("description", Str(description), a_);
        return property;
    }

    void GatewaySchemas(Value& schemas) {
        Value problem(rapidjson::kObjectType);
        problem.AddMember("type", "object", a_);
        problem.AddMember("description", "A failed request (RFC 9457)", a_);
        Value properties(rapidjson::kObjectType);
        Value kind = Property("string", "Always about:blank");
        kind.AddMember("format", "uri-reference", a_);
        properties.AddMember("type", kind, a_);
        properties.AddMember("title", Property("string", "The status's reason phrase"), a_);
        Value status = Property("integer", "The HTTP status, the plugin's own for its failures");
        status.AddMember("minimum", 400, a_);
        status.AddMember("maximum", 599, a_);
        properties.AddMember("status", status, a_);
        properties.AddMember("detail", Property("string", "The plugin's or gateway's message"), a_);
        problem.AddMember("properties", properties, a_);
        Value required(rapidjson::kArrayType);
        for (const char* name : {"type", "title", "status", "detail"}) {
            required.PushBack(Str(name), a_);
        }
        problem.AddMember("required", required, a_);
        schemas.AddMember(Str(kProblemSchema), problem, a_);

        Value event(rapidjson::kObjectType);
        event.AddMember("type", "object", a_);
        event.AddMember("description", "One resource event on /events", a_);
        Value eventProperties(rapidjson::kObjectType);
        Value seq = Property("integer", "Rises by one per event across the whole stream");
        seq.AddMember("minimum", 1, a_);
        eventProperties.AddMember("seq", seq, a_);
        eventProperties.AddMember("uri", Property("string", "The resource"), a_);
        Value eventType = Property("string", "What happened to the resource");
        Value names(rapidjson::kArrayType);
        for (const char* name : {"Create", "Update", "Delete"}) {
            names.PushBack(Str(name), a_);
        }
        eventType.AddMember("enum", names, a_);
        eventProperties.AddMember("eventType", eventType, a_);
        eventProperties.AddMember(
            "data", Property(nullptr, "The resource's value; null for a deletion"), a_);
        event.AddMember("properties", eventProperties, a_);
        Value eventRequired(rapidjson::kArrayType);
        for (const char* name : {"seq", "uri", "eventType", "data"}) {
            eventRequired.PushBack(Str(name), a_);
        }
        event.AddMember("required", eventRequired, a_);
        schemas.AddMember(Str(kEventSchema), event, a_);
    }

    // A registered type: an enumeration as a string enum of its names (they
    // travel by name), in the order of their values; a record as an object
    // with its fields in registration order.
    Value TypeSchema(const Value& type) {
        Value schema(rapidjson::kObjectType);
        const std::string description = Text(type, "description");
        const Value* values = List(type, "values");
        if (values != nullptr && !values->Empty()) {
            std::vector<std::pair<int64_t, std::string>> ordered;
            for (const Value& value : values->GetArray()) {
                const auto number = value.FindMember("value");
                const int64_t n = number != value.MemberEnd() && number->value.IsInt64()
                                      ? number->value.GetInt64()
                                      : 0;
                ordered.emplace_back(n, Text(value, "name"));
            }
            std::stable_sort(ordered.begin(), ordered.end(),
                             [](const auto& x, const auto& y) { return x.first < y.first; });
            schema.AddMember("type", "string", a_);
            Value names(rapidjson::kArrayType);
            for (const auto& [number, name] : ordered) {
                names.PushBack(Str(name), a_);
            }
            schema.AddMember("enum", names, a_);
            if (!description.empty()) {
                schema.AddMember("description", Str(description), a_);
            }
            return schema;
        }
        schema.AddMember("type", "object", a_);
        if (!description.empty()) {
            schema.AddMember("description", Str(description), a_);
        }
        Value properties(rapidjson::kObjectType);
        Value required(rapidjson::kArrayType);
        if (const Value* fields = List(type, "fields")) {
            for (const Value& field : fields->GetArray()) {
                const std::string name = Text(field, "name");
                if (properties.HasMember(name.c_str())) {
                    continue;
                }
                properties.AddMember(
                    Str(name),
                    Described(Schema(ReadType(field, "type")), Text(field, "description")), a_);
                if (!Flag(field, "optional")) {
                    required.PushBack(Str(name), a_);
                }
            }
        }
        schema.AddMember("properties", properties, a_);
        if (!required.Empty()) {
            schema.AddMember("required", required, a_);
        }
        return schema;
    }

    Value Components() {
        Value components(rapidjson::kObjectType);
        Value schemas(rapidjson::kObjectType);
        for (const Value& type : types_.GetArray()) {
            const std::string name = Text(type, "name");
            const std::string key = SchemaKey(name);
            if (name.empty() || schemas.HasMember(key.c_str())) {
                continue;
            }
            schemas.AddMember(Str(key), TypeSchema(type), a_);
        }
        GatewaySchemas(schemas);
        components.AddMember("schemas", schemas, a_);

        Value problem(rapidjson::kObjectType);
        problem.AddMember("description",
                          "The request failed: the plugin's status and message, or the gateway's "
                          "refusal",
                          a_);
        Value content(rapidjson::kObjectType);
        content.AddMember("application/problem+json",
                          Object("schema", Ref(kSchemaPrefix + std::string(kProblemSchema))), a_);
        problem.AddMember("content", content, a_);
        Value responses(rapidjson::kObjectType);
        responses.AddMember(Str(kProblemResponse), problem, a_);
        components.AddMember("responses", responses, a_);

        Value schemes(rapidjson::kObjectType);
        Value bearer(rapidjson::kObjectType);
        bearer.AddMember("type", "http", a_);
        bearer.AddMember("scheme", "bearer", a_);
        bearer.AddMember("description",
                         "The token the gateway printed when it started, as Authorization: "
                         "Bearer TOKEN",
                         a_);
        schemes.AddMember("bearer", bearer, a_);
        Value token(rapidjson::kObjectType);
        token.AddMember("type", "apiKey", a_);
        token.AddMember("in", "query", a_);
        token.AddMember("name", "token", a_);
        token.AddMember("description", "The same token as ?token=TOKEN, for browsers and curl", a_);
        schemes.AddMember("token", token, a_);
        components.AddMember("securitySchemes", schemes, a_);
        return components;
    }

    rapidjson::Document document_;
    Allocator& a_;
    std::map<std::string, FunctionHelp> functions_;
    Value types_{rapidjson::kArrayType};
    std::set<std::string> registered_;
};

}  // namespace

std::optional<std::string> FetchApiHelp(HostRuntime& runtime, std::string& error) {
    RestRequest request;
    request.method = kHostMethodDirectCall;
    request.uri = "Help";
    request.functionName = "Help";
    request.hasBody = true;
    request.body = "{\"format\":1}";  // the full format
    request.contentType = "application/json";
    RestReply reply = runtime.Route(request);
    if (!reply.Ok()) {
        error = "Help answered " + std::to_string(reply.status) +
                (reply.error.empty() ? std::string() : ": " + reply.error);
        return std::nullopt;
    }
    if (reply.body.empty()) {
        error = "Help answered no description";
        return std::nullopt;
    }
    return std::move(reply.body);
}

std::string BuildOpenApiDocument(const PluginLibrary& library, const std::string& helpJson,
                                 const OpenApiOptions& options, std::string& error) {
    DocumentBuilder builder;
    if (!builder.ReadHelp(helpJson, error)) {
        return {};
    }
    return builder.Build(library, options, error);
}

int PrintOpenApi(const PluginLoadOptions& plugin, std::FILE* out) {
    std::string error;
    std::unique_ptr<PluginLibrary> library = PluginLibrary::Load(plugin, error);
    if (library == nullptr) {
        std::fprintf(stderr, "qel-host: %s\n", error.c_str());
        return 2;
    }
    HostClock clock(0.0);
    HostRuntime runtime(clock);
    StandIns standIns(runtime, StandInOptions{});
    standIns.Install();
    const uint32_t handle = runtime.Attach(*library);
    if (!runtime.Start(handle)) {
        std::fprintf(stderr, "qel-host: the plugin refused to start\n");
        runtime.Destroy(handle);
        return 1;
    }
    std::string text;
    if (std::optional<std::string> help = FetchApiHelp(runtime, error)) {
        OpenApiOptions options;
        options.title = library->ShortName();
        options.version = library->VersionText();
        text = BuildOpenApiDocument(*library, *help, options, error);
    }
    runtime.Destroy(handle);
    if (text.empty()) {
        std::fprintf(stderr, "qel-host: no API description: %s\n", error.c_str());
        return 1;
    }
    // Printed for people as well as programs.
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    document.Accept(writer);
    std::fprintf(out, "%s\n", buffer.GetString());
    return std::fflush(out) == 0 ? 0 : 1;
}

}  // namespace Orvan::Host
