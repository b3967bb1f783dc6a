// OpenApi: the plugin's REST API as an OpenAPI 3.1 document, built from what
// the plugin says about itself at run time: its endpoint records (method,
// template, where each argument comes from) and its full help (argument and
// return types, every registered record and enumeration). Nothing here names
// a route or a type of the plugin, so a new one shows up by itself.
//
// The document also describes what the gateway adds in front of the plugin:
// /health, /openapi.json, the /events stream, the token and the problem
// replies.
//
// Ownership: plain values; the library and runtime stay the caller's.
// Threads: the host's thread (FetchApiHelp calls into the plugin).
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "host/HostRuntime.h"
#include "host/PluginLibrary.h"

namespace Orvan::Host {

struct OpenApiOptions {
    std::string title = "Plugin API";
    std::string version = "0.0.0";
    // The gateway's base URL ("http://127.0.0.1:8080"); none leaves the
    // document's default, the server that served it.
    std::optional<std::string> serverUrl;
};

// Calls the plugin's built-in "Help" directly in the full format and answers
// its JSON text; nothing with `error` set when the plugin refuses.
std::optional<std::string> FetchApiHelp(HostRuntime& runtime, std::string& error);

// The document as compact JSON text, or "" with `error` set when `helpJson`
// is not the full help (an object with "functions" and "types" lists).
std::string BuildOpenApiDocument(const PluginLibrary& library, const std::string& helpJson,
                                 const OpenApiOptions& options, std::string& error);

// Loads and starts the plugin, prints its document to `out` followed by a
// line feed. 0 when printed; 2 when the plugin does not load, 1 when it does
// not start or describe itself (the reason on standard error either way).
int PrintOpenApi(const PluginLoadOptions& plugin, std::FILE* out);

}  // namespace Orvan::Host
