// HostRuntime: the plugin host proper. It gives every attached plugin its own
// HostApi table and implements the ten entries on the host's one thread:
//
//   0 Request        routes the plugin's REST request to a stand-in route or
//                    to an endpoint of a plugin (its own included) and hands
//                    back a reply that the plugin releases through the
//                    reply's release function;
//   1                passed through: answers 0;
//   2 EmitEvent      copies the event, shows it to the observers at once and
//                    queues it for the subscribers of its name;
//   3/4              (un)registers an event callback; names may hold "*";
//   5 ScheduleCall   a delayed call on the host clock;
//   6 ServeOnce      one host turn: delivers the events queued before it and
//                    runs the delayed calls that are due, then returns; when
//                    there was nothing to do it lets the clock move to the
//                    next due work, so a waiting plugin is never spun idle;
//   7/8              marks a plugin's wait (8 answers the turns it took);
//   9 WriteLog       hands the line to the observers.
//
// Stand-ins (host-side plugins) add routes and keep resources here; the
// host publishes their changes as resource events under the resource's
// event key and under "OnJsonApiEvent". Requests from outside go through
// Route as well. Turns nest: a plugin waiting inside a request lets the
// host run the rest of the world, the simulated services included.
//
// Ownership: the runtime owns its queue, delayed work, registrations and the
// per-plugin tables; PluginLibrary objects and observers are the caller's
// and must outlive the runtime (or be detached by Destroy).
// Threads: one host thread; nothing here is thread-safe.
#pragma once

#include <array>
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

#include "framework/host/HostAbi.h"
#include "host/HostClock.h"
#include "host/PluginLibrary.h"
#include "host/RestMessage.h"
#include "host/UrlTemplate.h"

namespace Orvan::Host {

class FaultInjector;

// What the host sees happen; the timeline and tests implement it.
class HostObserver {
public:
    virtual ~HostObserver() = default;
    // A plugin emitted an event (entry 2), before anyone receives it.
    virtual void OnPluginEvent(uint32_t /*plugin*/, const std::string& /*name*/,
                               const std::string& /*json*/) {}
    // A plugin's REST request (entry 0) and the reply it got.
    virtual void OnPluginRequest(uint32_t /*plugin*/, const RestRequest& /*request*/,
                                 const RestReply& /*reply*/) {}
    virtual void OnLog(uint32_t /*plugin*/, uint32_t /*level*/, const std::string& /*text*/) {}
    virtual void OnWait(uint32_t /*plugin*/, const std::string& /*label*/, bool /*begins*/) {}
    virtual void OnDelayedCall(uint32_t /*plugin*/, const std::string& /*label*/,
                               double /*delaySeconds*/) {}
    // A stand-in's resource changed and was announced ("Create", "Update" or
    // "Delete"; `json` is "null" for a deletion).
    virtual void OnHostResource(const std::string& /*uri*/, const std::string& /*eventType*/,
                                const std::string& /*json*/) {}
};

// What crosses into a plugin besides what HostObserver shows, with the
// bracketing of each call, so that a recorder can write down a session in
// the order the plugin lived it. `begins` is true before the plugin is
// called (or before the host works on its behalf) and false afterwards.
class HostInputObserver {
public:
    virtual ~HostInputObserver() = default;
    // StartModule ("start", `result` its answer) and DestroyModule ("destroy").
    virtual void OnModuleCall(uint32_t /*plugin*/, const char* /*what*/, bool /*begins*/,
                              bool /*result*/) {}
    // Entries 3 and 4.
    virtual void OnRegistration(uint32_t /*plugin*/, const std::string& /*pattern*/,
                                uint32_t /*flags*/, bool /*registers*/) {}
    // An event handed to the plugin's callback registered under `pattern`.
    virtual void OnDeliver(uint32_t /*plugin*/, const std::string& /*pattern*/,
                           const std::string& /*name*/, const std::string& /*json*/,
                           bool /*begins*/) {}
    // Entry 5 kept a delayed call under the host's number `call`; it runs
    // later between OnFire(begins) and OnFire(!begins).
    virtual void OnScheduled(uint32_t /*plugin*/, uint64_t /*call*/) {}
    virtual void OnFire(uint32_t /*plugin*/, uint64_t /*call*/, const std::string& /*label*/,
                        bool /*begins*/) {}
    // A request reaching the plugin's endpoint (its index among the
    // library's endpoints); `reply` is null before the call.
    virtual void OnEndpointCall(uint32_t /*plugin*/, size_t /*endpoint*/,
                                const RestRequest& /*request*/, const RestReply* /*reply*/) {}
    // Entry 0 before it is routed (OnPluginRequest follows with the reply).
    virtual void OnRequestBegins(uint32_t /*plugin*/, const RestRequest& /*request*/) {}
    // Entry 6: the host's turn on the plugin's behalf.
    virtual void OnServeOnce(uint32_t /*plugin*/, bool /*begins*/) {}
    // Entries 7 and 8 (`value` is entry 7's argument, `turns` entry 8's answer).
    virtual void OnWaitBegins(uint32_t /*plugin*/, const std::string& /*label*/,
                              uint32_t /*value*/) {}
    virtual void OnWaitEnds(uint32_t /*plugin*/, uint64_t /*turns*/) {}
    virtual void OnEntry1(uint32_t /*plugin*/, uint32_t /*first*/, uint32_t /*second*/,
                          uint32_t /*result*/) {}
};

// Outside work the host serves between its own: a network server, say. The
// runtime polls it on every turn, nested turns of a waiting plugin included,
// and waits on it instead of sleeping when it has nothing due.
class HostPump {
public:
    virtual ~HostPump() = default;
    // Runs what is ready without blocking; true when it did anything.
    virtual bool Poll() = 0;
    // Blocks until something is ready or `realSeconds` have passed.
    virtual void WaitFor(double realSeconds) = 0;
};

// The six counters of a module's memory statistics.
struct MemoryStatistics {
    uint64_t peakLiveBytes = 0;
    uint64_t liveAllocationsAtPeak = 0;
    uint64_t bytesAllocated = 0;
    uint64_t allocations = 0;
    uint64_t bytesFreed = 0;
    uint64_t frees = 0;
};

// Counts per plugin, for summaries and tests.
struct PluginCounters {
    uint64_t events = 0;
    uint64_t requests = 0;
    uint64_t delayedCalls = 0;
    uint64_t waits = 0;
    uint64_t serveCalls = 0;
    std::array<uint64_t, 4> logLines{};
};

class HostRuntime {
public:
    using EventHandler = std::function<void(const std::string& name, const std::string& json)>;
    using RouteHandler = std::function<RestReply(const RestRequest&, const PathParameters&)>;
    using StallHandler = std::function<void(const std::string& why)>;

    explicit HostRuntime(HostClock& clock);
    ~HostRuntime();
    HostRuntime(const HostRuntime&) = delete;
    HostRuntime& operator=(const HostRuntime&) = delete;

    HostClock& Clock() { return clock_; }
    double Now() const { return clock_.Now(); }

    // ---- Plugins -----------------------------------------------------------
    // Gives the loaded plugin a handle (1, 2, ...) and its own HostApi table.
    uint32_t Attach(PluginLibrary& library);
    bool Start(uint32_t plugin);
    // DestroyModule; the plugin's registrations and delayed calls go with it.
    void Destroy(uint32_t plugin);
    std::optional<MemoryStatistics> Memory(uint32_t plugin) const;
    const PluginLibrary* Library(uint32_t plugin) const;
    const PluginCounters* Counters(uint32_t plugin) const;
    // The plugin's table, for tests that call entries directly.
    HostApi* Api(uint32_t plugin);
    // Event names the plugin registered, with their flags.
    std::map<std::string, uint32_t> Registrations(uint32_t plugin) const;

    // ---- Work ----------------------------------------------------------------
    void After(double seconds, std::string label, std::function<void()> task);
    // One turn; true when it delivered or ran anything.
    bool Turn();
    // Lets the clock move towards the next due work (never past `until`).
    // False when nothing is queued or scheduled: nothing will ever happen.
    bool Idle(double until);
    // Turns until `done` holds (true) or the clock passes `deadline` or
    // nothing is left to happen (false).
    bool RunUntil(const std::function<bool()>& done, double deadline);
    void RunFor(double seconds);
    // The clock reading at which the next delayed work is due, if any.
    std::optional<double> NextDue() const;
    // Lets real time pass until the next due work (at most `maxRealSeconds`),
    // waiting on the pump when there is one.
    void Pause(double maxRealSeconds);
    void SetPump(HostPump* pump) { pump_ = pump; }
    size_t QueuedEvents() const { return queue_.size(); }
    size_t ScheduledCalls() const { return delayed_.size(); }
    uint64_t Turns() const { return turns_; }

    // ---- Events ----------------------------------------------------------------
    // Queues an event for the next turn; `target` 0 reaches every subscriber,
    // another handle only that plugin.
    void Emit(std::string name, std::string json, uint32_t target = 0);
    uint64_t Subscribe(std::string pattern, EventHandler handler);
    void Unsubscribe(uint64_t id);
    // True when a subscriber of `plugin` (0: any) would receive `name`.
    bool Subscribed(std::string_view name, uint32_t plugin = 0) const;
    static bool NameMatches(std::string_view pattern, std::string_view name);
    // Hands `event` as it is (any name, any payload) to the callback that
    // `plugin` registered under exactly `pattern`, with that registration's
    // context, at once; false when there is none. Tests reach a plugin with
    // what no JSON text can carry this way.
    bool HandToPlugin(uint32_t plugin, std::string_view pattern, HostEvent event);
    static std::string ResourceEventKey(std::string_view uri);

    // ---- Resources of the host's stand-ins ---------------------------------------
    // Stores the value and publishes a Create (first time) or Update event
    // (unless `announce` is false); GET and HEAD of the URI answer it.
    void PutResource(const std::string& owner, const std::string& uri, const std::string& json,
                     bool announce = true);
    void DeleteResource(const std::string& uri);
    std::optional<std::string> Resource(const std::string& uri) const;
    // Every stored resource: uri -> JSON.
    std::map<std::string, std::string> Resources() const;

    // ---- Requests ------------------------------------------------------------------
    void AddRoute(std::string owner, uint32_t method, std::string templateText,
                  RouteHandler handler);
    // Routes to the best matching stand-in route or plugin endpoint.
    RestReply Route(const RestRequest& request);
    // Answers what nothing else answers, instead of 404 (tests answer a
    // plugin's requests this way); an empty handler removes it.
    void SetFallbackRoute(RouteHandler handler) { fallback_ = std::move(handler); }
    // The plugin's endpoint that would answer, or null.
    const EndpointRecord* FindEndpoint(uint32_t plugin, uint32_t method, std::string_view path,
                                       std::string_view functionName = {}) const;

    void AddObserver(HostObserver* observer) { observers_.push_back(observer); }
    // One at a time; null removes it.
    void SetInputObserver(HostInputObserver* observer) { input_ = observer; }
    void RemoveObserver(HostObserver* observer);
    // Called when a plugin waits and nothing is left that could answer it,
    // or when a wait outlasts the time limit. The default prints the reason
    // and ends the process with status 3.
    void SetStallHandler(StallHandler handler) { stallHandler_ = std::move(handler); }
    // Waits of plugins past this clock reading are stalls.
    void SetTimeLimit(double seconds) { timeLimit_ = seconds; }
    // Clears the world around the plugins (stand-in routes and resources,
    // queued events, the host's own delayed work and subscribers) and keeps
    // the plugins, their registrations and their delayed calls, so that a
    // new world can be installed around the same plugins.
    void ClearWorld();
    // The service proxy's request ids: numbered for the runtime's life, so an
    // answer to a call of an earlier world is never taken for a later one's,
    // while every run of a fresh runtime numbers its calls alike.
    uint64_t NextServiceProxyId() { return nextServiceProxyId_++; }
    // Misbehaves on purpose from now on (host/Faults.h); null behaves again.
    void SetFaults(FaultInjector* faults) { faults_ = faults; }

private:
    struct ApiTable;
    struct PluginSlot;
    struct Registration {
        uint64_t id = 0;
        std::string pattern;
        uint32_t plugin = 0;  // 0 for the host's own subscribers
        HostEventCallback callback = nullptr;
        void* context = nullptr;
        uint32_t flags = 0;
        EventHandler handler;
    };
    struct QueuedEvent {
        std::string name;
        std::string json;
        uint32_t target = 0;
    };
    struct Task {
        std::string label;
        uint32_t plugin = 0;
        std::function<void()> run;
    };
    struct RouteEntry {
        std::string owner;
        uint32_t method = 0;
        std::string templateText;
        RouteHandler handler;
    };

    static PluginSlot& SlotOf(HostApi* api);
    PluginSlot* Find(uint32_t plugin);
    const PluginSlot* Find(uint32_t plugin) const;
    void Deliver(const QueuedEvent& event);
    RestReply CallEndpoint(PluginSlot& slot, const EndpointRecord& endpoint,
                           const RestRequest& request);
    void Stall(const std::string& why);

    // The ten entries.
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

    HostClock& clock_;
    std::vector<std::unique_ptr<PluginSlot>> plugins_;
    std::vector<Registration> registrations_;
    uint64_t nextRegistration_ = 1;
    std::deque<QueuedEvent> queue_;
    std::map<std::pair<double, uint64_t>, Task> delayed_;
    uint64_t nextTask_ = 1;
    uint64_t turns_ = 0;
    std::vector<RouteEntry> routes_;
    RouteHandler fallback_;
    std::map<std::string, std::pair<std::string, std::string>> resources_;  // uri -> owner, json
    std::vector<HostObserver*> observers_;
    StallHandler stallHandler_;
    double timeLimit_ = 0.0;
    HostPump* pump_ = nullptr;
    HostInputObserver* input_ = nullptr;
    FaultInjector* faults_ = nullptr;
    uint64_t nextServiceProxyId_ = 1;
};

}  // namespace Orvan::Host
