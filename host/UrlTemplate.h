// UrlTemplate: how the host picks the endpoint for a request path. A template
// is a path whose segments may be "{name}" (one segment) or, as the last
// segment, "{+name}" (the rest of the path, slashes included). Among the
// templates that match, a literal one wins; between parameterised ones the
// one whose parameters take the fewest characters wins, and the earlier one
// on a tie. Parameter values are percent-decoded.
//
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/host/HostAbi.h"

namespace Orvan::Host {

using PathParameters = std::map<std::string, std::string, std::less<>>;

// The parameters when `path` matches `templateText`, else nothing.
std::optional<PathParameters> MatchUrlTemplate(std::string_view templateText,
                                               std::string_view path);

// Characters taken by the parameters of a match (0 for a literal template).
size_t ParameterWeight(const PathParameters& parameters);

std::string PercentDecode(std::string_view text);

// The endpoint the host picks among a plugin's for a request: for a direct
// call (method 8) the one of that function name, otherwise the best match of
// the request's method by the rules above. An endpoint without a dispatch
// function never answers; null when none does.
const EndpointRecord* PickEndpoint(const std::vector<const EndpointRecord*>& endpoints,
                                   uint32_t method, std::string_view path,
                                   std::string_view functionName);

// The request path: the URI up to its first "?".
std::string_view UriPath(std::string_view uri);

}  // namespace Orvan::Host
