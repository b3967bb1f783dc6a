// The gateway under a crowd: a long session at high speed while twenty
// clients (WebSockets and event streams) connect, subscribe, read and drop at
// random and another sends nonsense. Every well-behaved stream must be
// gap-free by `seq` from its first event on, the server must keep answering,
// and its resident memory must stay flat.
//
// QEL_GATEWAY_SOAK_SECONDS sets the length (default 15 s of real time).
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/gateway/client/GatewayClient.h"

namespace Orvan::Testing {
namespace {

constexpr const char* kBase = "/qel-lobby-team-builder";
constexpr int kClients = 20;

uint64_t ResidentBytes(pid_t pid) {
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
    uint64_t size = 0;
    uint64_t resident = 0;
    return statm >> size >> resident ? resident * 4096 : 0;
}

// The seq of an event message, or nothing for acknowledgements and
// snapshots (a snapshot restates the present; the stream's order starts
// after it).
std::optional<uint64_t> SeqOf(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("seq") ||
        !document["seq"].IsUint64()) {
        return std::nullopt;
    }
    if (document.HasMember("snapshot") && document["snapshot"].IsBool() &&
        document["snapshot"].GetBool()) {
        return std::nullopt;
    }
    return document["seq"].GetUint64();
}

// One well-behaved subscriber: a WebSocket or an event stream, checking
// that the events it gets follow each other by one.
struct Subscriber {
    std::unique_ptr<WebSocketClient> socket;
    std::unique_ptr<SseClient> stream;
    std::optional<uint64_t> last;
    uint64_t events = 0;
    uint64_t gaps = 0;

    void Take(const std::string& text) {
        const std::optional<uint64_t> seq = SeqOf(text);
        if (!seq) {
            return;
        }
        if (last && *seq != *last + 1) {
            ++gaps;
            ADD_FAILURE() << "seq " << *seq << " after " << *last;
        }
        last = seq;
        ++events;
    }
};

TEST(GatewaySoak, ACrowdOfClientsComesAndGoesWithoutGapsOrGrowth) {
    const char* length = std::getenv("QEL_GATEWAY_SOAK_SECONDS");
    const double seconds = length != nullptr ? std::atof(length) : 15.0;
    std::string error;
    auto serve = ServeProcess::Start({"-q", "--speed", "40", "--seed", "3"}, error);
    ASSERT_NE(serve, nullptr) << error;
    const Headers auth = {{"Authorization", "Bearer " + serve->Token()}};
    Headers json = auth;
    json.emplace_back("Content-Type", "application/json");
    HttpClient http(serve->Port());
    ASSERT_EQ(http.Send("POST", std::string(kBase) + "/v1/lobby", json, "{\"queueId\":62}").status,
              200u);

    std::mt19937 random(11);
    std::vector<Subscriber> clients(kClients);
    uint64_t connections = 0;
    auto connect = [&](Subscriber& client, int index) {
        client = Subscriber{};
        ++connections;
        if (index % 2 == 0) {
            client.socket = std::make_unique<WebSocketClient>(serve->Port());
            if (client.socket->Connect("/events", auth)) {
                client.socket->Send("{\"subscribe\":\"*\"}");
            }
        } else {
            client.stream = std::make_unique<SseClient>(serve->Port());
            client.stream->Open("/events?subscribe=*", auth);
        }
    };
    for (int i = 0; i < kClients; ++i) {
        connect(clients[static_cast<size_t>(i)], i);
    }

    uint64_t residentEarly = 0;
    uint64_t garbage = 0;
    uint64_t totalEvents = 0;
    const auto start = std::chrono::steady_clock::now();
    const std::vector<std::string> preferences = {"TOP", "MIDDLE", "JUNGLE", "BOTTOM", "UTILITY"};
    for (int round = 0;; ++round) {
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (elapsed >= seconds) {
            break;
        }
        if (residentEarly == 0 && elapsed >= seconds / 4) {
            residentEarly = ResidentBytes(serve->Pid());
        }
        // Something to publish: the local player changes its positions.
        const std::string& first = preferences[static_cast<size_t>(round) % preferences.size()];
        http.Send("POST", std::string(kBase) + "/v2/position-preferences", json,
                  "{\"firstPreference\":\"" + first + "\",\"secondPreference\":\"" +
                      (first == "TOP" ? "MIDDLE" : "TOP") + "\"}",
                  2.0);
        for (int i = 0; i < kClients; ++i) {
            Subscriber& client = clients[static_cast<size_t>(i)];
            // Read what came, briefly.
            for (int reads = 0; reads < 50; ++reads) {
                std::optional<std::string> text;
                if (client.socket) {
                    text = client.socket->Receive(0.002);
                } else if (auto event = client.stream->Next(0.002)) {
                    text = event->data;
                }
                if (!text) {
                    break;
                }
                client.Take(*text);
            }
            // Now and then a client drops and comes back.
            if (random() % 40 == 0) {
                totalEvents += client.events;
                connect(client, i);
            }
        }
        // The one that sends nonsense: broken requests and broken frames.
        if (round % 3 == 0) {
            std::string bytes(static_cast<size_t>(random() % 300), '\0');
            for (char& byte : bytes) {
                byte = static_cast<char>(random());
            }
            RawExchange(serve->Port(), round % 2 == 0 ? bytes : "GET /events HTTP/1.1\r\n" + bytes,
                        0.05, true);
            WebSocketClient rude(serve->Port());
            if (rude.Connect("/events", auth)) {
                rude.Send(bytes);
                rude.Send("{\"subscribe\":");
            }
            ++garbage;
        }
    }
    for (const Subscriber& client : clients) {
        totalEvents += client.events;
    }
    const uint64_t residentLate = ResidentBytes(serve->Pid());
    std::printf(
        "gateway soak: %.0f s, %llu connections, %llu events read, %llu garbage clients, "
        "resident %.1f MB then %.1f MB\n",
        seconds, static_cast<unsigned long long>(connections),
        static_cast<unsigned long long>(totalEvents), static_cast<unsigned long long>(garbage),
        static_cast<double>(residentEarly) / 1048576.0,
        static_cast<double>(residentLate) / 1048576.0);
    EXPECT_GT(totalEvents, 0u);
    EXPECT_EQ(http.Send("GET", std::string(kBase) + "/v1/matchmaking", auth).status, 200u);
    if (residentEarly > 0) {
        EXPECT_LE(residentLate, residentEarly + residentEarly / 4) << "resident memory grew";
    }
    EXPECT_EQ(serve->Stop(), 0) << serve->Log();
}

}  // namespace
}  // namespace Orvan::Testing
