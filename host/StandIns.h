// StandIns: the plugins the team-builder plugin talks to, played by the host
// itself.
//
//   login          the session resource "/qel-login/v1/session" (state,
//                  summonerId, accountId, connected) and the service proxy:
//                  POST "/qel-login/v1/service-proxy-uuid-requests" (answers
//                  a uuid at once, the service's answer later as
//                  "OnServiceProxyUuidEvent"), ".../service-proxy-method-
//                  requests" (answer later as "OnServiceProxyMethodEvent"
//                  under the response method) and ".../service-proxy-async-
//                  requests/{service}/{method}" (registers the caller for the
//                  messages the service pushes, "OnServiceProxyAsyncEvent").
//                  While the connection is down, calls fail with 503, calls
//                  in flight fail with an error answer and pushes are lost.
//   game flow      "/qel-gameflow/v1/session" with gameClient.running, and
//                  POST "/qel-gameflow/v1/session/event".
//   platform config the two settings the plugin follows, changeable with PUT.
//   telemetry      POST "/telemetry/v1/events/{name}".
//   window         POST "/orvanclient/ux-show".
//
// The stand-ins are also the simulator's environment: they give it the host
// clock, forward its pushes, start the game client and drop the connection
// when its scenario says so.
//
// Ownership: holds references to the runtime and the simulator, which
// outlive it. Threads: the host's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/HostRuntime.h"
#include "sim/ServiceSimulator.h"

namespace Orvan::Host {

inline constexpr const char* kLoginSessionUri = "/qel-login/v1/session";
inline constexpr const char* kGameflowSessionUri = "/qel-gameflow/v1/session";
inline constexpr const char* kChatDomainSettingUri =
    "/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName";
inline constexpr const char* kLogAllMessagesSettingUri =
    "/qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages";

struct StandInOptions {
    uint64_t summonerId = 2400001;
    uint64_t accountId = 7700001;
    std::string champSelectDomainName = "champ-select";
    bool logAllMessages = false;
    // Seconds a service answer or push takes to arrive.
    double serviceLatency = 0.08;
};

// One call the service proxy forwarded, for summaries and tests.
struct ProxiedCall {
    double at = 0.0;
    std::string kind;  // "uuid", "method"
    std::string service;
    std::string method;
    std::string payload;
    std::string answerMethod;
    std::string answerStatus;
    std::string answerError;
};

class StandIns : public Simulation::SimEnvironment {
public:
    // (who, what): lines for the timeline.
    using Narrator = std::function<void(std::string_view who, const std::string& what)>;

    StandIns(HostRuntime& runtime, StandInOptions options);
    ~StandIns() override;

    // The services behind the proxy; without them every call answers
    // "SERVICE UNKNOWN".
    void SetServices(Simulation::ServiceSimulator* services) { services_ = services; }
    void SetNarrator(Narrator narrator) { narrator_ = std::move(narrator); }

    // Routes and the initial resources (not announced: they are the state
    // the plugin finds when it starts).
    void Install();
    // The login completes: the session turns SUCCEEDED and connected.
    void SignIn();
    void SetConnected(bool connected);
    void SetSetting(const std::string& uri, const std::string& json);

    // ---- SimEnvironment ----------------------------------------------------------
    double Now() const override;
    void After(double seconds, std::string label, std::function<void()> task) override;
    void Push(std::string_view service, std::string_view method, std::string payload) override;
    void Narrate(std::string_view actor, std::string text) override;
    void StartGame() override;
    void InterruptConnection(double seconds) override;

    // ---- What happened -------------------------------------------------------------
    bool Connected() const { return connected_; }
    bool GameClientRunning() const { return gameClientRunning_; }
    const std::vector<ProxiedCall>& Calls() const { return calls_; }
    const std::vector<std::string>& GameflowEvents() const { return gameflowEvents_; }
    const std::vector<std::string>& TelemetryEvents() const { return telemetry_; }
    uint32_t WindowShows() const { return windowShows_; }
    uint32_t DroppedMessages() const { return dropped_; }
    // "service.method" the plugins registered for pushes.
    std::set<std::string> AsyncRegistrations() const;

private:
    RestReply UuidRequest(const RestRequest& request);
    RestReply MethodRequest(const RestRequest& request);
    RestReply AsyncRequest(const RestRequest& request, const PathParameters& parameters);
    // Emits the event after the service latency; when the connection is down
    // by then, `lostPayload` instead (nothing when it is empty).
    void Deliver(const std::string& eventName, uint32_t target, std::string payload,
                 std::string lostPayload);
    void PublishLogin();
    Simulation::ServiceAnswer Ask(const Simulation::ServiceRequest& request);

    HostRuntime& runtime_;
    StandInOptions options_;
    Simulation::ServiceSimulator* services_ = nullptr;
    Narrator narrator_;
    bool signedIn_ = false;
    bool connected_ = false;
    bool gameClientRunning_ = false;
    std::map<std::string, std::set<uint32_t>> asyncHandlers_;  // service.method -> plugins
    std::vector<ProxiedCall> calls_;
    std::vector<std::string> gameflowEvents_;
    std::vector<std::string> telemetry_;
    uint32_t windowShows_ = 0;
    uint32_t dropped_ = 0;
};

}  // namespace Orvan::Host
