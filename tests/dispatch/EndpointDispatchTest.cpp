// Routes of a module linked into the test, registered with EndpointRoutes and
// driven through the host's view: the endpoint records of the API
// description and their dispatch callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/binding/Failure.h"
#include "framework/binding/TypeRegistration.h"
#include "framework/dispatch/RequestDispatch.h"
#include "framework/dispatch/RouteTable.h"
#include "framework/module/EndpointRoutes.h"
#include "framework/module/PluginEntry.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

enum class Color : int32_t { Red = 1, Green = 2 };

struct Thing {
    int32_t n = 0;
    std::string name;
    Color color = Color::Red;
};

class DispatchModule : public AppModule {
public:
    static inline bool literalFirst = false;
    static inline Strings refusals;

    void RegisterEndpoints() override {
        RegisterEnum<Color>(Registry(), "QelTestColor")
            .Value("Red", Color::Red)
            .Value("Green", Color::Green);
        RegisterStruct<Thing>(Registry(), "QelTestThing")
            .Field("n", &Thing::n)
            .Field("name", &Thing::name)
            .Field("color", &Thing::color);

        using namespace Routes;
        using M = DispatchModule;
        EndpointRoutes routes(*this);
        if (literalFirst) {
            routes.Add(kGet, "/t/a/special", &M::Special);
        }
        routes.Add(kGet, "/t/a/{id}", &M::Echo, Path("id"));
        if (!literalFirst) {
            routes.Add(kGet, "/t/a/special", &M::Special);
        }
        routes.Add(kGet, "/t/flags", &M::Flags, "flag", Arg("count").Description("How many"));
        routes.Add(kPost, "/t/things/{id}", &M::PostThing, Path("id"), Body("thing"))
            .Description("Stores a thing.");
        routes.Add(kDelete, "/t/things/{id}", &M::DeleteThing, Path("id"));
        routes.Add(kGet, "/t/missing",
                   []() -> Maybe<Thing> { return Failure("Nothing here", 404); });
        routes.Add(kGet, "/t/uncoded", []() -> Maybe<> { return Failure("No code"); });
        routes.Add(kGet, "/t/throws", []() -> Maybe<> { throw std::runtime_error("boom"); });
        // Refused: a second route of the same name, a path argument the
        // template lacks, two bodies, no method.
        routes.Add(kGet, "/t/a/{id}", &M::Echo, Path("id"));
        routes.Add(kGet, "/t/b", &M::Echo, Path("id"));
        routes.Add(kPost, "/t/two", &M::Two, Body("a"), Body("b"));
        routes.Add(HttpMethod::DirectCall, "/t/c", &M::Special);
        refusals.clear();
        for (const Failure& failure : routes.Failures()) {
            refusals.push_back(failure.message);
        }

        // A built-in this dispatcher does not answer.
        BindingFunctionInfo other;
        other.name = "Other";
        other.tags = {"$builtin"};
        BindingFunctionInfo* stored = Registry().AddFunction(std::move(other));
        stored->route = std::make_shared<RouteEntry>(
            MakeRouteEntry(kHostMethodDirectCall, "", stored, {}, {kHostMethodDirectCall, "Other"})
                .Value());
        EndpointDescription endpoint;
        endpoint.function = stored;
        endpoint.dispatch = &DispatchEndpointRequest;
        endpoint.dispatchContext = stored;
        endpoint.method = kHostMethodDirectCall;
        AddEndpoint(std::move(endpoint));
    }

    Maybe<std::string> Special() { return std::string("special"); }
    Maybe<std::string> Echo(const std::string& id) { return id; }
    Maybe<std::string> Flags(bool flag, std::optional<int32_t> count) {
        return std::string(flag ? "flag" : "-") + " " + (count ? std::to_string(*count) : "none");
    }
    Maybe<Thing> PostThing(int32_t id, Thing thing) {
        thing.n = id;
        return thing;
    }
    Maybe<> DeleteThing(int32_t) { return Maybe<>::Success(); }
    Maybe<> Two(const Thing&, const Thing&) { return Maybe<>::Success(); }
};

void QEL_HOST_CALL LoadDispatchModule(PluginLoadRecord* record) {
    LoadPluginModule<DispatchModule>(record, "qel-test-dispatch");
}

struct Expect {
    std::string method;
    std::string uri;
    uint16_t status;
    std::string text;  // the body as JSON on success, else the error text
};

void Check(TestHost& host, const Expect& e, TestHost::CallOptions options = {}) {
    const TestHost::CallResult reply = host.Call(e.method, e.uri, std::move(options));
    SCOPED_TRACE(e.method + " " + e.uri);
    ASSERT_TRUE(reply.endpointFound);
    EXPECT_EQ(reply.status, e.status);
    EXPECT_EQ(reply.failed, e.status >= 400);
    EXPECT_EQ(reply.failed ? reply.error : reply.json, e.text);
    EXPECT_EQ(reply.resultFormat, 1u);
    EXPECT_TRUE(reply.released);
}

TEST(EndpointDispatchTest, LiteralRouteWinsWhateverTheOrder) {
    for (const bool literalFirst : {false, true}) {
        DispatchModule::literalFirst = literalFirst;
        TestHost host;
        host.LoadWith(&LoadDispatchModule);
        ASSERT_TRUE(host.Start());
        Check(host, {"GET", "/t/a/special", 200, R"("special")"});
        Check(host, {"GET", "/t/a/other", 200, R"("other")"});
        Check(host, {"GET", "/t/a/x%2Fy", 200, R"("x/y")"});
        host.Destroy();
    }
}

TEST(EndpointDispatchTest, BindsConvertsAndAnswers) {
    TestHost host;
    host.LoadWith(&LoadDispatchModule);
    ASSERT_TRUE(host.Start());
    const std::vector<Expect> cases = {
        {"GET", "/t/flags", 200, R"("- none")"},
        {"GET", "/t/flags?flag&count=5", 200, R"("flag 5")"},
        {"GET", "/t/flags?count=", 400, "Expected value for argument 'count'."},
        {"GET", "/t/flags?count=x", 400,
         "Value x for 'count' of type int32 is in an incorrect format"},
        {"GET", "/t/flags?flag.x=1", 400,
         "Couldn't assign value to 'flag' of type bool because the input is of an invalid type "
         "structure."},
        {"GET", "/t/flags?other=1", 400, "Unknown argument 'other' for 'GetTFlags'."},
        {"POST", "/t/things/7?id=8", 400,
         "Argument 'id' for 'PostTThingsById' was specified in an invalid location."},
        {"POST", "/t/things/7", 400, "A value for 'thing' is required."},
        {"DELETE", "/t/things/7", 200, ""},
        {"GET", "/t/missing", 404, "Nothing here"},
        {"GET", "/t/uncoded", 400, "No code"},
        {"GET", "/t/throws", 500, "Internal server error"},
    };
    for (const Expect& e : cases) {
        Check(host, e);
    }

    TestHost::CallOptions json;
    json.contentType = "Application/JSON; charset=utf-8";
    json.body = R"({"name":"x","color":"Green","n":1})";
    Check(host, {"POST", "/t/things/7", 200, R"({"color":"Green","n":7,"name":"x"})"}, json);

    TestHost::CallOptions msgpack;
    msgpack.contentType = "application/x-msgpack";
    msgpack.body = std::string("\x81\xA4name\xA1y", 8);
    Check(host, {"POST", "/t/things/3", 200, R"({"color":"Red","n":3,"name":"y"})"}, msgpack);
    msgpack.body += '\x00';
    Check(host, {"POST", "/t/things/3", 400, "Extra MessgePack data found in body"}, msgpack);
    msgpack.contentType = "text/plain";
    Check(host, {"POST", "/t/things/3", 400, "Unsupported body content type"}, msgpack);
    // A route without a body argument never looks at the body.
    Check(host, {"GET", "/t/flags", 200, R"("- none")"}, msgpack);

    TestHost::CallOptions call;
    call.arguments = {{"", BindingProperty(true)}, {"count", BindingProperty(int64_t{9})}};
    Check(host, {"GET", "/t/flags", 200, R"("flag 9")"}, call);
}

TEST(EndpointDispatchTest, HelpAndOtherBuiltins) {
    TestHost host;
    host.LoadWith(&LoadDispatchModule);
    ASSERT_TRUE(host.Start());
    TestHost::CallOptions options;
    options.functionName = "Help";
    const TestHost::CallResult help = host.Call("CALL", "", options);
    ASSERT_TRUE(help.endpointFound);
    EXPECT_EQ(help.status, 200);
    EXPECT_FALSE(help.failed);
    EXPECT_TRUE(help.released);
    for (const char* list : {"functions", "types", "events"}) {
        Strings names;
        for (const BindingProperty& entry : help.body.Field(list).Elements()) {
            names.emplace_back(entry.Field("name").GetString());
        }
        EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << list;
        EXPECT_FALSE(names.empty()) << list;
    }
    const std::string json = help.json;
    EXPECT_NE(json.find(R"("name":"Help")"), std::string::npos);
    EXPECT_NE(json.find(R"("name":"PostTThingsById")"), std::string::npos);
    EXPECT_NE(json.find(R"("name":"QelTestThing")"), std::string::npos);

    options.functionName = "Other";
    Check(host, {"CALL", "", 400, "Unsupported builtin function"}, options);
}

TEST(EndpointDispatchTest, EndpointRecordsDescribeTheRoutes) {
    DispatchModule::literalFirst = false;
    TestHost host;
    host.LoadWith(&LoadDispatchModule);
    const PluginApiDescriptor& api = *host.Api();
    Strings endpoints;
    const EndpointRecord* post = nullptr;
    for (uint32_t i = 0; i < api.endpointCount; ++i) {
        const EndpointRecord& e = api.endpoints[i];
        endpoints.push_back(std::to_string(e.method) + " " + e.urlTemplate + " " + e.function.name);
        const HostDispatchCallback dispatch = e.dispatch;  // packed: copy, never refer
        EXPECT_EQ(dispatch, &DispatchEndpointRequest);
        // Literal paths are compared as text, never through the regex engine.
        const auto* function = static_cast<const BindingFunctionInfo*>(e.function.dispatchContext);
        const auto* route = static_cast<const RouteEntry*>(function->route.get());
        EXPECT_EQ(route->pattern.has_value(), std::strchr(e.urlTemplate, '{') != nullptr);
        if (std::strcmp(e.function.name, "PostTThingsById") == 0) {
            post = &e;
        }
    }
    EXPECT_EQ(endpoints,
              (Strings{"8  Help", "2 /t/a/{id} GetTAById", "2 /t/a/special GetTASpecial",
                       "2 /t/flags GetTFlags", "6 /t/things/{id} PostTThingsById",
                       "1 /t/things/{id} DeleteTThingsById", "2 /t/missing GetTMissing",
                       "2 /t/uncoded GetTUncoded", "2 /t/throws GetTThrows", "8  Other"}));
    ASSERT_NE(post, nullptr);
    EXPECT_STREQ(post->function.nameSpace, "QelTestDispatch");
    EXPECT_STREQ(post->function.description, "Stores a thing.");
    EXPECT_STREQ(post->function.returnTypeName, "QelTestThing");
    ASSERT_EQ(uint32_t{post->function.tagCount}, 2u);
    EXPECT_STREQ(post->function.tags[1], "Plugin qel-test-dispatch");
    Strings arguments;
    const ArgumentLocationRecord* location = post->argumentLocations;
    for (const ArgumentRecord* a = post->function.arguments; a != nullptr; a = a->next) {
        arguments.push_back(std::string(a->name) + ":" + std::to_string(a->type) + ":" +
                            a->typeName + "@" + std::to_string(location->location));
        location = location->next;
    }
    EXPECT_EQ(arguments, (Strings{"id:6:@2", "thing:17:QelTestThing@5"}));

    EXPECT_EQ(DispatchModule::refusals,
              (Strings{"Couldn't register endpoint GET '/t/a/{id}': a function named "
                       "'GetTAById' exists already",
                       "Couldn't register endpoint GET '/t/b': path argument 'id' is not a "
                       "parameter of the template",
                       "Couldn't register endpoint POST '/t/two': a route takes at most one body "
                       "argument",
                       "Couldn't register endpoint 8 '/t/c': a route needs an HTTP method"}));
}

// Requests a host should not send still get an answer that can be released.
TEST(EndpointDispatchTest, MalformedRequestsAreAnsweredNotCrashed) {
    TestHost host;
    host.LoadWith(&LoadDispatchModule);
    const EndpointRecord* get = host.FindEndpoint(kHostMethodGet, "/t/a/1");
    ASSERT_NE(get, nullptr);

    auto answer = [&](HostRequest request) {
        HostResponse reply;
        std::memset(&reply, 0xAB, sizeof reply);  // the host's record may hold anything
        get->dispatch(&reply, &request);
        std::string text = std::to_string(reply.status) + " " +
                           (reply.errorText != nullptr ? reply.errorText : "");
        const HostResponseReleaseFunction release = reply.release;
        EXPECT_NE(release, nullptr);
        if (release != nullptr) {
            release(&reply);
            release(&reply);  // a second release finds nothing left to free
        }
        return text;
    };
    HostRequest request{};
    request.dispatchContext = get->function.dispatchContext;
    request.method = kHostMethodGet;
    request.uri = "/t/a/1/2";
    EXPECT_EQ(answer(request), "404 Invalid function");
    request.uri = nullptr;
    EXPECT_EQ(answer(request), "404 Invalid function");
    request.uri = "/t/a/1";
    request.method = kHostMethodPost;
    EXPECT_EQ(answer(request), "404 Invalid function");
    request.method = kHostMethodDirectCall;
    EXPECT_EQ(answer(request), "404 Invalid function");
    request.method = kHostMethodGet;
    EXPECT_EQ(answer(request), "200 ");
    request.dispatchContext = nullptr;
    EXPECT_EQ(answer(request), "404 Invalid function");

    HostArgument argument{};
    argument.name = "id";
    argument.value.type = 77;
    request.dispatchContext = get->function.dispatchContext;
    request.arguments = &argument;
    request.argumentCount = 1;
    EXPECT_EQ(answer(request),
              "400 Couldn't assign value to 'id' of type object because the input is of an "
              "incompatible type ''.");
    request.argumentCount = 0;
    request.headers = nullptr;
    request.headerCount = 5;  // no address: no headers
    request.body = nullptr;
    request.bodyLength = 9;
    EXPECT_EQ(answer(request), "200 ");
}

}  // namespace
}  // namespace Orvan::Testing
