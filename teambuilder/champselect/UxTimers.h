// UxTimers: what the UX show requests of champion select remember between
// DTOs: the serial that names each timer (never reset, so no two timers of
// one plugin share a name), how many timers of the current phase have not
// fired yet, and whether the window should still be shown (cleared when the
// local player completes an action).
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <cstdint>

#include "teambuilder/common/GameDtoRecord.h"
#include "teambuilder/common/IntakeChanges.h"

namespace Orvan::Client::LobbyTeamBuilder {

// What a DTO changes of the UX timers' state.
struct UxStep {
    bool phaseChanged = false;
    bool timerSet = false;

    bool operator==(const UxStep&) const = default;
};

class UxTimers {
public:
    // Keeps what CheckUx found: another subphase is current (the timers set
    // so far no longer count), a timer is set to show the window.
    void Keep(const UxStep& step) {
        if (step.phaseChanged) {
            outstanding_ = 0;
        }
        if (step.timerSet) {
            ++outstanding_;
            showWanted_ = true;
            ++serial_;
        }
    }
    // The serial that names the next timer.
    uint32_t NextSerial() const { return serial_ + 1; }
    // Whether a timer of the current phase that fires now shows the window:
    // the last one outstanding, with the window still wanted.
    bool ShowsOnFiring() const { return showWanted_ && outstanding_ == 1; }
    // The window was shown, or the local player completed an action:
    // nothing needs calling back.
    void ShowDone() { showWanted_ = false; }
    // A timer of the current phase has fired. A timer of a phase that was
    // left and entered again may find the count already reset; it stays at
    // zero rather than wrapping.
    void CountOff() {
        if (outstanding_ > 0) {
            --outstanding_;
        }
    }
    // The session ended.
    void SessionEnded() {
        outstanding_ = 0;
        showWanted_ = false;
    }

    uint32_t Outstanding() const { return outstanding_; }
    bool ShowWanted() const { return showWanted_; }

private:
    uint32_t serial_ = 0;
    uint32_t outstanding_ = 0;
    bool showWanted_ = false;
};

// The UX effects of a session created or changed from previous to incoming:
// the show request when the local player's set became current, the lines
// and the timer of a phase that ends late enough. Changes nothing; the step
// is kept once the effects are carried out.
UxStep CheckUx(const GameDtoRecord& previous, const GameDtoRecord& incoming, const UxTimers& timers,
               Effects& out);

}  // namespace Orvan::Client::LobbyTeamBuilder
