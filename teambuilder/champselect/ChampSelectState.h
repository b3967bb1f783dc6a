// What champion select remembers between DTOs, besides the draft lists, the
// team boost and the UX timers (each a component of its own):
//   Ceremonies        the synthetic ids of the ceremonies shown as action
//                     sets, the one whose timer runs and those completed;
//   ChampSelectState  the team ids of the last sessions, the session last
//                     published by an update, the chat domain name and the
//                     local player's ward skin;
//   ActionSetsRead    the action sets read while one DTO is applied.
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "teambuilder/common/ChampSelectRecords.h"
#include "teambuilder/common/TeamBuilderNames.h"

namespace Orvan::Client::LobbyTeamBuilder {

class Ceremonies {
public:
    Ceremonies() {
        // A draft completes a handful of ceremonies at most.
        completed_.max_load_factor(1.0f);
        completed_.rehash(8);
    }

    // The first synthetic id of the session.
    int32_t IdBase() const { return idBase_; }
    bool IsCompleted(int32_t actionId) const { return completed_.count(actionId) != 0; }
    // Synthetic ids start at the base, so a pending id at or above it is a
    // ceremony timer of this session that has not fired yet.
    bool TimerRunning() const { return pending_ >= idBase_; }
    void TimerStarted(int32_t actionId) { pending_ = actionId; }
    void TimerFired(int32_t actionId) {
        completed_.insert(actionId);
        pending_ = -1;
    }
    // The session ended having given `count` ids: the next one starts past
    // every one of them, so a late timer of this session never marks one of
    // the next.
    void SessionEnded(int64_t count) {
        pending_ = -1;
        completed_.clear();
        idBase_ = static_cast<int32_t>(int64_t{idBase_} + count);
    }

private:
    int32_t pending_ = -1;
    std::unordered_set<int32_t> completed_;
    int32_t idBase_ = 100;
};

class ChampSelectState {
public:
    // Whether a session of that team was among the last ones: a DTO of it
    // arriving outside a session is a late copy of a draft that is over.
    bool IsRecentTeam(const std::string& teamId) const {
        return std::find(recentTeamIds_.begin(), recentTeamIds_.end(), teamId) !=
               recentTeamIds_.end();
    }
    void SessionEntered(const std::string& teamId) {
        if (recentTeamIds_.size() >= kRecentTeamIdCount) {
            recentTeamIds_.pop_front();
        }
        recentTeamIds_.push_back(teamId);
    }

    // The session the update path compares the next one with.
    const std::optional<Api::ChampSelectSession>& LastPublished() const { return lastPublished_; }
    void KeepPublished(Api::ChampSelectSession session) { lastPublished_ = std::move(session); }

    // The chat domain name; empty names the default.
    const std::string& DomainName() const { return domainName_; }
    void SetDomainName(std::string name) {
        domainName_ = name.empty() ? std::string(kDefaultChampSelectDomainName) : std::move(name);
    }

    int64_t LocalWardSkinId() const { return localWardSkinId_; }
    void SetLocalWardSkinId(int64_t id) { localWardSkinId_ = id; }

private:
    static constexpr size_t kRecentTeamIdCount = 5;

    std::deque<std::string> recentTeamIds_;
    std::optional<Api::ChampSelectSession> lastPublished_;
    std::string domainName_{kDefaultChampSelectDomainName};
    int64_t localWardSkinId_ = 1;
};

// The action sets read while one DTO is applied: the session and the
// bannable list read the same sets of the same DTO. Neither record changes
// while it is applied; the entries are dropped before the incoming record is
// stored.
class ActionSetsRead {
public:
    const std::vector<Api::ActionV1>* Find(const Framework::BindingProperty* set) const {
        for (const auto& [read, actions] : entries_) {
            if (read == set) {
                return &actions;
            }
        }
        return nullptr;
    }
    void Add(const Framework::BindingProperty* set, std::vector<Api::ActionV1> actions) {
        entries_.emplace_back(set, std::move(actions));
    }
    void Clear() { entries_.clear(); }

private:
    std::vector<std::pair<const Framework::BindingProperty*, std::vector<Api::ActionV1>>> entries_;
};

}  // namespace Orvan::Client::LobbyTeamBuilder
