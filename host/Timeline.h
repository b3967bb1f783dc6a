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
#include <map>
#include <set>
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
    // A REST call made by `who` (the local player): the request as it goes
    // out (text only), then the request with its reply. Lines printed while
    // the call runs come between the two; otherwise they share one line.
    void RestBegin(std::string_view who, const RestRequest& request);
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
    // Resources the plugin has published and not deleted, and the last line
    // shown for each: at the usual detail a Delete of something never shown,
    // a line that repeats the resource's previous one and a countdown that
    // stays in its phase are left out.
    std::set<std::string> live_;
    bool restOpen_ = false;   // a request line waits for its status
    bool restSplit_ = false;  // other lines came in between
    std::map<std::string, std::string> lastLines_;
};

}  // namespace Orvan::Host
