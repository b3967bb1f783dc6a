// TestHost: a plugin host for tests. It loads the real plugin shared object
// (or any entry function linked into the test) into the stand-in host's
// runtime (host/HostRuntime.h), which implements the ten HostApi entries;
// the table the plugin gets records every call and hands it on to the
// runtime's. A test drives the module the way the host does:
//
//   TestHost host;
//   host.Load();                         // entry, core version 18.0.0
//   host.Start();                        // StartModule
//   host.OnRequest("GET", "/qel-login/v1/session", [](const TestHost::Request&) {
//       return TestHost::Reply::Body(sessionValue);
//   });
//   host.Emit("OnServiceProxyAsyncEvent", payload);  // queued; delivered on a host turn
//   host.Pump();                         // or let the plugin's waits deliver it
//   auto reply = host.Call("GET", "/qel-lobby-team-builder/v1/lobby");
//   host.Calls();                        // every host call, in order
//   host.Events();                       // events the plugin emitted, as JSON
//
// Host turns (entry 6) run the test's turn hooks, deliver the queued events
// and run the delayed calls that are due; delayed calls run on a held clock
// that only Advance moves. REST requests of the plugin (entry 0) that the
// runtime routes nowhere else are answered from handlers registered by method
// and path; a request without a handler gets status 404 and the error text
// "Not found". Replies to the plugin own their texts and values until the
// plugin calls their release function, which the host counts.
//
// Ownership: the host owns its runtime (queued events, delayed calls) and
// its recorded calls. The shared object is loaded once per process and never
// unloaded.
// Threads: one test thread. One TestHost may be alive at a time (the reply
// release function, which gets no context, finds it through a global).
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/host/HostAbi.h"
#include "host/HostClock.h"
#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"

namespace Orvan::Testing {

using Framework::BindingProperty;

// A member of a packed host record, by value: a reference to it (as the
// test assertions take) may be misaligned.
template <class T>
T Unpacked(T value) {
    return value;
}

// Two host values with the same codes, lengths, bytes, keys and key flags
// all the way down (addresses aside).
bool SameHostValue(const HostValue& a, const HostValue& b);

// Path of the plugin's shared object as built.
const char* PluginLibraryPath();

class TestHost {
public:
    using EntryFunction = void(QEL_HOST_CALL*)(PluginLoadRecord*);

    // One call the plugin made into the host.
    struct HostCall {
        uint32_t entry = 0;
        std::vector<std::string> arguments;
        // "7(Wait: yield, 0)"
        std::string Text() const;
    };

    struct LogLine {
        uint32_t level = 0;
        std::string text;
    };

    // An event the plugin emitted (entry 2), its payload converted.
    struct EmittedEvent {
        std::string key;
        BindingProperty value;
        std::string json;
    };

    // A REST request of the plugin (entry 0).
    struct Request {
        uint32_t method = 0;
        std::string methodName;  // "GET", ...; empty for other codes
        std::string uri;
        std::string path;                        // the URI before "?"
        std::vector<std::string> argumentNames;  // empty for positional ones
        std::vector<BindingProperty> arguments;
        uint32_t pluginHandle = 0;
    };

    // The host's answer to a plugin request.
    struct Reply {
        BindingProperty body;
        std::string error;  // set: the request failed with `status`
        uint16_t status = 200;
        // A streamed body, delivered by the read function in reads of at
        // most `chunks[i]` bytes (the last size repeats); `failAtRead`
        // (1-based) makes that read fail.
        std::optional<std::string> stream;
        std::vector<uint32_t> chunks;
        uint32_t failAtRead = 0;

        static Reply Body(BindingProperty value);
        static Reply Error(uint16_t status, std::string text);
        static Reply Stream(std::string text, std::vector<uint32_t> chunks = {4096});
    };
    using RequestHandler = std::function<Reply(const Request&)>;

    // What a streamed reply saw.
    struct StreamState {
        uint32_t reads = 0;
        bool closed = false;
    };

    // A call into one of the plugin's endpoints.
    struct CallOptions {
        std::string body;
        std::string contentType = "application/json";
        std::vector<std::pair<std::string, std::string>> headers;
        // Call arguments; an empty name makes a positional one.
        std::vector<std::pair<std::string, BindingProperty>> arguments;
        // For direct calls (method "CALL" or code 8): the function's name.
        std::string functionName;
    };

    struct CallResult {
        bool endpointFound = false;
        bool failed = false;
        uint16_t status = 0;
        std::string error;
        uint32_t resultFormat = 0;
        uint8_t responderFlag = 0;
        std::string responderText;
        std::vector<std::pair<std::string, std::string>> headers;
        BindingProperty body;
        std::string json;       // the body as compact JSON (a streamed body as read)
        bool released = false;  // the reply carried a release function, now called
    };

    TestHost();
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    // ---- Lifecycle -------------------------------------------------------

    // Calls the plugin's entry with the core version; returns the record.
    const PluginLoadRecord& Load(uint32_t major = 18, uint32_t minor = 0, uint32_t patch = 0);
    // The same with another entry (a module class linked into the test).
    const PluginLoadRecord& LoadWith(EntryFunction entry, uint32_t major = 18, uint32_t minor = 0,
                                     uint32_t patch = 0);
    // StartModule; its result.
    bool Start(uint32_t pluginHandle = 7);
    // DestroyModule; pending delayed calls are dropped.
    void Destroy();
    std::array<uint32_t, kMemoryStatisticsWords> MemoryStatistics() const;

    const PluginLoadRecord& Record() const { return record_; }
    const PluginApiDescriptor* Api() const { return record_.apiDescriptor; }
    void* Module() const { return record_.module; }
    HostApi* Functions() { return &table_.api; }
    // The record StartModule receives.
    HostLink Link(uint32_t pluginHandle = 7) { return HostLink{&table_.api, pluginHandle}; }

    // ---- Recorded host calls ----------------------------------------------

    const std::vector<HostCall>& Calls() const { return calls_; }
    std::vector<std::string> CallTexts() const;
    // The calls to one entry.
    std::vector<HostCall> CallsTo(uint32_t entry) const;
    void ClearCalls() { calls_.clear(); }
    std::vector<LogLine> Logs() const;
    // Also write every log line to standard error, as a host's own log would
    // (death tests look for a fatal report there).
    void EchoLogs(bool echo) { echoLogs_ = echo; }
    const std::vector<EmittedEvent>& Events() const { return events_; }
    void ClearEvents() { events_.clear(); }

    // ---- Events to the plugin ---------------------------------------------

    // Names registered through entry 3, with their flags.
    std::map<std::string, uint32_t> Registrations() const;
    bool IsRegistered(const std::string& name) const { return Registrations().count(name) != 0; }
    // Queues an event; host turns and Pump deliver it to the registration
    // under exactly its name, with the payload as built here. (The runtime
    // would also hand it to every registration whose pattern matches: a
    // test of the module's own dispatch wants the one delivery.)
    void Emit(std::string name, BindingProperty payload);
    // A resource change, queued under the URI's event key.
    void EmitResource(std::string_view uri, std::string_view eventType, BindingProperty data);
    // Delivers at once; the payload stays the caller's.
    void DeliverRaw(const char* name, const HostValue& payload);
    void Deliver(const std::string& name, const BindingProperty& payload);
    // Hands an event as given (any name, any payload) to the callback
    // registered under `registeredName`, with that registration's context.
    void DeliverThrough(const std::string& registeredName, HostEvent event);
    // Delivers queued events and runs due delayed calls until none is left;
    // returns how many host turns did anything.
    size_t Pump();
    // Called at every host turn (entry 6) before the queued work runs.
    void OnTurn(std::function<void()> hook) { turnHooks_.push_back(std::move(hook)); }

    // ---- Delayed calls -----------------------------------------------------

    // Moves the virtual clock and runs every delayed call that becomes due,
    // in due order.
    void Advance(std::chrono::nanoseconds duration);
    void AdvanceSeconds(double seconds);
    double NowSeconds() const { return clock_.Now(); }
    size_t PendingDelayedCalls() const { return runtime_.ScheduledCalls(); }

    // ---- REST requests of the plugin -----------------------------------------

    // A path ending in "*" matches every path with that prefix.
    void OnRequest(std::string method, std::string path, RequestHandler handler);
    const std::vector<Request>& Requests() const { return requests_; }
    // Replies handed out and releases the plugin made.
    uint32_t RepliesGiven() const { return repliesGiven_; }
    uint32_t RepliesReleased() const { return repliesReleased_; }
    const std::vector<std::shared_ptr<StreamState>>& Streams() const { return streams_; }

    // ---- Calls into the plugin's endpoints -------------------------------------

    // Routes by method and URL template as the host does ("CALL" or a set
    // functionName makes a direct call by name).
    CallResult Call(std::string_view method, std::string_view uri);
    CallResult Call(std::string_view method, std::string_view uri, CallOptions options);
    CallResult Call(std::string_view method, std::string_view uri, std::string body);
    // The endpoint record the host would pick, or null.
    const EndpointRecord* FindEndpoint(uint32_t method, std::string_view path,
                                       std::string_view functionName = {}) const;

private:
    struct FunctionTable {
        HostApi api;
        TestHost* host;
    };
    struct Handler {
        std::string method;
        std::string path;
        RequestHandler handler;
    };
    // Runs the turn hooks and delivers the queued events at the start of
    // every runtime turn.
    class HookPump;

    static TestHost& Of(HostApi* api);
    // The runtime's table for the loaded plugin, where every entry goes on to.
    HostApi* Runtime();
    void Record(uint32_t entry, std::vector<std::string> arguments);
    // Runtime turns until nothing is left to deliver or run; the turn hooks
    // stay out of it.
    size_t Settle();
    Host::RestReply Answer(const Request& seen);
    void Stream(const Reply& answer, HostResponse& reply);
    static void QEL_HOST_CALL ReleaseReply(HostResponse* reply);

    static void QEL_HOST_CALL RequestEntry(HostApi* api, HostResponse* reply, HostRequest* request);
    static uint32_t QEL_HOST_CALL Entry1(HostApi* api, uint32_t first, uint32_t second);
    static void QEL_HOST_CALL EmitEventEntry(HostApi* api, HostEvent* event);
    static void QEL_HOST_CALL RegisterEventEntry(HostApi* api, const char* name,
                                                 uint32_t pluginHandle, HostEventCallback callback,
                                                 void* context, uint32_t flags);
    static void QEL_HOST_CALL UnregisterEventEntry(HostApi* api, const char* name,
                                                   uint32_t pluginHandle);
    static void QEL_HOST_CALL ScheduleCallEntry(HostApi* api, const char* label,
                                                HostDelayedCallback callback, void* context,
                                                double delaySeconds, uint32_t flags);
    static void QEL_HOST_CALL ServeOnceEntry(HostApi* api);
    static void QEL_HOST_CALL BeginWaitEntry(HostApi* api, const char* label, uint32_t value);
    static uint64_t QEL_HOST_CALL EndWaitEntry(HostApi* api);
    static void QEL_HOST_CALL WriteLogEntry(HostApi* api, uint32_t level, const char* text);

    Host::HostClock clock_ = Host::HostClock::Held();
    Host::HostRuntime runtime_{clock_};
    std::unique_ptr<HookPump> pump_;
    std::vector<std::unique_ptr<Host::PluginLibrary>> libraries_;
    uint32_t plugin_ = 0;  // the runtime's handle of the loaded plugin
    FunctionTable table_{};
    PluginLoadRecord record_{};
    bool destroyed_ = false;
    std::vector<HostCall> calls_;
    std::vector<EmittedEvent> events_;
    std::vector<std::function<void()>> turnHooks_;
    std::deque<std::pair<std::string, BindingProperty>> queue_;
    // Pump's own turns leave the hooks out, Advance's the hooks and the
    // queue; the turns of a plugin waiting meanwhile (entry 6) run both.
    bool hooksHeld_ = false;
    bool queueHeld_ = false;
    uint32_t serving_ = 0;
    std::vector<Handler> handlers_;
    // The requests being answered, innermost last: a handler sees the one
    // the plugin sent as it sent it, and its answer waits here for the reply
    // record (a streamed body is made there).
    struct Answering {
        Request request;
        std::optional<Reply> reply;
    };
    std::vector<Answering> answering_;
    std::vector<Request> requests_;
    std::vector<std::shared_ptr<StreamState>> streams_;
    uint32_t repliesGiven_ = 0;
    uint32_t repliesReleased_ = 0;
    bool echoLogs_ = false;
};

}  // namespace Orvan::Testing
