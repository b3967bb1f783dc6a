#include "framework/dispatch/RouteTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/dispatch/HttpMethod.h"
#include "framework/dispatch/PercentDecoding.h"

namespace Orvan::Framework {
namespace {

using Params = std::map<std::string, std::string, std::less<>>;

// Builds routes whose opaque function is the address of their template, so a
// match can be traced back to the template that produced it.
std::vector<RouteEntry> MakeRoutes(const std::vector<std::string>& templates, uint32_t method) {
    std::vector<RouteEntry> routes;
    for (const std::string& text : templates) {
        auto entry = MakeRouteEntry(method, text, &text);
        EXPECT_TRUE(entry.HasValue()) << text;
        routes.push_back(std::move(entry).Value());
    }
    return routes;
}

struct MatchCase {
    std::vector<std::string> templates;
    std::string path;
    std::string expectedTemplate;  // empty: no route matches
    Params expectedParams;
};

TEST(RouteTableTest, FindsRouteAndDecodesParameters) {
    const std::vector<MatchCase> cases = {
        // A literal route beats a parameterised one in either order.
        {{"/a/{id}", "/a/special"}, "/a/special", "/a/special", {}},
        {{"/a/special", "/a/{id}"}, "/a/special", "/a/special", {}},
        {{"/a/special", "/a/{id}"}, "/a/other", "/a/{id}", {{"id", "other"}}},
        // One segment only for {name}; {+name} takes the rest.
        {{"/a/{id}"}, "/a/1/2", "", {}},
        {{"/a/{+rest}"}, "/a/1/2", "/a/{+rest}", {{"rest", "1/2"}}},
        {{"/a/{id}"}, "/a/", "/a/{id}", {{"id", ""}}},
        {{"/a/{id}"}, "/a/x%2Fy", "/a/{id}", {{"id", "x/y"}}},
        {{"/a/{id}"}, "/a/a+b", "/a/{id}", {{"id", "a b"}}},
        {{"/a/{#frag}"}, "/a/#x/y", "/a/{#frag}", {{"frag", "x/y"}}},
        {{"/a/{#frag}"}, "/a/x", "", {}},
        // Full match, not a search.
        {{"/a/{id}"}, "/prefix/a/1", "", {}},
        {{"/a/{id}"}, "/a/1/", "", {}},
        {{"/a"}, "/a/", "", {}},
        // Template characters are literal, not regular-expression syntax.
        {{"/v1/file.json/{id}"}, "/v1/fileXjson/1", "", {}},
        {{"/v1/file.json/{id}"}, "/v1/file.json/1", "/v1/file.json/{id}", {{"id", "1"}}},
        {{"/a(b)*/{id}"}, "/a(b)*/1", "/a(b)*/{id}", {{"id", "1"}}},
        {{"/a|b/{id}"}, "/b/1", "", {}},
        // Between parameterised routes, the one leaving less text to its
        // parameters wins, in either order; on a tie the earlier one stays.
        {{"/a/{+rest}", "/a/{x}/{y}"}, "/a/b/c", "/a/{x}/{y}", {{"x", "b"}, {"y", "c"}}},
        {{"/a/{x}/{y}", "/a/{+rest}"}, "/a/b/c", "/a/{x}/{y}", {{"x", "b"}, {"y", "c"}}},
        {{"/a/{x}/c", "/a/b/{y}"}, "/a/b/c", "/a/{x}/c", {{"x", "b"}}},
        {{"/a/b/{y}", "/a/{x}/c"}, "/a/b/c", "/a/b/{y}", {{"y", "c"}}},
        // Decoded lengths count: "%41" is one byte against "xy"'s two.
        {{"/p/{a}", "/p/{b}x"}, "/p/%41x", "/p/{b}x", {{"b", "A"}}},
        {{"/p/{a}x", "/p/{b}"}, "/p/%41x", "/p/{a}x", {{"a", "A"}}},
        // Literal routes compare byte for byte.
        {{"/Lobby"}, "/lobby", "", {}},
    };
    for (const MatchCase& c : cases) {
        SCOPED_TRACE(c.path);
        const auto routes = MakeRoutes(c.templates, kHostMethodGet);
        const auto match = FindRoute(routes, kHostMethodGet, c.path);
        if (c.expectedTemplate.empty()) {
            EXPECT_FALSE(match.has_value());
            continue;
        }
        ASSERT_TRUE(match.has_value());
        EXPECT_EQ(match->route->routeTemplate, c.expectedTemplate);
        EXPECT_EQ(static_cast<const std::string*>(match->function)->c_str(), c.expectedTemplate);
        EXPECT_EQ(match->parameters, c.expectedParams);
    }
}

TEST(RouteTableTest, CompilesTemplatesToPatterns) {
    struct Case {
        std::string templ;
        bool literal;
        std::string pattern;
        std::vector<PathParameter> params;
    };
    const std::vector<Case> cases = {
        {"/qel-lobby-team-builder/v1/lobby", true, "", {}},
        {"/qel-lobby-team-builder/champ-select/v1/session/trades/{id}/accept",
         false,
         "/qel-lobby-team-builder/champ-select/v1/session/trades/([^/]*)/accept",
         {{PathParameterKind::Simple, "id"}}},
        {"/f.x/{+path}{#frag}",
         false,
         "/f\\.x/(.*)#(.*)",
         {{PathParameterKind::Reserved, "path"}, {PathParameterKind::Fragment, "frag"}}},
        // Only a leading "+" or "#" picks the kind.
        {"/{a+b}", false, "/([^/]*)", {{PathParameterKind::Simple, "a+b"}}},
        // An unclosed group contributes nothing.
        {"/x/{open", false, "/x/", {}},
        {"^$[]|\\?{p}", false, "\\^\\$\\[\\]\\|\\\\\\?([^/]*)", {{PathParameterKind::Simple, "p"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.templ);
        const RouteTemplate parsed = ParseRouteTemplate(c.templ);
        EXPECT_EQ(parsed.isLiteral, c.literal);
        EXPECT_EQ(parsed.literalPath, c.literal ? c.templ : "");
        EXPECT_EQ(parsed.pattern, c.pattern);
        EXPECT_EQ(parsed.parameters, c.params);
        auto entry = MakeRouteEntry(kHostMethodGet, c.templ, nullptr);
        ASSERT_TRUE(entry.HasValue());
        EXPECT_EQ(entry->pattern.has_value(), !c.literal);
    }
}

TEST(RouteTableTest, DerivesFunctionNames) {
    struct Case {
        uint32_t method;
        std::string templ;
        std::string name;
    };
    const std::vector<Case> cases = {
        {kHostMethodGet, "/qel-lobby-team-builder/v1/lobby", "GetQelLobbyTeamBuilderV1Lobby"},
        {kHostMethodPost, "/qel-lobby-team-builder/v1/lobby/members/{id}/kick",
         "PostQelLobbyTeamBuilderV1LobbyMembersByIdKick"},
        {kHostMethodDelete, "/a_b!c.d", "DeleteABCD"},
        {kHostMethodOptions, "/x/{+rest}", "OptionsXByRest"},
        {kHostMethodPatch, "/x/{#frag}", "PatchXBy#frag"},
        {kHostMethodPut, "/already/Upper", "PutAlreadyUpper"},
        // The route base: no method, no separator.
        {kHostMethodNone, "qel-lobby-team-builder", "QelLobbyTeamBuilder"},
        {kHostMethodDirectCall, "help", "Help"},
        {99, "", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FunctionNameFromRoute(c.method, c.templ), c.name) << c.templ;
    }
}

TEST(RouteTableTest, PercentDecodes) {
    struct Case {
        std::string in;
        std::string out;
    };
    const std::vector<Case> cases = {
        {"x%2Fy", "x/y"},
        {"a+b", "a b"},
        {"%41%62%7e%7E", "Ab~~"},
        {"%", "%"},
        {"%4", "%4"},
        {"ab%", "ab%"},
        // Invalid digits: the three characters are kept as they came, and the
        // scan resumes after them.
        {"%zz", "%zz"},
        {"%4g1", "%4g1"},
        {"%+41", "%+41"},
        {"%%41", "%%41"},
        {"%2%41", "%2%41"},
        {std::string("%00x", 4), std::string("\0x", 2)},
        {"%ff", "\xff"},
        {"", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PercentDecode(c.in), c.out) << c.in;
    }
    EXPECT_EQ(PathOfUri("/a/b?x=1?y"), "/a/b");
    EXPECT_EQ(QueryOfUri("/a/b?x=1?y"), "x=1?y");
    EXPECT_EQ(QueryOfUri("/a/b"), "");
}

TEST(RouteTableTest, CallKindSecondTextAndDirectCalls) {
    int help = 0;
    int lobby = 0;
    int session = 0;
    std::vector<RouteEntry> routes;
    routes.push_back(
        MakeRouteEntry(kHostMethodDirectCall, "", &help, {}, {kHostMethodDirectCall, "Help"})
            .Value());
    routes.push_back(MakeRouteEntry(kHostMethodGet, "/lobby", &lobby, "readable").Value());
    routes.push_back(
        MakeRouteEntry(kHostMethodPost, "/s/{id}", &session, {}, {kHostMethodPost, "/s/7"})
            .Value());

    const auto direct = FindRoute(routes, kHostMethodDirectCall, "Help");
    ASSERT_TRUE(direct.has_value());
    EXPECT_EQ(direct->function, &help);
    EXPECT_FALSE(FindRoute(routes, kHostMethodDirectCall, "Other"));
    // A direct call never matches by path, nor a path request by name.
    EXPECT_FALSE(FindRoute(routes, kHostMethodDirectCall, "/lobby"));
    EXPECT_FALSE(FindRoute(routes, kHostMethodGet, "Help"));

    EXPECT_TRUE(FindRoute(routes, kHostMethodGet, "/lobby"));
    EXPECT_TRUE(FindRoute(routes, kHostMethodHead, "/lobby"));
    EXPECT_FALSE(FindRoute(routes, kHostMethodPost, "/lobby"));

    const auto bound = FindRoute(routes, kHostMethodPost, "/s/7");
    ASSERT_TRUE(bound.has_value());
    EXPECT_EQ(bound->parameters, (Params{{"id", "7"}}));
    EXPECT_FALSE(FindRoute(routes, kHostMethodPost, "/s/8"));
    EXPECT_FALSE(FindRoute(routes, kHostMethodPut, "/s/7"));
}

TEST(RouteTableTest, OverlongPathsMatchOnlyLiteralRoutes) {
    const std::string longPath = "/a/" + std::string(kMaxPatternPathLength, 'x');
    const auto routes = MakeRoutes({"/a/{+rest}", longPath}, kHostMethodGet);
    const auto match = FindRoute(routes, kHostMethodGet, longPath);
    ASSERT_TRUE(match.has_value());
    EXPECT_EQ(match->route->routeTemplate, longPath);
    EXPECT_FALSE(FindRoute(std::span(routes).first(1), kHostMethodGet, longPath));
}

TEST(RouteTableTest, TableSeparatesMethodsAndRefusesDuplicates) {
    int get = 0;
    int post = 0;
    RouteTable table;
    ASSERT_TRUE(table.Add(MakeRouteEntry(kHostMethodGet, "/lobby", &get).Value()).HasValue());
    ASSERT_TRUE(table.Add(MakeRouteEntry(kHostMethodPost, "/lobby", &post).Value()).HasValue());
    const auto again = table.Add(MakeRouteEntry(kHostMethodGet, "/lobby", &post).Value());
    ASSERT_FALSE(again.HasValue());
    EXPECT_EQ(again.GetFailure().message, "Duplicate route GET '/lobby'");
    EXPECT_EQ(table.Size(), 2u);

    EXPECT_EQ(table.Find(kHostMethodGet, "/lobby")->function, &get);
    EXPECT_EQ(table.Find(kHostMethodPost, "/lobby")->function, &post);
    EXPECT_FALSE(table.Find(kHostMethodPut, "/lobby"));
}

}  // namespace
}  // namespace Orvan::Framework
