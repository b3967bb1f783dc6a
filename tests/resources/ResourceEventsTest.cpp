// Publishing and following resources: the two emissions of an event, counted
// subscriptions behind handlers, the initial read of an exact resource, and
// typed handlers that drop what does not convert.
#include <utility>

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using ResourceEventsTest = ServicesTest;

TEST_F(ResourceEventsTest, PublishingEmitsUnderTheKeyAndUnderTheBaseName) {
    Module().PublishResource("/qel-lobby-team-builder/v1/lobby/countdown", TestSession{"Lobby", 5});
    Module().PublishResource("/qel-lobby-team-builder/v1/lobby", Unregistered{});  // not sent
    Module().DeleteResource("/qel-lobby-team-builder/v1/matchmaking");
    Module().PublishResource("/", std::string("root"), PluginResourceEventType::Create);
    Strings emitted;
    for (const TestHost::EmittedEvent& event : host_.Events()) {
        emitted.push_back(event.key + " " + event.json);
    }
    const std::string countdown = R"({"data":{"counter":5,"phase":"Lobby"},"eventType":"Update",)"
                                  R"("uri":"/qel-lobby-team-builder/v1/lobby/countdown"})";
    const std::string deleted =
        R"({"data":null,"eventType":"Delete","uri":"/qel-lobby-team-builder/v1/matchmaking"})";
    EXPECT_EQ(emitted,
              (Strings{"OnJsonApiEvent_qel-lobby-team-builder_v1_lobby " + countdown,
                       "OnJsonApiEvent " + countdown,
                       "OnJsonApiEvent_qel-lobby-team-builder_v1_matchmaking " + deleted,
                       "OnJsonApiEvent " + deleted,
                       R"(OnJsonApiEvent {"data":"root","eventType":"Create","uri":"/"})"}));
}

TEST_F(ResourceEventsTest, HandlersShareCountedSubscriptionsAndReadExactResourcesAtOnce) {
    host_.OnRequest("GET", "/qel-gameflow/v1/session", [](const TestHost::Request&) {
        return TestHost::Reply::Body(SessionValue("Lobby", 1));
    });
    Strings seen;
    Module().AddResourceHandler("/qel-gameflow/v1/session", [&](const Resource& r) {
        seen.push_back(std::to_string(static_cast<int>(r.eventType)) + " " +
                       std::string(r.data.Field("phase").GetString()));
    });
    Module().AddResourceHandler("/qel-gameflow/*/session",
                                [&](const Resource& r) { seen.push_back("pattern " + r.uri); });
    Module().AddResourceHandler("/qel-gameflow/v1/session/extra", [](const Resource&) {});
    // One initial read per exact URI, as a Create event; the pattern has a
    // key of its own, the third URI shares the first one's.
    EXPECT_EQ(seen, (Strings{"0 Lobby"}));
    EXPECT_EQ(host_.Requests().size(), 2u);
    EXPECT_EQ(host_.CallsTo(3).size(), 2u);

    host_.EmitResource("/qel-gameflow/v1/session", "Update", SessionValue("InProgress", 2));
    host_.Pump();
    EXPECT_EQ(seen, (Strings{"0 Lobby", "1 InProgress", "pattern /qel-gameflow/v1/session"}));

    (void)Module().Unsubscribe("/qel-gameflow/v1/session");
    EXPECT_TRUE(host_.IsRegistered("OnJsonApiEvent_qel-gameflow_v1_session"));
    (void)Module().Unsubscribe("/qel-gameflow/v1/session/extra");
    EXPECT_FALSE(host_.IsRegistered("OnJsonApiEvent_qel-gameflow_v1_session"));
}

TEST_F(ResourceEventsTest, TypedHandlersConvertTheDataAndDropWhatDoesNotConvert) {
    Strings seen;
    Module().AddResourceHandler<TestSession>(
        "/qel-gameflow/v1/session", [&](const TypedResource<TestSession>& event) {
            seen.push_back(std::to_string(static_cast<int>(event.eventType)) + " " +
                           event.value.phase + " " + std::to_string(event.value.counter));
        });
    BindingProperty wrongType = SessionValue("Lobby", 1);
    wrongType.MutableField("counter").SetString("many");
    for (BindingProperty data : {SessionValue("Lobby", 3), wrongType, BindingProperty("text")}) {
        host_.EmitResource("/qel-gameflow/v1/session", "Update", data);
    }
    host_.EmitResource("/qel-gameflow/v1/session", "Delete", BindingProperty());
    host_.Pump();
    // Nothing could be read at first; a Delete carries the default value.
    EXPECT_EQ(seen, (Strings{"1 Lobby 3", "2  0"}));
}

}  // namespace
}  // namespace Orvan::Testing
