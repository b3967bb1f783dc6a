#include "framework/dispatch/ArgumentBinding.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "framework/binding/StaticType.h"
#include "framework/codec/Json.h"
#include "framework/dispatch/RouteTable.h"

namespace Orvan::Framework {
namespace {

using Location = ArgumentLocation;
using Code = BindingTypeCode;

BindingArgumentInfo Declare(std::string name, Code code, Location location = Location::Any,
                            uint8_t optional = 0) {
    BindingArgumentInfo argument;
    argument.nameHash = HashFnv1a32(name);
    argument.name = std::move(name);
    argument.type.type = code;
    argument.location = location;
    argument.optional = optional;
    return argument;
}

// One function declaring an argument of every shape the binder treats apart.
const BindingFunctionInfo& Function() {
    static const BindingFunctionInfo function = [] {
        BindingFunctionInfo f;
        f.name = "GetTById";
        f.arguments = {
            Declare("id", Code::Int32, Location::Path),
            Declare("flag", Code::Bool),
            Declare("maybe", Code::Bool, Location::Any, 1),
            Declare("count", Code::Int32),
            Declare("a", Code::Struct),
            Declare("ids", Code::Vector),
            Declare("name", Code::String),
            Declare("Token", Code::String, Location::Header),
            Declare("q", Code::String, Location::Query),
            Declare("body", Code::Struct, Location::Body),
        };
        return f;
    }();
    return function;
}

struct Request {
    std::string uri = "/t/7";
    std::vector<std::pair<std::string, std::string>> headers;
    std::vector<HostArgument> arguments;
    std::string contentType;
    std::string body;
    bool emptyBody = false;  // an empty body handed over, not none
};

// The bound slots as one JSON object by argument name, or the failure text.
std::string Bind(const Request& request) {
    const BindingFunctionInfo& function = Function();
    const RouteEntry route = MakeRouteEntry(kHostMethodGet, "/t/{id}", &function).Value();
    std::vector<HostHeader> headers;
    for (const auto& [name, value] : request.headers) {
        headers.push_back({name.c_str(), value.c_str()});
    }
    HostRequest host{};
    host.method = kHostMethodGet;
    host.uri = request.uri.c_str();
    host.headers = headers.data();
    host.headerCount = static_cast<uint32_t>(headers.size());
    host.arguments = const_cast<HostArgument*>(request.arguments.data());
    host.argumentCount = static_cast<uint32_t>(request.arguments.size());
    host.contentType = request.contentType.c_str();
    if (!request.body.empty() || request.emptyBody) {
        host.body = reinterpret_cast<const uint8_t*>(request.body.data());
        host.bodyLength = static_cast<uint32_t>(request.body.size());
    }
    const DispatchRequest view = DispatchRequest::FromHost(host);
    const auto match = FindRoute(std::span(&route, 1), kHostMethodGet, view.Target());
    if (!match) {
        return "no route";
    }
    auto slots = BindArguments(function, view, *match);
    if (!slots) {
        return slots.GetFailure().message;
    }
    BindingProperty all;
    for (size_t i = 0; i < slots->size(); ++i) {
        if (!(*slots)[i].IsEmpty()) {
            all.MutableField(function.arguments[i].name) = (*slots)[i];
        }
    }
    return WriteJson(all);
}

struct Case {
    std::string uri;
    std::string expected;  // the slots as JSON, or the failure message
};

TEST(ArgumentBindingTest, PathAndQuery) {
    const std::string kBase = R"({"flag":false,"id":"7")";
    const std::vector<Case> cases = {
        {"/t/7", kBase + "}"},
        {"/t/7?flag", R"({"flag":true,"id":"7"})"},
        {"/t/7?maybe", kBase + R"(,"maybe":true})"},
        {"/t/7?count=5&count=6", R"({"count":"6","flag":false,"id":"7"})"},
        {"/t/7?count=", "Expected value for argument 'count'."},
        {"/t/7?name=", "Expected value for argument 'name'."},
        {"/t/7?a&ids", R"({"a":{},"flag":false,"id":"7","ids":[]})"},
        {"/t/7?count=1&&", R"({"count":"1","flag":false,"id":"7"})"},
        {"/t/x%2Fy", R"({"flag":false,"id":"x/y"})"},
        // Member paths: fields, base-0 indexes, and their two messages.
        {"/t/7?a.x=1&a.y=2", R"({"a":{"x":"1","y":"2"},"flag":false,"id":"7"})"},
        {"/t/7?ids.01=5", kBase + R"(,"ids":[null,"5"]})"},
        {"/t/7?ids.0x2=5&ids.0=4", kBase + R"(,"ids":["4",null,"5"]})"},
        {"/t/7?a.l.1.z=1", R"({"a":{"l":[null,{"z":"1"}]},"flag":false,"id":"7"})"},
        {"/t/7?ids.1a=5", "Index 1a is in an incorrect format"},
        {"/t/7?ids.08=5", "Index 08 is in an incorrect format"},
        {"/t/7?ids.2147483648=5", "Index 2147483648 is out of range"},
        {"/t/7?ids.99999999999999999999999=5", "Index 99999999999999999999999 is out of range"},
        // Far below 2^31 but more elements than one request may create.
        {"/t/7?ids.2147483647=5", "Index 2147483647 is out of range"},
        {"/t/7?ids.40000=1&a.x.40000=1", "Index 40000 is out of range"},
        // Sniffing for struct, object and vector arguments only.
        {"/t/7?a=%7B%7D", R"({"a":{},"flag":false,"id":"7"})"},
        {"/t/7?a=+%5B1%2C2%5D", R"({"a":[1,2],"flag":false,"id":"7"})"},
        {"/t/7?a=%81%A1x%01", R"({"a":{"x":1},"flag":false,"id":"7"})"},
        {"/t/7?a=---%0Ax%3A+z", R"({"a":{"x":"z"},"flag":false,"id":"7"})"},
        {"/t/7?name=%7B%7D", kBase + R"(,"name":"{}"})"},
        {"/t/7?a=%7Bx",
         "Couldn't deserialize JSON value for parameter 'a' of 'GetTById': Error: Missing a name "
         "for object member. at offset 1."},
        {"/t/7?a=%81%01",
         "Couldn't deserialize MessagePack value for parameter 'a' of 'GetTById': Invalid "
         "MessagePack data at position 2. Map keys must be strings."},
        // Keys that name nothing, or name a place the argument may not come from.
        {"/t/7?zzz=1", "Unknown argument 'zzz' for 'GetTById'."},
        {"/t/7?=1", "Unknown argument '' for 'GetTById'."},
        {"/t/7?id=5", "Argument 'id' for 'GetTById' was specified in an invalid location."},
        {"/t/7?Token=5", "Argument 'Token' for 'GetTById' was specified in an invalid location."},
        {"/t/7?body.x=5", "Argument 'body' for 'GetTById' was specified in an invalid location."},
        {"/t/7?q=%00", kBase + R"(,"q":"\u0000"})"},
    };
    for (const Case& c : cases) {
        Request request;
        request.uri = c.uri;
        EXPECT_EQ(Bind(request), c.expected) << c.uri;
    }
}

TEST(ArgumentBindingTest, HeadersTakeTheLowerCaseNameAndTheLastValue) {
    Request request;
    request.headers = {{"token", "a"}, {"Token", "ignored"}, {"token", "b"}, {"q", "query only"}};
    EXPECT_EQ(Bind(request), R"({"Token":"b","flag":false,"id":"7"})");
    request.headers = {{"token", ""}};
    EXPECT_EQ(Bind(request), "Expected value for argument 'Token'.");
}

HostValue Text(const char* text) {
    HostValue value{};
    value.type = kHostValueTextUnowned;
    value.payload.span.address = const_cast<char*>(text);
    return value;
}

TEST(ArgumentBindingTest, CallArgumentsByNameAndPosition) {
    HostValue bad{};
    bad.type = 11;
    HostValue nested[2] = {Text("ok"), bad};
    HostValue array{};
    array.type = kHostValueArray;
    array.payload.span.address = nested;
    array.payload.span.length = 2;

    struct CallCase {
        std::vector<HostArgument> arguments;
        std::string expected;
    };
    const std::vector<CallCase> cases = {
        // Positions count after the one path parameter: 0 is "flag".
        {{{"count", Text("3")}, {nullptr, Text("x")}},
         R"({"count":"3","flag":false,"id":"7","maybe":"x"})"},
        {{{nullptr, Text("x")}, {nullptr, Text("y")}, {nullptr, Text("z")}},
         R"({"count":"z","flag":"x","id":"7","maybe":"y"})"},
        {{{"nope", Text("1")}}, "Unknown argument 'nope' for 'GetTById'."},
        {{{nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")},
          {nullptr, Text("1")}},
         "Unknown argument '10' for 'GetTById'."},
        {{{"name", bad}},
         "Couldn't assign value to 'name' of type object because the input is of an "
         "incompatible type ''."},
        {{{"a", array}},
         "Couldn't assign value to 'a' of type object because the input is of an incompatible "
         "type ''."},
    };
    for (const CallCase& c : cases) {
        Request request;
        request.uri = "/t/7?count=1";  // call arguments come after the query
        request.arguments = c.arguments;
        EXPECT_EQ(Bind(request), c.expected);
    }
}

TEST(ArgumentBindingTest, BodyByContentType) {
    const std::string msgpack = "\x81\xA1x\x01";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"Application/JSON; charset=utf-8", R"({"x":1})"},
        {"application/vnd.api+json", R"({"x":1})"},
        {"application/x-msgpack", msgpack},
        {"application/x-msgpack-ext", msgpack},
        {"APPLICATION/X-YAML", "x: 1"},
    };
    for (const auto& [contentType, body] : cases) {
        Request request;
        request.contentType = contentType;
        request.body = body;
        EXPECT_EQ(Bind(request), R"({"body":{"x":1},"flag":false,"id":"7"})") << contentType;
    }

    struct FailCase {
        std::string contentType;
        std::string body;
        std::string expected;
    };
    const std::vector<FailCase> failures = {
        {"application/x-msgpack", msgpack + "\xC0", "Extra MessgePack data found in body"},
        {"application/x-msgpack", "\xC1", "Invalid MessagePack data at position 1."},
        {"application/json", "{", "Error: Missing a name for object member. at offset 1."},
        {"text/plain", "{}", "Unsupported body content type"},
        {"", "{}", "Unsupported body content type"},
        {"application/yaml", "x: 1", "Unsupported body content type"},
    };
    for (const FailCase& c : failures) {
        Request request;
        request.contentType = c.contentType;
        request.body = c.body;
        EXPECT_EQ(Bind(request), c.expected) << c.contentType;
    }

    // JSON ends at the first NUL.
    Request request;
    request.contentType = "application/json";
    request.body = std::string(R"({"x":1})"
                               "\0trailing",
                               16);
    EXPECT_EQ(Bind(request), R"({"body":{"x":1},"flag":false,"id":"7"})");
}

// A body handed over with no bytes is still a body: it is decoded by its
// content type like any other (the three readers read no bytes as "empty"),
// so a content type nobody reads fails. Only a request without a body binds
// nothing from it.
TEST(ArgumentBindingTest, AnEmptyBodyIsDecodedAndNoBodyIsNot) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"application/json", R"({"flag":false,"id":"7"})"},
        {"application/x-msgpack", R"({"flag":false,"id":"7"})"},
        {"application/x-yaml", R"({"flag":false,"id":"7"})"},
        {"text/plain", "Unsupported body content type"},
        {"", "Unsupported body content type"},
    };
    for (const auto& [contentType, expected] : cases) {
        Request request;
        request.contentType = contentType;
        request.emptyBody = true;
        EXPECT_EQ(Bind(request), expected) << contentType;
        request.emptyBody = false;
        EXPECT_EQ(Bind(request), R"({"flag":false,"id":"7"})") << contentType;
    }
}

TEST(ArgumentBindingTest, DecodesArgumentTextByContentType) {
    auto decode = [](std::string_view text, std::string_view contentType) {
        auto value = DecodeArgumentText(text, contentType, false, "p", "F");
        return value ? std::string(value->KindName()) + " " + WriteJson(*value)
                     : value.GetFailure().message;
    };
    EXPECT_EQ(decode("[1]", "application/json"), "collection [1]");
    EXPECT_EQ(decode("[1]", ""), R"(string "[1]")");
    EXPECT_EQ(decode("- 1", "text/x-yaml"), "collection [1]");
    EXPECT_EQ(decode("ab", "application/octet-stream"), R"(blob "YWI=")");
    EXPECT_EQ(decode("\x91\x01", "application/x-msgpack"), "collection [1]");
}

}  // namespace
}  // namespace Orvan::Framework
