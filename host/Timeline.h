// Timeline: what a run prints as it goes, either as readable lines
//
//     12.4s  you          POST /qel-lobby-team-builder/v1/lobby {"queueId":62}  -> 200
//     12.5s  event        lobby: queue 62, 1 member: Ember (captain); not ready to queue
//     14.1s  Brynja       joins the lobby
//
// or, with JSON on, as one JSON object per line ({"t":12.4,"kind":"rest",...}).
// Levels of detail: 0 shows phases, the local player's calls and the
// outcome; 1 (default) adds the resource events the plugin publishes and
// what the simulated players and stand-ins do; 2 adds the plugin's calls to
// other plugins and services and its warnings and errors; 3 adds every log
// line, wait and delayed call of the plugin.
//
// Ownership: writes to a stream it does not own. Threads: the host's thread.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "host/HostRuntime.h"
#include "host/ResourceSummary.h"

namespace Orvan::Host {

class Timeline : public HostObserver {
public:
    Timeline(std::FILE* out, bool json, int detail, std::function<double()> now);

    void SetNames(NameBook names) { names_ = std::move(names); }
    int Detail() const { return detail_; }
    bool Json() const { return json_; }

    void Phase(const std::string& title);
    // A line of prose from an actor (simulated player, stand-in, host).
    void Note(std::string_view who, const std::string& text, int detail = 1);
    // A REST call made by `who` (the local player) and its reply.
    void Rest(std::string_view who, const RestRequest& request, const RestReply& reply);
    // Plain text at level 0: headers, summaries.
    void Text(const std::string& text);
    void Outcome(bool success, const std::string& text);

    // ---- HostObserver ----------------------------------------------------------
    void OnPluginEvent(uint32_t plugin, const std::string& name, const std::string& json) override;
    void OnPluginRequest(uint32_t plugin, const RestRequest& request,
                         const RestReply& reply) override;
    void OnLog(uint32_t plugin, uint32_t level, const std::string& text) override;
    void OnWait(uint32_t plugin, const std::string& label, bool begins) override;
    void OnDelayedCall(uint32_t plugin, const std::string& label, double delaySeconds) override;

private:
    void Line(std::string_view who, const std::string& text);
    void JsonLine(const std::string& object);
    std::string Time() const;

    std::FILE* out_;
    bool json_;
    int detail_;
    std::function<double()> now_;
    NameBook names_;
};

}  // namespace Orvan::Host
