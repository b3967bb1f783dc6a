// BindingFunctionInfo and BindingEventInfo: the callable operations (REST
// endpoints and direct calls) and the events of a module's API, as the type
// registry holds them for dispatch and for the API description.
//
// Ownership: the registry owns every record for its lifetime. The handler and
// route slots are opaque here; request dispatch fills and reads them.
// Threads: records are filled on the start-up path and read-only afterwards.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/BindingTypeIdentifier.h"

namespace Orvan::Framework {

class BindingTypeRegistry;

// Where a declared argument may be taken from in a request.
enum class ArgumentLocation : uint32_t {
    Any = 0,
    Query = 1,
    Path = 2,
    Header = 4,
    Body = 5,
};

// One declared argument of a function, in the order of the handler's
// parameters.
struct BindingArgumentInfo {
    std::string name;
    uint32_t nameHash = 0;  // FNV-1a of name
    std::string description;
    BindingTypeIdentifier type;
    uint8_t optional = 0;
    ArgumentLocation location = ArgumentLocation::Any;
};

struct BindingFunctionInfo {
    std::string name;
    std::vector<BindingArgumentInfo> arguments;
    BindingTypeIdentifier returnType;
    // The registered type of the result of an asynchronous function.
    BindingTypeIdentifier asyncType;
    std::vector<std::string> tags;
    std::string nameSpace;
    std::string description;
    std::string help;
    bool threadSafe = false;
    bool async = false;
    // Opaque to the registry: the handler to invoke and the route data
    // (method, template, compiled matcher) that request dispatch attaches.
    std::shared_ptr<void> handler;
    std::shared_ptr<void> route;
    const BindingTypeRegistry* registry = nullptr;

    bool HasTag(std::string_view tag) const {
        for (const std::string& t : tags) {
            if (t == tag) {
                return true;
            }
        }
        return false;
    }
};

struct BindingEventInfo {
    std::string name;
    std::string nameSpace;
    BindingTypeIdentifier type;  // of the payload
    std::string description;
    std::vector<std::string> tags;
};

}  // namespace Orvan::Framework
