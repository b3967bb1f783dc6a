// ServiceScript: the team-builder service as the lobby-action tests play it,
// behind the login plugin's service-proxy endpoints of a TeamBuilderHost.
// Each call the plugin makes is recorded as "<method> <payload JSON>"
// ("<empty>" for an empty payload); its
// answer is the next one scripted for that method, delivered on the host's
// next turn (while the plugin waits), under the request's uuid or, for
// method-based requests, under the response method. A call with nothing
// scripted fails at the proxy with "no answer".
//
//   ServiceScript service(host);
//   service.Answer("createDraftPremadeV1", {"tbdGameDtoV1", JsonOf(dto)});
//   host.Host().Call("POST", "/qel-lobby-team-builder/v1/lobby", body);
//   EXPECT_EQ(service.Sent(), (Strings{"createDraftPremadeV1 420"}));
//
// Ownership: refers to the host, which must outlive it. Threads: the test's.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>

#include "tests/teambuilder/support/TeamBuilderHost.h"

namespace Orvan::Client::LobbyTeamBuilder::Testing {

inline constexpr const char* kUuidRequests = "/qel-login/v1/service-proxy-uuid-requests";
inline constexpr const char* kMethodRequests = "/qel-login/v1/service-proxy-method-requests";

class ServiceScript {
public:
    struct Reply {
        Reply(std::string methodName = {}, std::string payloadText = {},
              std::string statusText = "OK", std::string errorText = {})
            : method(std::move(methodName)),
              payload(std::move(payloadText)),
              status(std::move(statusText)),
              error(std::move(errorText)) {}

        std::string method;
        std::string payload;
        std::string status;
        std::string error;  // set: the proxy reports the call failed
    };

    explicit ServiceScript(TeamBuilderHost& host) : host_(host) {
        host_.Host().OnRequest("POST", kUuidRequests, [this](const TestHost::Request& request) {
            const std::string uuid = "u" + std::to_string(++uuids_);
            const std::string method(request.arguments.at(1).GetString());
            Record(method, request.arguments.at(3));
            host_.Host().Emit("OnServiceProxyUuidEvent", Message(Next(method), uuid));
            return TestHost::Reply::Body(BindingProperty(uuid));
        });
        host_.Host().OnRequest("POST", kMethodRequests, [this](const TestHost::Request& request) {
            const std::string method(request.arguments.at(1).GetString());
            Record(method, request.arguments.at(5));
            Reply reply = Next(method);
            // The answer comes under the service and the response method the
            // plugin named.
            reply.method = std::string(request.arguments.at(2).GetString());
            BindingProperty message = Message(reply, "");
            message.MutableField("serviceName").SetString(request.arguments.at(0).GetString());
            host_.Host().Emit("OnServiceProxyMethodEvent", std::move(message));
            return TestHost::Reply::Body(BindingProperty());
        });
    }

    void Answer(const std::string& method, Reply reply) {
        replies_[method].push_back(std::move(reply));
    }
    // The events TakeEvents lists that belong to the lobby side (lobby,
    // countdown, matchmaking); champion select's own come after them.
    static Strings LobbyEvents(TeamBuilderHost& host) {
        Strings lines;
        for (std::string& line : host.TakeEvents()) {
            if (line.find('/') == std::string::npos) {
                lines.push_back(std::move(line));
            }
        }
        return lines;
    }
    // The calls since the last Sent, "<method> <payload JSON>".
    Strings Sent() { return std::exchange(sent_, {}); }

private:
    void Record(const std::string& method, const BindingProperty& payload) {
        const std::string_view text = payload.GetString();
        sent_.push_back(method + " " + (text.empty() ? "<empty>" : Canonical(text)));
    }
    Reply Next(const std::string& method) {
        std::deque<Reply>& queue = replies_[method];
        if (queue.empty()) {
            return Reply{"", "", "", "no answer"};
        }
        Reply reply = std::move(queue.front());
        queue.pop_front();
        return reply;
    }
    static BindingProperty Message(const Reply& reply, const std::string& uuid) {
        BindingProperty message = ServiceMessage(reply.method, reply.payload, uuid, reply.error);
        message.MutableField("status").SetString(reply.status);
        return message;
    }

    TeamBuilderHost& host_;
    std::map<std::string, std::deque<Reply>> replies_;
    Strings sent_;
    int uuids_ = 0;
};

}  // namespace Orvan::Client::LobbyTeamBuilder::Testing
