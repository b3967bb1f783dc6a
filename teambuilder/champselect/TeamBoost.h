// SessionTeamBoost: the team boost of the champion-select session, as last
// published; absent outside a session.
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <optional>
#include <utility>

#include "teambuilder/common/ChampSelectRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

class SessionTeamBoost {
public:
    const std::optional<Api::TeamBoost>& Current() const { return boost_; }
    // The boost a session starts with, or the one its refresh published.
    void Keep(Api::TeamBoost boost) { boost_ = std::move(boost); }
    void SessionEnded() { boost_.reset(); }

private:
    std::optional<Api::TeamBoost> boost_;
};

}  // namespace Orvan::Client::LobbyTeamBuilder
