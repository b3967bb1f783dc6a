// What the team-builder benchmarks share: the plugin's registry for writing
// payloads, and the plugin loaded into the test host with its event recording
// replaced by a counter, so that only the plugin's work is measured. Each
// payload becomes a host value once, before the measured loop.
//
// Header-only; one benchmark program includes it once. Threads: one.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/NativeConversion.h"
#include "framework/codec/Json.h"
#include "framework/host/HostValueConversion.h"
#include "teambuilder/common/LobbyRecords.h"
#include "teambuilder/common/RegisterTypes.h"
#include "teambuilder/common/TeamBuilderNames.h"
#include "tests/support/TestHost.h"

namespace Orvan::Bench {

inline const Framework::BindingTypeRegistry& TeamBuilderTypes() {
    static const auto* registry = [] {
        auto* r = new Framework::BindingTypeRegistry();
        Client::LobbyTeamBuilder::RegisterTeamBuilderTypes(*r);
        return r;
    }();
    return *registry;
}

// The DTO as the service writes it.
inline std::string DtoPayload(const Client::LobbyTeamBuilder::Api::TbdGameDtoV1& dto) {
    auto value = Framework::ConvertToProperty(TeamBuilderTypes(), dto);
    if (!value) {
        std::abort();
    }
    return Framework::WriteJson(*value, &TeamBuilderTypes());
}

// Events the plugin emitted since the counter was last reset.
inline uint64_t emittedEvents = 0;

inline void QEL_HOST_CALL CountEvent(HostApi*, HostEvent*) {
    ++emittedEvents;
}
inline void QEL_HOST_CALL IgnoreLog(HostApi*, uint32_t, const char*) {}

class PushedDtos {
public:
    explicit PushedDtos(const std::vector<std::string>& payloads) {
        host_.Load();
        host_.Start();
        host_.Functions()->EmitEvent = &CountEvent;
        host_.Functions()->WriteLog = &IgnoreLog;
        for (const std::string& payload : payloads) {
            Framework::BindingProperty message;
            message.MutableField("uuid").SetString("");
            message.MutableField("serviceName")
                .SetString(Client::LobbyTeamBuilder::kTeamBuilderService);
            message.MutableField("methodName").SetString(Client::LobbyTeamBuilder::kGameDtoMethod);
            message.MutableField("payload").SetString(payload);
            message.MutableField("status").SetString(Client::LobbyTeamBuilder::kServiceStatusOk);
            message.MutableField("error").SetString("");
            messages_.push_back(std::make_unique<Framework::OwnedHostValue>());
            if (!Framework::ToHostValue(message, messages_.back()->Get())) {
                std::abort();
            }
        }
    }
    void Push(size_t index) {
        host_.DeliverRaw("OnServiceProxyAsyncEvent", messages_[index]->Get());
    }

private:
    Testing::TestHost host_;
    // Owned host values stay where they were made.
    std::vector<std::unique_ptr<Framework::OwnedHostValue>> messages_;
};

}  // namespace Orvan::Bench
