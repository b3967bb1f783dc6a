// The gateway beside the in-process call it wraps: keep-alive GET round trips
// of the lobby on one connection against HostRuntime::Route of the same
// endpoint, and the time from the plugin's emission of a resource event to its
// arrival at 1, 10 and 100 WebSocket subscribers (median and 99th percentile
// as counters, in microseconds).
//
// The gateway runs in this process on a thread of its own, as `qel-host serve`
// runs it; the clients are on the benchmark's thread.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/Demo.h"
#include "host/HostRuntime.h"
#include "host/Serve.h"
#include "host/StandIns.h"
#include "sim/Scenario.h"
#include "sim/ServiceSimulator.h"

namespace {

using namespace Orvan::Host;
using Clock = std::chrono::steady_clock;

constexpr const char* kLobby = "/qel-lobby-team-builder/v1/lobby";

// When each event the gateway numbers was emitted: the gateway numbers the
// plugin's resource events and the stand-ins' changes in the order this
// observer sees them, since it is registered first.
class EmissionTimes : public HostObserver {
public:
    void OnPluginEvent(uint32_t, const std::string& name, const std::string&) override {
        if (name == "OnJsonApiEvent") {
            Add();
        }
    }
    void OnHostResource(const std::string&, const std::string&, const std::string&) override {
        Add();
    }
    // The emission time of event `seq` (1-based), if it was seen.
    bool At(uint64_t seq, Clock::time_point& when) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (seq == 0 || seq > times_.size()) {
            return false;
        }
        when = times_[seq - 1];
        return true;
    }

private:
    void Add() {
        std::lock_guard<std::mutex> lock(mutex_);
        times_.push_back(Clock::now());
    }
    std::mutex mutex_;
    std::vector<Clock::time_point> times_;
};

// `qel-host serve` on a thread of this process.
class ServerThread {
public:
    // `speed`: the world's clock; the fan-out needs a fast one, since each
    // round waits for a service answer.
    explicit ServerThread(double speed) {
        ServeOptions options;
        options.plugin.path = DefaultPluginPath();
        options.detail = 0;
        options.speed = speed;
        options.limits.maxConnections = 256;
        null_ = std::fopen("/dev/null", "w");
        options.out = null_;
        options.log = null_;
        options.stop = &stop_;
        options.observer = &times_;
        options.listening = [this](uint16_t port, const std::string& token) {
            std::lock_guard<std::mutex> lock(mutex_);
            port_ = port;
            token_ = token;
            ready_.notify_all();
        };
        thread_ = std::thread([options] { RunServe(options); });
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait_for(lock, std::chrono::seconds(30), [this] { return port_ != 0; });
    }
    ~ServerThread() {
        stop_ = true;
        thread_.join();
        std::fclose(null_);
    }
    uint16_t Port() const { return port_; }
    const std::string& Token() const { return token_; }
    EmissionTimes& Times() { return times_; }

private:
    std::FILE* null_ = nullptr;
    std::atomic<bool> stop_{false};
    EmissionTimes times_;
    std::mutex mutex_;
    std::condition_variable ready_;
    uint16_t port_ = 0;
    std::string token_;
    std::thread thread_;
};

// A keep-alive HTTP connection on a plain socket: the least a client can do.
class RawHttp {
public:
    explicit RawHttp(uint16_t port) : port_(port) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            close(fd_);
            fd_ = -1;
        }
        int one = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~RawHttp() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    std::string Request(const std::string& method, const std::string& path,
                        const std::string& token, const std::string& body = {}) const {
        std::string text = method + " " + path +
                           " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) +
                           "\r\nAuthorization: Bearer " + token + "\r\n";
        if (!body.empty()) {
            text +=
                "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\n";
        }
        return text + "\r\n" + body;
    }
    bool Send(const std::string& request) const {
        return write(fd_, request.data(), request.size()) == static_cast<ssize_t>(request.size());
    }
    // Reads one whole response; its status, or 0.
    unsigned Receive() {
        for (;;) {
            const size_t head = buffer_.find("\r\n\r\n");
            if (head != std::string::npos) {
                size_t length = 0;
                const size_t field = buffer_.find("Content-Length: ");
                if (field != std::string::npos && field < head) {
                    length = std::stoul(buffer_.substr(field + 16));
                }
                if (buffer_.size() >= head + 4 + length) {
                    const unsigned status = static_cast<unsigned>(std::atoi(buffer_.c_str() + 9));
                    buffer_.erase(0, head + 4 + length);
                    return status;
                }
            }
            char chunk[16384];
            const ssize_t got = read(fd_, chunk, sizeof chunk);
            if (got <= 0) {
                return 0;
            }
            buffer_.append(chunk, static_cast<size_t>(got));
        }
    }
    bool Ok() const { return fd_ >= 0; }

private:
    uint16_t port_;
    int fd_ = -1;
    std::string buffer_;
};

// The world of the draft scenario in this thread, with a lobby.
class InProcessWorld {
public:
    InProcessWorld()
        : library_(Load()),
          clock_(0.0),
          runtime_(clock_),
          standIns_(runtime_, StandInOptions{}),
          services_(standIns_, *Orvan::Simulation::FindScenario("draft")) {
        standIns_.SetServices(&services_);
        standIns_.Install();
        plugin_ = runtime_.Attach(*library_);
        runtime_.Start(plugin_);
        standIns_.SignIn();
        services_.Start();
        runtime_.RunFor(1.0);
        RestRequest create;
        create.method = kHostMethodPost;
        create.uri = kLobby;
        create.hasBody = true;
        create.body = "{\"queueId\":62}";
        create.contentType = "application/json";
        runtime_.Route(create);
        runtime_.RunFor(5.0);
    }
    ~InProcessWorld() { runtime_.Destroy(plugin_); }
    RestReply Get(const std::string& uri) {
        RestRequest request;
        request.method = kHostMethodGet;
        request.uri = uri;
        return runtime_.Route(request);
    }

private:
    static std::unique_ptr<PluginLibrary> Load() {
        PluginLoadOptions options;
        options.path = DefaultPluginPath();
        std::string error;
        return PluginLibrary::Load(options, error);
    }
    std::unique_ptr<PluginLibrary> library_;
    HostClock clock_;
    HostRuntime runtime_;
    StandIns standIns_;
    Orvan::Simulation::ServiceSimulator services_;
    uint32_t plugin_ = 0;
};

void BM_LobbyGetInProcess(benchmark::State& state) {
    InProcessWorld world;
    if (world.Get(kLobby).status != 200) {
        state.SkipWithError("no lobby");
        return;
    }
    for (auto _ : state) {
        RestReply reply = world.Get(kLobby);
        benchmark::DoNotOptimize(reply.body.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LobbyGetInProcess)->UseRealTime();

void BM_LobbyGetThroughGateway(benchmark::State& state) {
    ServerThread server(1.0);
    RawHttp http(server.Port());
    http.Send(http.Request("POST", kLobby, server.Token(), "{\"queueId\":62}"));
    if (!http.Ok() || http.Receive() != 200) {
        state.SkipWithError("the gateway did not create a lobby");
        return;
    }
    const std::string get = http.Request("GET", kLobby, server.Token());
    for (auto _ : state) {
        http.Send(get);
        if (http.Receive() != 200) {
            state.SkipWithError("a GET failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LobbyGetThroughGateway)->UseRealTime();

// The transport's floor on this machine: a loopback round trip of a request
// and a lobby-sized answer to a thread that polls for it as the gateway does
// (briefly, then blocking), with the same blocking client.
void BM_LoopbackRoundTripFloor(benchmark::State& state) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        state.SkipWithError("no loopback listener");
        close(listener);
        return;
    }
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    std::atomic<bool> stop{false};
    const std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Length: 2000\r\n\r\n" + std::string(2000, 'x');
    std::thread echo([&] {
        const int fd = accept(listener, nullptr, nullptr);
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        char buffer[4096];
        auto last = Clock::now();
        while (!stop) {
            const ssize_t got = read(fd, buffer, sizeof buffer);
            if (got > 0) {
                if (write(fd, answer.data(), answer.size()) < 0) {
                    break;
                }
                last = Clock::now();
            } else if (got == 0) {
                break;
            } else if (Clock::now() - last > std::chrono::microseconds(300)) {
                pollfd wait{fd, POLLIN, 0};
                poll(&wait, 1, 50);
            }
        }
        close(fd);
    });
    RawHttp http(ntohs(address.sin_port));
    const std::string request = http.Request("GET", kLobby, "token");
    for (auto _ : state) {
        http.Send(request);
        if (http.Receive() != 200) {
            state.SkipWithError("no answer");
            break;
        }
    }
    stop = true;
    echo.join();
    close(listener);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LoopbackRoundTripFloor)->UseRealTime();

// WebSocket subscribers on plain sockets and one epoll set: the handshake and
// the frames by hand, so that what is timed is the gateway's delivery and not
// a client library's reading (on this machine a library read costs as much as
// the gateway's send).
class Subscribers {
public:
    Subscribers(uint16_t port, const std::string& token, int count) {
        epoll_ = epoll_create1(0);
        for (int i = 0; i < count && !failed_; ++i) {
            auto client = std::make_unique<Client>();
            client->fd = Connect(port);
            const std::string upgrade =
                "GET /events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                "\r\nAuthorization: Bearer " + token +
                "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
            failed_ = client->fd < 0 || !WriteAll(client->fd, upgrade);
            // The reply's head, then frames: a client sends none before it.
            while (!failed_ && client->pending.find("\r\n\r\n") == std::string::npos) {
                failed_ = !ReadSome(*client);
            }
            if (!failed_) {
                failed_ =
                    client->pending.compare(0, 12, "HTTP/1.1 101") != 0 ||
                    !WriteAll(client->fd, Frame(std::string("{\"subscribe\":\"") + kLobby + "\"}"));
                client->pending.erase(0, client->pending.find("\r\n\r\n") + 4);
                fcntl(client->fd, F_SETFL, fcntl(client->fd, F_GETFL) | O_NONBLOCK);
                epoll_event event{};
                event.events = EPOLLIN;
                event.data.ptr = client.get();
                epoll_ctl(epoll_, EPOLL_CTL_ADD, client->fd, &event);
            }
            clients_.push_back(std::move(client));
        }
    }
    ~Subscribers() {
        for (auto& client : clients_) {
            if (client->fd >= 0) {
                close(client->fd);
            }
        }
        close(epoll_);
    }
    bool Failed() const { return failed_; }
    // Reads until every subscriber has an event numbered above `after`, or
    // the deadline; the latencies of those events go to `samples`.
    bool Collect(uint64_t after, EmissionTimes& times, std::vector<double>& samples) {
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        auto complete = [&] {
            return std::all_of(clients_.begin(), clients_.end(),
                               [&](const auto& c) { return c->lastSeq > after; });
        };
        epoll_event ready[64];
        while (!complete() && Clock::now() < deadline) {
            const int count = epoll_wait(epoll_, ready, 64, 50);
            for (int i = 0; i < count; ++i) {
                Client& client = *static_cast<Client*>(ready[i].data.ptr);
                while (ReadSome(client)) {
                }
                Frames(client, Clock::now());
            }
        }
        for (auto& client : clients_) {
            for (const auto& [seq, arrival] : client->arrivals) {
                Clock::time_point emitted;
                if (times.At(seq, emitted)) {
                    samples.push_back(
                        std::chrono::duration<double, std::micro>(arrival - emitted).count());
                }
            }
            client->arrivals.clear();
        }
        return complete();
    }
    uint64_t LastSeq() const {
        uint64_t last = 0;
        for (const auto& client : clients_) {
            last = std::max(last, client->lastSeq);
        }
        return last;
    }

private:
    struct Client {
        int fd = -1;
        std::string pending;
        uint64_t lastSeq = 0;
        std::vector<std::pair<uint64_t, Clock::time_point>> arrivals;
    };
    static int Connect(uint16_t port) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }
    static bool WriteAll(int fd, const std::string& bytes) {
        return write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    // A client's text frame; a zero mask leaves the payload as it is.
    static std::string Frame(const std::string& text) {
        std::string frame = "\x81";
        frame += static_cast<char>(0x80 | text.size());
        frame += std::string(4, '\0');
        return frame + text;
    }
    static bool ReadSome(Client& client) {
        char chunk[65536];
        const ssize_t got = read(client.fd, chunk, sizeof chunk);
        if (got <= 0) {
            return false;
        }
        client.pending.append(chunk, static_cast<size_t>(got));
        return true;
    }
    // Takes the complete frames: the acknowledgement and snapshots are not
    // events; everything else is timed at `now`.
    static void Frames(Client& client, Clock::time_point now) {
        for (;;) {
            const std::string& p = client.pending;
            if (p.size() < 2) {
                return;
            }
            size_t length = static_cast<unsigned char>(p[1]) & 0x7f;
            size_t header = 2;
            if (length == 126) {
                if (p.size() < 4) {
                    return;
                }
                length = (static_cast<unsigned char>(p[2]) << 8) | static_cast<unsigned char>(p[3]);
                header = 4;
            } else if (length == 127) {
                if (p.size() < 10) {
                    return;
                }
                length = 0;
                for (int i = 2; i < 10; ++i) {
                    length = (length << 8) | static_cast<unsigned char>(p[static_cast<size_t>(i)]);
                }
                header = 10;
            }
            if (p.size() < header + length) {
                return;
            }
            const std::string_view text(p.data() + header, length);
            if ((p[0] & 0x0f) == 1 && text.find("\"snapshot\":true") == std::string_view::npos &&
                text.substr(0, 7) == "{\"seq\":") {
                const uint64_t seq = std::strtoull(text.data() + 7, nullptr, 10);
                client.lastSeq = seq;
                client.arrivals.emplace_back(seq, now);
            }
            client.pending.erase(0, header + length);
        }
    }

    int epoll_ = -1;
    std::vector<std::unique_ptr<Client>> clients_;
    bool failed_ = false;
};

double Percentile(std::vector<double>& samples, double share) {
    if (samples.empty()) {
        return 0.0;
    }
    const size_t index = std::min(samples.size() - 1,
                                  static_cast<size_t>(share * static_cast<double>(samples.size())));
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(index),
                     samples.end());
    return samples[index];
}

void BM_EventToSubscribers(benchmark::State& state) {
    ServerThread server(1000.0);
    RawHttp http(server.Port());
    http.Send(http.Request("POST", kLobby, server.Token(), "{\"queueId\":62}"));
    if (!http.Ok() || http.Receive() != 200) {
        state.SkipWithError("the gateway did not create a lobby");
        return;
    }
    Subscribers subscribers(server.Port(), server.Token(), static_cast<int>(state.range(0)));
    if (subscribers.Failed()) {
        state.SkipWithError("a subscriber could not connect");
        return;
    }
    std::vector<double> samples;
    // Each round changes the position preferences, which republishes the
    // lobby: one event, fanned out to every subscriber.
    const char* positions[] = {"MIDDLE", "TOP"};
    int round = 0;
    std::vector<double> warmup;
    subscribers.Collect(0, server.Times(), warmup);
    for (auto _ : state) {
        const uint64_t after = subscribers.LastSeq();
        const std::string body = std::string("{\"firstPreference\":\"") + positions[round++ % 2] +
                                 "\",\"secondPreference\":\"BOTTOM\"}";
        http.Send(http.Request("POST", "/qel-lobby-team-builder/v2/position-preferences",
                               server.Token(), body));
        if (!subscribers.Collect(after, server.Times(), samples)) {
            state.SkipWithError("an event did not reach every subscriber");
            break;
        }
        http.Receive();
    }
    state.counters["p50_us"] = Percentile(samples, 0.5);
    state.counters["p99_us"] = Percentile(samples, 0.99);
    state.counters["samples"] = static_cast<double>(samples.size());
}
BENCHMARK(BM_EventToSubscribers)->Arg(1)->Arg(10)->Arg(100)->Iterations(200)->UseRealTime();

}  // namespace
