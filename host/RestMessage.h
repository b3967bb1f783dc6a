// RestMessage: a REST request and its reply as the host routes them between
// plugins, stand-ins and outside callers. Values (arguments, bodies) are JSON
// texts; a request body keeps its bytes and content type as sent.
//
// Ownership: plain values. Threads: the host's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/host/HostAbi.h"

namespace Orvan::Host {

// "GET", ... for codes 1..7, "CALL" for a direct call (8), else "".
std::string_view MethodName(uint32_t method);
// The code of a method name (case-sensitive; "CALL" is 8), or 0.
uint32_t MethodCode(std::string_view name);
// ASCII lower case, for header names and hosts.
std::string LowerAscii(std::string_view text);

struct RestArgument {
    std::string name;  // empty for a positional argument
    std::string json;
};

struct RestRequest {
    uint32_t method = 0;
    std::string uri;  // path, optionally "?" and the query
    std::vector<RestArgument> arguments;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string contentType;
    std::string body;
    bool hasBody = false;
    std::string functionName;  // direct calls
    uint32_t caller = 0;       // plugin handle; 0 for a request from outside

    std::string Path() const;
    // The positional argument at `index` as JSON text, or "" when missing.
    std::string Argument(size_t index) const;
};

struct RestReply {
    uint16_t status = 200;
    bool failed = false;
    std::string error;
    std::string body;  // JSON text; empty for no body
    std::vector<std::pair<std::string, std::string>> headers;
    uint32_t resultFormat = 0;
    // Who answered: a stand-in's or plugin's name; empty when nobody did.
    std::string answeredBy;

    static RestReply Json(std::string body, uint16_t status = 200);
    static RestReply Error(uint16_t status, std::string text);
    bool Ok() const { return !failed && status < 400; }
};

// The plugin's request record (entry 0) as a request from `caller`. An
// argument the host cannot read keeps empty JSON; `unreadable` is then the
// 1-based index of the first such and `error` says why (0 when all read).
RestRequest ReadPluginRequest(const HostRequest& record, uint32_t caller, size_t& unreadable,
                              std::string& error);

// Fills the plugin's reply record (entry 0) from `answer`: its status, format
// and error text, or its body as a host-made value; a body that is not JSON
// fails with 502. The plugin hands it back through ReleasePluginReply.
void WritePluginReply(const RestReply& answer, HostResponse& reply);
void QEL_HOST_CALL ReleasePluginReply(HostResponse* reply);

// Calls a plugin's endpoint with `request` as the host does: arguments made
// from their JSON (400 when one is not JSON), the body with its NUL after it,
// the caller as the plugin handle. `beforeDispatch`, when set, runs once the
// request record is built, just before the endpoint runs.
RestReply CallPluginEndpoint(const EndpointRecord& endpoint, const RestRequest& request,
                             const std::function<void()>& beforeDispatch = {});

// A plugin endpoint's answer as a reply: its status (500 for a failure
// without one, 200 otherwise), headers, and its body, read to the end when it
// is streamed. The response is released.
RestReply TakePluginReply(HostResponse& response);

}  // namespace Orvan::Host
