// The entry's handshake: versions, names, the load record and the API
// description, with a module class linked into the test.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/host/HostValueConversion.h"
#include "framework/host/PluginApiVersion.h"
#include "framework/host/PluginNames.h"
#include "framework/log/Logger.h"
#include "framework/log/MemoryLogTarget.h"
#include "tests/host/support/TestModule.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;

TEST(HandshakeTest, CompatibilityFollowsMajorThenMinorAndPatch) {
    const struct {
        uint32_t own[3];
        uint32_t core[3];
        bool compatible;
    } cases[] = {
        {{18, 0, 0}, {18, 0, 0}, true},  {{18, 0, 0}, {18, 0, 5}, true},
        {{18, 0, 0}, {18, 3, 0}, true},  {{18, 0, 0}, {18, 3, 7}, true},
        {{18, 0, 0}, {17, 9, 9}, false}, {{18, 0, 0}, {19, 0, 0}, false},
        {{18, 0, 0}, {0, 0, 0}, false},  {{18, 2, 4}, {18, 2, 3}, false},
        {{18, 2, 4}, {18, 2, 4}, true},  {{18, 2, 4}, {18, 3, 0}, true},
        {{18, 2, 4}, {18, 1, 9}, false},
    };
    for (const auto& c : cases) {
        const PluginApiVersion own{c.own[0], c.own[1], c.own[2], {}, {}};
        const PluginApiVersion core{c.core[0], c.core[1], c.core[2], {}, {}};
        EXPECT_EQ(IsCompatible(own, core), c.compatible)
            << own.Text() << " with core " << core.Text();
    }
}

TEST(HandshakeTest, VersionTextAddsPreReleaseAndBuildWhenSet) {
    EXPECT_EQ(OwnPluginApiVersion().Text(), "18.0.0");
    EXPECT_EQ((PluginApiVersion{18, 0, 0, "rc1", "7"}.Text()), "18.0.0-rc1+7");
    EXPECT_EQ((PluginApiVersion{1, 2, 3, "", "7"}.Text()), "1.2.3+7");
}

TEST(HandshakeTest, FullNamesTakeThePrefixOfTheirType) {
    MemoryLogTarget log;
    Logger::Instance().RegisterTarget(log);

    EXPECT_EQ(
        GetFullNameFromShortNameAndType("qel-lobby-team-builder", kBackendPluginType).fullName,
        "dvo-be-qel-lobby-team-builder");
    EXPECT_EQ(
        GetFullNameFromShortNameAndType("qel-lobby-team-builder", kFrontendPluginType).fullName,
        "dvo-fe-qel-lobby-team-builder");
    EXPECT_TRUE(log.Entries().empty());

    const PluginNames names = GetFullNameFromShortNameAndType("x", PluginType{"back", ""});
    EXPECT_EQ(names.fullName, "dvo-xx-x");
    EXPECT_EQ(names.shortName, "x");
    EXPECT_EQ(names.typeName, "back");
    ASSERT_EQ(log.Entries().size(), 1u);
    EXPECT_EQ(log.Entries()[0].level, kError);
    EXPECT_EQ(log.Entries()[0].message,
              "Plugin Manager| GetFullNameFromShortNameAndType(\"x\", \"back\") called with an "
              "unknown type");
    // Compared by length as well: a longer text is another type.
    EXPECT_EQ(GetFullNameFromShortNameAndType("x", PluginType{"backend2", ""}).fullName,
              "dvo-xx-x");
    log.Unregister();
}

TEST(HandshakeTest, StoresNamesLabelsRouteBaseAndTheCoreVersion) {
    TestHost host;
    const PluginLoadRecord& record = host.LoadWith(&LoadTestModule, 18, 3, 7);
    TestModule& module = TestModuleOf(host);
    EXPECT_EQ(module.Names().fullName, "dvo-be-qel-test-module");
    EXPECT_EQ(module.Names().typeName, "backend");
    EXPECT_EQ(module.PluginsLabel(), "Plugins");
    EXPECT_EQ(module.PluginLabel(), "Plugin qel-test-module");
    EXPECT_EQ(module.RouteBase(), "QelTestModule");
    EXPECT_EQ(module.CoreVersion().Text(), "18.3.7");
    // The record's own fields are checked through the plugin's shared object.
    EXPECT_EQ(Unpacked(record.shortName), module.ShortName().c_str());
    EXPECT_EQ(Unpacked(record.callbacks), module.Callbacks());

    ASSERT_TRUE(host.Start());
    EXPECT_EQ(module.UserAgent(), "OrvanClient/18.3.7 (qel-test-module)");
}

// A module that describes one endpoint, as the dispatch layer does.
class EndpointModule : public TestModule {
public:
    static void QEL_HOST_CALL Dispatch(HostResponse* reply, HostRequest* request) {
        BindingProperty body;
        body.MutableField("uri").SetString(request->uri);
        body.MutableField("context").SetBool(request->dispatchContext == &kContext);
        body.MutableField("body").SetString(std::string_view(
            reinterpret_cast<const char*>(request->body), request->bodyLength + 1));
        (void)ToHostValue(body, reply->body);
        reply->release = [](HostResponse* r) { ReleaseHostValue(r->body); };
    }

    void RegisterEndpoints() override {
        BindingFunctionInfo function;
        function.name = "GetQelTestModuleV1ThingsById";
        function.description = "Reads a thing.";
        BindingArgumentInfo argument;
        argument.name = "id";
        argument.type.type = BindingTypeCode::Int32;
        argument.location = ArgumentLocation::Path;
        function.arguments.push_back(argument);
        function.tags = {"Plugin qel-test-module"};
        EndpointDescription endpoint;
        endpoint.function = Registry().AddFunction(std::move(function));
        endpoint.dispatch = &Dispatch;
        endpoint.dispatchContext = const_cast<int*>(&kContext);
        endpoint.urlTemplate = "/qel-test-module/v1/things/{id}";
        endpoint.method = kHostMethodGet;
        endpoint.stringLists = {{"a", "b"}};
        AddEndpoint(std::move(endpoint));
    }

    static inline const int kContext = 0;
};

void QEL_HOST_CALL LoadEndpointModule(PluginLoadRecord* record) {
    LoadPluginModule<EndpointModule>(record, "qel-test-module");
}

template <class Record>
void ExpectLinked(const Record* first, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        EXPECT_EQ(Unpacked(first[i].next), i + 1 < count ? &first[i + 1] : nullptr) << i;
    }
}

TEST(HandshakeTest, DescriptorListsEndpointsTypesAndEventsAsLinkedArrays) {
    TestHost host;
    host.LoadWith(&LoadEndpointModule);
    const PluginApiDescriptor* api = host.Api();
    ASSERT_NE(api, nullptr);
    ExpectLinked(api->types, api->typeCount);
    ExpectLinked(api->events, api->eventCount);

    ASSERT_EQ(api->endpointCount, 1u);
    const EndpointRecord& endpoint = api->endpoints[0];
    EXPECT_STREQ(endpoint.function.name, "GetQelTestModuleV1ThingsById");
    EXPECT_EQ(Unpacked(endpoint.function.next), nullptr);
    EXPECT_EQ(Unpacked(endpoint.function.dispatchContext), &EndpointModule::kContext);
    EXPECT_STREQ(endpoint.urlTemplate, "/qel-test-module/v1/things/{id}");
    EXPECT_EQ(Unpacked(endpoint.method), static_cast<uint32_t>(kHostMethodGet));
    ASSERT_EQ(Unpacked(endpoint.function.argumentCount), 1u);
    EXPECT_STREQ(endpoint.function.arguments[0].name, "id");
    EXPECT_EQ(Unpacked(endpoint.function.arguments[0].type), 6u);
    EXPECT_EQ(Unpacked(endpoint.argumentLocations[0].location), 2u);
    ASSERT_EQ(Unpacked(endpoint.stringListCount), 1u);
    EXPECT_STREQ(endpoint.stringLists[0].texts[1], "b");
    EXPECT_STREQ(endpoint.function.tags[0], "Plugin qel-test-module");

    // The framework's event records, in registration order, with payload types.
    std::vector<std::string> events;
    for (uint32_t i = 0; i < api->eventCount; ++i) {
        if (std::string(api->events[i].nameSpace) == "oclient") {
            events.push_back(std::string(api->events[i].name) + ":" +
                             api->events[i].payloadTypeName);
        }
    }
    EXPECT_EQ(events, (std::vector<std::string>{
                          "OnJsonApiEvent:PluginResourceEvent",
                          "OnLcdsEvent:PluginLcdsEvent",
                          "OnServiceProxyUuidEvent:PluginServiceProxyResponse",
                          "OnServiceProxyMethodEvent:PluginServiceProxyResponse",
                          "OnServiceProxyAsyncEvent:PluginServiceProxyResponse",
                      }));

    // The host routes a request by template to the endpoint's callback.
    TestHost::CallResult reply = host.Call("GET", "/qel-test-module/v1/things/42?x=1", "{}");
    ASSERT_TRUE(reply.endpointFound);
    EXPECT_EQ(reply.body.Field("uri").GetString(), "/qel-test-module/v1/things/42?x=1");
    EXPECT_TRUE(reply.body.Field("context").GetBool());
    EXPECT_EQ(reply.body.Field("body").GetString(), std::string_view("{}\0", 3));
    EXPECT_TRUE(reply.released);
    EXPECT_FALSE(host.Call("GET", "/qel-test-module/v1/things").endpointFound);
}

}  // namespace
}  // namespace Orvan::Testing
