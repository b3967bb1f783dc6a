// `qel-host serve` as its clients meet it: a whole draft played over HTTP
// with the events followed on a WebSocket and an event stream, a late
// subscriber's snapshot, the refusals that keep other web pages out, clients
// that misbehave, and a clean stop.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <cstdio>

#include "tests/gateway/client/GatewayClient.h"
#include "tests/support/HostProgram.h"

namespace Orvan::Testing {
namespace {

constexpr const char* kBase = "/qel-lobby-team-builder";
constexpr const char* kChamp = "/qel-lobby-team-builder/champ-select/v1";

std::unique_ptr<ServeProcess> Serve(std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"-q", "--speed", "20", "--seed", "7"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::string error;
    auto process = ServeProcess::Start(args, error);
    EXPECT_NE(process, nullptr) << error;
    return process;
}

Headers Auth(const ServeProcess& serve, Headers more = {}) {
    more.emplace_back("Authorization", "Bearer " + serve.Token());
    return more;
}

std::unique_ptr<rapidjson::Document> Parse(const std::string& text) {
    auto document = std::make_unique<rapidjson::Document>();
    document->Parse(text.c_str(), text.size());
    return document;
}

std::string Text(const rapidjson::Value& value, const char* pointer) {
    const rapidjson::Value* found = rapidjson::Pointer(pointer).Get(value);
    return found != nullptr && found->IsString() ? found->GetString() : "";
}

int64_t Int(const rapidjson::Value& value, const char* pointer, int64_t fallback = -1) {
    const rapidjson::Value* found = rapidjson::Pointer(pointer).Get(value);
    return found != nullptr && found->IsInt64() ? found->GetInt64() : fallback;
}

bool Flag(const rapidjson::Value& value, const char* pointer) {
    const rapidjson::Value* found = rapidjson::Pointer(pointer).Get(value);
    return found != nullptr && found->IsBool() && found->GetBool();
}

struct Event {
    uint64_t seq = 0;
    std::string uri;
    std::string type;
    bool snapshot = false;
    std::string data;
};

Event ToEvent(const std::string& text) {
    auto document = Parse(text);
    Event event;
    if (document->HasParseError() || !document->IsObject() || !document->HasMember("seq")) {
        return event;
    }
    event.seq = (*document)["seq"].GetUint64();
    event.uri = Text(*document, "/uri");
    event.type = Text(*document, "/eventType");
    event.snapshot = Flag(*document, "/snapshot");
    if (document->HasMember("data")) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        (*document)["data"].Accept(writer);
        event.data = buffer.GetString();
    }
    return event;
}

// A subscriber that keeps what it has seen: the events in order and the
// current value of each resource.
class Follower {
public:
    explicit Follower(uint16_t port) : socket_(port) {}

    bool Open(const ServeProcess& serve, const std::string& pattern) {
        if (!socket_.Connect("/events", Auth(serve))) {
            return false;
        }
        socket_.Send("{\"subscribe\":\"" + pattern + "\"}");
        auto ack = socket_.Receive();
        return ack && ack->find("\"ok\":true") != std::string::npos;
    }
    // Takes what has arrived within `seconds`.
    void Drain(double seconds) {
        while (auto message = socket_.Receive(seconds)) {
            Take(*message);
            seconds = 0.001;
        }
    }
    // Reads until `done` holds for the current state, or the deadline.
    bool Until(const std::function<bool()>& done, double seconds) {
        const auto deadline = std::chrono::steady_clock::now() +
                              std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                  std::chrono::duration<double>(seconds));
        while (!done()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            if (auto message = socket_.Receive(0.05)) {
                Take(*message);
            }
        }
        return true;
    }
    const rapidjson::Value* Current(const std::string& uri) const {
        auto found = current_.find(uri);
        return found != current_.end() ? found->second.get() : nullptr;
    }
    const std::vector<Event>& Events() const { return events_; }
    WebSocketClient& Socket() { return socket_; }

private:
    void Take(const std::string& message) {
        Event event = ToEvent(message);
        if (event.seq == 0 && event.uri.empty()) {
            return;
        }
        if (event.type == "Delete") {
            current_.erase(event.uri);
        } else {
            current_[event.uri] = Parse(event.data);
        }
        events_.push_back(std::move(event));
    }

    WebSocketClient socket_;
    std::vector<Event> events_;
    std::map<std::string, std::unique_ptr<rapidjson::Document>> current_;
};

// ---- A whole draft --------------------------------------------------------------------------

class DraftPlayer {
public:
    DraftPlayer(ServeProcess& serve, Follower& follower)
        : serve_(serve), follower_(follower), http_(serve.Port()) {}

    HttpReply Call(const std::string& method, const std::string& path,
                   const std::string& body = {}) {
        Headers headers = Auth(serve_);
        if (!body.empty()) {
            headers.emplace_back("Content-Type", "application/json");
        }
        return http_.Send(method, path, headers, body);
    }

    // Plays our open action of the set in progress, if there is one.
    void PlayChampSelect() {
        const rapidjson::Value* session = follower_.Current(std::string(kChamp) + "/session");
        if (session == nullptr || Text(*session, "/timer/phase") != "BAN_PICK") {
            return;
        }
        const int64_t cell = Int(*session, "/localPlayerCellId");
        const rapidjson::Value* sets = rapidjson::Pointer("/actions").Get(*session);
        if (sets == nullptr || !sets->IsArray()) {
            return;
        }
        for (const rapidjson::Value& set : sets->GetArray()) {
            bool open = false;
            for (const rapidjson::Value& action : set.GetArray()) {
                open = open || !Flag(action, "/completed");
            }
            if (!open) {
                continue;
            }
            for (const rapidjson::Value& action : set.GetArray()) {
                const int64_t id = Int(action, "/id");
                if (Int(action, "/actorCellId", -2) != cell || Flag(action, "/completed") ||
                    done_.count(id) != 0) {
                    continue;
                }
                const bool ban = Text(action, "/type") == "ban";
                for (int64_t champion : Candidates(*session, ban)) {
                    const std::string uri =
                        std::string(kChamp) + "/session/actions/" + std::to_string(id);
                    if (Call(
                            "PATCH", uri,
                            "{\"championId\":" + std::to_string(champion) + ",\"completed\":false}")
                                .status < 300 &&
                        Call("POST", uri + "/complete").status < 300) {
                        done_.insert(id);
                        if (!ban) {
                            picked_ = champion;
                        }
                        break;
                    }
                }
            }
            return;
        }
    }

    int64_t Picked() const { return picked_; }

private:
    std::vector<int64_t> Candidates(const rapidjson::Value& session, bool ban) {
        std::set<int64_t> taken;
        for (const char* team : {"/myTeam", "/theirTeam"}) {
            if (const rapidjson::Value* cells = rapidjson::Pointer(team).Get(session);
                cells != nullptr && cells->IsArray()) {
                for (const rapidjson::Value& cell : cells->GetArray()) {
                    taken.insert(Int(cell, "/championId", 0));
                    taken.insert(Int(cell, "/championPickIntent", 0));
                }
            }
        }
        for (const rapidjson::Value& set :
             rapidjson::Pointer("/actions").Get(session)->GetArray()) {
            for (const rapidjson::Value& action : set.GetArray()) {
                taken.insert(Int(action, "/championId", 0));
            }
        }
        HttpReply list = Call(
            "GET", std::string(kChamp) + (ban ? "/bannable-champions" : "/pickable-champions"));
        std::vector<int64_t> candidates;
        auto document = Parse(list.body);
        const rapidjson::Value* ids =
            document->HasParseError() ? nullptr : rapidjson::Pointer("/championIds").Get(*document);
        if (ids == nullptr && document->IsArray()) {
            ids = document.get();
        }
        for (size_t i = 0; ids != nullptr && ids->IsArray() && i < ids->Size(); ++i) {
            const int64_t id = (*ids)[static_cast<rapidjson::SizeType>(i)].GetInt64();
            if (id > 0 && taken.count(id) == 0 && candidates.size() < 3) {
                candidates.push_back(id);
            }
        }
        return candidates;
    }

    ServeProcess& serve_;
    Follower& follower_;
    HttpClient http_;
    std::set<int64_t> done_;
    int64_t picked_ = 0;
};

TEST(GatewayServe, PlaysAWholeDraftOverHttpWithTheEventsOnBothStreams) {
    // Recorded as it is played, and replayed clean afterwards.
    const std::string recording = std::string(QEL_TEST_SCRATCH) + "/served-draft.jsonl";
    auto serve = Serve({"--record", recording});
    ASSERT_NE(serve, nullptr);
    EXPECT_EQ(serve->Line(), "serving http://127.0.0.1:" + std::to_string(serve->Port()) +
                                 "/?token=" + serve->Token());
    Follower all(serve->Port());
    ASSERT_TRUE(all.Open(*serve, "*"));
    SseClient stream(serve->Port());
    ASSERT_TRUE(stream.Open("/events?subscribe=*&token=" + serve->Token(), {}));

    DraftPlayer you(*serve, all);
    const std::string lobby = std::string(kBase) + "/v1/lobby";
    HttpReply created = you.Call("POST", lobby, "{\"queueId\":62}");
    ASSERT_EQ(created.status, 200u) << created.body;
    EXPECT_EQ(created.Header("content-type"), "application/json");

    auto members = [&] {
        const rapidjson::Value* current = all.Current(lobby);
        const rapidjson::Value* list =
            current != nullptr ? rapidjson::Pointer("/members").Get(*current) : nullptr;
        return list != nullptr && list->IsArray() ? list->Size() : 0u;
    };
    ASSERT_TRUE(all.Until([&] { return members() >= 2; }, 30.0))
        << "the friend never joined; log:\n"
        << serve->Log();
    EXPECT_EQ(you.Call("POST", std::string(kBase) + "/v2/position-preferences",
                       "{\"firstPreference\":\"MIDDLE\",\"secondPreference\":\"TOP\","
                       "\"excludedPreference\":\"UTILITY\"}")
                  .status,
              200u);
    ASSERT_TRUE(all.Until(
        [&] {
            const rapidjson::Value* current = all.Current(lobby);
            return current != nullptr && Flag(*current, "/canStartMatchmaking");
        },
        30.0))
        << serve->Log();
    HttpReply search = you.Call("POST", std::string(kBase) + "/v1/matchmaking/search", "\"\"");
    ASSERT_LT(search.status, 300u) << search.body;

    const std::string matchmaking = std::string(kBase) + "/v1/matchmaking";
    const std::string session = std::string(kChamp) + "/session";
    // Ready checks (a stranger may decline one) and champion select, until
    // the game starts: the session and the lobby go.
    bool sawSession = false;
    int accepted = 0;
    bool answered = false;
    const bool ended = all.Until(
        [&] {
            const rapidjson::Value* queue = all.Current(matchmaking);
            const bool open = queue != nullptr && Text(*queue, "/readyCheck/state") == "InProgress";
            if (open && !answered) {
                EXPECT_LT(you.Call("POST", std::string(kBase) + "/v1/ready-check/accept").status,
                          300u);
                ++accepted;
                answered = true;
            }
            answered = answered && open;
            sawSession = sawSession || all.Current(session) != nullptr;
            you.PlayChampSelect();
            const rapidjson::Value* flow = all.Current("/qel-gameflow/v1/session");
            return sawSession && flow != nullptr && Flag(*flow, "/gameClient/running") &&
                   all.Current(session) == nullptr && all.Current(lobby) == nullptr;
        },
        120.0);
    EXPECT_GE(accepted, 1);
    ASSERT_TRUE(ended) << serve->Log() << [&] {
        std::string t;
        for (auto& e : all.Events())
            t += std::to_string(e.seq) + " " + e.uri + " " + e.type + " " + e.data.substr(0, 300) +
                 "\n";
        return t.substr(t.size() > 6000 ? t.size() - 6000 : 0);
    }();
    EXPECT_NE(you.Picked(), 0) << "our pick went through the gateway";

    // The WebSocket saw one unbroken sequence after its snapshot.
    all.Drain(0.3);
    const std::vector<Event>& events = all.Events();
    uint64_t previous = 0;
    size_t live = 0;
    for (const Event& event : events) {
        if (event.snapshot) {
            continue;
        }
        if (previous != 0) {
            EXPECT_EQ(event.seq, previous + 1) << event.uri;
        }
        previous = event.seq;
        ++live;
    }
    EXPECT_GT(live, 20u);
    // The event stream carried the same events with the same numbers.
    std::vector<Event> streamed;
    while (streamed.size() < events.size()) {
        auto next = stream.Next(5.0);
        if (!next) {
            break;
        }
        Event event = ToEvent(next->data);
        if (!event.snapshot) {
            EXPECT_EQ(next->id, std::to_string(event.seq));
        }
        streamed.push_back(std::move(event));
    }
    ASSERT_EQ(streamed.size(), events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(streamed[i].seq, events[i].seq);
        EXPECT_EQ(streamed[i].uri, events[i].uri);
        EXPECT_EQ(streamed[i].type, events[i].type);
        EXPECT_EQ(streamed[i].data, events[i].data);
    }
    EXPECT_EQ(serve->Stop(), 0) << serve->Log();
    std::string replayed;
    EXPECT_EQ(Testing::RunHostProgram("replay " + recording, replayed), 0) << replayed;
    EXPECT_NE(replayed.find("steps match"), std::string::npos) << replayed;
    std::remove(recording.c_str());
}

TEST(GatewayServe, ALateSubscriberStartsFromTheCurrentStateAndAStreamResumes) {
    auto serve = Serve();
    ASSERT_NE(serve, nullptr);
    HttpClient http(serve->Port());
    const std::string lobby = std::string(kBase) + "/v1/lobby";
    ASSERT_EQ(http.Send("POST", lobby, Auth(*serve, {{"Content-Type", "application/json"}}),
                        "{\"queueId\":62}")
                  .status,
              200u);

    // The lobby is published once the service's record of it arrives.
    Follower early(serve->Port());
    ASSERT_TRUE(early.Open(*serve, "*"));
    ASSERT_TRUE(early.Until([&] { return early.Current(lobby) != nullptr; }, 30.0));

    Follower late(serve->Port());
    ASSERT_TRUE(late.Open(*serve, std::string(kBase) + "/*"));
    late.Drain(0.5);
    ASSERT_FALSE(late.Events().empty());
    EXPECT_TRUE(late.Events().front().snapshot);
    EXPECT_EQ(late.Events().front().type, "Create");
    HttpReply now = http.Send("GET", lobby, Auth(*serve));
    ASSERT_EQ(now.status, 200u);
    ASSERT_NE(late.Current(lobby), nullptr);
    EXPECT_TRUE(*late.Current(lobby) == *Parse(now.body))
        << "the snapshot and later events add up to what GET answers";
    for (const Event& event : late.Events()) {
        EXPECT_EQ(event.uri.rfind(kBase, 0), 0u) << "only the prefix: " << event.uri;
    }

    // An event stream that comes back with Last-Event-ID gets what it missed.
    SseClient first(serve->Port());
    ASSERT_TRUE(first.Open("/events?subscribe=*", Auth(*serve)));
    auto snapshot = first.Next(2.0);
    ASSERT_TRUE(snapshot);
    const uint64_t position = ToEvent(snapshot->data).seq;
    ASSERT_EQ(http.Send("POST", std::string(kBase) + "/v2/position-preferences",
                        Auth(*serve, {{"Content-Type", "application/json"}}),
                        "{\"firstPreference\":\"TOP\",\"secondPreference\":\"MIDDLE\"}")
                  .status,
              200u);
    SseClient resumed(serve->Port());
    ASSERT_TRUE(resumed.Open("/events?subscribe=*",
                             Auth(*serve, {{"Last-Event-ID", std::to_string(position)}})));
    auto missed = resumed.Next(5.0);
    ASSERT_TRUE(missed);
    const Event event = ToEvent(missed->data);
    EXPECT_FALSE(event.snapshot);
    EXPECT_EQ(event.seq, position + 1);
}

// ---- Refusals ---------------------------------------------------------------------------------

TEST(GatewayServe, RefusesWhatOtherPagesAndBadClientsSend) {
    auto serve = Serve({"--allow-origin", "http://localhost:5173", "--idle-timeout", "1"});
    ASSERT_NE(serve, nullptr);
    const std::string token = serve->Token();
    const std::string own = "http://" + serve->Host();
    const std::string lobby = std::string(kBase) + "/v1/lobby";
    struct Case {
        const char* what;
        std::string method;
        std::string target;
        Headers headers;
        std::string body;
        unsigned status;
    };
    const std::vector<Case> cases = {
        {"health needs no token", "GET", "/health", {}, "", 200},
        {"no token", "GET", lobby, {}, "", 401},
        {"a wrong token", "GET", lobby, {{"Authorization", "Bearer nope"}}, "", 401},
        {"the token in the query", "GET", "/openapi.json?token=" + token, {}, "", 200},
        {"another host (DNS rebinding)",
         "GET",
         lobby + "?token=" + token,
         {{"Host", "evil.example:" + std::to_string(serve->Port())}},
         "",
         403},
        {"localhost is the same host",
         "GET",
         "/health",
         {{"Host", "localhost:" + std::to_string(serve->Port())}},
         "",
         200},
        {"a foreign origin changing state",
         "POST",
         lobby + "?token=" + token,
         {{"Origin", "http://evil.example"}, {"Content-Type", "application/json"}},
         "{\"queueId\":62}",
         403},
        {"a foreign origin reading",
         "GET",
         "/health",
         {{"Origin", "http://evil.example"}},
         "",
         200},
        {"the preflight of an allowed origin",
         "OPTIONS",
         lobby,
         {{"Origin", "http://localhost:5173"}, {"Access-Control-Request-Method", "POST"}},
         "",
         204},
        {"the preflight of a foreign origin",
         "OPTIONS",
         lobby,
         {{"Origin", "http://evil.example"}, {"Access-Control-Request-Method", "POST"}},
         "",
         403},
        {"an unknown path",
         "GET",
         "/qel-lobby-team-builder/v1/nothing-here?token=" + token,
         {},
         "",
         404},
        {"an unknown method", "BREW", lobby + "?token=" + token, {}, "", 405},
        {"a body that does not parse",
         "POST",
         lobby + "?token=" + token,
         {{"Content-Type", "application/json"}, {"Origin", own}},
         "{\"queueId\":",
         400},
        {"a body over 1 MiB",
         "POST",
         lobby + "?token=" + token,
         {{"Content-Type", "application/json"}},
         std::string(1024 * 1024 + 1, ' '),
         413},
        {"a header over 16 KiB",
         "GET",
         "/health",
         {{"X-Padding", std::string(size_t{17} * 1024, 'x')}},
         "",
         431},
    };
    for (const Case& c : cases) {
        HttpClient http(serve->Port());
        HttpReply reply = http.Send(c.method, c.target, c.headers, c.body);
        EXPECT_EQ(reply.status, c.status) << c.what << ": " << reply.body << reply.error;
        if (reply.status >= 400) {
            EXPECT_EQ(reply.Header("content-type"), "application/problem+json") << c.what;
            auto problem = Parse(reply.body);
            EXPECT_EQ(Int(*problem, "/status"), static_cast<int64_t>(c.status)) << c.what;
            EXPECT_FALSE(Text(*problem, "/detail").empty()) << c.what;
        }
        // CORS headers go to the gateway's own and the allowed origins only.
        std::string origin;
        for (const auto& [name, value] : c.headers) {
            if (name == "Origin" && (value == own || value == "http://localhost:5173")) {
                origin = value;
            }
        }
        EXPECT_EQ(reply.Header("access-control-allow-origin"), origin) << c.what;
    }
    // The refused body changed nothing.
    HttpClient http(serve->Port());
    EXPECT_EQ(http.Send("GET", lobby, Auth(*serve)).status, 404u);

    // WebSocket handshakes: token and origin are checked like requests.
    struct Handshake {
        const char* what;
        Headers headers;
        unsigned status;
    };
    for (const Handshake& h : std::vector<Handshake>{
             {"no token", {}, 401},
             {"a foreign origin", Auth(*serve, {{"Origin", "http://evil.example"}}), 403},
             {"another host", Auth(*serve, {{"Host", "evil.example"}}), 403},
         }) {
        WebSocketClient socket(serve->Port());
        HttpReply refusal;
        EXPECT_FALSE(socket.Connect("/events", h.headers, &refusal)) << h.what;
        EXPECT_EQ(refusal.status, h.status) << h.what;
    }
    WebSocketClient allowed(serve->Port());
    EXPECT_TRUE(allowed.Connect("/events", Auth(*serve, {{"Origin", "http://localhost:5173"}})));

    // Malformed HTTP: 400 and a closed connection.
    HttpReply garbage = RawExchange(serve->Port(), "NOT HTTP AT ALL\r\n\r\n");
    EXPECT_EQ(garbage.status, 400u);
    EXPECT_TRUE(garbage.closed);

    // An idle connection is closed; one that stopped mid-request gets 408.
    RawConnection idle(serve->Port());
    EXPECT_TRUE(idle.ReadAll(3.0).second);
    RawConnection halfway(serve->Port());
    halfway.Write("GET /health HTTP/1.1\r\nHost: " + serve->Host() + "\r\n");
    auto [text, closed] = halfway.ReadAll(3.0);
    EXPECT_TRUE(closed);
    EXPECT_EQ(text.rfind("HTTP/1.1 408", 0), 0u) << text;
    EXPECT_TRUE(serve->Running());
}

TEST(GatewayServe, ConnectionsPastTheLimitAreTurnedAway) {
    auto serve = Serve();
    ASSERT_NE(serve, nullptr);
    std::vector<std::unique_ptr<RawConnection>> held;
    held.reserve(64);
    for (int i = 0; i < 64; ++i) {
        held.push_back(std::make_unique<RawConnection>(serve->Port()));
    }
    // Let the server accept them all before the one too many.
    HttpReply extra;
    for (int attempt = 0; attempt < 50 && extra.status != 503; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        extra = RawExchange(serve->Port(),
                            "GET /health HTTP/1.1\r\nHost: " + serve->Host() + "\r\n\r\n", 2.0);
    }
    EXPECT_EQ(extra.status, 503u);
    EXPECT_TRUE(extra.closed);
    held.clear();
    HttpReply after;
    for (int attempt = 0; attempt < 50 && after.status != 200; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        after = HttpClient(serve->Port()).Send("GET", "/health");
    }
    EXPECT_EQ(after.status, 200u) << "closed connections free their places";
}

TEST(GatewayServe, SurvivesClientsThatLeaveMidMessageOrSendNonsense) {
    auto serve = Serve();
    ASSERT_NE(serve, nullptr);
    const std::string host = serve->Host();
    // Cut off in the headers, in the body, and in a WebSocket frame.
    RawExchange(serve->Port(), "POST /qel-lobby-team-builder/v1/lobby HTTP/1.1\r\nHost: " + host,
                1.0, true);
    RawExchange(serve->Port(),
                "POST /qel-lobby-team-builder/v1/lobby?token=" + serve->Token() +
                    " HTTP/1.1\r\nHost: " + host +
                    "\r\nContent-Type: application/json\r\nContent-Length: 100\r\n\r\n{\"queu",
                1.0, true);
    RawExchange(serve->Port(),
                "GET /events?token=" + serve->Token() + " HTTP/1.1\r\nHost: " + host +
                    "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: "
                    "dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n\x81\xfe\x01",
                1.0, true);

    // Subscription messages that make no sense are answered, and the socket
    // stays usable.
    WebSocketClient socket(serve->Port());
    ASSERT_TRUE(socket.Connect("/events", Auth(*serve)));
    for (const char* nonsense :
         {"not json", "[1,2]", "{\"subscribe\":5}", "{\"subscribe\":\"\"}", "{\"hello\":1}"}) {
        ASSERT_TRUE(socket.Send(nonsense));
        auto reply = socket.Receive(5.0);
        ASSERT_TRUE(reply) << nonsense;
        EXPECT_NE(reply->find("\"error\""), std::string::npos) << nonsense << " -> " << *reply;
    }
    ASSERT_TRUE(socket.Send("{\"unsubscribe\":\"/nothing\"}"));
    auto unsubscribed = socket.Receive(5.0);
    ASSERT_TRUE(unsubscribed);
    EXPECT_NE(unsubscribed->find("\"ok\":false"), std::string::npos) << *unsubscribed;
    ASSERT_TRUE(socket.Send("{\"subscribe\":\"/qel-login/*\"}"));
    auto ack = socket.Receive(5.0);
    ASSERT_TRUE(ack);
    EXPECT_NE(ack->find("\"ok\":true"), std::string::npos) << *ack;
    auto login = socket.Receive(5.0);
    ASSERT_TRUE(login);
    EXPECT_EQ(ToEvent(*login).uri, "/qel-login/v1/session");

    // An event stream without a subscription is refused with the reason.
    SseClient bare(serve->Port());
    HttpReply refusal;
    EXPECT_FALSE(bare.Open("/events", Auth(*serve), &refusal));
    EXPECT_EQ(refusal.status, 400u);

    EXPECT_EQ(HttpClient(serve->Port()).Send("GET", "/health").status, 200u);
    EXPECT_EQ(serve->Stop(2), 0) << "SIGINT stops it cleanly too";
}

TEST(GatewayServe, RequestsReachThePluginOneAtATimeWhileEventsFlow) {
    auto serve = Serve({"-v"});
    ASSERT_NE(serve, nullptr);
    Follower all(serve->Port());
    ASSERT_TRUE(all.Open(*serve, "*"));
    // Both wait inside the plugin for the service; they are sent together on
    // two connections, so the second arrives while the first waits.
    const std::string token = serve->Token();
    const std::string host = serve->Host();
    RawConnection first(serve->Port());
    RawConnection second(serve->Port());
    ASSERT_TRUE(first.Write("POST /qel-lobby-team-builder/v1/lobby?token=" + token +
                            " HTTP/1.1\r\nHost: " + host +
                            "\r\nContent-Type: application/json\r\nContent-Length: 14\r\n"
                            "Connection: close\r\n\r\n{\"queueId\":62}"));
    ASSERT_TRUE(second.Write("GET /qel-lobby-team-builder/v1/tb-enabled-features?token=" + token +
                             " HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n"));
    EXPECT_EQ(first.ReadAll(10.0).first.rfind("HTTP/1.1 200", 0), 0u);
    EXPECT_EQ(second.ReadAll(10.0).first.rfind("HTTP/1.1 200", 0), 0u);
    all.Drain(0.3);

    // The host's timeline: the second call begins only after the first
    // ended, and the first waited inside the plugin.
    const std::string log = serve->Log();
    const size_t created = log.find("you           POST /qel-lobby-team-builder/v1/lobby");
    const size_t waited = log.find("service call teambuilder-draft.createDraftPremadeV1", created);
    const size_t answered = log.find("you             ... -> 200", created);
    const size_t features = log.find("you           GET /qel-lobby-team-builder/v1/tb-enabled");
    ASSERT_NE(created, std::string::npos) << log;
    EXPECT_LT(waited, answered) << log;
    EXPECT_LT(answered, features) << log;
    // Events published during the first call's waits reached the subscriber.
    EXPECT_TRUE(std::any_of(all.Events().begin(), all.Events().end(), [](const Event& e) {
        return !e.snapshot && e.uri == "/qel-lobby-team-builder/v1/matchmaking";
    }));
}

TEST(GatewayServe, TheStandInsResourcesCanBeReadAndTheSettingsChanged) {
    auto serve = Serve();
    ASSERT_NE(serve, nullptr);
    HttpClient http(serve->Port());
    for (const char* uri : {"/qel-login/v1/session", "/qel-gameflow/v1/session",
                            "/qel-platform-config/v1/namespaces/ChatDomain/ChampSelectDomainName",
                            "/qel-platform-config/v1/namespaces/TeamBuilderDraft/"
                            "LogAllLCDSMessages"}) {
        EXPECT_EQ(http.Send("GET", uri, Auth(*serve)).status, 200u) << uri;
    }
    const std::string setting =
        "/qel-platform-config/v1/namespaces/TeamBuilderDraft/LogAllLCDSMessages";
    HttpReply changed =
        http.Send("PUT", setting, Auth(*serve, {{"Content-Type", "application/json"}}), "true");
    EXPECT_LT(changed.status, 300u) << changed.body;
    EXPECT_EQ(http.Send("GET", setting, Auth(*serve)).body, "true");
    HttpReply world = http.Send("GET", "/qel-host/v1/world", Auth(*serve));
    EXPECT_EQ(Text(*Parse(world.body), "/scenario"), "draft");
}

}  // namespace
}  // namespace Orvan::Testing
