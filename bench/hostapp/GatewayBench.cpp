// The gateway beside the in-process call it wraps: keep-alive GET round trips
// of the lobby on one connection against HostRuntime::Route of the same
// endpoint, and the time from the plugin's emission of a resource event to its
// arrival at 1, 10 and 100 WebSocket subscribers (median and 99th percentile
// as counters, in microseconds).
//
// The gateway runs in this process on a thread of its own, as `qel-host serve`
// runs it; the clients are on the benchmark's thread.
#include <utility>  // before Asio: its awaitable header uses std::exchange

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/Demo.h"
#include "host/HostRuntime.h"
#include "host/Serve.h"
#include "host/StandIns.h"
#include "sim/Scenario.h"
#include "sim/ServiceSimulator.h"

namespace {

using namespace Orvan::Host;
namespace net = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
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

// Subscribers on one context: each read is timed as it completes.
class Subscribers {
public:
    Subscribers(uint16_t port, const std::string& token, int count) {
        for (int i = 0; i < count; ++i) {
            auto client = std::make_unique<Client>(io_);
            beast::error_code ec;
            client->ws.next_layer().connect(
                net::ip::tcp::endpoint(net::ip::make_address("127.0.0.1"), port), ec);
            client->ws.set_option(
                websocket::stream_base::decorator([token](websocket::request_type& request) {
                    request.set("Authorization", "Bearer " + token);
                }));
            client->ws.handshake("127.0.0.1:" + std::to_string(port), "/events", ec);
            client->ws.write(net::buffer(std::string("{\"subscribe\":\"") + kLobby + "\"}"), ec);
            beast::flat_buffer ack;
            client->ws.read(ack, ec);  // the acknowledgement
            if (ec) {
                failed_ = true;
            }
            clients_.push_back(std::move(client));
        }
        for (auto& client : clients_) {
            Read(*client);
        }
    }
    bool Failed() const { return failed_; }
    // Runs until every subscriber has an event numbered above `after`, or
    // the deadline; the latencies of those events go to `samples`.
    bool Collect(uint64_t after, EmissionTimes& times, std::vector<double>& samples) {
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        auto complete = [&] {
            return std::all_of(clients_.begin(), clients_.end(),
                               [&](const auto& c) { return c->lastSeq > after; });
        };
        while (!complete() && Clock::now() < deadline) {
            io_.run_one_until(deadline);
            if (io_.stopped()) {
                io_.restart();
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
        explicit Client(net::io_context& io) : ws(io) {}
        websocket::stream<net::ip::tcp::socket> ws;
        beast::flat_buffer buffer;
        uint64_t lastSeq = 0;
        std::vector<std::pair<uint64_t, Clock::time_point>> arrivals;
    };
    void Read(Client& client) {
        client.ws.async_read(client.buffer, [this, &client](beast::error_code ec, size_t) {
            if (ec) {
                return;
            }
            const auto now = Clock::now();
            const std::string text = beast::buffers_to_string(client.buffer.data());
            client.buffer.consume(client.buffer.size());
            // Snapshots carry the position they were taken at, not an event.
            if (text.find("\"snapshot\":true") == std::string::npos &&
                text.compare(0, 7, "{\"seq\":") == 0) {
                const uint64_t seq = std::stoull(text.substr(7));
                client.lastSeq = seq;
                client.arrivals.emplace_back(seq, now);
            }
            Read(client);
        });
    }
    net::io_context io_;
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
