// PluginUnderFuzz: the team-builder plugin, linked into the fuzzer, loaded
// and started once per process in the tests' host, with the login plugin's
// service proxy played by the fuzzer: every call the plugin makes is answered
// on the host's next turn with the next answer the fuzzer queued (or, when
// none is queued, with a failure), so a waiting handler always wakes up.
// The plugin keeps its state from one input to the next: that is how DTOs
// reach it in real life.
//
// Ownership: one process-wide instance, never destroyed (the plugin lives as
// long as the process). Threads: the fuzzer's one thread.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

#include "framework/binding/BindingProperty.h"
#include "framework/module/PluginEntry.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"
#include "tests/support/TestHost.h"

namespace Orvan::Fuzzing {

using Framework::BindingProperty;
using Orvan::Testing::TestHost;

inline void QEL_HOST_CALL LoadPluginUnderFuzz(PluginLoadRecord* record) {
    Framework::LoadPluginModule<Client::LobbyTeamBuilder::LobbyTeamBuilderPlugin>(
        record, Client::LobbyTeamBuilder::kShortName);
}

// A message of the service proxy as the login plugin hands it over.
inline BindingProperty ProxyMessage(
    std::string_view method, std::string_view payload, std::string_view uuid = {},
    std::string_view status = Client::LobbyTeamBuilder::kServiceStatusOk,
    std::string_view error = {}) {
    BindingProperty message;
    message.MutableField("uuid").SetString(uuid);
    message.MutableField("serviceName").SetString(Client::LobbyTeamBuilder::kTeamBuilderService);
    message.MutableField("methodName").SetString(method);
    message.MutableField("payload").SetString(payload);
    message.MutableField("status").SetString(status);
    message.MutableField("error").SetString(error);
    return message;
}

class PluginUnderFuzz {
public:
    struct Answer {
        std::string method;
        std::string payload;
        std::string status{Client::LobbyTeamBuilder::kServiceStatusOk};
        std::string error;
    };

    static PluginUnderFuzz& Instance() {
        static PluginUnderFuzz* instance = new PluginUnderFuzz();
        return *instance;
    }

    TestHost& Host() { return host_; }
    void QueueAnswer(Answer answer) { answers_.push_back(std::move(answer)); }
    void ClearAnswers() { answers_.clear(); }

    // The signed-in player's session, as the login plugin announces it.
    void SignIn(uint64_t summonerId) {
        BindingProperty session;
        session.MutableField("state").SetString("SUCCEEDED");
        session.MutableField("summonerId").SetUnsigned(summonerId);
        session.MutableField("accountId").SetUnsigned(summonerId + 1);
        session.MutableField("connected").SetBool(true);
        host_.EmitResource("/qel-login/v1/session", "Update", std::move(session));
        host_.Pump();
    }

    // Forgets what the host recorded, so a long run does not grow.
    void Trim() {
        host_.ClearCalls();
        host_.ClearEvents();
    }

private:
    PluginUnderFuzz() {
        host_.LoadWith(&LoadPluginUnderFuzz);
        auto answer = [this](std::string_view uuid, std::string_view method) {
            Answer next;
            if (answers_.empty()) {
                next.error = "no answer";
                next.status.clear();
            } else {
                next = std::move(answers_.front());
                answers_.pop_front();
            }
            BindingProperty message =
                ProxyMessage(next.method.empty() ? method : std::string_view(next.method),
                             next.payload, uuid, next.status, next.error);
            return message;
        };
        host_.OnRequest("POST", "/qel-login/v1/service-proxy-uuid-requests",
                        [this, answer](const TestHost::Request& request) {
                            const std::string uuid = "u" + std::to_string(++uuids_);
                            const std::string method =
                                request.arguments.size() > 1
                                    ? std::string(request.arguments[1].GetString())
                                    : std::string();
                            host_.Emit("OnServiceProxyUuidEvent", answer(uuid, method));
                            return TestHost::Reply::Body(BindingProperty(uuid));
                        });
        host_.OnRequest("POST", "/qel-login/v1/service-proxy-method-requests",
                        [this, answer](const TestHost::Request& request) {
                            const std::string responseMethod =
                                request.arguments.size() > 2
                                    ? std::string(request.arguments[2].GetString())
                                    : std::string();
                            BindingProperty message = answer("", responseMethod);
                            message.MutableField("methodName").SetString(responseMethod);
                            host_.Emit("OnServiceProxyMethodEvent", std::move(message));
                            return TestHost::Reply::Body(BindingProperty());
                        });
        if (!host_.Start()) {
            std::abort();
        }
        SignIn(2400001);
        Trim();
    }

    TestHost host_;
    std::deque<Answer> answers_;
    uint64_t uuids_ = 0;
};

}  // namespace Orvan::Fuzzing
