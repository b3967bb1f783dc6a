// The built-in types that every module registers at start-up: the records of
// the API description, the help format, the state of an asynchronous
// operation, the generic event records, and the event "OnCallback".
//
// Ownership: plain records, copied by value.
// Threads: RegisterBuiltinTypes runs on the start-up path; registering twice
// leaves one registration of each type and event.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/binding/BindingProperty.h"

namespace Orvan::Framework {

class BindingTypeRegistry;

enum class BindingHelpFormat : int32_t {
    Full = 1,
    Epytext = 2,
};

enum class BindingAsyncState : int32_t {
    None = 0,
    Running = 1,
    Cancelling = 2,
    Cancelled = 3,
    Succeeded = 4,
    Failed = 5,
};

struct BindingFullTypeIdentifier {
    std::string type;
    std::string elementType;
};

struct BindingFullArgumentHelp {
    std::string name;
    std::string description;
    BindingFullTypeIdentifier type;
    bool optional = false;
};

struct BindingFullFunctionHelp {
    std::string name;
    std::string nameSpace;
    std::vector<BindingFullArgumentHelp> arguments;
    BindingFullTypeIdentifier returns;
    std::string description;
    std::string help;
    bool threadSafe = false;
    std::string async;  // name of the asynchronous result type; empty when synchronous
    std::vector<std::string> tags;
};

struct BindingFullEnumValueHelp {
    std::string name;
    std::string description;
    int32_t value = 0;
};

struct BindingFullFieldHelp {
    std::string name;
    std::string description;
    uint32_t offset = 0;
    BindingFullTypeIdentifier type;
    bool optional = false;
};

struct BindingFullTypeHelp {
    std::string name;
    std::string nameSpace;
    uint32_t size = 0;
    std::string description;
    std::vector<std::string> tags;
    std::vector<BindingFullFieldHelp> fields;
    std::vector<BindingFullEnumValueHelp> values;
};

struct BindingFullEventHelp {
    std::string name;
    std::string nameSpace;
    BindingFullTypeIdentifier type;
    std::string description;
    std::vector<std::string> tags;
};

struct BindingFullApiHelp {
    std::vector<BindingFullFunctionHelp> functions;
    std::vector<BindingFullTypeHelp> types;
    std::vector<BindingFullEventHelp> events;
};

struct BindingGenericEvent {
    BindingProperty data;
};

struct BindingCallbackEvent {
    uint32_t id = 0;
    std::vector<BindingProperty> parameters;
};

struct BindingGenericAsyncEvent {
    uint32_t asyncToken = 0;
    BindingProperty data;
};

struct BindingAsyncFailureEvent {
    uint32_t asyncToken = 0;
    std::string error;
};

struct BindingAsyncCancelEvent {
    uint32_t asyncToken = 0;
};

void RegisterBuiltinTypes(BindingTypeRegistry& registry);

}  // namespace Orvan::Framework
