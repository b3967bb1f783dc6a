// UrlTemplate: how the host picks the endpoint for a request path. A template
// is a path whose segments may be "{name}" (one segment) or, as the last
// segment, "{+name}" (the rest of the path, slashes included). Among the
// templates that match, a literal one wins; between parameterised ones the
// one whose parameters take the fewest characters wins, and the earlier one
// on a tie. Parameter values are percent-decoded.
//
// Pure functions; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Orvan::Host {

using PathParameters = std::map<std::string, std::string, std::less<>>;

// The parameters when `path` matches `templateText`, else nothing.
std::optional<PathParameters> MatchUrlTemplate(std::string_view templateText,
                                               std::string_view path);

// Characters taken by the parameters of a match (0 for a literal template).
size_t ParameterWeight(const PathParameters& parameters);

std::string PercentDecode(std::string_view text);

// The request path: the URI up to its first "?".
std::string_view UriPath(std::string_view uri);

}  // namespace Orvan::Host
