#include "host/Faults.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include "host/HostJson.h"
#include "host/HostRuntime.h"
#include "host/PublishedState.h"

namespace Orvan::Host {

namespace {

constexpr std::array<std::string_view, kFaultKinds> kFaultKindNames = {
    "request-fail", "stream-fail", "duplicate-event", "late-event", "late-delay"};

// How late a held-back event or a late delayed call comes, in simulated
// seconds: long enough for later events and answers to overtake it, short
// enough that the scenario's own timeouts still hold.
constexpr double kLateEventMin = 0.01;
constexpr double kLateEventMax = 1.5;
constexpr double kLateDelayMin = 0.05;
constexpr double kLateDelayMax = 3.0;

// A body that breaks off after `breakAt` bytes, delivered in chunks small
// enough that the reader sees more data announced and has to come back.
struct BrokenStream {
    std::string bytes;
    size_t at = 0;
    size_t breakAt = 0;
    size_t chunk = 1;
    bool readFails = false;  // else the body just ends early
};

uint8_t QEL_HOST_CALL ReadBroken(void* context, uint8_t* buffer, uint32_t* length, uint8_t* more) {
    auto* stream = static_cast<BrokenStream*>(context);
    if (stream == nullptr || length == nullptr || more == nullptr) {
        return 0;
    }
    if (stream->at >= stream->breakAt) {
        *length = 0;
        *more = 0;
        return stream->readFails ? 0 : 1;
    }
    const size_t count =
        std::min({static_cast<size_t>(*length), stream->chunk, stream->breakAt - stream->at});
    if (count > 0 && buffer != nullptr) {
        std::memcpy(buffer, stream->bytes.data() + stream->at, count);
    }
    stream->at += count;
    *length = static_cast<uint32_t>(count);
    // A failing stream still announces more; one that ends early says it is
    // complete with its last bytes.
    *more = stream->readFails || stream->at < stream->breakAt ? 1 : 0;
    return 1;
}

void QEL_HOST_CALL CloseBroken(void* /*context*/) {
    // The reply's release frees the stream, so a reader that never closes
    // it leaks nothing and one that closes it twice frees nothing twice.
}

void QEL_HOST_CALL ReleaseBroken(HostResponse* reply) {
    delete static_cast<BrokenStream*>(reply->streamContext);
    reply->streamContext = nullptr;
    std::free(const_cast<char*>(reply->errorText));
    reply->errorText = nullptr;
    FreeHostValue(reply->body);
    reply->release = nullptr;
}

}  // namespace

std::string_view FaultKindName(FaultKind kind) {
    return kFaultKindNames[static_cast<size_t>(kind)];
}

std::optional<FaultKind> FaultKindNamed(std::string_view name) {
    for (size_t i = 0; i < kFaultKindNames.size(); ++i) {
        if (kFaultKindNames[i] == name) {
            return static_cast<FaultKind>(i);
        }
    }
    return std::nullopt;
}

bool FaultPlan::Any() const {
    return std::any_of(share.begin(), share.end(), [](double s) { return s > 0.0; });
}

std::string FaultPlan::Text() const {
    std::string text;
    for (size_t i = 0; i < kFaultKinds; ++i) {
        if (share[i] > 0.0) {
            char value[32];
            std::snprintf(value, sizeof value, "%g", share[i]);
            text += (text.empty() ? "" : ",") + std::string(kFaultKindNames[i]) + "=" + value;
        }
    }
    return text;
}

std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string& error) {
    FaultPlan plan;
    if (text.empty()) {
        error = "--faults needs KIND=SHARE[,KIND=SHARE...]";
        return std::nullopt;
    }
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string_view::npos) {
            comma = text.size();
        }
        const std::string_view piece = text.substr(start, comma - start);
        start = comma + 1;
        const size_t equals = piece.find('=');
        const std::string_view name = piece.substr(0, equals);
        const std::optional<FaultKind> kind = FaultKindNamed(name);
        if (!kind) {
            error = "--faults: unknown fault kind \"" + std::string(name) +
                    "\" (kinds: request-fail, stream-fail, duplicate-event, late-event, "
                    "late-delay)";
            return std::nullopt;
        }
        const std::string value(equals == std::string_view::npos ? std::string_view()
                                                                 : piece.substr(equals + 1));
        char* end = nullptr;
        const double share = std::strtod(value.c_str(), &end);
        if (value.empty() || end == nullptr || *end != '\0' || !(share >= 0.0 && share <= 1.0)) {
            error = "--faults: " + std::string(name) + " needs a share between 0 and 1";
            return std::nullopt;
        }
        plan.share[static_cast<size_t>(*kind)] = share;
        if (comma == text.size()) {
            break;
        }
    }
    return plan;
}

FaultInjector::FaultInjector(FaultPlan plan, uint64_t seed)
    // Apart from the simulator's own generator, so the same seed still
    // means the same simulated players.
    : plan_(plan), random_(seed ^ 0x6661756c74730000ULL) {}

bool FaultInjector::Strikes(FaultKind kind) {
    const double share = plan_.Share(kind);
    if (!(share > 0.0)) {
        return false;
    }
    if (Uniform(0.0, 1.0) >= share) {
        return false;
    }
    ++counts_[static_cast<size_t>(kind)];
    return true;
}

double FaultInjector::Uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
}

std::optional<RestReply> FaultInjector::FailRequest(const RestRequest& /*request*/) {
    if (!Strikes(FaultKind::RequestFail)) {
        return std::nullopt;
    }
    return RestReply::Error(503, "The host could not complete the request (injected fault)");
}

bool FaultInjector::BreakStream(const RestReply& answer, HostResponse& reply) {
    if (reply.failed != 0 || answer.body.empty() || !Strikes(FaultKind::StreamFail)) {
        return false;
    }
    auto stream = std::make_unique<BrokenStream>();
    stream->bytes = answer.body;
    stream->breakAt = static_cast<size_t>(Uniform(0.0, static_cast<double>(answer.body.size())));
    stream->chunk = 1 + static_cast<size_t>(Uniform(0.0, 64.0));
    stream->readFails = Uniform(0.0, 1.0) < 0.5;
    FreeHostValue(reply.body);
    reply.read = &ReadBroken;
    reply.close = &CloseBroken;
    reply.expectedLength = static_cast<uint32_t>(answer.body.size());
    reply.streamContext = stream.release();
    reply.release = &ReleaseBroken;
    return true;
}

EventFault FaultInjector::OnEvent(const std::string& /*name*/) {
    EventFault fault;
    fault.duplicate = Strikes(FaultKind::DuplicateEvent);
    if (Strikes(FaultKind::LateEvent)) {
        fault.lateBy = Uniform(kLateEventMin, kLateEventMax);
    }
    return fault;
}

double FaultInjector::LateBy() {
    return Strikes(FaultKind::LateDelay) ? Uniform(kLateDelayMin, kLateDelayMax) : 0.0;
}

uint64_t FaultInjector::Total() const {
    uint64_t total = 0;
    for (uint64_t count : counts_) {
        total += count;
    }
    return total;
}

std::string FaultInjector::Summary() const {
    std::string text;
    for (size_t i = 0; i < kFaultKinds; ++i) {
        if (counts_[i] > 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(counts_[i]) + " " +
                    std::string(kFaultKindNames[i]);
        }
    }
    return text.empty() ? "none" : text;
}

}  // namespace Orvan::Host

namespace Orvan::Host {

namespace {

std::string Compact(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string Clip(std::string text) {
    constexpr size_t kShown = 160;
    if (text.size() > kShown) {
        text.resize(kShown);
        text += "...";
    }
    return text;
}

}  // namespace

namespace {

struct Derived {
    uint16_t status = 0;
    std::string error;
    std::string body;
    rapidjson::Document value;
};

Derived Get(HostRuntime& runtime, const char* uri) {
    RestRequest request;
    request.method = kHostMethodGet;
    request.uri = uri;
    const RestReply reply = runtime.Route(request);
    Derived derived;
    derived.status = reply.Ok() ? 200 : reply.status;
    derived.error = reply.error;
    derived.body = reply.body;
    if (reply.Ok()) {
        derived.value.Parse<rapidjson::kParseIterativeFlag>(reply.body.c_str(), reply.body.size());
        if (derived.value.HasParseError()) {
            derived.status = 0;
            derived.error = "unreadable JSON";
        }
    }
    return derived;
}

// The DTOs the plugin accepted since the lobby was last deleted (or since the
// start), told apart by the counters their countdowns carry.
size_t DtosSinceLobbyDeleted(const PublishedState& state) {
    const std::vector<ResourceEvent>& events = state.Events();
    std::set<int64_t> counters;
    for (size_t i = events.size(); i-- > 0;) {
        if (events[i].uri == kLobbyUri && events[i].type == "Delete") {
            break;
        }
        if (events[i].uri == kCountdownUri) {
            rapidjson::Document countdown;
            countdown.Parse(events[i].data.c_str(), events[i].data.size());
            counters.insert(
                countdown.HasParseError() ? -1 : PublishedState::Int(&countdown, "counter", -1));
        }
    }
    return counters.size();
}

}  // namespace

std::vector<std::string> CheckPublishedState(HostRuntime& runtime, const PublishedState& state) {
    std::vector<std::string> disagreements;
    auto differs = [&](const char* uri, const rapidjson::Value& published, const Derived& derived) {
        if (published != derived.value) {
            // Shown from a little before where the two texts part.
            const std::string left = Compact(published);
            const std::string right = Compact(derived.value);
            size_t at = 0;
            while (at < left.size() && at < right.size() && left[at] == right[at]) {
                ++at;
            }
            const size_t from = at > 40 ? at - 40 : 0;
            disagreements.push_back(std::string(uri) + " published ..." + Clip(left.substr(from)) +
                                    " but the plugin derives ..." + Clip(right.substr(from)));
        }
    };
    auto unexpected = [&](const char* uri, const Derived& derived, uint16_t allowed) {
        if (derived.status != 200 && derived.status != allowed) {
            disagreements.push_back(std::string("GET ") + uri + " answered " +
                                    std::to_string(derived.status) + " \"" + derived.error + "\"");
            return true;
        }
        return false;
    };

    // The countdown goes out with every DTO the plugin accepts and is never
    // deleted: while a DTO is held, it is that DTO's.
    const Derived countdown = Get(runtime, kCountdownUri);
    const rapidjson::Value* publishedCountdown = state.Current(kCountdownUri);
    if (!unexpected(kCountdownUri, countdown, 404) && countdown.status == 200) {
        if (publishedCountdown == nullptr) {
            disagreements.push_back(std::string(kCountdownUri) +
                                    " was never published but the plugin holds a DTO");
        } else {
            differs(kCountdownUri, *publishedCountdown, countdown);
        }
    }

    // The session exists exactly while the held DTO is in champion select.
    const Derived session = Get(runtime, kSessionUri);
    const rapidjson::Value* publishedSession = state.Current(kSessionUri);
    if (!unexpected(kSessionUri, session, 404)) {
        if (session.status == 200 && publishedSession == nullptr) {
            disagreements.push_back(
                std::string(kSessionUri) +
                " is not published but the plugin holds one: " + Clip(session.body));
        } else if (session.status != 200 && publishedSession != nullptr) {
            disagreements.push_back(std::string(kSessionUri) +
                                    " is still published but the plugin holds none: " +
                                    Clip(Compact(*publishedSession)));
        } else if (session.status == 200) {
            differs(kSessionUri, *publishedSession, session);
        }
    }

    // The lobby is not published for the first DTO after none, and through
    // the ready check and champion select it is kept from the last premade
    // state while the plugin answers 404 for it.
    const Derived lobby = Get(runtime, kLobbyUri);
    const rapidjson::Value* publishedLobby = state.Current(kLobbyUri);
    if (!unexpected(kLobbyUri, lobby, 404)) {
        if (lobby.status == 200 && publishedLobby == nullptr) {
            if (DtosSinceLobbyDeleted(state) > 1) {
                disagreements.push_back(
                    std::string(kLobbyUri) +
                    " is not published but the plugin holds one: " + Clip(lobby.body));
            }
        } else if (lobby.status != 200 && publishedLobby != nullptr) {
            // Held without a premade state (ready check, champion select),
            // the lobby stays as the last premade state made it.
            if (countdown.status != 200) {
                disagreements.push_back(std::string(kLobbyUri) +
                                        " is still published but the plugin holds none: " +
                                        Clip(Compact(*publishedLobby)));
            }
        } else if (lobby.status == 200) {
            differs(kLobbyUri, *publishedLobby, lobby);
        }
    }

    // The search answered is the last one computed, from the DTOs and from
    // the service's restriction and removal messages, and what those
    // messages publish is not always what the next DTO computes again. The
    // fields the held DTO alone decides must agree.
    const Derived search = Get(runtime, kSearchUri);
    const rapidjson::Value* publishedSearch = state.Current(kSearchUri);
    if (!unexpected(kSearchUri, search, 0) && publishedSearch != nullptr &&
        publishedSearch->IsObject() && search.value.IsObject()) {
        for (const char* field : {"queueId", "isCurrentlyInQueue", "estimatedQueueTime"}) {
            const auto left = publishedSearch->FindMember(field);
            const auto right = search.value.FindMember(field);
            const bool leftHas = left != publishedSearch->MemberEnd();
            const bool rightHas = right != search.value.MemberEnd();
            if (leftHas != rightHas || (leftHas && left->value != right->value)) {
                disagreements.push_back(std::string(kSearchUri) + " published " + field + " " +
                                        (leftHas ? Compact(left->value) : "(none)") +
                                        " but the plugin derives " +
                                        (rightHas ? Compact(right->value) : "(none)"));
            }
        }
    }
    return disagreements;
}

}  // namespace Orvan::Host
