// Faults: the host misbehaving on purpose, for `--faults LIST`. A plugin's
// real host fails requests, breaks streamed bodies off, delivers events twice
// or after later ones and fires delayed calls late; these faults let a run
// show whether the plugin survives that and keeps what it publishes true.
//
// A LIST is a comma-separated list of KIND=SHARE, SHARE between 0 and 1 the
// share of occasions of that kind that go wrong:
//
//   request-fail     a REST request of the plugin fails with a host error
//                    (503) before it reaches whoever would answer it;
//   stream-fail      a successful reply reaches the plugin as a streamed body
//                    that breaks off: its read fails, or it ends early;
//   duplicate-event  an event is delivered twice;
//   late-event       an event is held back and delivered after later ones;
//   late-delay       a delayed call of the plugin fires late.
//
// Every decision comes from one generator seeded by the run's seed, so a run
// with the same seed and LIST misbehaves the same way again.
//
// Ownership: the injector owns its generator and counters; the runtime holds
// a pointer to it. Threads: the host's thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "framework/host/HostAbi.h"
#include "host/RestMessage.h"

namespace Orvan::Host {

enum class FaultKind { RequestFail, StreamFail, DuplicateEvent, LateEvent, LateDelay };
inline constexpr size_t kFaultKinds = 5;

// "request-fail", ... in the order of FaultKind.
std::string_view FaultKindName(FaultKind kind);
std::optional<FaultKind> FaultKindNamed(std::string_view name);

struct FaultPlan {
    std::array<double, kFaultKinds> share{};

    double Share(FaultKind kind) const { return share[static_cast<size_t>(kind)]; }
    bool Any() const;
    // "request-fail=0.1,late-event=0.05": the kinds that are on, in order.
    std::string Text() const;
};

// The LIST, or nullopt with `error` saying what is wrong with it.
std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string& error);

// What becomes of one queued event.
struct EventFault {
    bool duplicate = false;
    double lateBy = 0.0;  // simulated seconds; 0 delivers it in order
};

class FaultInjector {
public:
    FaultInjector(FaultPlan plan, uint64_t seed);

    const FaultPlan& Plan() const { return plan_; }

    // A host error to answer the plugin's request with instead of routing it.
    std::optional<RestReply> FailRequest(const RestRequest& request);
    // When the answer to the plugin is a success with a body, may turn the
    // reply into a streamed body that breaks off; true when it did. The
    // reply's release function then frees the stream as well.
    bool BreakStream(const RestReply& answer, HostResponse& reply);
    EventFault OnEvent(const std::string& name);
    // Extra simulated seconds for a delayed call.
    double LateBy();

    // How often each kind struck.
    uint64_t Count(FaultKind kind) const { return counts_[static_cast<size_t>(kind)]; }
    uint64_t Total() const;
    // "3 request-fail, 1 late-event" or "none".
    std::string Summary() const;

private:
    bool Strikes(FaultKind kind);
    double Uniform(double low, double high);

    FaultPlan plan_;
    std::mt19937_64 random_;
    std::array<uint64_t, kFaultKinds> counts_{};
};

}  // namespace Orvan::Host

namespace Orvan::Host {

class HostRuntime;
class PublishedState;

// The plugin's last published countdown, lobby, search and session against
// what it derives now from the DTO it holds (its GET answers of the same
// resources, which read the held DTO): one line per disagreement, none when
// they agree. Where the published value rightly differs from the GET answer
// (the lobby kept through champion select, the search kept after a
// deletion, no lobby for the first DTO) only what must hold is checked.
std::vector<std::string> CheckPublishedState(HostRuntime& runtime, const PublishedState& state);

}  // namespace Orvan::Host
