// The requests to the host application to show its window during champion
// select: at once when the local player has an action in the set that just
// became current, and from a timer ten seconds before the phase ends, so a
// player who looked away is called back in time.
//
// Timers are never cancelled. Each one remembers the phase it was set in and
// does nothing once another phase is current; of the timers of one phase
// only the last one outstanding shows the window, and only if the player has
// not completed an action since (UxTimers keeps the count and the wish).
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/MessageFormat.h"
#include "framework/rest/RestCalls.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

constexpr const char* kUxTimerName = "qel-champ-select-legacy.show-ux-%1";
constexpr std::string_view kFinalizationPhase = "FINALIZATION";

// A phase with less time left than this gets no timer: the window would
// show too late to matter.
constexpr int64_t kMinMillisForTimer = 15000;
// How long before the end of the phase the timer shows the window.
constexpr int64_t kShowBeforeEndMillis = 10000;
// The longest delay the steady clock is asked for (about 35 years); a longer
// remaining time is a broken message, and the bound keeps the deadline from
// overflowing.
constexpr int64_t kMaxTimerDelayMillis = int64_t{1} << 40;

// The lines print their numbers as 32-bit; larger ones saturate.
int AsLogInt(int64_t value) {
    return static_cast<int>(std::clamp<int64_t>(value, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}

const std::string& SubphaseOf(const GameDtoRecord& record) {
    static const std::string kNoPhase;
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(record);
    return state != nullptr ? state->subphase : kNoPhase;
}

// Whether the local player acts in one action set as received. An element
// without an actor, or one that is not an object, names nobody.
bool HasActionOf(const Framework::BindingProperty& set, int64_t cellId) {
    for (const Framework::BindingProperty& action : set.Elements()) {
        if (action.HasField("actorCellId") && action.Field("actorCellId").AsSigned() == cellId) {
            return true;
        }
    }
    return false;
}

}  // namespace

UxStep CheckUx(const GameDtoRecord& previous, const GameDtoRecord& incoming, const UxTimers& timers,
               Effects& out) {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    const Api::ChampionSelectStateV1* previousState = ChampSelectStateOf(previous);
    const std::string& newPhase = SubphaseOf(incoming);
    const std::string& oldPhase = SubphaseOf(previous);

    UxStep step;
    bool shown = false;
    if (state != nullptr && (previousState == nullptr || previousState->currentActionSetIndex !=
                                                             state->currentActionSetIndex)) {
        const int32_t index = state->currentActionSetIndex;
        const size_t setCount = state->actionSetList.size();
        if (static_cast<uint32_t>(index) >= setCount) {
            out.emplace_back(FormattedLine(
                kOkay, kGroupGen,
                "Received an out-of-bounds action set index in phase %s: %d (out of %d)",
                newPhase.c_str(), index, AsLogInt(static_cast<int64_t>(setCount))));
        } else if (HasActionOf(state->actionSetList[static_cast<uint32_t>(index)],
                               state->localPlayerCellId)) {
            out.emplace_back(UxShowRequest());
            shown = true;
        }
    }

    const int64_t remaining = state != nullptr ? state->currentTimeRemainingMillis : 0;
    step.phaseChanged = newPhase != oldPhase;
    if (step.phaseChanged) {
        out.emplace_back(FormattedLine(
            kAlways, kGroupDbg,
            "Timer phase changed, resetting outstanding timer count to 0, phase ends in %d ms.",
            AsLogInt(remaining)));
    }

    const bool wanted = (step.phaseChanged && newPhase == kFinalizationPhase) || shown;
    if (!wanted || remaining < kMinMillisForTimer) {
        return step;
    }
    step.timerSet = true;
    std::string name = Framework::Format(kUxTimerName, timers.NextSerial());
    const int64_t delay = remaining - kShowBeforeEndMillis;
    out.emplace_back(FormattedLine(kAlways, kGroupDbg,
                                   "Creating ux timer %s to show for phase %s in %d ms",
                                   name.c_str(), newPhase.c_str(), AsLogInt(delay)));
    out.emplace_back(UxShowTimer{std::move(name), newPhase, std::min(delay, kMaxTimerDelayMillis)});
    return step;
}

void LobbyTeamBuilderPlugin::HandleUx(const GameDtoRecord& previous,
                                      const GameDtoRecord& incoming) {
    Effects effects;
    const UxStep step = CheckUx(previous, incoming, uxTimers_, effects);
    CarryOut(effects);
    uxTimers_.Keep(step);
}

void LobbyTeamBuilderPlugin::OnUxTimerFired(const std::string& timerPhase,
                                            const std::string& name) {
    const std::string& currentPhase = SubphaseOf(storedDto_);
    Log(kAlways, kGroupDbg,
        "Ux timer %s triggered: timer phase=%s, current phase=%s, outstanding timers: %u, "
        "should show=%s",
        name.c_str(), timerPhase.c_str(), currentPhase.c_str(), uxTimers_.Outstanding(),
        uxTimers_.ShowWanted() ? "true" : "false");
    if (currentPhase != timerPhase) {
        // The phase change reset the count; this timer is no longer in it.
        return;
    }
    if (uxTimers_.ShowsOnFiring()) {
        Log(kAlways, kGroupDbg, "Showing ux timer: %s", name.c_str());
        static_cast<void>(Request(Framework::HttpMethod::Post, kUxShowUri));
        uxTimers_.ShowDone();
    }
    uxTimers_.CountOff();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
