// RouteTable: turns the URL templates of registered functions into matchers,
// finds the function that answers a request, and yields the decoded values of
// the template's path parameters. Also derives a function's name from its
// method and template (the module's route base uses the same rule).
//
// Template syntax: "{name}" matches one path segment, "{+name}" any text
// including "/", "{#name}" a "#" followed by any text. Templates without a
// parameter are kept as text and compared byte for byte; the others are
// compiled once to a regular expression that must match the whole path.
//
// A route refers to its function through an opaque pointer; the table never
// looks behind it, so it does not depend on the function registry.
//
// Ownership: a RouteMatch points into the RouteEntry it came from, which must
// outlive it. Threads: routes are built before the first request and are
// read-only afterwards; matching keeps its state in the result, so any number
// of threads may match concurrently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/binding/Failure.h"

// GCC 12 reports false maybe-uninitialized warnings inside the standard
// regular-expression compiler when sanitizers are on.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <regex>
#pragma GCC diagnostic pop
#else
#include <regex>
#endif

namespace Orvan::Framework {

enum class PathParameterKind : uint8_t {
    Simple = 1,    // {name}: "([^/]*)"
    Reserved = 2,  // {+name}: "(.*)"
    Fragment = 3,  // {#name}: "#(.*)"
};

struct PathParameter {
    PathParameterKind kind = PathParameterKind::Simple;
    std::string name;

    bool operator==(const PathParameter&) const = default;
};

// A template taken apart: either its literal path, or the source of its
// regular expression with the parameters in template order.
struct RouteTemplate {
    std::string literalPath;
    std::string pattern;
    std::vector<PathParameter> parameters;
    bool isLiteral = true;
};

// Pure text work; never fails. A "{" without its "}" contributes nothing.
RouteTemplate ParseRouteTemplate(std::string_view templateText);

// Restricts which calls reach a function beyond its path. A binding with
// method 0 declares no call kind: every request whose path the route accepts
// reaches it. With a method, the request's method must equal it and the
// request's target (its path, or the function name of a direct call) must
// equal `target`. Direct calls (method 8) reach only functions bound this way.
struct CallKind {
    uint32_t method = 0;
    std::string target;
};

struct RouteEntry {
    uint32_t method = 0;
    // The function the route leads to; opaque here.
    const void* function = nullptr;
    // The template when it holds no "{", else empty.
    std::string literalPath;
    // Non-empty restricts the route to GET and HEAD requests.
    std::string secondText;
    // Present only when the template holds a "{".
    std::optional<std::regex> pattern;
    std::vector<PathParameter> parameters;
    CallKind callKind;
    // The template as registered (messages and duplicate checks).
    std::string routeTemplate;
};

// Compiles a template into a route. Fails only when the regular-expression
// engine refuses the pattern.
Maybe<RouteEntry> MakeRouteEntry(uint32_t method, std::string_view templateText,
                                 const void* function, std::string secondText = {},
                                 CallKind callKind = {});

struct RouteMatch {
    const void* function = nullptr;
    const RouteEntry* route = nullptr;
    // Parameter name to percent-decoded value. A name used twice keeps the
    // later value.
    std::map<std::string, std::string, std::less<>> parameters;
};

// Paths longer than this never match a parameterised route: the standard
// regular-expression engines recurse once per character and would exhaust the
// stack on hostile input. Literal routes compare paths of any length.
inline constexpr size_t kMaxPatternPathLength = 1024;

// Finds the function for a request. `target` is the request path (the URI
// before "?") or, for a direct call, the function name. Among matching routes
// the first wins unless a later one leaves strictly fewer decoded bytes to its
// parameters; a route without parameters ends the search.
std::optional<RouteMatch> FindRoute(std::span<const RouteEntry> routes, uint32_t method,
                                    std::string_view target);

// FindRoute among the routes registered for the request's method only: a
// route of another method never answers, whatever its path.
std::optional<RouteMatch> FindRouteOfMethod(std::span<const RouteEntry> routes, uint32_t method,
                                            std::string_view target);

// "GET" with "/qel-lobby-team-builder/v1/lobby" gives
// "GetQelLobbyTeamBuilderV1Lobby"; method 0 (or 8) contributes nothing, so the
// short name alone gives the route base "QelLobbyTeamBuilder".
std::string FunctionNameFromRoute(uint32_t method, std::string_view templateText);

// An ordered collection of routes, matched per request method. Entries keep
// their addresses for the life of the table.
class RouteTable {
public:
    // Refuses a second route with the same method, template and call kind.
    Maybe<> Add(RouteEntry entry);

    // Walks the routes registered for the request's method, in registration
    // order, with the rules of FindRoute. `target` as for FindRoute.
    std::optional<RouteMatch> Find(uint32_t method, std::string_view target) const;

    size_t Size() const { return routes_.size(); }
    const RouteEntry& At(size_t index) const { return routes_[index]; }

private:
    std::deque<RouteEntry> routes_;
};

}  // namespace Orvan::Framework
