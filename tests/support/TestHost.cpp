#include "tests/support/TestHost.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "framework/codec/Json.h"
#include "framework/dispatch/HttpMethod.h"
#include "framework/host/HostValueConversion.h"
#include "framework/resources/ResourceEventKey.h"
#include "host/RestMessage.h"

#ifndef QEL_PLUGIN_LIBRARY_PATH
#error "QEL_PLUGIN_LIBRARY_PATH must name the plugin's shared object"
#endif

namespace Orvan::Testing {

bool SameHostValue(const HostValue& a, const HostValue& b) {
    const uint32_t type = a.type;
    if (type != b.type) {
        return false;
    }
    switch (type) {
        case kHostValueNull:
            return true;
        case kHostValueBool:
            return a.payload.boolValue == b.payload.boolValue;
        case kHostValueSigned:
        case kHostValueUnsigned:
        case kHostValueFloat:
            return a.payload.unsignedValue == b.payload.unsignedValue;
        case kHostValueArray:
        case kHostValueObject:
            break;
        default: {
            // Texts carry their terminating NUL.
            const uint32_t length = a.payload.span.length;
            const size_t extra = type == kHostValueTextOwned ? 1 : 0;
            return length == b.payload.span.length &&
                   (length + extra == 0 ||
                    std::memcmp(a.payload.span.address, b.payload.span.address, length + extra) ==
                        0);
        }
    }
    const uint32_t count = a.payload.span.length;
    if (count != b.payload.span.length) {
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (type == kHostValueArray) {
            if (!SameHostValue(static_cast<const HostValue*>(a.payload.span.address)[i],
                               static_cast<const HostValue*>(b.payload.span.address)[i])) {
                return false;
            }
            continue;
        }
        const auto& x = static_cast<const HostObjectEntry*>(a.payload.span.address)[i];
        const auto& y = static_cast<const HostObjectEntry*>(b.payload.span.address)[i];
        if (std::strcmp(x.key, y.key) != 0 || x.keyOwned != y.keyOwned ||
            !SameHostValue(x.value, y.value)) {
            return false;
        }
    }
    return true;
}

using namespace Orvan::Framework;

namespace {

// The reply release function gets no context; it finds the host here.
TestHost* gActiveHost = nullptr;

// A runaway wait (a future that never becomes ready) ends the test run
// instead of spinning forever.
constexpr uint64_t kMaxTurns = 1000000;
constexpr size_t kMaxPumpRounds = 100000;

std::string Json(const BindingProperty& value) {
    return WriteJson(value);
}

std::string HostValueJson(const HostValue& value) {
    Maybe<BindingProperty> converted = FromHostValue(value, "<payload>");
    return converted ? Json(*converted) : "<" + converted.GetFailure().message + ">";
}

std::string Text(const char* text) {
    return text != nullptr ? text : "<null>";
}

struct StreamContext {
    std::string text;
    size_t offset = 0;
    std::vector<uint32_t> chunks;
    uint32_t failAtRead = 0;
    std::shared_ptr<TestHost::StreamState> state;
};

uint8_t QEL_HOST_CALL StreamRead(void* context, uint8_t* buffer, uint32_t* length, uint8_t* more) {
    auto* stream = static_cast<StreamContext*>(context);
    const uint32_t read = ++stream->state->reads;
    if (read == stream->failAtRead) {
        return 0;
    }
    size_t chunk = stream->chunks.empty()
                       ? 4096
                       : stream->chunks[std::min<size_t>(read - 1, stream->chunks.size() - 1)];
    size_t count = std::min<size_t>({*length, chunk, stream->text.size() - stream->offset});
    // A stream's bytes, not a C string.
    // NOLINTBEGIN(bugprone-not-null-terminated-result)
    std::memcpy(buffer, stream->text.data() + stream->offset, count);
    // NOLINTEND(bugprone-not-null-terminated-result)
    stream->offset += count;
    *length = static_cast<uint32_t>(count);
    *more = stream->offset < stream->text.size() ? 1 : 0;
    return 1;
}

void QEL_HOST_CALL StreamClose(void* context) {
    static_cast<StreamContext*>(context)->state->closed = true;
}

}  // namespace

const char* PluginLibraryPath() {
    return QEL_PLUGIN_LIBRARY_PATH;
}

// ---- Small records -------------------------------------------------------------

std::string TestHost::HostCall::Text() const {
    std::string text = std::to_string(entry) + "(";
    for (size_t i = 0; i < arguments.size(); ++i) {
        text += (i == 0 ? "" : ", ") + arguments[i];
    }
    return text + ")";
}

TestHost::Reply TestHost::Reply::Body(BindingProperty value) {
    Reply reply;
    reply.body = std::move(value);
    return reply;
}

TestHost::Reply TestHost::Reply::Error(uint16_t status, std::string text) {
    Reply reply;
    reply.status = status;
    reply.error = std::move(text);
    return reply;
}

TestHost::Reply TestHost::Reply::Stream(std::string text, std::vector<uint32_t> chunks) {
    Reply reply;
    reply.stream = std::move(text);
    reply.chunks = std::move(chunks);
    return reply;
}

// ---- Lifecycle -------------------------------------------------------------------

class TestHost::HookPump : public Host::HostPump {
public:
    explicit HookPump(TestHost& host) : host_(host) {}

    bool Poll() override {
        if (host_.runtime_.Turns() > kMaxTurns) {
            std::fprintf(stderr, "TestHost: more than %llu host turns; a wait never ends\n",
                         static_cast<unsigned long long>(kMaxTurns));
            std::abort();
        }
        const bool own = host_.serving_ == 0;
        bool worked = false;
        if (!(own && host_.hooksHeld_) && !host_.turnHooks_.empty()) {
            // Hooks may add hooks; run the ones present now. A turn with
            // hooks counts as work, so a waiting plugin keeps turning until
            // they answer.
            const size_t hooks = host_.turnHooks_.size();
            for (size_t i = 0; i < hooks; ++i) {
                std::function<void()> hook = host_.turnHooks_[i];
                hook();
            }
            worked = true;
        }
        // Events queued while delivering wait for the next turn.
        const size_t count = own && host_.queueHeld_ ? 0 : host_.queue_.size();
        for (size_t i = 0; i < count && !host_.queue_.empty(); ++i) {
            auto [name, payload] = std::move(host_.queue_.front());
            host_.queue_.pop_front();
            host_.Deliver(name, payload);
            worked = true;
        }
        return worked;
    }
    void WaitFor(double /*realSeconds*/) override {}

private:
    TestHost& host_;
};

TestHost::TestHost() : pump_(std::make_unique<HookPump>(*this)) {
    table_.api.Request = &TestHost::RequestEntry;
    table_.api.Entry1 = &TestHost::Entry1;
    table_.api.EmitEvent = &TestHost::EmitEventEntry;
    table_.api.RegisterEvent = &TestHost::RegisterEventEntry;
    table_.api.UnregisterEvent = &TestHost::UnregisterEventEntry;
    table_.api.ScheduleCall = &TestHost::ScheduleCallEntry;
    table_.api.ServeOnce = &TestHost::ServeOnceEntry;
    table_.api.BeginWait = &TestHost::BeginWaitEntry;
    table_.api.EndWait = &TestHost::EndWaitEntry;
    table_.api.WriteLog = &TestHost::WriteLogEntry;
    table_.host = this;
    gActiveHost = this;
    runtime_.SetPump(pump_.get());
    runtime_.SetFallbackRoute(
        [this](const Host::RestRequest& /*request*/, const Host::PathParameters& /*parameters*/) {
            return answering_.empty() ? Host::RestReply::Error(404, "Not found")
                                      : Answer(answering_.back().request);
        });
    runtime_.SetStallHandler([](const std::string& why) {
        std::fprintf(stderr, "TestHost: %s\n", why.c_str());
        std::abort();
    });
}

TestHost::~TestHost() {
    Destroy();
    if (gActiveHost == this) {
        gActiveHost = nullptr;
    }
}

const PluginLoadRecord& TestHost::Load(uint32_t major, uint32_t minor, uint32_t patch) {
    // Loaded once and kept: a process never unloads the plugin mid-run.
#if defined(_WIN32)
    static HMODULE library = LoadLibraryA(PluginLibraryPath());
    if (library == nullptr) {
        std::fprintf(stderr, "TestHost: cannot load %s: error %lu\n", PluginLibraryPath(),
                     static_cast<unsigned long>(GetLastError()));
        std::abort();
    }
    auto entry = reinterpret_cast<EntryFunction>(
        reinterpret_cast<void (*)()>(GetProcAddress(library, "load_qel_lobby_team_builder")));
#else
    static void* library = dlopen(PluginLibraryPath(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "TestHost: cannot load %s: %s\n", PluginLibraryPath(), dlerror());
        std::abort();
    }
    auto entry = reinterpret_cast<EntryFunction>(dlsym(library, "load_qel_lobby_team_builder"));
#endif
    if (entry == nullptr) {
        std::fprintf(stderr, "TestHost: %s has no entry\n", PluginLibraryPath());
        std::abort();
    }
    return LoadWith(entry, major, minor, patch);
}

const PluginLoadRecord& TestHost::LoadWith(EntryFunction entry, uint32_t major, uint32_t minor,
                                           uint32_t patch) {
    Host::PluginLoadOptions options;
    options.major = major;
    options.minor = minor;
    options.patch = patch;
    options.probe = false;
    std::string error;
    std::unique_ptr<Host::PluginLibrary> library =
        Host::PluginLibrary::FromEntry(entry, "the test's plugin", options, error);
    record_ = PluginLoadRecord{};
    record_.major = major;
    record_.minor = minor;
    record_.patch = patch;
    destroyed_ = false;
    plugin_ = 0;
    if (library == nullptr) {
        return record_;
    }
    record_ = library->Record();
    plugin_ = runtime_.Attach(*library);
    libraries_.push_back(std::move(library));
    return record_;
}

bool TestHost::Start(uint32_t pluginHandle) {
    if (record_.callbacks == nullptr || record_.module == nullptr) {
        return false;
    }
    HostLink link = Link(pluginHandle);
    return record_.callbacks->StartModule(record_.module, &link) != 0;
}

void TestHost::Destroy() {
    if (plugin_ == 0 || destroyed_) {
        return;
    }
    // The runtime ends the module and drops what could still reach it.
    runtime_.Destroy(plugin_);
    destroyed_ = true;
    queue_.clear();
}

std::array<uint32_t, kMemoryStatisticsWords> TestHost::MemoryStatistics() const {
    std::array<uint32_t, kMemoryStatisticsWords> words;
    words.fill(0xDEADBEEF);
    if (record_.callbacks != nullptr && !destroyed_) {
        record_.callbacks->GetMemoryStatistics(record_.module, words.data());
    }
    return words;
}

// ---- Recorded calls -------------------------------------------------------------------

TestHost& TestHost::Of(HostApi* api) {
    return *reinterpret_cast<FunctionTable*>(api)->host;
}

HostApi* TestHost::Runtime() {
    return runtime_.Api(plugin_);
}

void TestHost::Record(uint32_t entry, std::vector<std::string> arguments) {
    calls_.push_back(HostCall{entry, std::move(arguments)});
}

std::vector<std::string> TestHost::CallTexts() const {
    std::vector<std::string> texts;
    texts.reserve(calls_.size());
    for (const HostCall& call : calls_) {
        texts.push_back(call.Text());
    }
    return texts;
}

std::vector<TestHost::HostCall> TestHost::CallsTo(uint32_t entry) const {
    std::vector<HostCall> selected;
    for (const HostCall& call : calls_) {
        if (call.entry == entry) {
            selected.push_back(call);
        }
    }
    return selected;
}

std::vector<TestHost::LogLine> TestHost::Logs() const {
    std::vector<LogLine> lines;
    for (const HostCall& call : CallsTo(9)) {
        lines.push_back(
            LogLine{static_cast<uint32_t>(std::stoul(call.arguments[0])), call.arguments[1]});
    }
    return lines;
}

// ---- Host entries: recorded, then the runtime's ------------------------------------------

void QEL_HOST_CALL TestHost::RequestEntry(HostApi* api, HostResponse* reply, HostRequest* request) {
    TestHost& host = Of(api);
    Request seen;
    seen.method = request->method;
    seen.methodName = std::string(HttpMethodName(request->method));
    seen.uri = Text(request->uri);
    seen.path = seen.uri.substr(0, seen.uri.find('?'));
    seen.pluginHandle = request->pluginHandle;
    std::string argumentsJson = "[";
    for (uint32_t i = 0; i < request->argumentCount; ++i) {
        const HostArgument& argument = request->arguments[i];
        seen.argumentNames.push_back(argument.name != nullptr ? argument.name : "");
        Maybe<BindingProperty> value = FromHostValue(argument.value, "<argument>");
        seen.arguments.push_back(value ? *value : BindingProperty());
        argumentsJson += (i == 0 ? "" : ",") + HostValueJson(argument.value);
    }
    host.Record(0, {seen.methodName, seen.uri, argumentsJson + "]"});
    host.requests_.push_back(seen);

    host.answering_.push_back(Answering{std::move(seen), std::nullopt});
    HostApi* runtime = host.Runtime();
    runtime->Request(runtime, reply, request);
    const Answering answered = std::move(host.answering_.back());
    host.answering_.pop_back();
    if (answered.reply && answered.reply->stream) {
        host.Stream(*answered.reply, *reply);
    }
    // Counted on release; the runtime's release still frees what it made.
    reply->release = &TestHost::ReleaseReply;
    ++host.repliesGiven_;
}

uint32_t QEL_HOST_CALL TestHost::Entry1(HostApi* api, uint32_t first, uint32_t second) {
    TestHost& host = Of(api);
    host.Record(1, {std::to_string(first), std::to_string(second)});
    HostApi* runtime = host.Runtime();
    return runtime->Entry1(runtime, first, second);
}

void QEL_HOST_CALL TestHost::EmitEventEntry(HostApi* api, HostEvent* event) {
    TestHost& host = Of(api);
    EmittedEvent emitted;
    emitted.key = Text(event->name);
    Maybe<BindingProperty> value = FromHostValue(event->payload, "<payload>");
    if (value) {
        emitted.value = *value;
        emitted.json = Json(*value);
    } else {
        emitted.json = "<" + value.GetFailure().message + ">";
    }
    host.Record(2, {emitted.key, emitted.json});
    host.events_.push_back(std::move(emitted));
    HostApi* runtime = host.Runtime();
    runtime->EmitEvent(runtime, event);
}

void QEL_HOST_CALL TestHost::RegisterEventEntry(HostApi* api, const char* name,
                                                uint32_t pluginHandle, HostEventCallback callback,
                                                void* context, uint32_t flags) {
    TestHost& host = Of(api);
    host.Record(3, {Text(name), std::to_string(pluginHandle), std::to_string(flags)});
    HostApi* runtime = host.Runtime();
    runtime->RegisterEvent(runtime, name, pluginHandle, callback, context, flags);
}

void QEL_HOST_CALL TestHost::UnregisterEventEntry(HostApi* api, const char* name,
                                                  uint32_t pluginHandle) {
    TestHost& host = Of(api);
    host.Record(4, {Text(name), std::to_string(pluginHandle)});
    HostApi* runtime = host.Runtime();
    runtime->UnregisterEvent(runtime, name, pluginHandle);
}

void QEL_HOST_CALL TestHost::ScheduleCallEntry(HostApi* api, const char* label,
                                               HostDelayedCallback callback, void* context,
                                               double delaySeconds, uint32_t flags) {
    TestHost& host = Of(api);
    char delay[64];
    std::snprintf(delay, sizeof delay, "%g", delaySeconds);
    host.Record(5, {Text(label), delay, std::to_string(flags)});
    HostApi* runtime = host.Runtime();
    runtime->ScheduleCall(runtime, label, callback, context, delaySeconds, flags);
}

void QEL_HOST_CALL TestHost::ServeOnceEntry(HostApi* api) {
    TestHost& host = Of(api);
    host.Record(6, {});
    HostApi* runtime = host.Runtime();
    ++host.serving_;
    runtime->ServeOnce(runtime);
    --host.serving_;
}

void QEL_HOST_CALL TestHost::BeginWaitEntry(HostApi* api, const char* label, uint32_t value) {
    TestHost& host = Of(api);
    host.Record(7, {Text(label), std::to_string(value)});
    HostApi* runtime = host.Runtime();
    runtime->BeginWait(runtime, label, value);
}

uint64_t QEL_HOST_CALL TestHost::EndWaitEntry(HostApi* api) {
    TestHost& host = Of(api);
    host.Record(8, {});
    HostApi* runtime = host.Runtime();
    (void)runtime->EndWait(runtime);
    // The runtime counts the turns a wait took; tests see the plain answer
    // of a host that counts none.
    return 0;
}

void QEL_HOST_CALL TestHost::WriteLogEntry(HostApi* api, uint32_t level, const char* text) {
    TestHost& host = Of(api);
    host.Record(9, {std::to_string(level), Text(text)});
    if (host.echoLogs_) {
        std::fprintf(stderr, "host log %u: %s\n", level, Text(text).c_str());
        std::fflush(stderr);
    }
    HostApi* runtime = host.Runtime();
    runtime->WriteLog(runtime, level, text);
}

// ---- Events and delayed calls ------------------------------------------------------------

std::map<std::string, uint32_t> TestHost::Registrations() const {
    return plugin_ == 0 ? std::map<std::string, uint32_t>{} : runtime_.Registrations(plugin_);
}

void TestHost::Emit(std::string name, BindingProperty payload) {
    queue_.emplace_back(std::move(name), std::move(payload));
}

void TestHost::EmitResource(std::string_view uri, std::string_view eventType,
                            BindingProperty data) {
    BindingProperty payload;
    payload.MutableField("uri").SetString(uri);
    payload.MutableField("eventType").SetString(eventType);
    payload.MutableField("data") = std::move(data);
    Emit(ResourceEventKey(uri), std::move(payload));
}

void TestHost::DeliverRaw(const char* name, const HostValue& payload) {
    HostEvent event{};
    event.name = name;
    event.payload = payload;
    runtime_.HandToPlugin(plugin_, Text(name), event);
}

void TestHost::DeliverThrough(const std::string& registeredName, HostEvent event) {
    runtime_.HandToPlugin(plugin_, registeredName, event);
}

void TestHost::Deliver(const std::string& name, const BindingProperty& payload) {
    OwnedHostValue value;
    if (!ToHostValue(payload, value.Get())) {
        std::fprintf(stderr, "TestHost: payload of %s does not convert\n", name.c_str());
        std::abort();
    }
    DeliverRaw(name.c_str(), value.Get());
}

size_t TestHost::Settle() {
    hooksHeld_ = true;
    size_t turns = 0;
    for (size_t round = 0; round < kMaxPumpRounds; ++round) {
        if (!runtime_.Turn()) {
            hooksHeld_ = false;
            return turns;
        }
        ++turns;
    }
    std::fprintf(stderr, "TestHost: Pump never settles\n");
    std::abort();
}

size_t TestHost::Pump() {
    return Settle();
}

void TestHost::Advance(std::chrono::nanoseconds duration) {
    AdvanceSeconds(static_cast<double>(duration.count()) * 1e-9);
}

void TestHost::AdvanceSeconds(double seconds) {
    const double target = clock_.Now() + seconds;
    // Due order, calls scheduled on the way included.
    hooksHeld_ = true;
    queueHeld_ = true;
    for (std::optional<double> due = runtime_.NextDue(); due && *due <= target;
         due = runtime_.NextDue()) {
        clock_.MoveTo(*due);
        runtime_.Turn();
    }
    hooksHeld_ = false;
    queueHeld_ = false;
    clock_.MoveTo(target);
}

// ---- REST requests of the plugin ----------------------------------------------------------

void TestHost::OnRequest(std::string method, std::string path, RequestHandler handler) {
    handlers_.push_back(Handler{std::move(method), std::move(path), std::move(handler)});
}

Host::RestReply TestHost::Answer(const Request& seen) {
    Reply answer = Reply::Error(404, "Not found");
    // The latest handler for a path wins, so a test can override a default.
    for (auto it = handlers_.rbegin(); it != handlers_.rend(); ++it) {
        const bool methodMatches = it->method == "*" || it->method == seen.methodName;
        const bool pathMatches =
            it->path == seen.path ||
            (!it->path.empty() && it->path.back() == '*' &&
             seen.path.compare(0, it->path.size() - 1, it->path, 0, it->path.size() - 1) == 0);
        if (methodMatches && pathMatches) {
            RequestHandler handler = it->handler;
            answer = handler(seen);
            break;
        }
    }
    Host::RestReply reply;
    if (!answer.error.empty()) {
        reply = Host::RestReply::Error(answer.status, answer.error);
    } else if (answer.stream) {
        reply.status = answer.status;
    } else {
        reply = Host::RestReply::Json(Json(answer.body), answer.status);
    }
    answering_.back().reply = std::move(answer);
    return reply;
}

void TestHost::Stream(const Reply& answer, HostResponse& reply) {
    // The body is read through the stream instead of the value the runtime made.
    if (reply.release != nullptr) {
        reply.release(&reply);
    }
    const uint16_t status = reply.status;
    reply = HostResponse{};
    reply.status = status;
    auto state = std::make_shared<StreamState>();
    streams_.push_back(state);
    auto* stream = new StreamContext{*answer.stream, 0, answer.chunks, answer.failAtRead, state};
    reply.read = &StreamRead;
    reply.close = &StreamClose;
    reply.streamContext = stream;
    reply.expectedLength = static_cast<uint32_t>(answer.stream->size());
}

void QEL_HOST_CALL TestHost::ReleaseReply(HostResponse* reply) {
    if (gActiveHost != nullptr) {
        ++gActiveHost->repliesReleased_;
    }
    if (reply->streamContext != nullptr) {
        delete static_cast<StreamContext*>(reply->streamContext);
        reply->streamContext = nullptr;
        reply->read = nullptr;
        reply->close = nullptr;
        reply->release = nullptr;
        return;
    }
    Host::ReleasePluginReply(reply);
}

// ---- Calls into the plugin's endpoints ------------------------------------------------------

const EndpointRecord* TestHost::FindEndpoint(uint32_t method, std::string_view path,
                                             std::string_view functionName) const {
    return plugin_ == 0 ? nullptr : runtime_.FindEndpoint(plugin_, method, path, functionName);
}

TestHost::CallResult TestHost::Call(std::string_view method, std::string_view uri) {
    return Call(method, uri, CallOptions{});
}

TestHost::CallResult TestHost::Call(std::string_view method, std::string_view uri,
                                    std::string body) {
    CallOptions options;
    options.body = std::move(body);
    return Call(method, uri, std::move(options));
}

TestHost::CallResult TestHost::Call(std::string_view method, std::string_view uri,
                                    CallOptions options) {
    CallResult result;
    const uint32_t code =
        options.functionName.empty() ? Host::MethodCode(method) : uint32_t{kHostMethodDirectCall};
    const std::string uriText(uri);
    const std::string path = uriText.substr(0, uriText.find('?'));
    const EndpointRecord* endpoint = FindEndpoint(code, path, options.functionName);
    if (endpoint == nullptr) {
        result.failed = true;
        result.status = 404;
        result.error = "No endpoint for " + std::string(method) + " " + uriText;
        return result;
    }
    result.endpointFound = true;

    std::vector<OwnedHostValue> values(options.arguments.size());
    std::vector<HostArgument> arguments(options.arguments.size());
    for (size_t i = 0; i < options.arguments.size(); ++i) {
        const auto& [name, value] = options.arguments[i];
        if (!ToHostValue(value, values[i].Get())) {
            std::fprintf(stderr, "TestHost: call argument %zu does not convert\n", i);
            std::abort();
        }
        arguments[i].name = name.empty() ? nullptr : name.c_str();
        arguments[i].value = values[i].Get();
    }
    std::vector<HostHeader> headers;
    for (const auto& [name, value] : options.headers) {
        headers.push_back(HostHeader{name.c_str(), value.c_str()});
    }

    HostRequest request{};
    request.method = code;
    request.uri = uriText.c_str();
    request.arguments = arguments.empty() ? nullptr : arguments.data();
    request.argumentCount = static_cast<uint32_t>(arguments.size());
    request.dispatchContext = endpoint->function.dispatchContext;
    request.headers = headers.empty() ? nullptr : headers.data();
    request.headerCount = static_cast<uint32_t>(headers.size());
    request.contentType = options.contentType.empty() ? nullptr : options.contentType.c_str();
    // A std::string keeps a NUL after its last byte, as the host does.
    request.body = reinterpret_cast<const uint8_t*>(options.body.c_str());
    request.bodyLength = static_cast<uint32_t>(options.body.size());
    request.pluginHandle = 7;
    request.functionName = options.functionName.empty() ? nullptr : options.functionName.c_str();

    HostResponse reply{};
    endpoint->dispatch(&reply, &request);

    result.failed = reply.failed != 0;
    result.status = reply.status;
    result.error = reply.errorText != nullptr ? reply.errorText : "";
    result.resultFormat = reply.resultFormat;
    result.responderFlag = reply.responderFlag;
    result.responderText = reply.responderText != nullptr ? reply.responderText : "";
    for (uint32_t i = 0; i < reply.headerCount && reply.headers != nullptr; ++i) {
        result.headers.emplace_back(Text(reply.headers[i].name), Text(reply.headers[i].value));
    }
    if (reply.read != nullptr) {
        std::string text;
        uint8_t buffer[4096];
        for (;;) {
            uint32_t length = sizeof buffer;
            uint8_t more = 0;
            if (reply.read(reply.streamContext, buffer, &length, &more) == 0) {
                break;
            }
            text.append(reinterpret_cast<const char*>(buffer), length);
            if (more == 0) {
                break;
            }
        }
        if (reply.close != nullptr) {
            reply.close(reply.streamContext);
        }
        result.json = text;
        Maybe<BindingProperty> parsed = ReadJson(text);
        if (parsed) {
            result.body = std::move(*parsed);
        }
    } else {
        Maybe<BindingProperty> body = FromHostValue(reply.body, "<reply>");
        if (body) {
            result.body = std::move(*body);
            result.json = Json(result.body);
        } else {
            result.json = "<" + body.GetFailure().message + ">";
        }
    }
    if (reply.release != nullptr) {
        reply.release(&reply);
        result.released = true;
    }
    return result;
}

}  // namespace Orvan::Testing
