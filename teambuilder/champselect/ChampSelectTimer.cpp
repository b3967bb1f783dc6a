// The timer of the champion-select phase, as published inside the session
// and served on its own: the service's remaining and total times, whole
// seconds for displays, and the moment the DTO was received, so that readers
// can count down from it.
#include <cmath>
#include <cstdint>

#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

// Displays lag the service by a few milliseconds; the adjusted time keeps
// them from showing a second that has already gone.
constexpr int64_t kDisplayAdjustmentMillis = 3;

// 100-nanosecond ticks per millisecond.
constexpr uint64_t kTicksPerMilli = 10000;

// Whole seconds of a time in milliseconds, in single precision as displays
// count them (15999 ms is 15 s, -1 ms is -1 s). Saturates at the int32
// limits, which only a broken message reaches.
int32_t WholeSeconds(int64_t millis) {
    const float seconds = std::floor(static_cast<float>(static_cast<double>(millis)) * 0.001f);
    if (seconds >= 2147483648.0f) {
        return INT32_MAX;
    }
    if (seconds < -2147483648.0f) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(seconds);
}

}  // namespace

Api::ChampSelectTimer LobbyTeamBuilderPlugin::TimerOf(const Api::ChampionSelectStateV1& state,
                                                      uint64_t receivedAt) {
    const int64_t remaining = state.currentTimeRemainingMillis;
    Api::ChampSelectTimer timer;
    timer.timeLeftInPhase = remaining;
    timer.timeLeftInPhaseInSec = WholeSeconds(remaining);
    // Compared before subtracting, so that no remaining time can overflow.
    timer.adjustedTimeLeftInPhase =
        remaining >= kDisplayAdjustmentMillis ? remaining - kDisplayAdjustmentMillis : 0;
    timer.adjustedTimeLeftInPhaseInSec = WholeSeconds(timer.adjustedTimeLeftInPhase);
    timer.totalTimeInPhase = state.currentTotalTimeMillis;
    timer.phase = state.subphase;
    timer.isInfinite = false;
    timer.internalNowInEpochMs = receivedAt / kTicksPerMilli;
    return timer;
}

std::optional<Api::ChampSelectTimer> LobbyTeamBuilderPlugin::BuildChampSelectTimer(
    const GameDtoRecord& record) const {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(record);
    if (state == nullptr) {
        return std::nullopt;
    }
    return TimerOf(*state, record.receivedAt);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
