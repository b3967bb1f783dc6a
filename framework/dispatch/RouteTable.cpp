#include "framework/dispatch/RouteTable.h"

#include "framework/dispatch/AsciiCase.h"

#include <algorithm>
#include <utility>

#include "framework/dispatch/HttpMethod.h"
#include "framework/dispatch/PercentDecoding.h"

namespace Orvan::Framework {

namespace {

constexpr std::string_view kRegexSpecials = "^$.*+?()[]|\\";

std::string_view PatternOf(PathParameterKind kind) {
    switch (kind) {
        case PathParameterKind::Reserved:
            return "(.*)";
        case PathParameterKind::Fragment:
            return "#(.*)";
        case PathParameterKind::Simple:
            break;
    }
    return "([^/]*)";
}

bool IsNameSeparator(char c) {
    return c == '!' || c == '+' || c == '-' || c == '.' || c == '/' || c == '_';
}

bool AcceptsCallKind(const RouteEntry& route, uint32_t method, std::string_view target) {
    if (route.callKind.method == 0) {
        return true;
    }
    return route.callKind.method == method && route.callKind.target == target;
}

// Tests one route; on success fills `match` and the summed length of its
// decoded parameter values.
bool TryRoute(const RouteEntry& route, uint32_t method, std::string_view target, RouteMatch& match,
              size_t& total) {
    if (method == kHostMethodDirectCall) {
        // A direct call carries a function name, not a path: only a binding
        // that names the function can accept it.
        if (route.callKind.method != kHostMethodDirectCall || route.callKind.target != target) {
            return false;
        }
        match = RouteMatch{route.function, &route, {}};
        total = 0;
        return true;
    }
    if (!route.secondText.empty() && method != kHostMethodGet && method != kHostMethodHead) {
        return false;
    }
    if (!AcceptsCallKind(route, method, target)) {
        return false;
    }
    if (!route.pattern) {
        if (route.literalPath.empty() || route.literalPath != target) {
            return false;
        }
        match = RouteMatch{route.function, &route, {}};
        total = 0;
        return true;
    }
    if (target.size() > kMaxPatternPathLength) {
        return false;
    }
    std::cmatch groups;
    try {
        if (!std::regex_match(target.data(), target.data() + target.size(), groups,
                              *route.pattern)) {
            return false;
        }
    } catch (const std::regex_error&) {
        // Some engines give up on complexity instead of recursing; treat that
        // as no match rather than letting it escape.
        return false;
    }
    RouteMatch result{route.function, &route, {}};
    size_t sum = 0;
    const size_t count = std::min(route.parameters.size(), groups.size() - 1);
    for (size_t i = 0; i < count; ++i) {
        const auto& group = groups[i + 1];
        std::string value =
            group.matched ? PercentDecode(std::string_view(group.first, group.second - group.first))
                          : std::string();
        sum += value.size();
        result.parameters.insert_or_assign(route.parameters[i].name, std::move(value));
    }
    match = std::move(result);
    total = sum;
    return true;
}

template <class Routes, class Filter>
std::optional<RouteMatch> FindAmong(const Routes& routes, uint32_t method, std::string_view target,
                                    Filter filter) {
    std::optional<RouteMatch> best;
    size_t bestTotal = 0;
    RouteMatch candidate;
    size_t total = 0;
    for (const RouteEntry& route : routes) {
        if (!filter(route) || !TryRoute(route, method, target, candidate, total)) {
            continue;
        }
        if (!best || total < bestTotal) {
            best = std::move(candidate);
            bestTotal = total;
        }
        if (best->route->parameters.empty()) {
            break;
        }
    }
    return best;
}

}  // namespace

RouteTemplate ParseRouteTemplate(std::string_view templateText) {
    RouteTemplate result;
    if (templateText.find('{') == std::string_view::npos) {
        result.literalPath = std::string(templateText);
        return result;
    }
    result.isLiteral = false;
    result.pattern.reserve(templateText.size() + 16);
    bool inGroup = false;
    PathParameter current;
    for (const char c : templateText) {
        if (!inGroup) {
            if (c == '{') {
                inGroup = true;
                current = PathParameter{};
            } else {
                if (kRegexSpecials.find(c) != std::string_view::npos) {
                    result.pattern.push_back('\\');
                }
                result.pattern.push_back(c);
            }
            continue;
        }
        if (c == '}') {
            result.pattern.append(PatternOf(current.kind));
            result.parameters.push_back(std::exchange(current, PathParameter{}));
            inGroup = false;
        } else if (current.name.empty() && c == '+') {
            current.kind = PathParameterKind::Reserved;
        } else if (current.name.empty() && c == '#') {
            current.kind = PathParameterKind::Fragment;
        } else {
            current.name.push_back(c);
        }
    }
    return result;
}

Maybe<RouteEntry> MakeRouteEntry(uint32_t method, std::string_view templateText,
                                 const void* function, std::string secondText, CallKind callKind) {
    RouteTemplate parsed = ParseRouteTemplate(templateText);
    RouteEntry entry;
    entry.method = method;
    entry.function = function;
    entry.literalPath = std::move(parsed.literalPath);
    entry.secondText = std::move(secondText);
    if (!parsed.isLiteral) {
        try {
            entry.pattern.emplace(parsed.pattern, std::regex::ECMAScript | std::regex::optimize);
        } catch (const std::regex_error& error) {
            return Failure("Invalid route template '" + std::string(templateText) +
                           "': " + error.what());
        }
    }
    entry.parameters = std::move(parsed.parameters);
    entry.callKind = std::move(callKind);
    entry.routeTemplate = std::string(templateText);
    return entry;
}

std::optional<RouteMatch> FindRoute(std::span<const RouteEntry> routes, uint32_t method,
                                    std::string_view target) {
    return FindAmong(routes, method, target, [](const RouteEntry&) { return true; });
}

std::optional<RouteMatch> FindRouteOfMethod(std::span<const RouteEntry> routes, uint32_t method,
                                            std::string_view target) {
    return FindAmong(routes, method, target,
                     [method](const RouteEntry& route) { return route.method == method; });
}

std::string FunctionNameFromRoute(uint32_t method, std::string_view templateText) {
    const std::string_view methodName = HttpMethodName(method);
    std::string joined;
    joined.reserve(methodName.size() + 1 + templateText.size());
    if (!methodName.empty()) {
        joined.push_back(methodName.front());
        for (const char c : methodName.substr(1)) {
            joined.push_back(AsciiLower(c));
        }
        joined.push_back('/');
    }
    joined.append(templateText);

    std::string name;
    name.reserve(joined.size() + 8);
    bool upperNext = true;
    for (const char c : joined) {
        if (IsNameSeparator(c)) {
            upperNext = true;
        } else if (c == '{') {
            name.append("By");
            upperNext = true;
        } else if (c == '}') {
            continue;
        } else {
            name.push_back(upperNext ? AsciiUpper(c) : c);
            upperNext = false;
        }
    }
    return name;
}

Maybe<> RouteTable::Add(RouteEntry entry) {
    for (const RouteEntry& existing : routes_) {
        if (existing.method == entry.method && existing.routeTemplate == entry.routeTemplate &&
            existing.callKind.method == entry.callKind.method &&
            existing.callKind.target == entry.callKind.target) {
            const std::string_view methodName = HttpMethodName(entry.method);
            return Failure(
                "Duplicate route " +
                (methodName.empty() ? std::to_string(entry.method) : std::string(methodName)) +
                " '" + entry.routeTemplate + "'");
        }
    }
    routes_.push_back(std::move(entry));
    return Maybe<>::Success();
}

std::optional<RouteMatch> RouteTable::Find(uint32_t method, std::string_view target) const {
    return FindAmong(routes_, method, target,
                     [method](const RouteEntry& route) { return route.method == method; });
}

}  // namespace Orvan::Framework
