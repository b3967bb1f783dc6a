// Gateway: the plugin's REST API and its resource events for clients outside
// the process. It turns HTTP requests into host requests (every endpoint of
// the plugin and the stand-ins' resources), answers failures as problem
// documents, and streams the resource events to WebSocket and Server-Sent
// Events subscribers.
//
// Requests reach the plugin one at a time, as the plugin's own host sends
// them: a request that arrives while another waits inside the plugin is
// queued, and DispatchQueued, called by the owner's loop outside any plugin
// call, answers them in arrival order. Events are forwarded as the plugin
// publishes them, waits included.
//
// Every published event gets the next number of the gateway's one sequence
// (`seq`); the last events are held so that an event stream can resume after
// a reconnection (Last-Event-ID). A new subscription first receives the
// current value of every matching resource as a Create marked "snapshot",
// numbered with the sequence's current position, so a late subscriber starts
// from the same state as an early one.
//
// Security: the server answers 127.0.0.1 only, but any page in the user's
// browser can reach it. Every request but /health and the console's static
// files (which hold no state) needs the run's token; a
// Host header that names another host is refused (DNS rebinding); a
// WebSocket handshake or a state-changing request from a foreign Origin is
// refused; CORS headers go to allowed origins only.
//
// Ownership: owns its server; the runtime outlives it. Threads: the host's.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/HostRuntime.h"
#include "host/HttpServer.h"

namespace Orvan::Host {

struct GatewayOptions {
    uint16_t port = 0;
    std::string token;
    // Origins besides the gateway's own that may change state and get CORS
    // headers ("http://localhost:5173").
    std::vector<std::string> allowedOrigins;
    HttpLimits limits;
    // Events held for resuming streams.
    size_t heldEvents = 4096;
    // Real seconds between keep-alive comments on an idle event stream.
    double streamHeartbeatSeconds = 15.0;
    // Folder of the browser console's files; empty serves a plain index.
    std::string consoleFolder;
};

// Pages the gateway serves besides the plugin's endpoints, and who hears of
// the calls it makes.
struct GatewayPages {
    std::function<std::string()> openApi;  // JSON text
    std::function<std::string()> world;    // JSON text
    std::function<void(const RestRequest&)> calling;
    std::function<void(const RestRequest&, const RestReply&)> called;
};

class Gateway : public HttpHandler, public HostObserver {
public:
    Gateway(HostRuntime& runtime, GatewayOptions options, GatewayPages pages);
    ~Gateway() override;
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    // Starts listening and takes the stand-ins' current resources as the
    // first state. False with the reason when the port cannot be had.
    bool Listen(std::string& error);
    uint16_t Port() const;
    // "http://127.0.0.1:PORT/?token=TOKEN"
    std::string Url() const;
    HttpServer& Server() { return *server_; }

    // Answers the queued requests; true when it answered any. Call only
    // from outside the plugin (never from within a host turn).
    bool DispatchQueued();
    // Keep-alive comments on idle event streams.
    void Tick();
    uint64_t LastSeq() const { return seq_; }
    size_t Subscribers() const { return subscribers_.size(); }

    // ---- HttpHandler ------------------------------------------------------------
    void OnRequest(uint64_t connection, HttpRequestIn request) override;
    std::optional<HttpResponseOut> OnUpgrade(uint64_t connection,
                                             const HttpRequestIn& request) override;
    void OnMessage(uint64_t connection, std::string text) override;
    void OnClose(uint64_t connection) override;

    // ---- HostObserver -----------------------------------------------------------
    void OnPluginEvent(uint32_t plugin, const std::string& name, const std::string& json) override;
    void OnHostResource(const std::string& uri, const std::string& eventType,
                        const std::string& json) override;

private:
    struct HeldEvent {
        uint64_t seq = 0;
        std::string uri;
        std::shared_ptr<const std::string> message;  // the JSON sent to subscribers
    };
    struct Subscriber {
        bool webSocket = true;
        std::set<std::string> patterns;
        double lastWrite = 0.0;
    };
    struct Pending {
        uint64_t connection = 0;
        HttpRequestIn request;
    };

    HttpResponseOut Answer(uint64_t connection, const HttpRequestIn& request);
    // A refusal for a request that fails the host, token or origin checks.
    std::optional<HttpResponseOut> Screen(const HttpRequestIn& request, bool changesState) const;
    bool AllowedOrigin(std::string_view origin) const;
    void AddCors(const HttpRequestIn& request, HttpResponseOut& response) const;
    HttpResponseOut Preflight(const HttpRequestIn& request) const;
    HttpResponseOut CallHost(const HttpRequestIn& request, std::string_view path,
                             std::string_view query);
    HttpResponseOut StaticPage(std::string_view path) const;
    bool OpenEventStream(uint64_t connection, const HttpRequestIn& request, std::string_view query,
                         HttpResponseOut& refusal);

    void Publish(const std::string& uri, const std::string& eventType, const std::string& data);
    void SendSnapshot(uint64_t connection, Subscriber& subscriber, const std::string& pattern);
    void SendText(uint64_t connection, Subscriber& subscriber, const std::string& message,
                  uint64_t seq);
    static bool Matches(const std::string& pattern, const std::string& uri);
    // The Server-Sent Events form of a message.
    static std::string StreamFrame(const std::string& message, uint64_t seq);

    HostRuntime& runtime_;
    GatewayOptions options_;
    GatewayPages pages_;
    std::unique_ptr<HttpServer> server_;
    std::deque<Pending> pending_;
    bool dispatching_ = false;
    uint64_t seq_ = 0;
    std::deque<HeldEvent> held_;
    std::map<std::string, std::string> current_;  // uri -> data JSON
    std::map<uint64_t, Subscriber> subscribers_;
    std::string openApiCache_;
};

// A new random token for a run (32 hex digits).
std::string NewGatewayToken();

}  // namespace Orvan::Host
