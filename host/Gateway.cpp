#include "host/Gateway.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>
#include <random>
#include <sstream>

#include "host/HostJson.h"
#include "host/RestMessage.h"
#include "host/UrlTemplate.h"

namespace Orvan::Host {

namespace {

constexpr std::string_view kEventsPath = "/events";

double RealNow() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

HttpResponseOut Problem(unsigned status, const std::string& detail) {
    HttpResponseOut response;
    response.status = status;
    response.headers.emplace_back("Content-Type", "application/problem+json");
    response.body = "{\"type\":\"about:blank\",\"title\":" + QuoteJson(HttpReason(status)) +
                    ",\"status\":" + std::to_string(status) + ",\"detail\":" + QuoteJson(detail) +
                    "}";
    return response;
}

HttpResponseOut JsonAnswer(std::string body, unsigned status = 200) {
    HttpResponseOut response;
    response.status = status;
    response.headers.emplace_back("Content-Type", "application/json");
    response.body = std::move(body);
    return response;
}

// Splits "a=1&b=2" into decoded pairs.
std::vector<std::pair<std::string, std::string>> QueryPairs(std::string_view query) {
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!query.empty()) {
        const size_t end = query.find('&');
        const std::string_view part = query.substr(0, end);
        const size_t equals = part.find('=');
        if (!part.empty()) {
            pairs.emplace_back(PercentDecode(part.substr(0, equals)),
                               equals == std::string_view::npos
                                   ? std::string()
                                   : PercentDecode(part.substr(equals + 1)));
        }
        query = end == std::string_view::npos ? std::string_view() : query.substr(end + 1);
    }
    return pairs;
}

// The query without its token parameter, which is the gateway's and not
// the plugin's.
std::string QueryWithoutToken(std::string_view query) {
    std::string kept;
    while (!query.empty()) {
        const size_t end = query.find('&');
        const std::string_view part = query.substr(0, end);
        if (part != "token" && part.substr(0, 6) != "token=" && !part.empty()) {
            kept += (kept.empty() ? "" : "&") + std::string(part);
        }
        query = end == std::string_view::npos ? std::string_view() : query.substr(end + 1);
    }
    return kept;
}

// Compares in time independent of where the texts differ.
bool SameToken(std::string_view given, std::string_view expected) {
    if (given.size() != expected.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
    }
    return difference == 0;
}

bool ChangesState(std::string_view method) {
    return method != "GET" && method != "HEAD" && method != "OPTIONS";
}

std::string ContentTypeOf(std::string_view name) {
    static const std::map<std::string, std::string, std::less<>> kTypes = {
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
    };
    const size_t dot = name.rfind('.');
    if (dot != std::string_view::npos) {
        auto found = kTypes.find(name.substr(dot));
        if (found != kTypes.end()) {
            return found->second;
        }
    }
    return "application/octet-stream";
}

constexpr const char* kPlainIndex = R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>qel-host gateway</title></head>
<body><h1>qel-host gateway</h1>
<p>The plugin's REST API is served here; see <a href="/openapi.json">openapi.json</a>.
Events: a WebSocket at <code>/events</code>, or <code>GET /events?subscribe=URI</code>.</p>
</body></html>
)";

}  // namespace

std::string NewGatewayToken() {
    std::random_device device;
    std::string token;
    static constexpr char kHex[] = "0123456789abcdef";
    for (int i = 0; i < 4; ++i) {
        uint32_t word = device();
        for (int j = 0; j < 8; ++j) {
            token += kHex[word & 15];
            word >>= 4;
        }
    }
    return token;
}

Gateway::Gateway(HostRuntime& runtime, GatewayOptions options, GatewayPages pages)
    : runtime_(runtime), options_(std::move(options)), pages_(std::move(pages)) {}

Gateway::~Gateway() {
    runtime_.RemoveObserver(this);
    if (server_ != nullptr) {
        runtime_.SetPump(nullptr);
    }
}

bool Gateway::Listen(std::string& error) {
    server_ = HttpServer::Listen(*this, options_.port, options_.limits, error);
    if (server_ == nullptr) {
        return false;
    }
    for (auto& [uri, json] : runtime_.Resources()) {
        current_[uri] = json.empty() ? "null" : json;
    }
    runtime_.AddObserver(this);
    runtime_.SetPump(server_.get());
    return true;
}

uint16_t Gateway::Port() const {
    return server_ != nullptr ? server_->Port() : 0;
}

std::string Gateway::Url() const {
    return "http://127.0.0.1:" + std::to_string(Port()) + "/?token=" + options_.token;
}

// ---- Requests -------------------------------------------------------------------------------

void Gateway::OnRequest(uint64_t connection, HttpRequestIn request) {
    pending_.push_back(Pending{connection, std::move(request)});
}

bool Gateway::DispatchQueued() {
    if (dispatching_ || pending_.empty()) {
        return false;
    }
    dispatching_ = true;
    while (!pending_.empty()) {
        Pending next = std::move(pending_.front());
        pending_.pop_front();
        HttpResponseOut response = Answer(next.connection, next.request);
        if (response.status != 0) {
            server_->Respond(next.connection, std::move(response));
        }
    }
    dispatching_ = false;
    return true;
}

std::optional<HttpResponseOut> Gateway::Screen(const HttpRequestIn& request,
                                               bool changesState) const {
    const std::string port = std::to_string(Port());
    const std::string host = LowerAscii(request.Header("Host"));
    if (host != "127.0.0.1:" + port && host != "localhost:" + port) {
        return Problem(403, host.empty() ? "The request names no Host"
                                         : "The host " + host + " is not served here");
    }
    const std::string_view target = request.target;
    const size_t question = target.find('?');
    // The health check and the console's static files carry no state.
    const std::string_view path = target.substr(0, question);
    const bool open = path == "/health" || path == "/" || path.substr(0, 9) == "/console/";
    if (!open) {
        std::string given;
        const std::string authorization = request.Header("Authorization");
        if (LowerAscii(authorization.substr(0, 7)) == "bearer ") {
            given = authorization.substr(7);
        } else if (question != std::string_view::npos) {
            for (const auto& [name, value] : QueryPairs(target.substr(question + 1))) {
                if (name == "token") {
                    given = value;
                }
            }
        }
        if (!SameToken(given, options_.token)) {
            HttpResponseOut refusal =
                Problem(401, given.empty() ? "A token is required (Authorization: Bearer, or "
                                             "token in the query)"
                                           : "The token is not this gateway's");
            refusal.headers.emplace_back("WWW-Authenticate", "Bearer");
            return refusal;
        }
    }
    if (changesState && request.HasHeader("Origin") && !AllowedOrigin(request.Header("Origin"))) {
        return Problem(403, "The origin " + request.Header("Origin") + " may not use this gateway");
    }
    return std::nullopt;
}

bool Gateway::AllowedOrigin(std::string_view origin) const {
    const std::string port = std::to_string(Port());
    const std::string lower = LowerAscii(origin);
    if (lower == "http://127.0.0.1:" + port || lower == "http://localhost:" + port) {
        return true;
    }
    return std::find(options_.allowedOrigins.begin(), options_.allowedOrigins.end(), origin) !=
           options_.allowedOrigins.end();
}

void Gateway::AddCors(const HttpRequestIn& request, HttpResponseOut& response) const {
    const std::string origin = request.Header("Origin");
    if (origin.empty() || !AllowedOrigin(origin)) {
        return;
    }
    response.headers.emplace_back("Access-Control-Allow-Origin", origin);
    response.headers.emplace_back("Vary", "Origin");
    response.headers.emplace_back("Access-Control-Expose-Headers", "Content-Type");
}

HttpResponseOut Gateway::Preflight(const HttpRequestIn& request) const {
    const std::string origin = request.Header("Origin");
    if (!origin.empty() && !AllowedOrigin(origin)) {
        return Problem(403, "The origin " + origin + " may not use this gateway");
    }
    HttpResponseOut response;
    response.status = 204;
    response.headers.emplace_back("Allow", "GET, HEAD, POST, PUT, PATCH, DELETE, OPTIONS");
    if (!origin.empty()) {
        response.headers.emplace_back("Access-Control-Allow-Methods",
                                      "GET, HEAD, POST, PUT, PATCH, DELETE, OPTIONS");
        response.headers.emplace_back("Access-Control-Allow-Headers",
                                      "Authorization, Content-Type, Last-Event-ID");
        response.headers.emplace_back("Access-Control-Max-Age", "600");
        AddCors(request, response);
    }
    return response;
}

HttpResponseOut Gateway::Answer(uint64_t connection, const HttpRequestIn& request) {
    const std::string_view target = request.target;
    const size_t question = target.find('?');
    const std::string_view path = target.substr(0, question);
    const std::string_view query =
        question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
    if (request.method == "OPTIONS") {
        if (auto refusal = Screen(request, false); refusal && refusal->status == 403) {
            return *refusal;
        }
        return Preflight(request);
    }
    if (auto refusal = Screen(request, ChangesState(request.method))) {
        AddCors(request, *refusal);
        return *refusal;
    }
    HttpResponseOut response;
    if (path == "/health" && (request.method == "GET" || request.method == "HEAD")) {
        response = JsonAnswer("{\"status\":\"ok\"}");
    } else if (path == kEventsPath && request.method == "GET") {
        if (OpenEventStream(connection, request, query, response)) {
            return HttpResponseOut{0, {}, {}, false};  // answered by the stream
        }
    } else if (path == "/openapi.json" && request.method == "GET") {
        if (openApiCache_.empty() && pages_.openApi) {
            openApiCache_ = pages_.openApi();
        }
        response = openApiCache_.empty() ? Problem(503, "The API description is not available")
                                         : JsonAnswer(openApiCache_);
    } else if (path == "/qel-host/v1/world" && request.method == "GET" && pages_.world) {
        response = JsonAnswer(pages_.world());
    } else if (request.method == "GET" && (path == "/" || path.substr(0, 9) == "/console/")) {
        response = StaticPage(path);
    } else {
        response = CallHost(request, path, query);
    }
    AddCors(request, response);
    if (request.method == "HEAD") {
        response.body.clear();
    }
    return response;
}

HttpResponseOut Gateway::CallHost(const HttpRequestIn& request, std::string_view path,
                                  std::string_view query) {
    RestRequest rest;
    rest.method = MethodCode(request.method);
    if (rest.method == 0 || rest.method == kHostMethodDirectCall) {
        return Problem(405, "The method " + request.method + " is not served");
    }
    rest.uri = std::string(path);
    const std::string kept = QueryWithoutToken(query);
    if (!kept.empty()) {
        rest.uri += "?" + kept;
    }
    for (const auto& [name, value] : request.headers) {
        const std::string lower = LowerAscii(name);
        if (lower != "authorization" && lower != "cookie") {
            rest.headers.emplace_back(name, value);
        }
    }
    rest.hasBody = !request.body.empty() || request.HasHeader("Content-Length") ||
                   request.HasHeader("Transfer-Encoding");
    if (rest.hasBody) {
        rest.body = request.body;
        rest.contentType = request.Header("Content-Type");
        if (rest.contentType.empty()) {
            rest.contentType = "application/json";
        }
    }
    if (pages_.calling) {
        pages_.calling(rest);
    }
    const RestReply reply = runtime_.Route(rest);
    if (pages_.called) {
        pages_.called(rest, reply);
    }
    if (!reply.Ok()) {
        const unsigned status = reply.status >= 400 ? reply.status : 500;
        std::string detail = reply.error;
        if (detail.empty()) {
            detail = std::string(HttpReason(status));
        }
        return Problem(status, detail);
    }
    HttpResponseOut response;
    response.status = reply.status;
    if (!reply.body.empty()) {
        response.headers.emplace_back("Content-Type", "application/json");
        response.body = reply.body;
    }
    return response;
}

HttpResponseOut Gateway::StaticPage(std::string_view path) const {
    std::string name = path == "/" ? std::string("index.html") : std::string(path.substr(9));
    const bool safe = !name.empty() && name.find("..") == std::string::npos &&
                      name.find('/') == std::string::npos && name.find('\\') == std::string::npos;
    if (!safe) {
        return Problem(404, "Not found");
    }
    HttpResponseOut response;
    if (!options_.consoleFolder.empty()) {
        std::ifstream file(options_.consoleFolder + "/" + name, std::ios::binary);
        if (file) {
            std::ostringstream content;
            content << file.rdbuf();
            response.headers.emplace_back("Content-Type", ContentTypeOf(name));
            response.headers.emplace_back("Cache-Control", "no-cache");
            response.body = content.str();
            return response;
        }
    }
    if (name != "index.html") {
        return Problem(404, "Not found");
    }
    response.headers.emplace_back("Content-Type", "text/html; charset=utf-8");
    response.body = kPlainIndex;
    return response;
}

// ---- Event streams ---------------------------------------------------------------------------

std::optional<HttpResponseOut> Gateway::OnUpgrade(uint64_t connection,
                                                  const HttpRequestIn& request) {
    const std::string_view target = request.target;
    if (target.substr(0, target.find('?')) != kEventsPath) {
        return Problem(404, "WebSocket connections are served at /events only");
    }
    // A handshake is a state change in the sense of the origin check: a
    // foreign page must not be able to follow the user's lobby.
    if (auto refusal = Screen(request, true)) {
        return refusal;
    }
    subscribers_[connection] = Subscriber{true, {}, RealNow()};
    return std::nullopt;
}

bool Gateway::OpenEventStream(uint64_t connection, const HttpRequestIn& request,
                              std::string_view query, HttpResponseOut& refusal) {
    Subscriber subscriber{false, {}, RealNow()};
    for (const auto& [name, value] : QueryPairs(query)) {
        if (name == "subscribe" && !value.empty()) {
            subscriber.patterns.insert(value);
        }
    }
    if (subscriber.patterns.empty()) {
        refusal = Problem(400,
                          "Name what to follow: /events?subscribe=URI (a URI ending in * is a "
                          "prefix), or open a WebSocket");
        AddCors(request, refusal);
        return false;
    }
    HttpResponseOut head;
    head.status = 200;
    head.headers.emplace_back("Content-Type", "text/event-stream");
    head.headers.emplace_back("Cache-Control", "no-cache");
    AddCors(request, head);
    head.body = "retry: 1000\n\n";
    server_->OpenStream(connection, std::move(head));
    Subscriber& stored = subscribers_[connection] = std::move(subscriber);

    // Resume from Last-Event-ID when every later event is still held;
    // otherwise start over from the current state.
    const std::string last = request.Header("Last-Event-ID");
    char* end = nullptr;
    const unsigned long long lastSeq = std::strtoull(last.c_str(), &end, 10);
    const uint64_t oldest = held_.empty() ? seq_ + 1 : held_.front().seq;
    if (!last.empty() && end != nullptr && *end == '\0' && lastSeq <= seq_ &&
        lastSeq + 1 >= oldest) {
        for (const HeldEvent& event : held_) {
            if (event.seq > lastSeq && std::any_of(stored.patterns.begin(), stored.patterns.end(),
                                                   [&](const std::string& pattern) {
                                                       return Matches(pattern, event.uri);
                                                   })) {
                SendText(connection, stored, *event.message, event.seq);
            }
        }
        return true;
    }
    for (const std::string& pattern : std::set<std::string>(stored.patterns)) {
        SendSnapshot(connection, stored, pattern);
    }
    return true;
}

void Gateway::OnMessage(uint64_t connection, std::string text) {
    auto found = subscribers_.find(connection);
    if (found == subscribers_.end()) {
        return;
    }
    Subscriber& subscriber = found->second;
    auto reply = [&](const std::string& message) { SendText(connection, subscriber, message, 0); };
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    if (document.HasParseError() || !document.IsObject()) {
        reply(
            "{\"error\":\"Send {\\\"subscribe\\\": URI} or {\\\"unsubscribe\\\": URI} as a "
            "JSON object\"}");
        return;
    }
    for (const char* verb : {"subscribe", "unsubscribe"}) {
        auto member = document.FindMember(verb);
        if (member == document.MemberEnd()) {
            continue;
        }
        if (!member->value.IsString() || member->value.GetStringLength() == 0) {
            reply("{\"error\":" + QuoteJson(std::string("\"") + verb + "\" needs a URI") + "}");
            return;
        }
        const std::string uri(member->value.GetString(), member->value.GetStringLength());
        if (verb == std::string_view("subscribe")) {
            subscriber.patterns.insert(uri);
            reply("{\"ok\":true,\"subscribe\":" + QuoteJson(uri) +
                  ",\"seq\":" + std::to_string(seq_) + "}");
            SendSnapshot(connection, subscriber, uri);
        } else {
            const bool had = subscriber.patterns.erase(uri) > 0;
            reply(std::string("{\"ok\":") + (had ? "true" : "false") + ",\"unsubscribe\":" +
                  QuoteJson(uri) + (had ? "" : ",\"error\":\"Not subscribed to that URI\"") + "}");
        }
        return;
    }
    reply("{\"error\":\"Name a URI: {\\\"subscribe\\\": URI} or {\\\"unsubscribe\\\": URI}\"}");
}

void Gateway::OnClose(uint64_t connection) {
    subscribers_.erase(connection);
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(),
                                  [&](const Pending& p) { return p.connection == connection; }),
                   pending_.end());
}

void Gateway::Tick() {
    const double now = RealNow();
    for (auto& [connection, subscriber] : subscribers_) {
        if (!subscriber.webSocket &&
            now - subscriber.lastWrite >= options_.streamHeartbeatSeconds) {
            subscriber.lastWrite = now;
            server_->Send(connection, ": keep-alive\n\n");
        }
    }
}

bool Gateway::Matches(const std::string& pattern, const std::string& uri) {
    if (!pattern.empty() && pattern.back() == '*') {
        return uri.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
    }
    return pattern == uri;
}

std::string Gateway::StreamFrame(const std::string& message, uint64_t seq) {
    std::string frame;
    frame.reserve(message.size() + 32);
    if (seq != 0) {
        frame += "id: " + std::to_string(seq) + "\n";
    }
    return frame + "data: " + message + "\n\n";
}

void Gateway::SendText(uint64_t connection, Subscriber& subscriber, const std::string& message,
                       uint64_t seq) {
    subscriber.lastWrite = RealNow();
    server_->Send(connection, subscriber.webSocket ? message : StreamFrame(message, seq));
}

void Gateway::SendSnapshot(uint64_t connection, Subscriber& subscriber,
                           const std::string& pattern) {
    for (const auto& [uri, data] : current_) {
        if (Matches(pattern, uri)) {
            SendText(connection, subscriber,
                     "{\"seq\":" + std::to_string(seq_) + ",\"uri\":" + QuoteJson(uri) +
                         ",\"eventType\":\"Create\",\"snapshot\":true,\"data\":" + data + "}",
                     seq_);
        }
    }
}

// ---- Events ---------------------------------------------------------------------------------

void Gateway::OnPluginEvent(uint32_t, const std::string& name, const std::string& json) {
    if (name != "OnJsonApiEvent") {
        return;
    }
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        return;
    }
    auto uri = document.FindMember("uri");
    auto type = document.FindMember("eventType");
    if (uri == document.MemberEnd() || !uri->value.IsString() || type == document.MemberEnd() ||
        !type->value.IsString()) {
        return;
    }
    std::string data = "null";
    if (auto member = document.FindMember("data"); member != document.MemberEnd()) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        member->value.Accept(writer);
        data.assign(buffer.GetString(), buffer.GetSize());
    }
    Publish(std::string(uri->value.GetString(), uri->value.GetStringLength()),
            std::string(type->value.GetString(), type->value.GetStringLength()), data);
}

void Gateway::OnHostResource(const std::string& uri, const std::string& eventType,
                             const std::string& json) {
    Publish(uri, eventType, json);
}

void Gateway::Publish(const std::string& uri, const std::string& eventType,
                      const std::string& data) {
    if (eventType == "Delete") {
        current_.erase(uri);
    } else {
        current_[uri] = data;
    }
    const uint64_t seq = ++seq_;
    // Built once for every subscriber: the WebSocket message, and its event
    // stream frame when a stream wants it.
    auto message = std::make_shared<const std::string>(
        "{\"seq\":" + std::to_string(seq) + ",\"uri\":" + QuoteJson(uri) +
        ",\"eventType\":" + QuoteJson(eventType) + ",\"data\":" + data + "}");
    std::shared_ptr<const std::string> frame;
    const double now = RealNow();
    for (auto& [connection, subscriber] : subscribers_) {
        const bool wanted =
            std::any_of(subscriber.patterns.begin(), subscriber.patterns.end(),
                        [&](const std::string& pattern) { return Matches(pattern, uri); });
        if (!wanted) {
            continue;
        }
        subscriber.lastWrite = now;
        if (!subscriber.webSocket && frame == nullptr) {
            frame = std::make_shared<const std::string>(StreamFrame(*message, seq));
        }
        server_->Send(connection, subscriber.webSocket ? message : frame);
    }
    held_.push_back(HeldEvent{seq, uri, std::move(message)});
    while (held_.size() > options_.heldEvents) {
        held_.pop_front();
    }
}

}  // namespace Orvan::Host
