#include "framework/host/HostEvents.h"

#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

#include "framework/binding/NativeConversion.h"
#include "framework/host/HostValueConversion.h"
#include "framework/log/Log.h"

namespace Orvan::Framework {

namespace {

// Root name of a host payload in conversion messages.
constexpr std::string_view kPayloadName = "<result>";

// Handling and dropped conversions are traced to a channel that discards
// them; the arguments are still checked against the format.
void Trace(const char*, ...) QEL_PRINTF_FORMAT(1, 2);
void Trace(const char*, ...) {}

bool IsDeliverable(const HostEvent* event) {
    return event != nullptr && event->context != nullptr && event->name != nullptr &&
           event->name[0] != '\0' && event->payload.type != kHostValueNull;
}

// Service proxy messages arrive as objects of six texts. Reading one straight
// into the record spares a value tree and the interning of a payload that
// can run to kilobytes. Any other shape (other kinds of value, a missing key,
// a broken span) is left to the general conversion, so that both paths give
// the same record or the same refusal.
bool ReadServiceProxyResponse(const HostValue& value, PluginServiceProxyResponse& out) {
    if (value.type != kHostValueObject) {
        return false;
    }
    const auto* entries = static_cast<const HostObjectEntry*>(value.payload.span.address);
    const uint32_t count = value.payload.span.length;
    if (entries == nullptr && count != 0) {
        return false;
    }
    struct Member {
        const char* name;
        std::string PluginServiceProxyResponse::*field;
    };
    static constexpr Member kMembers[] = {
        {"uuid", &PluginServiceProxyResponse::uuid},
        {"serviceName", &PluginServiceProxyResponse::serviceName},
        {"methodName", &PluginServiceProxyResponse::methodName},
        {"payload", &PluginServiceProxyResponse::payload},
        {"status", &PluginServiceProxyResponse::status},
        {"error", &PluginServiceProxyResponse::error},
    };
    constexpr size_t kMemberCount = std::size(kMembers);
    // A repeated key keeps its last value, as in a structure.
    const HostValue* values[kMemberCount] = {};
    for (uint32_t i = 0; i < count; ++i) {
        const HostObjectEntry& entry = entries[i];
        if (entry.key == nullptr) {
            return false;
        }
        const uint32_t type = entry.value.type;
        if (type != kHostValueNull && type != kHostValueTextUnowned &&
            type != kHostValueTextOwned) {
            return false;
        }
        if (type == kHostValueTextOwned && entry.value.payload.span.address == nullptr &&
            entry.value.payload.span.length != 0) {
            return false;
        }
        for (size_t m = 0; m < kMemberCount; ++m) {
            if (std::strcmp(entry.key, kMembers[m].name) == 0) {
                values[m] = &entry.value;
                break;
            }
        }
    }
    for (size_t m = 0; m < kMemberCount; ++m) {
        const HostValue* text = values[m];
        // Null leaves the member as it was, like a missing one.
        if (text == nullptr || text->type == kHostValueNull) {
            continue;
        }
        const char* address = static_cast<const char*>(text->payload.span.address);
        std::string& target = out.*kMembers[m].field;
        if (address == nullptr) {
            target.clear();
        } else if (text->type == kHostValueTextUnowned) {
            target.assign(address);
        } else {
            target.assign(address, text->payload.span.length);
        }
    }
    return true;
}

}  // namespace

void HostEvents::Register(std::string_view name, ResourceHandler handler, uint32_t flags) {
    Store(name, Handlers{std::move(handler), {}}, dispatchers_.resource, flags);
}

void HostEvents::Register(std::string_view name, ServiceProxyHandler handler, uint32_t flags) {
    Store(name, Handlers{{}, std::move(handler)}, dispatchers_.serviceProxy, flags);
}

void HostEvents::Store(std::string_view name, Handlers handlers, HostEventCallback dispatcher,
                       uint32_t flags) {
    std::string key(name);
    handlers_[key] = std::make_shared<const Handlers>(std::move(handlers));
    host_.RegisterEvent(key.c_str(), dispatcher, dispatchers_.context, flags);
}

void HostEvents::Unregister(const std::string& name) {
    host_.UnregisterEvent(name.c_str());
    handlers_.erase(name);
}

void HostEvents::UnregisterAll() {
    for (const auto& entry : handlers_) {
        host_.UnregisterEvent(entry.first.c_str());
    }
    handlers_.clear();
}

std::shared_ptr<const HostEvents::Handlers> HostEvents::Find(const char* name) const {
    auto found = handlers_.find(name);
    return found != handlers_.end() ? found->second : nullptr;
}

// Both kinds of event take this one path; only a service-proxy answer may
// skip the value tree when its shape allows.
template <class Record>
void HostEvents::Deliver(HostEvent* event,
                         std::function<void(const Record&)> Handlers::*slot) const {
    if (!IsDeliverable(event)) {
        return;
    }
    // A copy keeps the handler alive if it replaces itself while running.
    std::shared_ptr<const Handlers> handlers = Find(event->name);
    if (handlers == nullptr || !((*handlers).*slot)) {
        return;
    }
    const auto& handler = (*handlers).*slot;
    if constexpr (std::is_same_v<Record, PluginServiceProxyResponse>) {
        if (PluginServiceProxyResponse direct; ReadServiceProxyResponse(event->payload, direct)) {
            Trace("%s: Handling event %s", shortName_.c_str(), event->name);
            handler(direct);
            return;
        }
    }
    Maybe<BindingProperty> payload = FromHostValue(event->payload, kPayloadName);
    if (!payload) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", shortName_.c_str(), "",
              event->name, payload.GetFailure().message.c_str());
        return;
    }
    Maybe<Record> record = ConvertFromProperty<Record>(registry_, *payload, kPayloadName);
    if (!record) {
        Trace("%s: Couldn't convert payload %s for event %s: %s", shortName_.c_str(),
              payload->KindName(), event->name, record.GetFailure().message.c_str());
        return;
    }
    Trace("%s: Handling event %s", shortName_.c_str(), event->name);
    handler(*record);
}

void HostEvents::DeliverResource(HostEvent* event) const {
    Deliver<Resource>(event, &Handlers::onResource);
}

void HostEvents::DeliverServiceProxy(HostEvent* event) const {
    Deliver<PluginServiceProxyResponse>(event, &Handlers::onServiceProxy);
}

}  // namespace Orvan::Framework
