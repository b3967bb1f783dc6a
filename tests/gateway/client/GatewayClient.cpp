#include <utility>  // before Asio: its awaitable header uses std::exchange

#include "tests/gateway/client/GatewayClient.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#ifndef QEL_HOST_PROGRAM
#define QEL_HOST_PROGRAM "qel-host"
#endif
#ifndef QEL_TEST_SCRATCH
#define QEL_TEST_SCRATCH "/tmp"
#endif

namespace Orvan::Testing {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using ErrorCode = beast::error_code;

namespace {

std::chrono::steady_clock::duration Seconds(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

// Runs the context until `done` or the deadline; cancels what is left.
template <typename Socket>
bool RunUntil(net::io_context& io, Socket& socket, const bool& done, double seconds) {
    io.restart();
    const auto deadline = std::chrono::steady_clock::now() + Seconds(seconds);
    while (!done && std::chrono::steady_clock::now() < deadline) {
        io.run_one_until(deadline);
        if (io.stopped()) {
            io.restart();
            if (!done) {
                io.run_one_until(deadline);
            }
        }
    }
    if (!done) {
        ErrorCode ignored;
        socket.cancel(ignored);
        io.restart();
        io.poll();
        return false;
    }
    return true;
}

bool ConnectTo(net::io_context& io, tcp::socket& socket, uint16_t port) {
    ErrorCode ec;
    socket.connect(tcp::endpoint(net::ip::make_address("127.0.0.1"), port), ec);
    (void)io;
    return !ec;
}

HttpReply FromResponse(const http::response<http::string_body>& response) {
    HttpReply reply;
    reply.status = response.result_int();
    for (const auto& field : response) {
        std::string name(field.name_string());
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        reply.headers[name] = std::string(field.value());
    }
    reply.body = response.body();
    reply.closed = !response.keep_alive();
    return reply;
}

bool HasHeader(const Headers& headers, const std::string& name) {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& header) { return beast::iequals(header.first, name); });
}

// Parses the status line and headers of a raw answer.
HttpReply ParseRaw(const std::string& text) {
    HttpReply reply;
    if (text.compare(0, 5, "HTTP/") != 0) {
        reply.body = text;
        return reply;
    }
    const size_t space = text.find(' ');
    reply.status = static_cast<unsigned>(std::atoi(text.c_str() + space + 1));
    const size_t end = text.find("\r\n\r\n");
    size_t line = text.find("\r\n") + 2;
    while (end != std::string::npos && line < end) {
        const size_t next = text.find("\r\n", line);
        const std::string header = text.substr(line, next - line);
        const size_t colon = header.find(':');
        if (colon != std::string::npos) {
            std::string name = header.substr(0, colon);
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            reply.headers[name] = header.substr(header.find_first_not_of(' ', colon + 1));
        }
        line = next + 2;
    }
    reply.body = end == std::string::npos ? std::string() : text.substr(end + 4);
    return reply;
}

}  // namespace

// ---- The program ------------------------------------------------------------------------

std::unique_ptr<ServeProcess> ServeProcess::Start(const std::vector<std::string>& args,
                                                  std::string& error) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        error = "pipe failed";
        return nullptr;
    }
    static int runs = 0;
    auto process = std::unique_ptr<ServeProcess>(new ServeProcess());
    process->logPath_ = std::string(QEL_TEST_SCRATCH) + "/serve-" + std::to_string(getpid()) + "-" +
                        std::to_string(++runs) + ".log";
    std::vector<std::string> argv = {QEL_HOST_PROGRAM, "serve"};
    argv.insert(argv.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid < 0) {
        error = "fork failed";
        return nullptr;
    }
    if (pid == 0) {
        dup2(pipeFds[1], 1);
        const int log = open(process->logPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (log >= 0) {
            dup2(log, 2);
        }
        close(pipeFds[0]);
        close(pipeFds[1]);
        std::vector<char*> raw;
        raw.reserve(argv.size() + 1);
        for (std::string& arg : argv) {
            raw.push_back(arg.data());
        }
        raw.push_back(nullptr);
        execv(raw[0], raw.data());
        _exit(127);
    }
    close(pipeFds[1]);
    process->pid_ = pid;
    // The first line, within a deadline: the program may fail to start.
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);
    while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        char buffer[256];
        const ssize_t got = read(pipeFds[0], buffer, sizeof buffer);
        if (got > 0) {
            line.append(buffer, static_cast<size_t>(got));
        } else if (got == 0) {
            break;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    close(pipeFds[0]);
    process->line_ = line.substr(0, line.find('\n'));
    const std::string prefix = "serving http://127.0.0.1:";
    if (process->line_.compare(0, prefix.size(), prefix) != 0) {
        error = "no serving line; got \"" + process->line_ + "\"; log: " + process->Log();
        process->Stop(SIGKILL);
        return nullptr;
    }
    process->port_ = static_cast<uint16_t>(std::atoi(process->line_.c_str() + prefix.size()));
    const size_t token = process->line_.find("?token=");
    process->token_ = token == std::string::npos ? "" : process->line_.substr(token + 7);
    return process;
}

ServeProcess::~ServeProcess() {
    if (pid_ > 0) {
        Stop(SIGKILL);
    }
    if (!logPath_.empty()) {
        std::remove(logPath_.c_str());
    }
}

bool ServeProcess::Running() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return false;
    }
    return true;
}

int ServeProcess::Stop(int signal) {
    if (pid_ <= 0) {
        return -1;
    }
    kill(pid_, signal);
    int status = 0;
    for (int i = 0; i < 1000; ++i) {
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return -1;
}

std::string ServeProcess::Log() const {
    std::ifstream file(logPath_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// ---- HTTP -------------------------------------------------------------------------------

struct HttpClient::State {
    uint16_t port;
    net::io_context io;
    tcp::socket socket{io};
    beast::flat_buffer buffer;
    bool open = false;
};

HttpClient::HttpClient(uint16_t port) : state_(std::make_unique<State>()) {
    state_->port = port;
}

HttpClient::~HttpClient() = default;

HttpReply HttpClient::Send(const std::string& method, const std::string& target,
                           const Headers& headers, const std::string& body, double timeoutSeconds) {
    State& s = *state_;
    HttpReply reply;
    if (!s.open) {
        s.socket = tcp::socket(s.io);
        s.buffer.clear();
        if (!ConnectTo(s.io, s.socket, s.port)) {
            reply.error = "cannot connect";
            return reply;
        }
        s.open = true;
    }
    http::request<http::string_body> request;
    request.method_string(method);
    request.target(target);
    request.version(11);
    if (!HasHeader(headers, "Host")) {
        request.set(http::field::host, "127.0.0.1:" + std::to_string(s.port));
    }
    for (const auto& [name, value] : headers) {
        request.insert(name, value);
    }
    request.body() = body;
    if (!body.empty() || method == "POST" || method == "PUT" || method == "PATCH") {
        request.prepare_payload();
    }
    bool done = false;
    ErrorCode failure;
    http::response_parser<http::string_body> parser;
    parser.body_limit(uint64_t{64} * 1024 * 1024);
    http::async_write(s.socket, request, [&](const ErrorCode& ec, size_t) {
        if (ec) {
            failure = ec;
            done = true;
            return;
        }
        http::async_read(s.socket, s.buffer, parser, [&](const ErrorCode& readEc, size_t) {
            failure = readEc;
            done = true;
        });
    });
    if (!RunUntil(s.io, s.socket, done, timeoutSeconds)) {
        reply.error = "timed out";
        s.open = false;
        return reply;
    }
    if (failure) {
        reply.error = failure.message();
        reply.closed = true;
        s.open = false;
        return reply;
    }
    reply = FromResponse(parser.get());
    if (reply.closed) {
        s.open = false;
    }
    return reply;
}

HttpReply RawExchange(uint16_t port, const std::string& bytes, double timeoutSeconds, bool hangUp) {
    RawConnection connection(port);
    HttpReply reply;
    if (!connection.Connected() || !connection.Write(bytes)) {
        reply.error = "cannot connect or write";
        return reply;
    }
    if (hangUp) {
        reply.closed = true;
        return reply;
    }
    auto [text, closed] = connection.ReadAll(timeoutSeconds);
    reply = ParseRaw(text);
    reply.closed = closed;
    return reply;
}

struct RawConnection::State {
    net::io_context io;
    tcp::socket socket{io};
    bool connected = false;
};

RawConnection::RawConnection(uint16_t port) : state_(std::make_unique<State>()) {
    state_->connected = ConnectTo(state_->io, state_->socket, port);
}

RawConnection::~RawConnection() = default;

bool RawConnection::Connected() const {
    return state_->connected;
}

bool RawConnection::Write(const std::string& bytes) {
    ErrorCode ec;
    net::write(state_->socket, net::buffer(bytes), ec);
    return !ec;
}

std::pair<std::string, bool> RawConnection::ReadAll(double timeoutSeconds) {
    State& s = *state_;
    std::string text;
    bool closed = false;
    bool done = false;
    char chunk[4096];
    std::function<void()> readMore = [&] {
        s.socket.async_read_some(net::buffer(chunk), [&](const ErrorCode& ec, size_t got) {
            text.append(chunk, got);
            if (ec) {
                closed = ec == net::error::eof || ec == net::error::connection_reset;
                done = true;
                return;
            }
            readMore();
        });
    };
    readMore();
    RunUntil(s.io, s.socket, done, timeoutSeconds);
    return {text, closed};
}

// ---- WebSocket ----------------------------------------------------------------------------

struct WebSocketClient::State {
    uint16_t port;
    net::io_context io;
    websocket::stream<tcp::socket> ws{io};
    beast::flat_buffer buffer;
    std::deque<std::string> inbox;
    bool open = false;
    bool failed = false;

    // One read stays armed for the life of the connection: a cancelled read
    // would leave the stream unusable, so waiting never cancels it.
    void Read() {
        ws.async_read(buffer, [this](const ErrorCode& ec, size_t) {
            if (ec) {
                failed = true;
                return;
            }
            inbox.push_back(beast::buffers_to_string(buffer.data()));
            buffer.consume(buffer.size());
            Read();
        });
    }
    // Runs handlers until `ready` holds or the deadline passes.
    template <typename Ready>
    bool Wait(Ready ready, double seconds) {
        const auto deadline = std::chrono::steady_clock::now() + Seconds(seconds);
        while (!ready() && std::chrono::steady_clock::now() < deadline) {
            if (io.stopped()) {
                io.restart();
            }
            io.run_one_until(deadline);
        }
        return ready();
    }
};

WebSocketClient::WebSocketClient(uint16_t port) : state_(std::make_unique<State>()) {
    state_->port = port;
}

WebSocketClient::~WebSocketClient() {
    ErrorCode ignored;
    state_->ws.next_layer().close(ignored);
    state_->io.restart();
    state_->io.poll();
}

bool WebSocketClient::Connect(const std::string& target, const Headers& headers,
                              HttpReply* refusal) {
    State& s = *state_;
    if (!ConnectTo(s.io, s.ws.next_layer(), s.port)) {
        return false;
    }
    std::string host = "127.0.0.1:" + std::to_string(s.port);
    Headers extra;
    for (const auto& [name, value] : headers) {
        if (beast::iequals(name, "Host")) {
            host = value;
        } else {
            extra.emplace_back(name, value);
        }
    }
    s.ws.set_option(websocket::stream_base::decorator([extra](websocket::request_type& request) {
        for (const auto& [name, value] : extra) {
            request.set(name, value);
        }
    }));
    websocket::response_type response;
    bool done = false;
    ErrorCode failure;
    s.ws.async_handshake(response, host, target, [&](const ErrorCode& ec) {
        failure = ec;
        done = true;
    });
    if (!RunUntil(s.io, s.ws.next_layer(), done, 10.0) || failure) {
        if (refusal != nullptr) {
            refusal->status = response.result_int();
            refusal->body = response.body();
            refusal->error = failure ? failure.message() : "timed out";
        }
        return false;
    }
    s.open = true;
    s.Read();
    return true;
}

bool WebSocketClient::Send(const std::string& text) {
    State& s = *state_;
    if (!s.open || s.failed) {
        return false;
    }
    bool done = false;
    ErrorCode failure;
    s.ws.text(true);
    s.ws.async_write(net::buffer(text), [&](const ErrorCode& ec, size_t) {
        failure = ec;
        done = true;
    });
    return s.Wait([&] { return done; }, 10.0) && !failure;
}

std::optional<std::string> WebSocketClient::Receive(double timeoutSeconds) {
    State& s = *state_;
    if (!s.open) {
        return std::nullopt;
    }
    if (!s.Wait([&] { return !s.inbox.empty() || s.failed; }, timeoutSeconds) || s.inbox.empty()) {
        return std::nullopt;
    }
    std::string text = std::move(s.inbox.front());
    s.inbox.pop_front();
    return text;
}

bool WebSocketClient::Closed() {
    State& s = *state_;
    s.io.restart();
    s.io.poll();
    return s.failed && s.inbox.empty();
}

void WebSocketClient::Close() {
    State& s = *state_;
    if (!s.open || s.failed) {
        return;
    }
    bool done = false;
    s.ws.async_close(websocket::close_code::normal, [&](const ErrorCode&) { done = true; });
    s.Wait([&] { return done && s.failed; }, 5.0);
    s.open = false;
}

// ---- Server-Sent Events ---------------------------------------------------------------------

struct SseClient::State {
    uint16_t port;
    RawConnection* raw = nullptr;
    std::unique_ptr<RawConnection> connection;
    std::string pending;
};

SseClient::SseClient(uint16_t port) : state_(std::make_unique<State>()) {
    state_->port = port;
}

SseClient::~SseClient() = default;

bool SseClient::Open(const std::string& target, const Headers& headers, HttpReply* reply) {
    State& s = *state_;
    s.connection = std::make_unique<RawConnection>(s.port);
    std::string request = "GET " + target + " HTTP/1.1\r\n";
    if (!HasHeader(headers, "Host")) {
        request += "Host: 127.0.0.1:" + std::to_string(s.port) + "\r\n";
    }
    for (const auto& [name, value] : headers) {
        request += name + ": " + value + "\r\n";
    }
    request += "Accept: text/event-stream\r\n\r\n";
    if (!s.connection->Connected() || !s.connection->Write(request)) {
        return false;
    }
    // Read until the head is complete.
    for (int i = 0; i < 100 && s.pending.find("\r\n\r\n") == std::string::npos; ++i) {
        auto [text, closed] = s.connection->ReadAll(0.1);
        s.pending += text;
        if (closed) {
            break;
        }
    }
    const size_t end = s.pending.find("\r\n\r\n");
    HttpReply head = ParseRaw(s.pending);
    if (reply != nullptr) {
        *reply = head;
    }
    if (end == std::string::npos || head.status != 200) {
        return false;
    }
    s.pending.erase(0, end + 4);
    return true;
}

std::optional<SseEvent> SseClient::Next(double timeoutSeconds) {
    State& s = *state_;
    const auto deadline = std::chrono::steady_clock::now() + Seconds(timeoutSeconds);
    for (;;) {
        // One event ends with an empty line; comments and retry lines are skipped.
        size_t end;
        while ((end = s.pending.find("\n\n")) != std::string::npos) {
            const std::string block = s.pending.substr(0, end);
            s.pending.erase(0, end + 2);
            SseEvent event;
            std::istringstream lines(block);
            std::string line;
            bool any = false;
            while (std::getline(lines, line)) {
                if (line.compare(0, 4, "id: ") == 0) {
                    event.id = line.substr(4);
                } else if (line.compare(0, 6, "data: ") == 0) {
                    event.data += line.substr(6);
                    any = true;
                }
            }
            if (any) {
                return event;
            }
        }
        if (std::chrono::steady_clock::now() >= deadline || s.connection == nullptr) {
            return std::nullopt;
        }
        auto [text, closed] = s.connection->ReadAll(0.05);
        s.pending += text;
        if (closed && s.pending.find("\n\n") == std::string::npos) {
            return std::nullopt;
        }
    }
}

}  // namespace Orvan::Testing
