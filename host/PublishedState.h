// PublishedState: what the plugin has published, as a user interface would
// see it: the current value of every resource it announced (created or
// updated, not yet deleted) and the full list of its resource events. The
// demo's local player reads it to decide what to do, and the outcome checks
// read the event list.
//
// Ownership: owns parsed copies of the values. Threads: the host's thread.
#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/HostRuntime.h"

namespace Orvan::Host {

inline constexpr const char* kLobbyUri = "/qel-lobby-team-builder/v1/lobby";
inline constexpr const char* kCountdownUri = "/qel-lobby-team-builder/v1/lobby/countdown";
inline constexpr const char* kSearchUri = "/qel-lobby-team-builder/v1/matchmaking";
inline constexpr const char* kSessionUri = "/qel-lobby-team-builder/champ-select/v1/session";
inline constexpr const char* kActiveUri =
    "/qel-lobby-team-builder/champ-select/v1/implementation-active";
inline constexpr const char* kTeamBoostUri = "/qel-lobby-team-builder/champ-select/v1/team-boost";
inline constexpr const char* kPickableUri =
    "/qel-lobby-team-builder/champ-select/v1/pickable-champions";
inline constexpr const char* kBannableUri =
    "/qel-lobby-team-builder/champ-select/v1/bannable-champions";
inline constexpr const char* kSkinsUri = "/qel-lobby-team-builder/champ-select/v1/pickable-skins";

struct ResourceEvent {
    double at = 0.0;
    std::string uri;
    std::string type;  // Create, Update, Delete
    std::string data;  // JSON
};

class PublishedState : public HostObserver {
public:
    explicit PublishedState(std::function<double()> now) : now_(std::move(now)) {}

    void OnPluginEvent(uint32_t plugin, const std::string& name, const std::string& json) override;

    // The current value, or null when never published or deleted.
    const rapidjson::Value* Current(const std::string& uri) const;
    const std::vector<ResourceEvent>& Events() const { return events_; }
    // Index of the first event from `from` on that satisfies `test`, or -1.
    int64_t Find(const std::function<bool(const ResourceEvent&, const rapidjson::Value&)>& test,
                 size_t from = 0) const;
    size_t Count(const std::string& uri, const std::string& type = "") const;

    // Field helpers on parsed values (absent fields give the fallback).
    static const rapidjson::Value* Member(const rapidjson::Value* value, const char* path);
    static std::string Text(const rapidjson::Value* value, const char* path);
    static int64_t Int(const rapidjson::Value* value, const char* path, int64_t fallback = 0);
    static bool Flag(const rapidjson::Value* value, const char* path);

private:
    std::function<double()> now_;
    std::map<std::string, std::unique_ptr<rapidjson::Document>> current_;
    std::vector<ResourceEvent> events_;
};

}  // namespace Orvan::Host
