// ApiDescriptor: the C description of a module's API handed to the host in
// the load record: one record per endpoint, per registered type (with its
// fields or enumerators) and per registered event.
//
// The records of one array lie consecutively and each one's first word points
// at the next (0 in the last). Types appear in name order, events and
// endpoints in registration order. Every text is NUL-terminated and owned by
// the descriptor.
//
// Endpoints are described by the dispatch layer, which knows each endpoint's
// callback, context and route: it hands one EndpointDescription per endpoint
// to AppModule::AddEndpoint while the module registers its endpoints, and the
// descriptor turns them into records together with the function's help data
// from the registry.
//
// Ownership: the module owns its descriptor; the records stay valid and
// unchanged from the end of the entry until DestroyModule.
// Threads: built once on the load path, then read by the host.
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

class BindingTypeRegistry;
struct BindingFunctionInfo;

struct EndpointDescription {
    // The endpoint's function in the module's registry.
    const BindingFunctionInfo* function = nullptr;
    HostDispatchCallback dispatch = nullptr;
    // Handed back by the host in every request to the endpoint.
    void* dispatchContext = nullptr;
    std::string urlTemplate;
    uint32_t method = 0;
    // Copied to the host as they were registered.
    uint8_t flags = 0;
    std::vector<std::vector<std::string>> stringLists;
    std::string secondText;
};

class ApiDescriptor {
public:
    ApiDescriptor() = default;
    ApiDescriptor(const ApiDescriptor&) = delete;
    ApiDescriptor& operator=(const ApiDescriptor&) = delete;

    // Replaces any earlier content.
    void Build(const BindingTypeRegistry& registry, std::span<const EndpointDescription> endpoints);

    PluginApiDescriptor* Record() { return &descriptor_; }
    const PluginApiDescriptor* Record() const { return &descriptor_; }

private:
    const char* Text(std::string_view text);
    // Counts are stored by the caller: a reference to a field of a packed
    // record may be misaligned.
    const char* const* TextArray(const std::vector<std::string>& texts);
    void AddTypes(const BindingTypeRegistry& registry);
    void AddEvents(const BindingTypeRegistry& registry);
    void AddEndpoints(const BindingTypeRegistry& registry,
                      std::span<const EndpointDescription> endpoints);
    void Link();

    // Element ranges of one record's sub-array, linked after every vector is
    // final (their storage may still move while they grow).
    struct Range {
        size_t first = 0;
        size_t count = 0;
    };

    std::deque<std::string> texts_;
    std::deque<std::vector<const char*>> textArrays_;
    std::vector<TypeRecord> types_;
    std::vector<Range> typeFields_;
    std::vector<Range> typeEnumerators_;
    std::vector<FieldRecord> fields_;
    std::vector<EnumeratorRecord> enumerators_;
    std::vector<EventRecord> events_;
    std::vector<EndpointRecord> endpoints_;
    std::vector<Range> endpointArguments_;
    std::vector<Range> endpointLocations_;
    std::vector<Range> endpointStringLists_;
    std::vector<ArgumentRecord> arguments_;
    std::vector<ArgumentLocationRecord> locations_;
    std::vector<EndpointStringListRecord> stringLists_;
    PluginApiDescriptor descriptor_{};
};

}  // namespace Orvan::Framework
