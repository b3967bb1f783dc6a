// HostJson: the host's conversion between the C interface's HostValue and
// JSON text, the form in which the host keeps every payload, argument and
// body. The host reads values of every type code; blobs (7, 8) read as
// base64 strings. Values it makes for a plugin are built from JSON: null,
// bool, signed (2) and unsigned (3) integers, floats, owned texts (6), arrays
// (9) and objects (10) with owned keys. A plugin never frees them: the host
// releases what it made with FreeHostValue once the plugin is done.
//
// Ownership: HostValues made here own their memory (C allocation) until
// FreeHostValue. Values read here stay the caller's.
// Threads: pure functions; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "framework/host/HostAbi.h"

namespace Orvan::Host {

// Deeper values are refused both ways; the plugin's own readers stop earlier.
inline constexpr size_t kMaxValueDepth = 512;

// Writes `value` as compact JSON into `out`. False with `error` set for an
// unknown type code, a missing address, a missing key or too deep a value.
bool HostValueToJson(const HostValue& value, std::string& out, std::string& error);

// Builds a host-owned HostValue from JSON text; an empty text makes null.
// False with `error` set (and `out` null) when the text is not JSON.
bool JsonToHostValue(std::string_view json, HostValue& out, std::string& error);

// Releases what JsonToHostValue made and leaves code 0.
void FreeHostValue(HostValue& value);

// A host-made value freed when it goes out of scope.
class HostValueHolder {
public:
    HostValueHolder() = default;
    ~HostValueHolder() { FreeHostValue(value_); }
    HostValueHolder(const HostValueHolder&) = delete;
    HostValueHolder& operator=(const HostValueHolder&) = delete;
    HostValue& Get() { return value_; }

private:
    HostValue value_{};
};

// JSON text of a string.
std::string QuoteJson(std::string_view text);

// The JSON text, re-written compactly (or the text unchanged when it is not JSON).
std::string CompactJson(std::string_view json);

}  // namespace Orvan::Host
