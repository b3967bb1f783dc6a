#include "host/SessionRecord.h"

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "host/HostJson.h"

namespace Orvan::Host {

namespace {

// The simulated clock's readings: the system time starts at
// 2026-01-01T00:00:00Z, the monotonic clock at one second.
constexpr int64_t kSimulatedEpoch100ns = 17'672'256'000'000'000;
constexpr int64_t kSimulatedMonotonicStart = 1'000'000'000;

class Fnv1a {
public:
    void Add(const void* data, size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        for (size_t i = 0; i < size; ++i) {
            hash_ = (hash_ ^ bytes[i]) * 0x100000001b3ull;
        }
    }
    void Text(const char* text) {
        // The terminating NUL keeps "ab","c" apart from "a","bc".
        Add(text != nullptr ? text : "", text != nullptr ? std::strlen(text) + 1 : 1);
    }
    void Number(uint64_t value) { Add(&value, sizeof value); }
    uint64_t Value() const { return hash_; }

private:
    uint64_t hash_ = 0xcbf29ce484222325ull;
};

}  // namespace

bool IsJsonText(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    rapidjson::Reader reader;
    rapidjson::BaseReaderHandler<> handler;
    rapidjson::StringStream stream(text.c_str());
    return !reader
                .Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseStopWhenDoneFlag>(stream,
                                                                                           handler)
                .IsError() &&
           text.find_first_not_of(" \t\r\n", stream.Tell()) == std::string::npos &&
           text.find('\0') == std::string::npos;
}

namespace {

// A JSON string: most texts need no escapes, and are copied as they are.
void AppendQuoted(std::string& line, std::string_view text) {
    for (const char c : text) {
        if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) {
            line += QuoteJson(text);
            return;
        }
    }
    line += '"';
    line += text;
    line += '"';
}

const std::string kNullJson = "null";

void AppendNumber(std::string& line, const char* format, double value) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, format, value);
    line += buffer;
}

}  // namespace

std::string ApiDescriptionHash(const PluginLibrary& library) {
    Fnv1a hash;
    const PluginApiDescriptor* api = library.Record().apiDescriptor;
    if (api != nullptr) {
        for (const EndpointRecord* endpoint : library.Endpoints()) {
            hash.Text(endpoint->function.name);
            hash.Text(endpoint->function.nameSpace);
            hash.Text(endpoint->urlTemplate);
            hash.Number(endpoint->method);
            hash.Number(endpoint->function.returnType);
            hash.Text(endpoint->function.returnTypeName);
            hash.Number(endpoint->function.argumentCount);
            const ArgumentRecord* argument = endpoint->function.arguments;
            for (uint32_t i = 0; argument != nullptr && i < endpoint->function.argumentCount;
                 ++i, argument = argument->next) {
                hash.Text(argument->name);
                hash.Number(argument->type);
                hash.Number(argument->elementType);
                hash.Text(argument->typeName);
                hash.Number(argument->optional);
            }
        }
        for (uint32_t i = 0; api->types != nullptr && i < api->typeCount; ++i) {
            const TypeRecord& type = api->types[i];
            hash.Text(type.name);
            hash.Text(type.nameSpace);
            hash.Number(type.count);
            const FieldRecord* field = type.fields;
            for (uint32_t f = 0; field != nullptr && f < type.count; ++f, field = field->next) {
                hash.Text(field->name);
                hash.Number(field->type);
                hash.Number(field->elementType);
                hash.Text(field->typeName);
                hash.Number(field->optional);
            }
            const EnumeratorRecord* enumerator =
                type.fields == nullptr ? type.enumerators : nullptr;
            for (uint32_t e = 0; enumerator != nullptr && e < type.count;
                 ++e, enumerator = enumerator->next) {
                hash.Text(enumerator->name);
                hash.Number(static_cast<uint64_t>(static_cast<int64_t>(enumerator->value)));
            }
        }
        for (uint32_t i = 0; api->events != nullptr && i < api->eventCount; ++i) {
            hash.Text(api->events[i].name);
            hash.Text(api->events[i].payloadTypeName);
        }
    }
    char text[32];
    std::snprintf(text, sizeof text, "fnv1a64:%016" PRIx64, hash.Value());
    return text;
}

SessionRecorder::~SessionRecorder() {
    // The runtime may be gone: only the file is closed here.
    runtime_ = nullptr;
    std::string ignored;
    Close(ignored);
}

bool SessionRecorder::Open(const std::string& path, const SessionHeader& header,
                           std::string& error) {
    // A file rewritten in place may be flushed to disk when it closes (the
    // file system guards replace-by-truncate that way): a new file is not.
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);
    }
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    // Fewer, larger writes; larger buffers only cost page faults.
    std::setvbuf(file_, nullptr, _IOFBF, 1 << 16);
    header_ = header;
    return true;
}

void SessionRecorder::Attach(HostRuntime& runtime, const PluginLibrary& library, uint32_t plugin) {
    if (file_ == nullptr) {
        return;
    }
    runtime_ = &runtime;
    plugin_ = plugin;
    endpoints_ = library.Endpoints();
    std::string file = library.Path();
    const size_t slash = file.find_last_of("/\\");
    if (slash != std::string::npos) {
        file = file.substr(slash + 1);
    }
    line_ = "{\"format\":" + QuoteJson(kSessionFormat) +
            ",\"version\":" + std::to_string(kSessionVersion) +
            ",\"plugin\":{\"file\":" + QuoteJson(file) +
            ",\"name\":" + QuoteJson(library.ShortName()) +
            ",\"api\":" + QuoteJson(library.VersionText()) +
            ",\"description\":" + QuoteJson(ApiDescriptionHash(library)) +
            "},\"host\":{\"command\":" + QuoteJson(header_.command) +
            ",\"options\":" + header_.optionsJson +
            ",\"clock\":" + (runtime.Clock().Instant() ? "\"simulated\"" : "\"real\"") +
            "},\"scenario\":" + QuoteJson(header_.scenario) +
            ",\"seed\":" + std::to_string(header_.seed) + "}\n";
    failed_ = std::fwrite(line_.data(), 1, line_.size(), file_) != line_.size();
    runtime.AddObserver(this);
    runtime.SetInputObserver(this);
    SetClockSeamHandler(this);
}

void SessionRecorder::Detach() {
    if (runtime_ == nullptr) {
        return;
    }
    Begin("end");
    End();
    runtime_->RemoveObserver(this);
    runtime_->SetInputObserver(nullptr);
    SetClockSeamHandler(nullptr);
    runtime_ = nullptr;
}

bool SessionRecorder::Close(std::string& error) {
    if (file_ == nullptr) {
        return true;
    }
    const bool written = std::fflush(file_) == 0 && !failed_;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!written || !closed) {
        error = "the session file could not be written completely";
        return false;
    }
    return true;
}

std::string& SessionRecorder::Begin(const char* kind) {
    line_.clear();
    line_ += "{\"t\":";
    // Milliseconds, written without printf's cost on every line.
    const long long ms = std::llround(runtime_->Now() * 1000.0);
    char digits[24];
    const auto [end, failed] = std::to_chars(digits, digits + sizeof digits, ms / 1000);
    line_.append(digits, end);
    const int fraction = static_cast<int>(ms % 1000);
    line_ += '.';
    line_ += static_cast<char>('0' + fraction / 100);
    line_ += static_cast<char>('0' + fraction / 10 % 10);
    line_ += static_cast<char>('0' + fraction % 10);
    (void)failed;
    line_ += ",\"k\":\"";
    line_ += kind;
    line_ += '"';
    return line_;
}

void SessionRecorder::End() {
    line_ += "}\n";
    ++steps_;
    if (std::fwrite(line_.data(), 1, line_.size(), file_) != line_.size()) {
        failed_ = true;
    }
}

void AppendRequestFields(std::string& line, const RestRequest& request) {
    line += ",\"method\":";
    line += QuoteJson(MethodName(request.method));
    line += ",\"url\":";
    line += QuoteJson(request.uri);
    if (!request.functionName.empty()) {
        line += ",\"function\":" + QuoteJson(request.functionName);
    }
    if (!request.arguments.empty()) {
        line += ",\"args\":[";
        for (size_t i = 0; i < request.arguments.size(); ++i) {
            const RestArgument& argument = request.arguments[i];
            line += i == 0 ? "{" : ",{";
            if (!argument.name.empty()) {
                line += "\"name\":" + QuoteJson(argument.name) + ",";
            }
            line += IsJsonText(argument.json) ? "\"value\":" + argument.json
                                              : "\"text\":" + QuoteJson(argument.json);
            line += '}';
        }
        line += ']';
    }
    if (!request.headers.empty()) {
        line += ",\"headers\":[";
        for (size_t i = 0; i < request.headers.size(); ++i) {
            line += (i == 0 ? "[" : ",[") + QuoteJson(request.headers[i].first) + "," +
                    QuoteJson(request.headers[i].second) + "]";
        }
        line += ']';
    }
    if (!request.contentType.empty()) {
        line += ",\"contentType\":" + QuoteJson(request.contentType);
    }
    if (request.hasBody) {
        line += ",\"body\":" + QuoteJson(request.body);
    }
    if (request.caller != 0) {
        line += ",\"caller\":" + std::to_string(request.caller);
    }
}

void AppendReplyFields(std::string& line, const RestReply& reply, bool withBody) {
    line += ",\"status\":" + std::to_string(reply.status);
    if (reply.failed) {
        line += ",\"failed\":true,\"error\":" + QuoteJson(reply.error);
    }
    if (reply.resultFormat != 0) {
        line += ",\"format\":" + std::to_string(reply.resultFormat);
    }
    if (!reply.headers.empty()) {
        line += ",\"headers\":[";
        for (size_t i = 0; i < reply.headers.size(); ++i) {
            line += (i == 0 ? "[" : ",[") + QuoteJson(reply.headers[i].first) + "," +
                    QuoteJson(reply.headers[i].second) + "]";
        }
        line += ']';
    }
    if (withBody && !reply.body.empty()) {
        line += IsJsonText(reply.body) ? ",\"body\":" + reply.body
                                       : ",\"text\":" + QuoteJson(reply.body);
    }
}

void SessionRecorder::AppendPayload(const char* field, const std::string& json) {
    // Short payloads cost less written out than named; lengths differ more
    // often than not, so they are compared first.
    constexpr size_t kShortest = 64;
    const uint64_t step = steps_ + 1;
    if (json.size() >= kShortest) {
        for (const RecentPayload& recent : recent_) {
            if (recent.step != 0 && recent.text.size() == json.size() && recent.text == json) {
                line_ += ",\"same\":" + std::to_string(recent.step);
                return;
            }
        }
        RecentPayload& slot = recent_[nextRecent_++ % recent_.size()];
        slot.step = step;
        slot.text = json;
    }
    line_ += ",\"";
    line_ += field;
    line_ += "\":";
    line_ += json;
}

void SessionRecorder::AppendReplyBody(const RestReply& reply) {
    AppendReplyFields(line_, reply, false);
    if (reply.body.empty()) {
        return;
    }
    if (IsJsonText(reply.body)) {
        AppendPayload("body", reply.body);
    } else {
        line_ += ",\"text\":" + QuoteJson(reply.body);
    }
}

// ---- Outputs -----------------------------------------------------------------------------------

void SessionRecorder::OnPluginEvent(uint32_t plugin, const std::string& name,
                                    const std::string& json) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("emit") += ",\"name\":";
    AppendQuoted(line_, name);
    AppendPayload("data", json.empty() ? kNullJson : json);
    End();
}

void SessionRecorder::OnRequestBegins(uint32_t plugin, const RestRequest& request) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("request");
    AppendRequestFields(line_, request);
    End();
}

void SessionRecorder::OnPluginRequest(uint32_t plugin, const RestRequest& request,
                                      const RestReply& reply) {
    if (!Mine(plugin)) {
        return;
    }
    // An unreadable request is answered without being routed: it opens its
    // bracket here.
    (void)request;
    Begin("reply");
    AppendReplyBody(reply);
    End();
}

void SessionRecorder::OnLog(uint32_t plugin, uint32_t level, const std::string& text) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("log") += ",\"level\":" + std::to_string(level) + ",\"text\":";
    AppendQuoted(line_, text);
    End();
}

void SessionRecorder::OnDelayedCall(uint32_t plugin, const std::string& label,
                                    double delaySeconds) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("schedule") += ",\"call\":" + std::to_string(++schedules_) +
                         ",\"label\":" + QuoteJson(label) + ",\"delay\":";
    AppendNumber(line_, "%.17g", delaySeconds);
    End();
}

void SessionRecorder::OnRegistration(uint32_t plugin, const std::string& pattern, uint32_t flags,
                                     bool registers) {
    if (!Mine(plugin)) {
        return;
    }
    if (registers) {
        Begin("register") +=
            ",\"name\":" + QuoteJson(pattern) + ",\"flags\":" + std::to_string(flags);
    } else {
        Begin("unregister") += ",\"name\":" + QuoteJson(pattern);
    }
    End();
}

void SessionRecorder::OnServeOnce(uint32_t plugin, bool begins) {
    if (!Mine(plugin)) {
        return;
    }
    Begin(begins ? "turn" : "turned");
    End();
}

void SessionRecorder::OnWaitBegins(uint32_t plugin, const std::string& label, uint32_t value) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("wait") += ",\"label\":" + QuoteJson(label) + ",\"value\":" + std::to_string(value);
    End();
}

void SessionRecorder::OnWaitEnds(uint32_t plugin, uint64_t turns) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("waited") += ",\"turns\":" + std::to_string(turns);
    End();
}

void SessionRecorder::OnEntry1(uint32_t plugin, uint32_t first, uint32_t second, uint32_t result) {
    if (!Mine(plugin)) {
        return;
    }
    Begin("entry1") += ",\"first\":" + std::to_string(first) +
                       ",\"second\":" + std::to_string(second) +
                       ",\"result\":" + std::to_string(result);
    End();
}

// ---- Inputs ------------------------------------------------------------------------------------

void SessionRecorder::OnModuleCall(uint32_t plugin, const char* what, bool begins, bool result) {
    if (!Mine(plugin)) {
        return;
    }
    const std::string kind = std::string(what) + (begins ? "" : "ed");
    if (begins) {
        Begin(kind.c_str());
    } else if (kind == "started") {
        Begin("started") += result ? ",\"result\":true" : ",\"result\":false";
    } else {
        Begin("destroyed");
    }
    End();
}

void SessionRecorder::OnDeliver(uint32_t plugin, const std::string& pattern,
                                const std::string& name, const std::string& json, bool begins) {
    if (!Mine(plugin)) {
        return;
    }
    if (begins) {
        Begin("deliver") += ",\"pattern\":";
        AppendQuoted(line_, pattern);
        line_ += ",\"name\":";
        AppendQuoted(line_, name);
        AppendPayload("data", json.empty() ? kNullJson : json);
    } else {
        Begin("delivered");
    }
    End();
}

void SessionRecorder::OnScheduled(uint32_t plugin, uint64_t call) {
    if (Mine(plugin)) {
        calls_[call] = schedules_;
    }
}

void SessionRecorder::OnFire(uint32_t plugin, uint64_t call, const std::string& label,
                             bool begins) {
    if (!Mine(plugin)) {
        return;
    }
    if (begins) {
        auto found = calls_.find(call);
        const uint64_t rank = found != calls_.end() ? found->second : 0;
        Begin("fire") += ",\"call\":" + std::to_string(rank) + ",\"label\":" + QuoteJson(label);
    } else {
        calls_.erase(call);
        Begin("fired");
    }
    End();
}

void SessionRecorder::OnEndpointCall(uint32_t plugin, size_t endpoint, const RestRequest& request,
                                     const RestReply* reply) {
    if (!Mine(plugin)) {
        return;
    }
    if (reply == nullptr) {
        // The endpoint by its place and by its template (the function's name
        // for a direct call), which outlives a reordering.
        Begin("call") += ",\"endpoint\":" + std::to_string(endpoint);
        if (endpoint < endpoints_.size()) {
            const EndpointRecord& record = *endpoints_[endpoint];
            const char* route =
                record.method == kHostMethodDirectCall ? record.function.name : record.urlTemplate;
            line_ += ",\"route\":" + QuoteJson(route != nullptr ? route : "");
        }
        AppendRequestFields(line_, request);
    } else {
        Begin("answer");
        AppendReplyBody(*reply);
    }
    End();
}

int64_t SessionRecorder::Reading(Framework::Platform::ClockReading reading, int64_t real) {
    using Framework::Platform::ClockReading;
    if (runtime_ == nullptr) {
        return real;
    }
    int64_t value = real;
    if (runtime_->Clock().Instant()) {
        const double now = runtime_->Now();
        value = reading == ClockReading::System
                    ? kSimulatedEpoch100ns + std::llround(now * 1e7)
                    : kSimulatedMonotonicStart + std::llround(now * 1e9);
    }
    Begin("clock") += reading == ClockReading::System ? ",\"clock\":\"system\",\"value\":"
                                                      : ",\"clock\":\"monotonic\",\"value\":";
    line_ += std::to_string(value);
    End();
    return value;
}

}  // namespace Orvan::Host
