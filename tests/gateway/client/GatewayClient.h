// Clients of `qel-host serve` for tests: the program started as a process,
// and HTTP, raw TCP, WebSocket and Server-Sent Events clients with
// deadlines, so a test never hangs on a gateway that does not answer.
//
// Ownership: plain objects; a ServeProcess stops its program when destroyed.
// Threads: the test's thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Orvan::Testing {

using Headers = std::vector<std::pair<std::string, std::string>>;

class ServeProcess {
public:
    // Starts `qel-host serve ARGS...` and waits for its "serving" line.
    static std::unique_ptr<ServeProcess> Start(const std::vector<std::string>& args,
                                               std::string& error);
    ~ServeProcess();

    uint16_t Port() const { return port_; }
    const std::string& Token() const { return token_; }
    const std::string& Line() const { return line_; }
    // "127.0.0.1:PORT", for Host headers.
    std::string Host() const { return "127.0.0.1:" + std::to_string(port_); }
    bool Running();
    pid_t Pid() const { return pid_; }
    // SIGTERM, then the exit status (-1 when it had to be killed).
    int Stop(int signal = 15);
    // What the program wrote to standard error so far.
    std::string Log() const;

private:
    pid_t pid_ = -1;
    uint16_t port_ = 0;
    std::string token_;
    std::string line_;
    std::string logPath_;
};

struct HttpReply {
    unsigned status = 0;                         // 0 when no answer came
    std::map<std::string, std::string> headers;  // lower-case names
    std::string body;
    bool closed = false;  // the server closed the connection after it
    std::string error;
    std::string Header(const std::string& lowerName) const {
        auto found = headers.find(lowerName);
        return found != headers.end() ? found->second : std::string();
    }
};

// A keep-alive HTTP/1.1 connection (reopened when the server closed it).
class HttpClient {
public:
    explicit HttpClient(uint16_t port);
    ~HttpClient();
    // Sends Host 127.0.0.1:PORT unless `headers` names another.
    HttpReply Send(const std::string& method, const std::string& target,
                   const Headers& headers = {}, const std::string& body = {},
                   double timeoutSeconds = 10.0);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Writes `bytes` as they are and reads until the server closes or the
// deadline passes; `hangUp` closes right after writing.
HttpReply RawExchange(uint16_t port, const std::string& bytes, double timeoutSeconds = 5.0,
                      bool hangUp = false);

// A plain connection held open (for the connection limit and idle tests).
class RawConnection {
public:
    explicit RawConnection(uint16_t port);
    ~RawConnection();
    bool Connected() const;
    bool Write(const std::string& bytes);
    // Reads until close or the deadline: what arrived, and whether it closed.
    std::pair<std::string, bool> ReadAll(double timeoutSeconds);

private:
    struct State;
    std::unique_ptr<State> state_;
};

class WebSocketClient {
public:
    explicit WebSocketClient(uint16_t port);
    ~WebSocketClient();
    // The handshake; on refusal, the server's reply in `refusal`.
    bool Connect(const std::string& target, const Headers& headers, HttpReply* refusal = nullptr);
    bool Send(const std::string& text);
    // The next message; nothing when none came in time or the socket closed.
    std::optional<std::string> Receive(double timeoutSeconds = 10.0);
    // True once the server has closed the socket and every message was read.
    bool Closed();
    void Close();

private:
    struct State;
    std::unique_ptr<State> state_;
};

struct SseEvent {
    std::string id;
    std::string data;
};

class SseClient {
public:
    explicit SseClient(uint16_t port);
    ~SseClient();
    // The request and the head of the reply; false with the reply otherwise.
    bool Open(const std::string& target, const Headers& headers, HttpReply* reply = nullptr);
    std::optional<SseEvent> Next(double timeoutSeconds = 10.0);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace Orvan::Testing
