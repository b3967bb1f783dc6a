// Feeds arbitrary request paths, methods and (small) templates to the route
// matcher and percent-decoder. Input: one method byte, then a template and a
// path separated by the first newline.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "framework/dispatch/HttpMethod.h"
#include "framework/dispatch/PercentDecoding.h"
#include "framework/dispatch/RouteTable.h"

namespace {

using namespace Orvan::Framework;

const std::vector<RouteEntry>& FixedRoutes() {
    static const std::vector<RouteEntry> routes = [] {
        std::vector<RouteEntry> list;
        for (const char* text :
             {"/qel-lobby-team-builder/v1/lobby",
              "/qel-lobby-team-builder/v1/lobby/members/{id}/kick",
              "/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/accept",
              "/files/{+path}", "/doc{#section}", "/a/{x}/{y}", "/v1/file.json"}) {
            auto entry = MakeRouteEntry(kHostMethodGet, text, text);
            if (!entry.HasValue()) {
                std::abort();
            }
            list.push_back(std::move(entry).Value());
        }
        return list;
    }();
    return routes;
}

void CheckMatch(const std::optional<RouteMatch>& match, std::string_view path) {
    if (!match) {
        return;
    }
    const RouteEntry& route = *match->route;
    if (!route.pattern && route.literalPath != path) {
        std::abort();
    }
    for (const auto& [name, value] : match->parameters) {
        // A decoded value never grows.
        if (value.size() > path.size()) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint32_t method = data[0] % 10;
    const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const size_t newline = rest.find('\n');
    const std::string_view templ = newline == std::string_view::npos ? "" : rest.substr(0, newline);
    const std::string_view path =
        newline == std::string_view::npos ? rest : rest.substr(newline + 1);

    CheckMatch(FindRoute(FixedRoutes(), method, path), path);
    if (PercentDecode(path).size() > path.size()) {
        std::abort();
    }
    (void)FunctionNameFromRoute(method, templ);

    // Templates come from registration code, so they are trusted to be small;
    // keep the fuzzed one within what registration would write, since many
    // "(.*)" groups backtrack polynomially.
    const RouteTemplate parsed = ParseRouteTemplate(templ);
    if (templ.size() > 64 || parsed.parameters.size() > 3) {
        return 0;
    }
    auto entry = MakeRouteEntry(method, templ, nullptr, {}, {});
    if (!entry.HasValue()) {
        return 0;
    }
    std::vector<RouteEntry> routes;
    routes.push_back(std::move(entry).Value());
    CheckMatch(FindRoute(routes, method, path), path);
    return 0;
}
