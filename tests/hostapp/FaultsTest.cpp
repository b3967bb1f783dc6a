// The fault specification and the broken streams the host hands the plugin.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/Faults.h"
#include "host/HostJson.h"

namespace Orvan::Host {
namespace {

TEST(Faults, SpecsParseOrSayWhatIsWrong) {
    struct Case {
        const char* text;
        const char* canonical;  // the plan's text, or the error when null
        const char* error;
    };
    const std::vector<Case> cases = {
        {"request-fail=0.1,stream-fail=0.05,duplicate-event=0.05,late-delay=0.2",
         "request-fail=0.1,stream-fail=0.05,duplicate-event=0.05,late-delay=0.2", nullptr},
        {"late-event=1", "late-event=1", nullptr},
        {"late-delay=0.5,request-fail=0.25", "request-fail=0.25,late-delay=0.5", nullptr},
        {"duplicate-event=0", "", nullptr},
        {"", nullptr, "--faults needs KIND=SHARE[,KIND=SHARE...]"},
        {"drop-event=0.1", nullptr,
         "--faults: unknown fault kind \"drop-event\" (kinds: request-fail, stream-fail, "
         "duplicate-event, late-event, late-delay)"},
        {"request-fail", nullptr, "--faults: request-fail needs a share between 0 and 1"},
        {"request-fail=", nullptr, "--faults: request-fail needs a share between 0 and 1"},
        {"request-fail=1.5", nullptr, "--faults: request-fail needs a share between 0 and 1"},
        {"request-fail=0.1x", nullptr, "--faults: request-fail needs a share between 0 and 1"},
        {"request-fail=nan", nullptr, "--faults: request-fail needs a share between 0 and 1"},
        {"request-fail=0.1,", nullptr,
         "--faults: unknown fault kind \"\" (kinds: request-fail, "
         "stream-fail, duplicate-event, late-event, late-delay)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        const std::optional<FaultPlan> plan = ParseFaultPlan(c.text, error);
        if (c.canonical != nullptr) {
            ASSERT_TRUE(plan) << error;
            EXPECT_EQ(plan->Text(), c.canonical);
            EXPECT_EQ(plan->Any(), std::string(c.canonical) != "");
        } else {
            EXPECT_FALSE(plan);
            EXPECT_EQ(error, c.error);
        }
    }
}

// Reads a broken stream the way a plugin does: 4096-byte reads until the
// body is complete or a read fails.
struct StreamRead {
    std::string bytes;
    bool failed = false;
    int reads = 0;
};

StreamRead ReadAll(HostResponse& reply) {
    StreamRead read;
    uint8_t buffer[4096];
    for (; read.reads < 100000; ++read.reads) {
        uint32_t length = sizeof buffer;
        uint8_t more = 0;
        if (reply.read(reply.streamContext, buffer, &length, &more) == 0) {
            read.failed = true;
            break;
        }
        read.bytes.append(reinterpret_cast<const char*>(buffer), length);
        if (more == 0) {
            break;
        }
    }
    return read;
}

TEST(Faults, BrokenStreamsDeliverAPrefixThenFailOrEnd) {
    FaultPlan plan;
    plan.share[static_cast<size_t>(FaultKind::StreamFail)] = 1.0;
    FaultInjector faults(plan, 5);
    const std::string body = R"({"a":[1,2,3],"b":"some text that is long enough to be cut"})";
    RestReply answer = RestReply::Json(body);
    int failedReads = 0;
    int endedEarly = 0;
    for (int i = 0; i < 40; ++i) {
        HostResponse reply{};
        std::string error;
        ASSERT_TRUE(JsonToHostValue(body, reply.body, error)) << error;
        ASSERT_TRUE(faults.BreakStream(answer, reply));
        ASSERT_TRUE(reply.read != nullptr);
        ASSERT_TRUE(reply.release != nullptr);
        EXPECT_EQ(static_cast<uint64_t>(reply.expectedLength), body.size());
        const StreamRead read = ReadAll(reply);
        EXPECT_LT(read.bytes.size(), body.size());
        EXPECT_EQ(body.compare(0, read.bytes.size(), read.bytes), 0) << "a prefix of the body";
        (read.failed ? failedReads : endedEarly)++;
        reply.close(reply.streamContext);
        reply.release(&reply);
        EXPECT_TRUE(reply.streamContext == nullptr);
    }
    EXPECT_GT(failedReads, 0);
    EXPECT_GT(endedEarly, 0);
    EXPECT_EQ(faults.Count(FaultKind::StreamFail), 40u);

    // Failures and empty bodies stay as they are.
    HostResponse failed{};
    failed.failed = 1;
    EXPECT_FALSE(faults.BreakStream(answer, failed));
    HostResponse empty{};
    EXPECT_FALSE(faults.BreakStream(RestReply::Json(""), empty));
    EXPECT_TRUE(empty.read == nullptr);
}

TEST(Faults, SharesDecideHowOftenEachKindStrikes) {
    FaultPlan plan;
    plan.share[static_cast<size_t>(FaultKind::RequestFail)] = 0.25;
    plan.share[static_cast<size_t>(FaultKind::LateDelay)] = 1.0;
    FaultInjector faults(plan, 9);
    int failed = 0;
    for (int i = 0; i < 4000; ++i) {
        if (std::optional<RestReply> reply = faults.FailRequest(RestRequest{})) {
            EXPECT_EQ(reply->status, 503);
            EXPECT_FALSE(reply->Ok());
            ++failed;
        }
        const double late = faults.LateBy();
        EXPECT_GT(late, 0.0);
        EXPECT_LE(late, 3.0);
        const EventFault event = faults.OnEvent("OnServiceProxyAsyncEvent");
        EXPECT_FALSE(event.duplicate);
        EXPECT_EQ(event.lateBy, 0.0);
    }
    EXPECT_NEAR(failed, 1000, 120);
    EXPECT_EQ(faults.Summary(), std::to_string(failed) + " request-fail, 4000 late-delay");
}

}  // namespace
}  // namespace Orvan::Host
