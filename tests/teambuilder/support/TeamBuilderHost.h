// TeamBuilderHost: the test host with the team-builder plugin loaded and
// started, and the vocabulary of its tests: game DTOs built as records and
// pushed as the service pushes them, the resource events the plugin
// published (one line per event, "Update countdown"), resource changes of the
// followed sessions, and the plugin's log lines.
//
//   TeamBuilderHost host;                    // the plugin's shared object
//   host.Push(Premade(1, {Slot(1, 11)}));
//   EXPECT_EQ(host.TakeEvents(), (Strings{"Update countdown", "Create matchmaking"}));
//
// TeamBuilderHost(kInProcess) loads a copy of the plugin linked into the test
// instead, so a test can reach the plugin object (Plugin()) and see log
// groups (LogEntries()).
//
// Ownership: owns its TestHost. Threads: the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/NativeConversion.h"
#include "framework/codec/Json.h"
#include "framework/log/Logger.h"
#include "framework/log/MemoryLogTarget.h"
#include "framework/module/PluginEntry.h"
#include "teambuilder/common/RegisterTypes.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"
#include "tests/support/TestHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {

using namespace Api;
using Framework::BindingProperty;
using Orvan::Testing::TestHost;
using Strings = std::vector<std::string>;

inline constexpr int32_t kQueue = 420;

// ---- Records --------------------------------------------------------------

inline const Framework::BindingTypeRegistry& Types() {
    static const auto* registry = [] {
        auto* r = new Framework::BindingTypeRegistry();
        RegisterTeamBuilderTypes(*r);
        return r;
    }();
    return *registry;
}

template <class T>
BindingProperty ValueOf(const T& record) {
    auto value = Framework::ConvertToProperty(Types(), record);
    EXPECT_TRUE(value.HasValue());
    return value.HasValue() ? std::move(value).Value() : BindingProperty();
}

template <class T>
std::string JsonOf(const T& record) {
    return Framework::WriteJson(ValueOf(record), &Types());
}

// JSON text as values crossing the host come back: structures in name order.
inline std::string Canonical(std::string_view json) {
    auto value = Framework::ReadJson(json);
    EXPECT_TRUE(value.HasValue()) << json;
    return value.HasValue() ? Framework::WriteJson(*value) : std::string();
}

inline TbLobbySlotResource Slot(int32_t slotId, uint64_t summonerId,
                                std::vector<std::string> preferences = {}) {
    TbLobbySlotResource slot;
    slot.slotId = slotId;
    slot.summonerId = summonerId;
    slot.summonerName = "player" + std::to_string(slotId);
    slot.draftPositionPreferences = std::move(preferences);
    return slot;
}

// The usual lobby: slots 1..n with summoners 11, 12, ..., captain and local
// player in slot 1.
inline std::vector<TbLobbySlotResource> Slots(int count) {
    std::vector<TbLobbySlotResource> slots;
    for (int i = 1; i <= count; ++i) {
        slots.push_back(Slot(i, uint64_t{10} + static_cast<uint64_t>(i)));
    }
    return slots;
}

inline TbdGameDtoV1 Dto(std::string phase, int32_t counter, int32_t queueId = kQueue) {
    TbdGameDtoV1 dto;
    dto.phaseName = std::move(phase);
    dto.counter = counter;
    dto.queueId = queueId;
    return dto;
}

inline TbdGameDtoV1 Premade(int32_t counter, std::vector<TbLobbySlotResource> slots,
                            std::string reason = {}, std::vector<int32_t> reasonSlots = {}) {
    TbdGameDtoV1 dto = Dto("DRAFT_PREMADE", counter);
    TbLobbyPremadeStateResource premade;
    premade.timer = 30000 + counter;
    premade.draftPremadeId = "lobby-1";
    premade.premadeChatRoomId = "room-1";
    premade.captainSlotId = 1;
    premade.localPlayerSlotId = 1;
    premade.readyToMatchmake = true;
    premade.draftSlots = std::move(slots);
    premade.playableDraftPositions = {"TOP", "MIDDLE", "BOTTOM"};
    premade.backwardsToPremadeTransitionReason.backwardsTransitionReason = std::move(reason);
    premade.backwardsToPremadeTransitionReason.slotIds = std::move(reasonSlots);
    dto.premadeState = std::move(premade);
    return dto;
}

inline TbdGameDtoV1 Searching(int32_t counter, std::string reason = {},
                              int64_t estimateMillis = 0) {
    TbdGameDtoV1 dto = Dto("MATCHMAKING", counter);
    TBDMatchmakingState state;
    state.estimatedMatchmakingTimeMillis = estimateMillis;
    state.backwardsTransitionReason = std::move(reason);
    dto.matchmakingState = state;
    return dto;
}

inline TbdGameDtoV1 ReadyCheck(int32_t counter) {
    TbdGameDtoV1 dto = Dto("AFK_CHECK", counter);
    dto.afkCheckState = AfkCheckStateV1{};
    dto.afkCheckState->maxAfkMillis = 10000;
    return dto;
}

inline TbdGameDtoV1 ChampSelect(int32_t counter) {
    TbdGameDtoV1 dto = Dto("CHAMPION_SELECT", counter);
    dto.championSelectState = ChampionSelectStateV1{};
    dto.championSelectState->teamId = "team-1";
    return dto;
}

// ---- Host messages ----------------------------------------------------------

inline BindingProperty ServiceMessage(std::string_view method, std::string_view payload,
                                      std::string_view uuid = {}, std::string_view error = {}) {
    BindingProperty message;
    message.MutableField("uuid").SetString(uuid);
    message.MutableField("serviceName").SetString("teambuilder-draft");
    message.MutableField("methodName").SetString(method);
    message.MutableField("payload").SetString(payload);
    message.MutableField("status").SetString("OK");
    message.MutableField("error").SetString(error);
    return message;
}

inline void QEL_HOST_CALL LoadPluginInProcess(PluginLoadRecord* record) {
    Framework::LoadPluginModule<LobbyTeamBuilderPlugin>(record, kShortName);
}

struct InProcess {};
inline constexpr InProcess kInProcess{};

class TeamBuilderHost {
public:
    TeamBuilderHost() {
        host_.Load();
        Begin();
    }
    explicit TeamBuilderHost(InProcess) : inProcess_(true) {
        logs_ = std::make_unique<Framework::MemoryLogTarget>();
        Framework::Logger::Acquire().RegisterTarget(*logs_);
        host_.LoadWith(&LoadPluginInProcess);
        Begin();
    }
    ~TeamBuilderHost() {
        host_.Destroy();
        if (logs_) {
            Framework::Logger::Instance().UnregisterTarget(*logs_);
            Framework::Logger::Release();
        }
    }

    TestHost& Host() { return host_; }
    LobbyTeamBuilderPlugin& Plugin() {
        EXPECT_TRUE(inProcess_);
        return *static_cast<LobbyTeamBuilderPlugin*>(
            static_cast<Framework::AppModule*>(host_.Module()));
    }

    // A DTO pushed by the service, delivered at once.
    void Push(const TbdGameDtoV1& dto) { PushJson(JsonOf(dto)); }
    void PushJson(std::string_view payload) {
        host_.Deliver("OnServiceProxyAsyncEvent", ServiceMessage("tbdGameDtoV1", payload));
    }
    // A change of a followed resource, delivered at once.
    template <class T>
    void Change(std::string_view uri, std::string_view eventType, const T& value) {
        ChangeValue(uri, eventType, ValueOf(value));
    }
    void ChangeValue(std::string_view uri, std::string_view eventType, BindingProperty data) {
        host_.EmitResource(uri, eventType, std::move(data));
        host_.Pump();
    }

    // Resource events published since the last call, one line each:
    // "<eventType> <lobby|countdown|matchmaking|uri>". Each event reaches the
    // host twice (under its key and under "OnJsonApiEvent"); it is listed once.
    Strings TakeEvents() { return Take(false); }
    // The same, limited to the lobby, countdown and matchmaking resources
    // (Published() then holds their data only).
    Strings TakeLobbyEvents() { return Take(true); }
    // The data of the events TakeEvents listed, in the same order.
    const std::vector<BindingProperty>& Published() const { return published_; }
    std::string PublishedJson(size_t index) const {
        return index < published_.size() ? Framework::WriteJson(published_[index])
                                         : std::string("<none>");
    }

    // Log lines since the last call, "<level> <text>".
    Strings TakeLogs() {
        Strings lines;
        const std::vector<TestHost::LogLine> logs = host_.Logs();
        for (size_t i = logsSeen_; i < logs.size(); ++i) {
            lines.push_back(std::to_string(logs[i].level) + " " + logs[i].text);
        }
        logsSeen_ = logs.size();
        return lines;
    }
    // In-process only: "<level> <groups> <text>" of every team-builder line
    // since the last call (framework lines begin with the short name).
    Strings TakeLogEntries() {
        Strings lines;
        for (const auto& entry : logs_->Entries()) {
            if (entry.message.rfind(kShortName, 0) != 0) {
                lines.push_back(std::to_string(entry.level) + " " + std::to_string(entry.groups) +
                                " " + entry.message);
            }
        }
        logs_->Clear();
        return lines;
    }

private:
    Strings Take(bool lobbyOnly) {
        Strings lines;
        published_.clear();
        for (const TestHost::EmittedEvent& event : host_.Events()) {
            if (event.key != "OnJsonApiEvent") {
                continue;
            }
            const std::string uri(event.value.Field("uri").GetString());
            const std::string name = Short(uri);
            if (lobbyOnly && name == uri) {
                continue;
            }
            lines.push_back(std::string(event.value.Field("eventType").GetString()) + " " + name);
            published_.push_back(event.value.Field("data"));
        }
        host_.ClearEvents();
        return lines;
    }
    void Begin() {
        EXPECT_TRUE(host_.Start());
        host_.ClearEvents();
        TakeLogs();
        if (logs_) {
            logs_->Clear();
        }
    }
    static std::string Short(const std::string& uri) {
        if (uri == kLobbyUri) {
            return "lobby";
        }
        if (uri == kLobbyCountdownUri) {
            return "countdown";
        }
        if (uri == kMatchmakingUri) {
            return "matchmaking";
        }
        return uri;
    }

    TestHost host_;
    bool inProcess_ = false;
    std::unique_ptr<Framework::MemoryLogTarget> logs_;
    std::vector<BindingProperty> published_;
    size_t logsSeen_ = 0;
};

}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
