#include "host/HostRuntime.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "host/Faults.h"
#include "host/HostJson.h"

namespace Orvan::Host {

// The first member is the C table the plugin holds; the rest leads back here.
struct HostRuntime::ApiTable {
    HostApi api;
    HostRuntime* runtime;
    uint32_t plugin;
};

struct HostRuntime::PluginSlot {
    ApiTable table{};
    PluginLibrary* library = nullptr;
    uint32_t handle = 0;
    bool started = false;
    bool destroyed = false;
    std::vector<const EndpointRecord*> endpoints;
    std::vector<std::pair<std::string, uint64_t>> waits;  // label, turn at begin
    PluginCounters counters;
};

namespace {

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

HostRuntime::HostRuntime(HostClock& clock) : clock_(clock) {}

HostRuntime::~HostRuntime() {
    for (auto& slot : plugins_) {
        if (slot->started && !slot->destroyed) {
            Destroy(slot->handle);
        }
    }
}

HostRuntime::PluginSlot& HostRuntime::SlotOf(HostApi* api) {
    auto* table = reinterpret_cast<ApiTable*>(api);
    return *table->runtime->Find(table->plugin);
}

HostRuntime::PluginSlot* HostRuntime::Find(uint32_t plugin) {
    for (auto& slot : plugins_) {
        if (slot->handle == plugin) {
            return slot.get();
        }
    }
    return nullptr;
}

const HostRuntime::PluginSlot* HostRuntime::Find(uint32_t plugin) const {
    return const_cast<HostRuntime*>(this)->Find(plugin);
}

// ---- Plugins --------------------------------------------------------------------------------

uint32_t HostRuntime::Attach(PluginLibrary& library) {
    auto slot = std::make_unique<PluginSlot>();
    slot->handle = static_cast<uint32_t>(plugins_.size() + 1);
    slot->library = &library;
    slot->endpoints = library.Endpoints();
    HostApi& api = slot->table.api;
    api.Request = &HostRuntime::RequestEntry;
    api.Entry1 = &HostRuntime::Entry1;
    api.EmitEvent = &HostRuntime::EmitEventEntry;
    api.RegisterEvent = &HostRuntime::RegisterEventEntry;
    api.UnregisterEvent = &HostRuntime::UnregisterEventEntry;
    api.ScheduleCall = &HostRuntime::ScheduleCallEntry;
    api.ServeOnce = &HostRuntime::ServeOnceEntry;
    api.BeginWait = &HostRuntime::BeginWaitEntry;
    api.EndWait = &HostRuntime::EndWaitEntry;
    api.WriteLog = &HostRuntime::WriteLogEntry;
    slot->table.runtime = this;
    slot->table.plugin = slot->handle;
    plugins_.push_back(std::move(slot));
    return plugins_.back()->handle;
}

bool HostRuntime::Start(uint32_t plugin) {
    PluginSlot* slot = Find(plugin);
    if (slot == nullptr || slot->started || slot->destroyed) {
        return false;
    }
    const PluginLoadRecord& record = slot->library->Record();
    HostLink link{&slot->table.api, slot->handle};
    slot->started = true;
    if (input_ != nullptr) {
        input_->OnModuleCall(plugin, "start", true, false);
    }
    const bool started = record.callbacks->StartModule(record.module, &link) != 0;
    if (input_ != nullptr) {
        input_->OnModuleCall(plugin, "start", false, started);
    }
    return started;
}

void HostRuntime::Destroy(uint32_t plugin) {
    PluginSlot* slot = Find(plugin);
    if (slot == nullptr || slot->destroyed) {
        return;
    }
    if (input_ != nullptr) {
        input_->OnModuleCall(plugin, "destroy", true, false);
    }
    slot->library->ReleaseModule();
    slot->destroyed = true;
    if (input_ != nullptr) {
        input_->OnModuleCall(plugin, "destroy", false, true);
    }
    // Nothing may reach the module any more.
    registrations_.erase(std::remove_if(registrations_.begin(), registrations_.end(),
                                        [&](const Registration& r) { return r.plugin == plugin; }),
                         registrations_.end());
    for (auto it = delayed_.begin(); it != delayed_.end();) {
        it = it->second.plugin == plugin ? delayed_.erase(it) : std::next(it);
    }
    slot->endpoints.clear();
}

void HostRuntime::ClearWorld() {
    routes_.clear();
    resources_.clear();
    queue_.clear();
    for (auto it = delayed_.begin(); it != delayed_.end();) {
        it = it->second.plugin == 0 ? delayed_.erase(it) : std::next(it);
    }
    registrations_.erase(std::remove_if(registrations_.begin(), registrations_.end(),
                                        [](const Registration& r) { return r.plugin == 0; }),
                         registrations_.end());
    faults_ = nullptr;
}

std::optional<MemoryStatistics> HostRuntime::Memory(uint32_t plugin) const {
    const PluginSlot* slot = Find(plugin);
    if (slot == nullptr || slot->destroyed) {
        return std::nullopt;
    }
    const PluginLoadRecord& record = slot->library->Record();
    if (record.callbacks->GetMemoryStatistics == nullptr) {
        return std::nullopt;
    }
    uint32_t words[kMemoryStatisticsWords] = {};
    record.callbacks->GetMemoryStatistics(record.module, words);
    auto counter = [&](int index) {
        const size_t low = size_t{2} * static_cast<size_t>(index);
        return static_cast<uint64_t>(words[low]) | (static_cast<uint64_t>(words[low + 1]) << 32);
    };
    return MemoryStatistics{counter(0), counter(1), counter(2), counter(3), counter(4), counter(5)};
}

const PluginLibrary* HostRuntime::Library(uint32_t plugin) const {
    const PluginSlot* slot = Find(plugin);
    return slot != nullptr ? slot->library : nullptr;
}

const PluginCounters* HostRuntime::Counters(uint32_t plugin) const {
    const PluginSlot* slot = Find(plugin);
    return slot != nullptr ? &slot->counters : nullptr;
}

HostApi* HostRuntime::Api(uint32_t plugin) {
    PluginSlot* slot = Find(plugin);
    return slot != nullptr ? &slot->table.api : nullptr;
}

std::map<std::string, uint32_t> HostRuntime::Registrations(uint32_t plugin) const {
    std::map<std::string, uint32_t> names;
    for (const Registration& registration : registrations_) {
        if (registration.plugin == plugin) {
            names[registration.pattern] = registration.flags;
        }
    }
    return names;
}

// ---- Work ---------------------------------------------------------------------------------------

void HostRuntime::After(double seconds, std::string label, std::function<void()> task) {
    if (!(seconds > 0.0)) {
        seconds = 0.0;
    }
    delayed_.emplace(std::make_pair(Now() + seconds, nextTask_++),
                     Task{std::move(label), 0, std::move(task)});
}

bool HostRuntime::Turn() {
    ++turns_;
    bool worked = pump_ != nullptr && pump_->Poll();
    // Events queued while delivering wait for the next turn.
    size_t count = queue_.size();
    while (count-- > 0 && !queue_.empty()) {
        QueuedEvent event = std::move(queue_.front());
        queue_.pop_front();
        Deliver(event);
        worked = true;
    }
    // Work scheduled during this turn waits for the next one, even when due.
    const uint64_t limit = nextTask_;
    for (;;) {
        const double now = Now();
        auto due = delayed_.end();
        for (auto it = delayed_.begin(); it != delayed_.end() && it->first.first <= now; ++it) {
            if (it->first.second < limit) {
                due = it;
                break;
            }
        }
        if (due == delayed_.end()) {
            break;
        }
        const uint64_t call = due->first.second;
        Task task = std::move(due->second);
        delayed_.erase(due);
        if (input_ != nullptr && task.plugin != 0) {
            input_->OnFire(task.plugin, call, task.label, true);
        }
        task.run();
        if (input_ != nullptr && task.plugin != 0) {
            input_->OnFire(task.plugin, call, task.label, false);
        }
        worked = true;
    }
    return worked;
}

bool HostRuntime::Idle(double until) {
    if (!queue_.empty()) {
        return true;
    }
    if (delayed_.empty()) {
        return false;
    }
    const double target = std::min(delayed_.begin()->first.first, until);
    if (pump_ != nullptr && !clock_.Instant()) {
        pump_->WaitFor(std::min((target - Now()) / clock_.Speed(), 0.1));
    } else {
        clock_.AdvanceTo(target);
    }
    return true;
}

std::optional<double> HostRuntime::NextDue() const {
    if (delayed_.empty()) {
        return std::nullopt;
    }
    return delayed_.begin()->first.first;
}

void HostRuntime::Pause(double maxRealSeconds) {
    double wait = maxRealSeconds;
    if (!queue_.empty()) {
        wait = 0.0;
    } else if (auto due = NextDue(); due && !clock_.Instant()) {
        wait = std::min(wait, (*due - Now()) / clock_.Speed());
    } else if (due) {
        clock_.AdvanceTo(*due);
        wait = 0.0;
    }
    wait = std::max(wait, 0.0);
    if (pump_ != nullptr) {
        pump_->WaitFor(wait);
    } else if (!clock_.Instant()) {
        clock_.AdvanceTo(Now() + wait * clock_.Speed(), wait);
    }
}

bool HostRuntime::RunUntil(const std::function<bool()>& done, double deadline) {
    for (;;) {
        if (done()) {
            return true;
        }
        if (Now() >= deadline) {
            return false;
        }
        if (!Turn() && !Idle(deadline)) {
            // Nothing will ever happen again; let the time pass at once.
            clock_.AdvanceTo(deadline, 0.0);
            return done();
        }
    }
}

void HostRuntime::RunFor(double seconds) {
    const double deadline = Now() + seconds;
    RunUntil([] { return false; }, deadline);
}

void HostRuntime::Stall(const std::string& why) {
    if (stallHandler_) {
        stallHandler_(why);
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "qel-host: %s\n", why.c_str());
    std::fflush(stderr);
    std::_Exit(3);
}

// ---- Events -------------------------------------------------------------------------------------

bool HostRuntime::NameMatches(std::string_view pattern, std::string_view name) {
    // "*" stands for any run of characters; backtracking over the last star.
    size_t p = 0, n = 0, star = std::string_view::npos, mark = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = n;
        } else if (p < pattern.size() && pattern[p] == name[n]) {
            ++p;
            ++n;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            n = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

std::string HostRuntime::ResourceEventKey(std::string_view uri) {
    std::vector<std::string_view> pieces = {"OnJsonApiEvent"};
    size_t start = 0;
    while (start <= uri.size()) {
        size_t slash = uri.find('/', start);
        if (slash == std::string_view::npos) {
            slash = uri.size();
        }
        if (slash > start) {
            pieces.push_back(uri.substr(start, slash - start));
        }
        start = slash + 1;
    }
    const size_t keep = pieces.size() > 1 && pieces[1] == "qel-platform-config" ? 6 : 4;
    std::string key;
    for (size_t i = 0; i < pieces.size() && i < keep; ++i) {
        key += (i == 0 ? "" : "_") + std::string(pieces[i]);
    }
    return key;
}

void HostRuntime::Emit(std::string name, std::string json, uint32_t target) {
    if (faults_ != nullptr) {
        const EventFault fault = faults_->OnEvent(name);
        if (fault.duplicate) {
            queue_.push_back(QueuedEvent{name, json, target});
        }
        if (fault.lateBy > 0.0) {
            After(fault.lateBy, "a late event",
                  [this, event = QueuedEvent{std::move(name), std::move(json), target}] {
                      queue_.push_back(event);
                  });
            return;
        }
    }
    queue_.push_back(QueuedEvent{std::move(name), std::move(json), target});
}

uint64_t HostRuntime::Subscribe(std::string pattern, EventHandler handler) {
    Registration registration;
    registration.id = nextRegistration_++;
    registration.pattern = std::move(pattern);
    registration.handler = std::move(handler);
    registrations_.push_back(std::move(registration));
    return registrations_.back().id;
}

void HostRuntime::Unsubscribe(uint64_t id) {
    registrations_.erase(std::remove_if(registrations_.begin(), registrations_.end(),
                                        [&](const Registration& r) { return r.id == id; }),
                         registrations_.end());
}

bool HostRuntime::Subscribed(std::string_view name, uint32_t plugin) const {
    return std::any_of(registrations_.begin(), registrations_.end(), [&](const Registration& r) {
        return (plugin == 0 || r.plugin == plugin) && NameMatches(r.pattern, name);
    });
}

bool HostRuntime::HandToPlugin(uint32_t plugin, std::string_view pattern, HostEvent event) {
    auto found =
        std::find_if(registrations_.begin(), registrations_.end(), [&](const Registration& r) {
            return r.plugin == plugin && r.pattern == pattern && r.callback != nullptr;
        });
    if (found == registrations_.end()) {
        return false;
    }
    // The callback may unregister itself.
    const HostEventCallback callback = found->callback;
    event.context = found->context;
    callback(&event);
    return true;
}

void HostRuntime::Deliver(const QueuedEvent& event) {
    // Receivers may (un)register while they run: walk a copy of the ids.
    std::vector<uint64_t> ids;
    for (const Registration& registration : registrations_) {
        if ((event.target == 0 || registration.plugin == event.target) &&
            NameMatches(registration.pattern, event.name)) {
            ids.push_back(registration.id);
        }
    }
    for (uint64_t id : ids) {
        auto found = std::find_if(registrations_.begin(), registrations_.end(),
                                  [&](const Registration& r) { return r.id == id; });
        if (found == registrations_.end()) {
            continue;
        }
        if (found->handler) {
            EventHandler handler = found->handler;
            handler(event.name, event.json);
            continue;
        }
        const HostEventCallback callback = found->callback;
        void* context = found->context;
        HostValueHolder payload;
        std::string error;
        if (callback == nullptr || !JsonToHostValue(event.json, payload.Get(), error)) {
            continue;
        }
        HostEvent delivered{};
        delivered.name = event.name.c_str();
        delivered.payload = payload.Get();
        delivered.context = context;
        // The registration may go while the plugin runs: keep what names it.
        const uint32_t plugin = found->plugin;
        const std::string pattern = input_ != nullptr ? found->pattern : std::string();
        if (input_ != nullptr) {
            input_->OnDeliver(plugin, pattern, event.name, event.json, true);
        }
        callback(&delivered);
        if (input_ != nullptr) {
            input_->OnDeliver(plugin, pattern, event.name, event.json, false);
        }
    }
}

// ---- Resources ----------------------------------------------------------------------------------

void HostRuntime::PutResource(const std::string& owner, const std::string& uri,
                              const std::string& json, bool announce) {
    const bool created = resources_.count(uri) == 0;
    resources_[uri] = {owner, json};
    if (!announce) {
        return;
    }
    const std::string payload = "{\"uri\":" + QuoteJson(uri) + ",\"eventType\":\"" +
                                (created ? "Create" : "Update") +
                                "\",\"data\":" + (json.empty() ? std::string("null") : json) + "}";
    const std::string key = ResourceEventKey(uri);
    Emit(key, payload);
    if (key != "OnJsonApiEvent") {
        Emit("OnJsonApiEvent", payload);
    }
    for (HostObserver* observer : observers_) {
        observer->OnHostResource(uri, created ? "Create" : "Update",
                                 json.empty() ? std::string("null") : json);
    }
}

void HostRuntime::DeleteResource(const std::string& uri) {
    if (resources_.erase(uri) == 0) {
        return;
    }
    const std::string payload =
        "{\"uri\":" + QuoteJson(uri) + ",\"eventType\":\"Delete\",\"data\":null}";
    const std::string key = ResourceEventKey(uri);
    Emit(key, payload);
    if (key != "OnJsonApiEvent") {
        Emit("OnJsonApiEvent", payload);
    }
    for (HostObserver* observer : observers_) {
        observer->OnHostResource(uri, "Delete", "null");
    }
}

std::optional<std::string> HostRuntime::Resource(const std::string& uri) const {
    auto found = resources_.find(uri);
    if (found == resources_.end()) {
        return std::nullopt;
    }
    return found->second.second;
}

std::map<std::string, std::string> HostRuntime::Resources() const {
    std::map<std::string, std::string> all;
    for (const auto& [uri, entry] : resources_) {
        all.emplace(uri, entry.second);
    }
    return all;
}

// ---- Requests -----------------------------------------------------------------------------------

void HostRuntime::AddRoute(std::string owner, uint32_t method, std::string templateText,
                           RouteHandler handler) {
    routes_.push_back(
        RouteEntry{std::move(owner), method, std::move(templateText), std::move(handler)});
}

const EndpointRecord* HostRuntime::FindEndpoint(uint32_t plugin, uint32_t method,
                                                std::string_view path,
                                                std::string_view functionName) const {
    const PluginSlot* slot = Find(plugin);
    if (slot == nullptr || slot->destroyed) {
        return nullptr;
    }
    return PickEndpoint(slot->endpoints, method, path, functionName);
}

RestReply HostRuntime::Route(const RestRequest& request) {
    const std::string path = request.Path();
    // Stand-in routes and stored resources.
    const RouteEntry* bestRoute = nullptr;
    PathParameters bestParameters;
    size_t bestWeight = std::numeric_limits<size_t>::max();
    for (const RouteEntry& route : routes_) {
        if (route.method != request.method) {
            continue;
        }
        std::optional<PathParameters> match = MatchUrlTemplate(route.templateText, path);
        if (match && ParameterWeight(*match) < bestWeight) {
            bestRoute = &route;
            bestParameters = std::move(*match);
            bestWeight = ParameterWeight(bestParameters);
        }
    }
    if (bestRoute != nullptr && bestWeight == 0) {
        RouteHandler handler = bestRoute->handler;
        RestReply reply = handler(request, bestParameters);
        reply.answeredBy = bestRoute->owner;
        return reply;
    }
    if (request.method == kHostMethodGet || request.method == kHostMethodHead) {
        auto resource = resources_.find(path);
        if (resource != resources_.end()) {
            RestReply reply = RestReply::Json(resource->second.second);
            reply.answeredBy = resource->second.first;
            return reply;
        }
    }
    // Plugin endpoints compete with parameterised stand-in routes.
    PluginSlot* bestSlot = nullptr;
    const EndpointRecord* bestEndpoint = nullptr;
    for (auto& slot : plugins_) {
        const EndpointRecord* endpoint =
            FindEndpoint(slot->handle, request.method, path, request.functionName);
        if (endpoint == nullptr) {
            continue;
        }
        size_t weight = 0;
        if (request.method != kHostMethodDirectCall) {
            weight = ParameterWeight(*MatchUrlTemplate(endpoint->urlTemplate, path));
        }
        if (weight < bestWeight) {
            bestSlot = slot.get();
            bestEndpoint = endpoint;
            bestWeight = weight;
        }
    }
    if (bestEndpoint != nullptr) {
        RestReply reply = CallEndpoint(*bestSlot, *bestEndpoint, request);
        reply.answeredBy = bestSlot->library->ShortName();
        return reply;
    }
    if (bestRoute != nullptr) {
        RouteHandler handler = bestRoute->handler;
        RestReply reply = handler(request, bestParameters);
        reply.answeredBy = bestRoute->owner;
        return reply;
    }
    if (fallback_) {
        RouteHandler handler = fallback_;
        return handler(request, PathParameters{});
    }
    return RestReply::Error(
        404, "No endpoint for " + std::string(MethodName(request.method)) + " " + path);
}

RestReply HostRuntime::CallEndpoint(PluginSlot& slot, const EndpointRecord& endpoint,
                                    const RestRequest& request) {
    const size_t index =
        static_cast<size_t>(std::find(slot.endpoints.begin(), slot.endpoints.end(), &endpoint) -
                            slot.endpoints.begin());
    RestReply reply = CallPluginEndpoint(endpoint, request, [&] {
        if (input_ != nullptr) {
            input_->OnEndpointCall(slot.handle, index, request, nullptr);
        }
    });
    if (input_ != nullptr) {
        input_->OnEndpointCall(slot.handle, index, request, &reply);
    }
    return reply;
}

void HostRuntime::RemoveObserver(HostObserver* observer) {
    observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

// ---- The ten entries
// ------------------------------------------------------------------------------

void QEL_HOST_CALL HostRuntime::RequestEntry(HostApi* api, HostResponse* reply,
                                             HostRequest* hostRequest) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.requests;
    size_t unreadable = 0;
    std::string unreadableWhy;
    RestRequest request = ReadPluginRequest(*hostRequest, slot.handle, unreadable, unreadableWhy);
    RestReply answer;
    bool readable = true;
    if (unreadable != 0) {
        // The request as far as it could be read.
        request.arguments.resize(unreadable - 1);
        answer = RestReply::Error(
            400, "Argument " + std::to_string(unreadable) + " is unreadable: " + unreadableWhy);
        readable = false;
    }
    if (host.input_ != nullptr) {
        host.input_->OnRequestBegins(slot.handle, request);
    }
    if (readable && host.faults_ != nullptr) {
        if (std::optional<RestReply> failed = host.faults_->FailRequest(request)) {
            answer = std::move(*failed);
            readable = false;
        }
    }
    if (readable) {
        answer = host.Route(request);
    }
    for (HostObserver* observer : host.observers_) {
        observer->OnPluginRequest(slot.handle, request, answer);
    }
    WritePluginReply(answer, *reply);
    if (host.faults_ != nullptr) {
        host.faults_->BreakStream(answer, *reply);
    }
}

uint32_t QEL_HOST_CALL HostRuntime::Entry1(HostApi* api, uint32_t first, uint32_t second) {
    PluginSlot& slot = SlotOf(api);
    if (slot.table.runtime->input_ != nullptr) {
        slot.table.runtime->input_->OnEntry1(slot.handle, first, second, 0);
    }
    return 0;
}

void QEL_HOST_CALL HostRuntime::EmitEventEntry(HostApi* api, HostEvent* event) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.events;
    const std::string name = Text(event->name);
    std::string json;
    std::string error;
    if (!HostValueToJson(event->payload, json, error)) {
        // An unreadable payload reaches nobody; the observers hear of it.
        for (HostObserver* observer : host.observers_) {
            observer->OnLog(slot.handle, 2, "host: dropped event " + name + ": " + error);
        }
        return;
    }
    for (HostObserver* observer : host.observers_) {
        observer->OnPluginEvent(slot.handle, name, json);
    }
    // The faults are the host's delivery to the plugin; what the plugin
    // publishes reaches the host's own subscribers as it was sent.
    host.queue_.push_back(QueuedEvent{name, std::move(json), 0});
}

void QEL_HOST_CALL HostRuntime::RegisterEventEntry(HostApi* api, const char* name,
                                                   uint32_t /*pluginHandle*/,
                                                   HostEventCallback callback, void* context,
                                                   uint32_t flags) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    const std::string pattern = Text(name);
    // The table says who calls; the handle argument is taken on trust only
    // in what the plugin sends with requests.
    for (Registration& registration : host.registrations_) {
        if (registration.plugin == slot.handle && registration.pattern == pattern) {
            if (host.input_ != nullptr) {
                host.input_->OnRegistration(slot.handle, pattern, flags, true);
            }
            registration.callback = callback;
            registration.context = context;
            registration.flags = flags;
            return;
        }
    }
    Registration registration;
    registration.id = host.nextRegistration_++;
    registration.pattern = pattern;
    registration.plugin = slot.handle;
    registration.callback = callback;
    registration.context = context;
    registration.flags = flags;
    host.registrations_.push_back(std::move(registration));
    if (host.input_ != nullptr) {
        host.input_->OnRegistration(slot.handle, pattern, flags, true);
    }
}

void QEL_HOST_CALL HostRuntime::UnregisterEventEntry(HostApi* api, const char* name,
                                                     uint32_t /*pluginHandle*/) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    const std::string pattern = Text(name);
    if (host.input_ != nullptr) {
        host.input_->OnRegistration(slot.handle, pattern, 0, false);
    }
    host.registrations_.erase(
        std::remove_if(
            host.registrations_.begin(), host.registrations_.end(),
            [&](const Registration& r) { return r.plugin == slot.handle && r.pattern == pattern; }),
        host.registrations_.end());
}

void QEL_HOST_CALL HostRuntime::ScheduleCallEntry(HostApi* api, const char* label,
                                                  HostDelayedCallback callback, void* context,
                                                  double delaySeconds, uint32_t /*flags*/) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.delayedCalls;
    if (!(delaySeconds > 0.0) || !std::isfinite(delaySeconds)) {
        delaySeconds = std::isinf(delaySeconds) && delaySeconds > 0 ? 1e9 : 0.0;
    }
    const std::string text = Text(label);
    for (HostObserver* observer : host.observers_) {
        observer->OnDelayedCall(slot.handle, text, delaySeconds);
    }
    if (callback == nullptr) {
        return;
    }
    if (host.faults_ != nullptr) {
        delaySeconds += host.faults_->LateBy();
    }
    host.delayed_.emplace(std::make_pair(host.Now() + delaySeconds, host.nextTask_++),
                          Task{text, slot.handle, [callback, context] { callback(context); }});
    if (host.input_ != nullptr) {
        host.input_->OnScheduled(slot.handle, host.nextTask_ - 1);
    }
}

void QEL_HOST_CALL HostRuntime::ServeOnceEntry(HostApi* api) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.serveCalls;
    struct Bracket {
        HostInputObserver* input;
        uint32_t plugin;
        Bracket(HostInputObserver* i, uint32_t p) : input(i), plugin(p) {
            if (input != nullptr) {
                input->OnServeOnce(plugin, true);
            }
        }
        ~Bracket() {
            if (input != nullptr) {
                input->OnServeOnce(plugin, false);
            }
        }
    } bracket(host.input_, slot.handle);
    if (host.Turn()) {
        return;
    }
    const std::string waiting = slot.waits.empty() ? "a turn" : slot.waits.back().first;
    if (host.timeLimit_ > 0.0 && host.Now() > host.timeLimit_) {
        host.Stall("the plugin " + slot.library->ShortName() + " is still waiting (" + waiting +
                   ") past the run's time limit");
        return;
    }
    // A yield asks for a turn, not for anything to arrive: a world with
    // nothing left to do is no stall for it.
    const bool yielding = !slot.waits.empty() && slot.waits.back().first == "Wait: yield";
    if (!host.Idle(std::numeric_limits<double>::infinity()) && !yielding) {
        host.Stall("the plugin " + slot.library->ShortName() + " waits (" + waiting +
                   ") for something that can never come: nothing is queued or scheduled");
    }
}

void QEL_HOST_CALL HostRuntime::BeginWaitEntry(HostApi* api, const char* label, uint32_t value) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.waits;
    slot.waits.emplace_back(Text(label), host.turns_);
    if (host.input_ != nullptr) {
        host.input_->OnWaitBegins(slot.handle, slot.waits.back().first, value);
    }
    for (HostObserver* observer : host.observers_) {
        observer->OnWait(slot.handle, slot.waits.back().first, true);
    }
}

uint64_t QEL_HOST_CALL HostRuntime::EndWaitEntry(HostApi* api) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    if (slot.waits.empty()) {
        if (host.input_ != nullptr) {
            host.input_->OnWaitEnds(slot.handle, 0);
        }
        return 0;
    }
    auto [label, began] = slot.waits.back();
    slot.waits.pop_back();
    for (HostObserver* observer : host.observers_) {
        observer->OnWait(slot.handle, label, false);
    }
    if (host.input_ != nullptr) {
        host.input_->OnWaitEnds(slot.handle, host.turns_ - began);
    }
    return host.turns_ - began;
}

void QEL_HOST_CALL HostRuntime::WriteLogEntry(HostApi* api, uint32_t level, const char* text) {
    PluginSlot& slot = SlotOf(api);
    HostRuntime& host = *slot.table.runtime;
    ++slot.counters.logLines[std::min<uint32_t>(level, 3)];
    const std::string line = Text(text);
    for (HostObserver* observer : host.observers_) {
        observer->OnLog(slot.handle, level, line);
    }
}

}  // namespace Orvan::Host
