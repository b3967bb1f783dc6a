// HttpServer: an HTTP/1.1 and WebSocket server on 127.0.0.1 that runs on the
// host's thread. It owns the sockets and the protocol; what the requests mean
// is its handler's business. Nothing here blocks: the host polls it between
// turns (it is a HostPump) and waits on it when idle.
//
// A request is handed to the handler once it is complete; the connection
// reads nothing more until the handler answers with Respond (now or later),
// so a client's requests are answered in order. OpenStream answers with a
// head and keeps the connection for Send: the Server-Sent Events form. A
// WebSocket handshake is offered to the handler first and accepted unless it
// returns a refusal.
//
// The server enforces the limits itself, before any handler sees a request:
// a header over the limit is answered 431, a body over the limit 413, a
// request that does not parse 400, a connection past the limit 503, each
// with the connection closed; a connection idle past its time is closed (408
// when it stopped in the middle of a request). A client that does not read
// what it is sent is dropped once its backlog passes the limit, so one slow
// client never holds the others back.
//
// Ownership: the server owns its connections; the handler outlives it.
// Threads: the host's thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/HostRuntime.h"

namespace Orvan::Host {

struct HttpLimits {
    size_t maxBodyBytes = size_t{1024} * 1024;
    size_t maxHeaderBytes = size_t{16} * 1024;
    size_t maxConnections = 64;
    // A connection with no complete request for this long is closed.
    double idleSeconds = 30.0;
    // Bytes queued for one client before it counts as stuck and is dropped.
    size_t maxBacklogBytes = size_t{8} * 1024 * 1024;
    size_t maxMessageBytes = size_t{64} * 1024;
};

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequestIn {
    std::string method;
    std::string target;  // path and query as sent
    HttpHeaders headers;
    std::string body;
    bool webSocket = false;  // an upgrade to WebSocket

    // The first header of that name (case-insensitive), or "".
    std::string Header(std::string_view name) const;
    bool HasHeader(std::string_view name) const;
};

struct HttpResponseOut {
    unsigned status = 200;
    HttpHeaders headers;
    std::string body;
    // Closes the connection once the answer is written.
    bool close = false;
};

class HttpHandler {
public:
    virtual ~HttpHandler() = default;
    // A complete request (not an upgrade); answer with Respond or OpenStream.
    virtual void OnRequest(uint64_t connection, HttpRequestIn request) = 0;
    // A WebSocket handshake: nothing accepts it, a reply refuses it.
    virtual std::optional<HttpResponseOut> OnUpgrade(uint64_t connection,
                                                     const HttpRequestIn& request) = 0;
    virtual void OnMessage(uint64_t connection, std::string text) = 0;
    // The connection is gone (closed by either side or dropped).
    virtual void OnClose(uint64_t connection) = 0;
};

class HttpServer : public HostPump {
public:
    // Listens on 127.0.0.1:port (0: a free port). Null and the reason when
    // the port cannot be had.
    static std::unique_ptr<HttpServer> Listen(HttpHandler& handler, uint16_t port,
                                              HttpLimits limits, std::string& error);

    virtual uint16_t Port() const = 0;
    virtual void Respond(uint64_t connection, HttpResponseOut response) = 0;
    virtual void OpenStream(uint64_t connection, HttpResponseOut head) = 0;
    // A text message on a WebSocket, or bytes on an open stream. One event
    // goes to many subscribers: they share its text.
    virtual void Send(uint64_t connection, std::shared_ptr<const std::string> text) = 0;
    void Send(uint64_t connection, std::string text) {
        Send(connection, std::make_shared<const std::string>(std::move(text)));
    }
    virtual void Close(uint64_t connection) = 0;
    virtual size_t Connections() const = 0;
    // Calls `stop` on SIGINT or SIGTERM (delivered through the poll, on the
    // host's thread).
    virtual void OnStopSignal(std::function<void()> stop) = 0;
};

// The reason phrase of a status ("Not Found").
std::string_view HttpReason(unsigned status);

}  // namespace Orvan::Host
