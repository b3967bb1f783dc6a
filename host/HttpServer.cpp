// The only file that includes Beast: it costs most of the host's compile time,
// so everything protocol-specific stays here behind HttpServer.h.
#include <utility>  // before Asio: its awaitable header uses std::exchange

#include "host/HttpServer.h"

#include <algorithm>
#include <cctype>

namespace Orvan::Host {

namespace {

bool SameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

}  // namespace

std::string HttpRequestIn::Header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (SameName(key, name)) {
            return value;
        }
    }
    return {};
}

bool HttpRequestIn::HasHeader(std::string_view name) const {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& header) { return SameName(header.first, name); });
}

}  // namespace Orvan::Host

#if QEL_HOST_GATEWAY

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <deque>
#include <map>

namespace Orvan::Host {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using ErrorCode = beast::error_code;

namespace {

std::chrono::steady_clock::duration Seconds(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::max(seconds, 0.0)));
}

HttpRequestIn ToRequestIn(const http::request<http::string_body>& request) {
    HttpRequestIn in;
    in.method = std::string(request.method_string());
    in.target = std::string(request.target());
    for (const auto& field : request) {
        in.headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
    }
    in.body = request.body();
    in.webSocket = websocket::is_upgrade(request);
    return in;
}

}  // namespace

std::string_view HttpReason(unsigned status) {
    const auto text = http::obsolete_reason(static_cast<http::status>(status));
    const std::string_view reason(text.data(), text.size());
    return reason.empty() || reason == "<unknown-status>" ? std::string_view("Unknown") : reason;
}

namespace {

class ServerImpl;

// One accepted socket: HTTP requests, then possibly an event stream. A
// WebSocket upgrade moves the socket into a WebSocketConnection.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(ServerImpl& server, uint64_t id) : server_(server), id_(id) {}
    virtual ~Connection() = default;
    uint64_t Id() const { return id_; }
    virtual void Respond(HttpResponseOut response) = 0;
    virtual void OpenStream(HttpResponseOut head) = 0;
    virtual void Send(std::shared_ptr<const std::string> text) = 0;
    virtual void Close() = 0;
    // Closes what is past its deadline.
    virtual void Sweep(std::chrono::steady_clock::time_point) {}

protected:
    ServerImpl& server_;
    uint64_t id_;
};

class ServerImpl final : public HttpServer {
public:
    ServerImpl(HttpHandler& handler, HttpLimits limits)
        : handler_(handler), limits_(limits), acceptor_(io_), signals_(io_), sweep_(io_) {}

    ~ServerImpl() override {
        closing_ = true;
        ErrorCode ignored;
        acceptor_.close(ignored);
        signals_.cancel(ignored);
        sweep_.cancel();
        for (auto& [id, connection] : std::map(connections_)) {
            connection->Close();
        }
        // Let the closes and cancellations finish so no handler outlives us.
        io_.restart();
        io_.poll();
        connections_.clear();
    }

    bool Open(uint16_t port, std::string& error) {
        ErrorCode ec;
        const tcp::endpoint endpoint(net::ip::make_address("127.0.0.1"), port);
        acceptor_.open(endpoint.protocol(), ec);
        if (!ec) {
            acceptor_.set_option(net::socket_base::reuse_address(true), ec);
        }
        if (!ec) {
            acceptor_.bind(endpoint, ec);
        }
        if (!ec) {
            acceptor_.listen(net::socket_base::max_listen_connections, ec);
        }
        if (ec) {
            error = "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + ec.message();
            return false;
        }
        port_ = acceptor_.local_endpoint().port();
        Accept();
        Sweep();
        return true;
    }

    // ---- HttpServer ----------------------------------------------------------------------
    uint16_t Port() const override { return port_; }
    void Respond(uint64_t connection, HttpResponseOut response) override {
        if (auto found = Find(connection)) {
            found->Respond(std::move(response));
        }
    }
    void OpenStream(uint64_t connection, HttpResponseOut head) override {
        if (auto found = Find(connection)) {
            found->OpenStream(std::move(head));
        }
    }
    using HttpServer::Send;
    void Send(uint64_t connection, std::shared_ptr<const std::string> text) override {
        if (auto found = Find(connection)) {
            found->Send(std::move(text));
        }
    }
    void Close(uint64_t connection) override {
        if (auto found = Find(connection)) {
            found->Close();
        }
    }
    size_t Connections() const override { return connections_.size(); }
    void OnStopSignal(std::function<void()> stop) override {
        stop_ = std::move(stop);
        signals_.add(SIGINT);
        signals_.add(SIGTERM);
        WaitForSignal();
    }

    // ---- HostPump --------------------------------------------------------------------------
    bool Poll() override {
        if (io_.stopped()) {
            io_.restart();
        }
        if (io_.poll() == 0) {
            return false;
        }
        lastActivity_ = std::chrono::steady_clock::now();
        return true;
    }
    // Right after traffic the next request is usually a round trip away:
    // polling for a short while answers it without the cost of being woken,
    // which on a virtual machine is most of a loopback round trip. Quiet
    // connections cost nothing: the wait blocks as soon as traffic stops.
    void WaitFor(double realSeconds) override {
        using Steady = std::chrono::steady_clock;
        if (io_.stopped()) {
            io_.restart();
        }
        const Steady::time_point start = Steady::now();
        const Steady::time_point end = start + Seconds(realSeconds);
        if (start - lastActivity_ < std::chrono::milliseconds(2)) {
            const Steady::time_point spinEnd =
                std::min(end, start + std::chrono::microseconds(300));
            while (Steady::now() < spinEnd) {
                if (Poll()) {
                    return;
                }
            }
        }
        if (io_.run_one_until(end) > 0) {
            io_.poll();
            lastActivity_ = Steady::now();
        }
    }

    // ---- For the connections ---------------------------------------------------------------
    HttpHandler& Handler() { return handler_; }
    const HttpLimits& Limits() const { return limits_; }
    bool Closing() const { return closing_; }
    void Adopt(const std::shared_ptr<Connection>& connection) {
        connections_[connection->Id()] = connection;
    }
    // Called last by a connection that closed: it may be destroyed here.
    void Forget(uint64_t id) {
        auto found = connections_.find(id);
        if (found == connections_.end()) {
            return;
        }
        std::shared_ptr<Connection> keep = std::move(found->second);
        connections_.erase(found);
        if (!closing_) {
            handler_.OnClose(id);
        }
    }

private:
    std::shared_ptr<Connection> Find(uint64_t id) {
        auto found = connections_.find(id);
        return found != connections_.end() ? found->second : nullptr;
    }
    void Accept();
    // One timer for every connection's deadline, a few times per idle time.
    void Sweep() {
        const double period = std::clamp(limits_.idleSeconds / 4.0, 0.05, 1.0);
        sweep_.expires_after(Seconds(period));
        sweep_.async_wait([this](const ErrorCode& ec) {
            if (ec || closing_) {
                return;
            }
            const auto now = std::chrono::steady_clock::now();
            for (auto& [id, connection] : std::map(connections_)) {
                connection->Sweep(now);
            }
            Sweep();
        });
    }
    void WaitForSignal() {
        signals_.async_wait([this](const ErrorCode& ec, int) {
            if (ec) {
                return;
            }
            if (stop_) {
                stop_();
            }
            WaitForSignal();
        });
    }

    HttpHandler& handler_;
    HttpLimits limits_;
    net::io_context io_{1};
    tcp::acceptor acceptor_;
    net::signal_set signals_;
    net::steady_timer sweep_;
    std::function<void()> stop_;
    uint16_t port_ = 0;
    std::chrono::steady_clock::time_point lastActivity_;
    uint64_t nextId_ = 1;
    bool closing_ = false;
    // The connections own themselves through this map and their pending
    // operations; a connection leaves it when it closes.
    std::map<uint64_t, std::shared_ptr<Connection>> connections_;
};

// Writes queued texts one at a time; drops the peer when its backlog grows
// past the limit.
class WriteQueue {
public:
    bool Push(std::shared_ptr<const std::string> text, size_t limit) {
        queuedBytes_ += text->size();
        texts_.push_back(std::move(text));
        return queuedBytes_ <= limit;
    }
    bool Busy() const { return busy_; }
    bool Empty() const { return texts_.empty(); }
    const std::string& Front() const { return *texts_.front(); }
    void Begin() { busy_ = true; }
    void Done() {
        busy_ = false;
        queuedBytes_ -= texts_.front()->size();
        texts_.pop_front();
    }

private:
    std::deque<std::shared_ptr<const std::string>> texts_;
    size_t queuedBytes_ = 0;
    bool busy_ = false;
};

class WebSocketConnection final : public Connection {
public:
    WebSocketConnection(ServerImpl& server, uint64_t id, beast::tcp_stream stream)
        : Connection(server, id), ws_(std::move(stream)) {}

    void Accept(const http::request<http::string_body>& request) {
        beast::get_lowest_layer(ws_).expires_never();
        websocket::stream_base::timeout timeout =
            websocket::stream_base::timeout::suggested(beast::role_type::server);
        timeout.idle_timeout = Seconds(std::max(server_.Limits().idleSeconds, 10.0));
        timeout.keep_alive_pings = true;
        ws_.set_option(timeout);
        ws_.read_message_max(server_.Limits().maxMessageBytes);
        ws_.async_accept(request, [self = Self()](const ErrorCode& ec) {
            if (ec) {
                self->Drop();
                return;
            }
            self->open_ = true;
            self->Flush();
            self->Read();
        });
    }

    void Respond(HttpResponseOut) override {}
    void OpenStream(HttpResponseOut) override {}
    void Send(std::shared_ptr<const std::string> text) override {
        if (closed_) {
            return;
        }
        if (!queue_.Push(std::move(text), server_.Limits().maxBacklogBytes)) {
            Drop();
            return;
        }
        Flush();
    }
    void Close() override {
        if (closed_ || closing_) {
            return;
        }
        closing_ = true;
        if (!open_) {
            Drop();
            return;
        }
        ws_.async_close(websocket::close_code::normal,
                        [self = Self()](const ErrorCode&) { self->Drop(); });
    }

private:
    std::shared_ptr<WebSocketConnection> Self() {
        return std::static_pointer_cast<WebSocketConnection>(shared_from_this());
    }
    void Read() {
        ws_.async_read(buffer_, [self = Self()](const ErrorCode& ec, size_t) {
            if (ec) {
                self->Drop();
                return;
            }
            std::string text = beast::buffers_to_string(self->buffer_.data());
            self->buffer_.consume(self->buffer_.size());
            self->server_.Handler().OnMessage(self->id_, std::move(text));
            if (!self->closed_) {
                self->Read();
            }
        });
    }
    void Flush() {
        if (!open_ || closing_ || closed_ || queue_.Busy() || queue_.Empty()) {
            return;
        }
        queue_.Begin();
        ws_.text(true);
        ws_.async_write(net::buffer(queue_.Front()), [self = Self()](const ErrorCode& ec, size_t) {
            self->queue_.Done();
            if (ec) {
                self->Drop();
                return;
            }
            self->Flush();
        });
    }
    void Drop() {
        if (closed_) {
            return;
        }
        closed_ = true;
        ErrorCode ignored;
        beast::get_lowest_layer(ws_).socket().shutdown(tcp::socket::shutdown_both, ignored);
        beast::get_lowest_layer(ws_).close();
        server_.Forget(id_);
    }

    websocket::stream<beast::tcp_stream> ws_;
    beast::flat_buffer buffer_;
    WriteQueue queue_;
    bool open_ = false;
    bool closing_ = false;
    bool closed_ = false;
};

class HttpConnection final : public Connection {
    using Steady = std::chrono::steady_clock;

public:
    HttpConnection(ServerImpl& server, uint64_t id, tcp::socket socket)
        : Connection(server, id), stream_(std::move(socket)) {}

    void Start() { Read(); }

    // Answers a connection past the limit and closes it.
    void Refuse(HttpResponseOut response) {
        response.close = true;
        Write(std::move(response), false);
    }

    void Respond(HttpResponseOut response) override {
        if (!waiting_ || closed_) {
            return;
        }
        waiting_ = false;
        const bool keepOpen = keepAlive_ && !response.close;
        Write(std::move(response), keepOpen);
    }

    void OpenStream(HttpResponseOut head) override {
        if (!waiting_ || closed_) {
            return;
        }
        waiting_ = false;
        streaming_ = true;
        // The body runs until the connection closes: no length, no chunks,
        // which every client reads as it comes.
        std::string text = "HTTP/1.1 " + std::to_string(head.status) + " " +
                           std::string(HttpReason(head.status)) + "\r\n";
        for (const auto& [name, value] : head.headers) {
            text.append(name).append(": ").append(value).append("\r\n");
        }
        text += "Connection: close\r\n\r\n";
        text += head.body;
        deadline_ = Steady::time_point::max();
        Send(std::make_shared<const std::string>(std::move(text)));
        // Anything the client sends now, or its close, ends the stream.
        stream_.async_read_some(net::buffer(probe_),
                                [self = Self()](const ErrorCode&, size_t) { self->Drop(); });
    }

    void Send(std::shared_ptr<const std::string> text) override {
        if (!streaming_ || closed_) {
            return;
        }
        if (!queue_.Push(std::move(text), server_.Limits().maxBacklogBytes)) {
            Drop();
            return;
        }
        Flush();
    }

    void Close() override {
        if (streaming_ && !queue_.Empty()) {
            closeAfterWrite_ = true;
            return;
        }
        Drop();
    }

private:
    std::shared_ptr<HttpConnection> Self() {
        return std::static_pointer_cast<HttpConnection>(shared_from_this());
    }

    void Read() {
        parser_.emplace();
        parser_->header_limit(static_cast<uint32_t>(server_.Limits().maxHeaderBytes));
        parser_->body_limit(server_.Limits().maxBodyBytes);
        Deadline();
        http::async_read(stream_, buffer_, *parser_,
                         [self = Self()](const ErrorCode& ec, size_t) { self->OnRead(ec); });
    }

    // The connection's own deadline rather than the stream's: the stream's
    // closes the socket, and a request that stalled halfway deserves its 408.
    // The server's sweep enforces it, so setting one costs no timer call.
    void Deadline() {
        timedOut_ = false;
        deadline_ = Steady::now() + Seconds(server_.Limits().idleSeconds);
    }

    void Sweep(Steady::time_point now) override {
        if (closed_ || now < deadline_) {
            return;
        }
        if (lingering_) {
            Drop();
            return;
        }
        timedOut_ = true;
        deadline_ = Steady::time_point::max();
        ErrorCode ignored;
        stream_.socket().cancel(ignored);
    }

    void OnRead(const ErrorCode& ec) {
        if (closed_) {
            return;
        }
        deadline_ = Steady::time_point::max();
        if (ec) {
            if (ec == http::error::body_limit) {
                Fail(413, "The body is larger than " +
                              std::to_string(server_.Limits().maxBodyBytes) + " bytes");
            } else if (ec == http::error::header_limit) {
                Fail(431, "The header is larger than " +
                              std::to_string(server_.Limits().maxHeaderBytes) + " bytes");
            } else if (timedOut_) {
                if (parser_->got_some() || buffer_.size() > 0) {
                    Fail(408, "The request did not arrive in time");
                } else {
                    Drop();
                }
            } else if (ec.category() == ErrorCode(http::error::end_of_stream).category() &&
                       ec != http::error::end_of_stream && ec != http::error::partial_message) {
                Fail(400, "Malformed HTTP request: " + ec.message());
            } else {
                // The peer closed or the socket failed: nobody to answer.
                Drop();
            }
            return;
        }
        http::request<http::string_body> request = parser_->release();
        keepAlive_ = request.keep_alive();
        HttpRequestIn in = ToRequestIn(request);
        if (in.webSocket) {
            std::optional<HttpResponseOut> refusal = server_.Handler().OnUpgrade(id_, in);
            if (refusal) {
                refusal->close = true;
                Write(std::move(*refusal), false);
                return;
            }
            auto upgraded = std::make_shared<WebSocketConnection>(server_, id_, std::move(stream_));
            closed_ = true;  // the socket now belongs to the WebSocket
            server_.Adopt(upgraded);
            upgraded->Accept(request);
            return;
        }
        waiting_ = true;
        server_.Handler().OnRequest(id_, std::move(in));
    }

    void Fail(unsigned status, std::string_view detail) {
        HttpResponseOut response;
        response.status = status;
        response.headers.emplace_back("Content-Type", "application/problem+json");
        std::string escaped;
        for (char c : detail) {
            if (c == '"' || c == '\\') {
                escaped += '\\';
            }
            escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
        response.body = "{\"type\":\"about:blank\",\"title\":\"" + std::string(HttpReason(status)) +
                        "\",\"status\":" + std::to_string(status) + ",\"detail\":\"" + escaped +
                        "\"}";
        response.close = true;
        Write(std::move(response), false);
    }

    void Write(HttpResponseOut out, bool keepAlive) {
        auto response = std::make_shared<http::response<http::string_body>>();
        response->version(11);
        response->result(static_cast<http::status>(out.status));
        for (const auto& [name, value] : out.headers) {
            response->insert(name, value);
        }
        response->body() = std::move(out.body);
        response->keep_alive(keepAlive);
        response->prepare_payload();
        Deadline();
        http::async_write(stream_, *response,
                          [self = Self(), response, keepAlive](const ErrorCode& ec, size_t) {
                              self->deadline_ = Steady::time_point::max();
                              if (ec || !keepAlive) {
                                  self->Shutdown();
                                  return;
                              }
                              self->Read();
                          });
    }

    void Flush() {
        if (closed_ || queue_.Busy() || queue_.Empty()) {
            return;
        }
        queue_.Begin();
        net::async_write(stream_, net::buffer(queue_.Front()),
                         [self = Self()](const ErrorCode& ec, size_t) {
                             self->queue_.Done();
                             if (ec) {
                                 self->Drop();
                                 return;
                             }
                             if (self->closeAfterWrite_ && self->queue_.Empty()) {
                                 self->Shutdown();
                                 return;
                             }
                             self->Flush();
                         });
    }

    // Ends the connection gracefully: the client reads what was written.
    // What it is still sending (the rest of a refused body) is read and
    // dropped for a while, since closing on unread bytes resets the
    // connection and the client would lose the answer.
    void Shutdown() {
        if (closed_) {
            return;
        }
        ErrorCode ignored;
        stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
        lingering_ = true;
        deadline_ = Steady::now() + std::chrono::seconds(2);
        Linger();
    }
    void Linger() {
        stream_.async_read_some(net::buffer(drain_), [self = Self()](const ErrorCode& ec, size_t) {
            if (ec || self->closed_) {
                self->Drop();
                return;
            }
            self->Linger();
        });
    }

    void Drop() {
        if (closed_) {
            return;
        }
        closed_ = true;
        stream_.close();
        server_.Forget(id_);
    }

    Steady::time_point deadline_ = Steady::time_point::max();
    beast::tcp_stream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    WriteQueue queue_;
    char probe_[1] = {};
    char drain_[4096] = {};
    bool keepAlive_ = true;
    bool waiting_ = false;
    bool streaming_ = false;
    bool closeAfterWrite_ = false;
    bool timedOut_ = false;
    bool lingering_ = false;
    bool closed_ = false;
};

void ServerImpl::Accept() {
    acceptor_.async_accept([this](const ErrorCode& ec, tcp::socket socket) {
        if (ec == net::error::operation_aborted || closing_) {
            return;
        }
        if (!ec) {
            const uint64_t id = nextId_++;
            auto connection = std::make_shared<HttpConnection>(*this, id, std::move(socket));
            const bool full = connections_.size() >= limits_.maxConnections;
            Adopt(connection);
            if (full) {
                HttpResponseOut refusal;
                refusal.status = 503;
                refusal.headers.emplace_back("Content-Type", "application/problem+json");
                refusal.headers.emplace_back("Retry-After", "1");
                refusal.body =
                    "{\"type\":\"about:blank\",\"title\":\"Service Unavailable\",\"status\":503,"
                    "\"detail\":\"Too many connections (at most " +
                    std::to_string(limits_.maxConnections) + ")\"}";
                connection->Refuse(std::move(refusal));
            } else {
                connection->Start();
            }
        }
        Accept();
    });
}

}  // namespace

std::unique_ptr<HttpServer> HttpServer::Listen(HttpHandler& handler, uint16_t port,
                                               HttpLimits limits, std::string& error) {
    auto server = std::make_unique<ServerImpl>(handler, limits);
    if (!server->Open(port, error)) {
        return nullptr;
    }
    return server;
}

}  // namespace Orvan::Host

#else  // built without Boost

namespace Orvan::Host {

std::string_view HttpReason(unsigned) {
    return "Unknown";
}

std::unique_ptr<HttpServer> HttpServer::Listen(HttpHandler&, uint16_t, HttpLimits,
                                               std::string& error) {
    error = "this qel-host was built without its gateway (no Boost headers for the target)";
    return nullptr;
}

}  // namespace Orvan::Host

#endif
