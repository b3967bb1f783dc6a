// Publishing and following resources: the two emissions of an event, counted
// subscriptions behind handlers, the initial read of an exact resource, and
// typed handlers that drop what does not convert.
#include <cstdint>
#include <utility>
#include <vector>

#include "framework/host/HostValueConversion.h"

#include "tests/serviceproxy/support/ServicesModule.h"

namespace Orvan::Testing {
namespace {

using ResourceEventsTest = ServicesTest;

// What an emitted payload is compared with, and the counts of the comparison.
struct ExpectedPayload {
    const HostValue* value = nullptr;
    int emitted = 0;
    int same = 0;
};
ExpectedPayload* expectedPayload = nullptr;

void QEL_HOST_CALL ComparePayload(HostApi*, HostEvent* event) {
    ++expectedPayload->emitted;
    if (SameHostValue(event->payload, *expectedPayload->value)) {
        ++expectedPayload->same;
    }
}

TEST_F(ResourceEventsTest, PayloadsAreTheResourceRecordAsTheRegistryConvertsIt) {
    BindingProperty nested = SessionValue("Lobby", 5);
    nested.MutableField("list").Append().SetString(std::string_view("a\0b", 3));
    nested.MutableField("list").Append().SetBlob(std::vector<uint8_t>{1, 2});
    const Resource cases[] = {
        {"/qel-lobby-team-builder/v1/lobby", PluginResourceEventType::Update, nested},
        {"/qel-lobby-team-builder/v1/matchmaking", PluginResourceEventType::Delete, {}},
        {"/", PluginResourceEventType::Create, BindingProperty("root")},
        // A number the enumeration does not name crosses as a number.
        {"qel-x", static_cast<PluginResourceEventType>(7), BindingProperty(int64_t{3})},
    };
    host_.Functions()->EmitEvent = &ComparePayload;
    for (const Resource& resource : cases) {
        Maybe<BindingProperty> record = ConvertToProperty(Module().Registry(), resource);
        ASSERT_TRUE(record.HasValue());
        OwnedHostValue expected;
        ASSERT_TRUE(ToHostValue(*record, expected.Get(), &Module().Registry()).HasValue());
        ExpectedPayload comparison{&expected.Get()};
        expectedPayload = &comparison;
        EXPECT_TRUE(Module().SendEvent(kJsonApiEvent, resource).HasValue());
        EXPECT_EQ(comparison.emitted, resource.uri == "/" ? 1 : 2) << resource.uri;
        EXPECT_EQ(comparison.same, comparison.emitted) << resource.uri;
    }
    expectedPayload = nullptr;
}

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
    for (const BindingProperty& data :
         {SessionValue("Lobby", 3), wrongType, BindingProperty("text")}) {
        host_.EmitResource("/qel-gameflow/v1/session", "Update", data);
    }
    host_.EmitResource("/qel-gameflow/v1/session", "Delete", BindingProperty());
    host_.Pump();
    // Nothing could be read at first; a Delete carries the default value.
    EXPECT_EQ(seen, (Strings{"1 Lobby 3", "2  0"}));
}

}  // namespace
}  // namespace Orvan::Testing
