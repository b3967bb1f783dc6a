// Publishing and following resources through the test host: the two
// emissions of an event, Create/Update/Delete of any registered type, the
// counted subscriptions behind resource handlers, the initial read of an
// exact resource, and typed handlers that drop what does not convert.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

struct Unregistered {
    int32_t x = 0;
};

class ResourceEventsTest : public ::testing::Test {
protected:
    void SetUp() override {
        host_.LoadWith(&LoadServicesModule);
        ASSERT_TRUE(host_.Start(7));
        host_.ClearCalls();
    }
    ServicesModule& Module() { return ServicesModuleOf(host_); }
    Strings EmittedKeys() const {
        Strings keys;
        for (const TestHost::EmittedEvent& event : host_.Events()) {
            keys.push_back(event.key);
        }
        return keys;
    }

    TestHost host_;
};

TEST_F(ResourceEventsTest, PublishingEmitsUnderTheKeyAndUnderTheBaseName) {
    Module().PublishResource("/qel-lobby-team-builder/v1/lobby/countdown", TestSession{"Lobby", 5});
    Module().PublishResource("/qel-lobby-team-builder/v1/matchmaking", SessionValue("Queue", 1),
                             PluginResourceEventType::Create);
    Module().DeleteResource("/qel-lobby-team-builder/v1/matchmaking");
    Module().PublishResource("/", std::string("root"));
    EXPECT_EQ(EmittedKeys(),
              (Strings{"OnJsonApiEvent_qel-lobby-team-builder_v1_lobby", "OnJsonApiEvent",
                       "OnJsonApiEvent_qel-lobby-team-builder_v1_matchmaking", "OnJsonApiEvent",
                       "OnJsonApiEvent_qel-lobby-team-builder_v1_matchmaking", "OnJsonApiEvent",
                       "OnJsonApiEvent"}));
    const auto& events = host_.Events();
    EXPECT_EQ(events[0].json, R"({"data":{"counter":5,"phase":"Lobby"},"eventType":"Update",)"
                              R"("uri":"/qel-lobby-team-builder/v1/lobby/countdown"})");
    EXPECT_EQ(events[1].json, events[0].json);
    EXPECT_EQ(events[2].value.Field("eventType").GetString(), "Create");
    EXPECT_EQ(events[4].value.Field("eventType").GetString(), "Delete");
    EXPECT_TRUE(events[4].value.Field("data").IsEmpty());
    EXPECT_EQ(events[6].value.Field("data").GetString(), "root");
}

TEST_F(ResourceEventsTest, AValueThatDoesNotConvertIsNotPublished) {
    Module().PublishResource("/qel-lobby-team-builder/v1/lobby", Unregistered{});
    EXPECT_TRUE(host_.Events().empty());
    // SendEvent itself reports what it could not send.
    Resource deep{"/a", PluginResourceEventType::Update, {}};
    BindingProperty* level = &deep.data;
    for (int i = 0; i < 2000; ++i) {
        level = &level->Append();
    }
    EXPECT_FALSE(Module().SendEvent("OnJsonApiEvent", deep).HasValue());
    EXPECT_TRUE(host_.Events().empty());
}

TEST_F(ResourceEventsTest, HandlersShareCountedSubscriptionsAndReadExactResourcesAtOnce) {
    host_.OnRequest("GET", "/qel-gameflow/v1/session", [](const TestHost::Request&) {
        return TestHost::Reply::Body(SessionValue("Lobby", 1));
    });
    Strings seen;
    Module().AddResourceHandler("/qel-gameflow/v1/session", [&](const Resource& r) {
        seen.push_back("exact " + r.uri + " " + std::to_string(static_cast<int>(r.eventType)) +
                       " " + std::string(r.data.Field("phase").GetString()));
    });
    Module().AddResourceHandler("/qel-gameflow/*/session",
                                [&](const Resource& r) { seen.push_back("pattern " + r.uri); });
    // The initial read is for exact URIs only, delivered as a Create event.
    EXPECT_EQ(seen, (Strings{"exact /qel-gameflow/v1/session 0 Lobby"}));
    EXPECT_EQ(host_.Requests().size(), 1u);
    EXPECT_EQ(host_.CallsTo(3).size(), 2u);  // the pattern has a key of its own

    Module().AddResourceHandler("/qel-gameflow/v1/session/extra", [](const Resource&) {});
    EXPECT_EQ(host_.CallsTo(3).size(), 2u);  // same key: counted, not registered again

    seen.clear();
    host_.EmitResource("/qel-gameflow/v1/session", "Update", SessionValue("InProgress", 2));
    host_.Pump();
    EXPECT_EQ(seen, (Strings{"exact /qel-gameflow/v1/session 1 InProgress",
                             "pattern /qel-gameflow/v1/session"}));

    (void)Module().Unsubscribe("/qel-gameflow/v1/session");
    EXPECT_TRUE(host_.IsRegistered("OnJsonApiEvent_qel-gameflow_v1_session"));
    (void)Module().Unsubscribe("/qel-gameflow/v1/session/extra");
    EXPECT_FALSE(host_.IsRegistered("OnJsonApiEvent_qel-gameflow_v1_session"));
}

TEST_F(ResourceEventsTest, AnUnreadableResourceWaitsForItsFirstEvent) {
    int calls = 0;
    Module().AddResourceHandler("/qel-login/v1/session", [&](const Resource&) { ++calls; });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(host_.RepliesReleased(), 1u);
    host_.EmitResource("/qel-login/v1/session", "Create", SessionValue("x", 1));
    host_.Pump();
    EXPECT_EQ(calls, 1);
}

TEST_F(ResourceEventsTest, TypedHandlersConvertTheDataAndDropWhatDoesNotConvert) {
    std::vector<std::pair<int, TestSession>> seen;
    Module().AddResourceHandler<TestSession>(
        "/qel-gameflow/v1/session", [&](const TypedResource<TestSession>& event) {
            EXPECT_EQ(event.uri, "/qel-gameflow/v1/session");
            seen.emplace_back(static_cast<int>(event.eventType), event.value);
        });
    ASSERT_TRUE(seen.empty());  // the initial read failed (no such resource)

    BindingProperty wrongType = SessionValue("Lobby", 1);
    wrongType.MutableField("counter").SetString("many");
    host_.EmitResource("/qel-gameflow/v1/session", "Update", SessionValue("Lobby", 3));
    host_.EmitResource("/qel-gameflow/v1/session", "Update", wrongType);
    host_.EmitResource("/qel-gameflow/v1/session", "Update", BindingProperty("not a record"));
    host_.EmitResource("/qel-gameflow/v1/session", "Delete", BindingProperty());
    host_.Pump();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].first, 1);
    EXPECT_EQ(seen[0].second.phase, "Lobby");
    EXPECT_EQ(seen[0].second.counter, 3);
    EXPECT_EQ(seen[1].first, 2);
    EXPECT_EQ(seen[1].second.phase, "");
    EXPECT_EQ(seen[1].second.counter, 0);
}

}  // namespace
}  // namespace Orvan::Testing
