// The plugin's shared object as the host sees it: loaded from disk and driven
// only through its entry, the load record and the host's function table.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "framework/host/HostValueConversion.h"
#include "tests/support/TestHost.h"

namespace Orvan::Testing {
namespace {

using namespace Orvan::Framework;
using Strings = std::vector<std::string>;

const TypeRecord* FindType(const PluginApiDescriptor& api, const std::string& name) {
    for (uint32_t i = 0; i < api.typeCount; ++i) {
        if (name == api.types[i].name) {
            return &api.types[i];
        }
    }
    return nullptr;
}

BindingProperty AsyncAnswer(std::string_view method) {
    BindingProperty payload;
    payload.MutableField("serviceName").SetString("teambuilder-draft");
    payload.MutableField("methodName").SetString(method);
    payload.MutableField("payload").SetString("{}");
    payload.MutableField("status").SetString("OK");
    return payload;
}

TEST(PluginLibraryTest, EntryFillsTheLoadRecord) {
    TestHost host;
    const PluginLoadRecord& record = host.Load(18, 3, 7);
    EXPECT_EQ(Unpacked(record.major), 18u);
    EXPECT_EQ(Unpacked(record.minor), 0u);
    EXPECT_EQ(Unpacked(record.patch), 0u);
    ASSERT_NE(Unpacked(record.callbacks), nullptr);
    EXPECT_NE(Unpacked(record.callbacks->StartModule), nullptr);
    EXPECT_NE(Unpacked(record.callbacks->DestroyModule), nullptr);
    EXPECT_NE(Unpacked(record.callbacks->GetMemoryStatistics), nullptr);
    EXPECT_NE(Unpacked(record.module), nullptr);
    EXPECT_STREQ(record.shortName, "qel-lobby-team-builder");
    ASSERT_NE(Unpacked(record.apiDescriptor), nullptr);
    EXPECT_TRUE(host.Calls().empty());

    // The framework's records are described with their fields and enumerators.
    const PluginApiDescriptor& api = *record.apiDescriptor;
    const TypeRecord* event = FindType(api, "PluginResourceEvent");
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event->nameSpace, "oclient");
    ASSERT_EQ(Unpacked(event->count), 3u);
    EXPECT_EQ(Unpacked(event->enumerators), nullptr);
    const FieldRecord* field = event->fields;
    Strings fields;
    for (; field != nullptr; field = field->next) {
        fields.push_back(std::string(field->name) + ":" + std::to_string(field->type) + ":" +
                         field->typeName);
    }
    EXPECT_EQ(fields, (Strings{"uri:12:", "eventType:16:PluginResourceEventType", "data:13:"}));

    const TypeRecord* eventType = FindType(api, "PluginResourceEventType");
    ASSERT_NE(eventType, nullptr);
    EXPECT_EQ(Unpacked(eventType->fields), nullptr);
    std::map<std::string, int32_t> values;
    for (const EnumeratorRecord* e = eventType->enumerators; e != nullptr; e = e->next) {
        values[e->name] = e->value;
    }
    EXPECT_EQ(values,
              (std::map<std::string, int32_t>{{"Create", 0}, {"Update", 1}, {"Delete", 2}}));
    EXPECT_EQ(Unpacked(eventType->count), 3u);
}

TEST(PluginLibraryTest, CompatibleCoresAreAccepted) {
    const uint32_t versions[][3] = {{18, 0, 0}, {18, 0, 5}, {18, 3, 0}, {18, 3, 7}};
    for (const auto& v : versions) {
        TestHost host;
        EXPECT_NE(Unpacked(host.Load(v[0], v[1], v[2]).module), nullptr)
            << v[0] << "." << v[1] << "." << v[2];
    }
}

TEST(PluginLibraryDeathTest, IncompatibleCoresEndTheProcessWithTheReport) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        uint32_t major, minor, patch;
        const char* text;
    } cores[] = {{17, 9, 9, "17\\.9\\.9"}, {19, 0, 0, "19\\.0\\.0"}, {0, 0, 0, "0\\.0\\.0"}};
    for (const auto& core : cores) {
        const std::string report =
            std::string(
                "Assertion failed!\n\nExpression: ALE-EECF0606\n\nDescription: "
                "qel-lobby-team-builder which supports plugin API 18\\.0\\.0 is not "
                "compatible with core's plugin API ") +
            core.text;
        EXPECT_DEATH(
            {
                TestHost host;
                host.Load(core.major, core.minor, core.patch);
            },
            report);
    }
}

// The plugin's start hook may register more after the framework's three.
Strings FirstCalls(const TestHost& host, size_t count) {
    Strings texts = host.CallTexts();
    texts.resize(std::min(texts.size(), count));
    return texts;
}

size_t CountLogs(const TestHost& host, const std::string& text) {
    size_t count = 0;
    for (const TestHost::LogLine& line : host.Logs()) {
        count += line.text == text ? 1 : 0;
    }
    return count;
}

const std::string kNoHandlerLine =
    "qel-lobby-team-builder: Could not find registered handler for async service proxy event "
    "teambuilder-draft.";

TEST(PluginLibraryTest, StartRegistersTheServiceProxyEventsAndLogsThroughTheHost) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start(42));
    EXPECT_EQ(FirstCalls(host, 3),
              (Strings{"3(OnServiceProxyUuidEvent, 42, 1)", "3(OnServiceProxyMethodEvent, 42, 1)",
                       "3(OnServiceProxyAsyncEvent, 42, 1)"}));

    // A pushed message without a handler is reported to the host's log.
    host.Emit("OnServiceProxyAsyncEvent", AsyncAnswer("noSuchMessageV1"));
    host.Pump();
    bool found = false;
    for (const TestHost::LogLine& line : host.Logs()) {
        if (line.text == kNoHandlerLine + "noSuchMessageV1") {
            EXPECT_EQ(line.level, 2u);
            found = true;
        }
    }
    EXPECT_TRUE(found);
}

TEST(PluginLibraryTest, MalformedEventsAreDroppedWithoutReachingTheHandler) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start());
    const std::string line = kNoHandlerLine + "x";

    HostValue unknownCode{};
    unknownCode.type = 1234;
    host.DeliverRaw("OnServiceProxyAsyncEvent", unknownCode);
    host.DeliverRaw("OnServiceProxyAsyncEvent", HostValue{});
    BindingProperty wrongShape = AsyncAnswer("x");
    wrongShape.MutableField("serviceName").MutableField("nested").SetBool(true);
    host.Deliver("OnServiceProxyAsyncEvent", wrongShape);
    host.Deliver("OnServiceProxyAsyncEvent", BindingProperty(int64_t{3}));

    OwnedHostValue good;
    ASSERT_TRUE(ToHostValue(AsyncAnswer("x"), good.Get()).HasValue());
    for (const char* name : {static_cast<const char*>(nullptr), "", "OnSomethingElse"}) {
        HostEvent event{};
        event.name = name;
        event.payload = good.Get();
        host.DeliverThrough("OnServiceProxyAsyncEvent", event);
    }
    // Only a well-formed event reaches the (missing) handler and its log line.
    EXPECT_EQ(CountLogs(host, line), 0u);
    host.Deliver("OnServiceProxyAsyncEvent", AsyncAnswer("x"));
    EXPECT_EQ(CountLogs(host, line), 1u);
}

TEST(PluginLibraryTest, DestroyUnregistersEveryEvent) {
    TestHost host;
    host.Load();
    ASSERT_TRUE(host.Start(9));
    Strings expected;
    for (const auto& [name, flags] : host.Registrations()) {
        expected.push_back("4(" + name + ", 9)");
    }
    ASSERT_GE(expected.size(), 3u);
    host.ClearCalls();
    host.Destroy();
    Strings unregistered;
    for (const TestHost::HostCall& call : host.CallsTo(4)) {
        unregistered.push_back(call.Text());
    }
    std::sort(unregistered.begin(), unregistered.end());
    EXPECT_EQ(unregistered, expected);
}

uint64_t Counter(const std::array<uint32_t, kMemoryStatisticsWords>& words, size_t index) {
    return uint64_t{words[2 * index]} | (uint64_t{words[2 * index + 1]} << 32);
}

TEST(PluginLibraryTest, MemoryStatisticsCountTheModulesAllocations) {
    TestHost host;
    host.Load();
    const auto loaded = host.MemoryStatistics();
    ASSERT_TRUE(host.Start());
    for (int i = 0; i < 20; ++i) {
        host.Deliver("OnServiceProxyAsyncEvent", AsyncAnswer("message" + std::to_string(i)));
    }
    const auto started = host.MemoryStatistics();

    for (const auto& words : {loaded, started}) {
        EXPECT_EQ(words[12], 0u);
        EXPECT_EQ(words[13], 0u);
        const uint64_t allocations = Counter(words, 3);
        const uint64_t frees = Counter(words, 5);
        EXPECT_GT(allocations, 0u);
        EXPECT_LE(frees, allocations);
        // The peak is at least what is live now.
        EXPECT_GE(Counter(words, 0), Counter(words, 2) - Counter(words, 4));
        EXPECT_LE(Counter(words, 1), allocations);
    }
    EXPECT_GT(Counter(started, 2), Counter(loaded, 2));  // bytes allocated
    EXPECT_GT(Counter(started, 3), Counter(loaded, 3));  // allocations
    EXPECT_GT(Counter(started, 5), Counter(loaded, 5));  // frees

    // The host's own allocations are not the module's: the object's counting
    // operators do not replace the process's.
    static std::vector<std::string> hostSide;
    hostSide.emplace_back(100000, 'x');
    hostSide.emplace_back(std::to_string(hostSide.size()));
    EXPECT_EQ(host.MemoryStatistics(), started);
}

}  // namespace
}  // namespace Orvan::Testing
