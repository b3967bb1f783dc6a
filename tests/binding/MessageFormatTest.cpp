#include "framework/binding/MessageFormat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Orvan::Framework {
namespace {

struct PositionalCase {
    const char* name;
    std::string tmpl;
    std::string expected;
};

// Every case formats with the same argument list, so each row shows only the
// template and what it must produce.
//   %1 "a"  %2 "b"  %3 -42  %4 255u  %5 2.5  %6 'z'  %7 true
TEST(MessageFormatTest, PositionalTable) {
    const std::vector<PositionalCase> cases = {
        {"reorder", "%2 %1", "b a"},
        {"escaped percent is not a placeholder", "%%1", "%1"},
        {"lone escaped percent", "100%%", "100%"},
        {"default texts per type", "%3|%4|%5|%6|%7", "-42|255|2.5|z|true"},
        {"unnumbered takes the next argument", "% %", "a b"},
        {"unnumbered continues after a numbered one", "%3 %", "-42 255"},
        {"printf conversion on an argument", "%4$08x", "000000ff"},
        {"flags width precision", "[%3$-6d][%5$+.3f][%1$5s]", "[-42   ][+2.500][    a]"},
        {"hh truncates like printf does", "%4$hhd", "-1"},
        {"h and ll modifiers", "%3$hx %3$llx", "ffd6 ffffffffffffffd6"},
        {"L on a double", "%5$Lg", "2.5"},
        {"number beyond the arguments ends formatting", "x%9y", "x"},
        {"argument zero ends formatting", "x%0y", "x"},
        {"malformed conversion ends formatting", "x%1$qy", "x"},
        {"conversion cut at the end of the template", "x%1$", "x"},
        {"trailing unnumbered placeholder", "x %", "x a"},
        {"text after a placeholder without dollar is literal", "%1s", "as"},
        {"a placeholder without number may carry its conversion", "%s-%s|%d", "a-b|-42"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Format(c.tmpl, "a", "b", -42, 255u, 2.5, 'z', true), c.expected) << c.name;
    }
}

// A conversion applied to an argument of another type converts the argument
// first; none of these may read the wrong type (ASan/UBSan runs check it).
TEST(MessageFormatTest, MismatchedConversionsConvertTheArgument) {
    const struct {
        std::string tmpl;
        std::string expected;
    } cases[] = {
        {"%1$d", "17"},                     // text holding a number, as an integer
        {"%1$x", "11"},                     //   ... as unsigned hex
        {"%1$.1f", "17.0"},                 //   ... as a double
        {"%2$s", "-3"},                     // signed as text
        {"%2$u", "4294967293"},             // signed as unsigned int
        {"%3$d", "7"},                      // double as integer (truncated)
        {"%4$lld", "9223372036854775807"},  // huge double saturates, no overflow
        {"%5$c", "A"},                      // integer as a character
        {"%1$c", "1"},                      // text as its first character
        {"%6$d", "1"},                      // bool as integer
        {"%3$#08s", "     7.9"},            // flags undefined for %s are dropped
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Format(c.tmpl, "17", -3, 7.9, 1e300, 65, true), c.expected) << c.tmpl;
    }
}

TEST(MessageFormatTest, PlaceholderLimitOf60Characters) {
    // "%1$", repeated "-" flags, width 3 and "d": 60 characters is accepted,
    // 61 ends the formatting.
    EXPECT_EQ(Format("<%1$" + std::string(55, '-') + "3d>", 5), "<5  >");
    EXPECT_EQ(Format("<%1$" + std::string(56, '-') + "3d>", 5), "<");
}

TEST(MessageFormatTest, OutputLimitedTo4095Bytes) {
    std::string big(5000, 'x');
    EXPECT_EQ(Format("%1", big).size(), 4095u);
    EXPECT_EQ(Format(big).size(), 4095u);
    // A huge width is clamped, not fed to printf.
    EXPECT_EQ(Format("%1$999999999d", 1).size(), 4095u);
    EXPECT_EQ(Format(std::string(4094, 'y') + "%1", "abc"), std::string(4094, 'y') + "a");
}

TEST(MessageFormatTest, DefaultTextOfExtremes) {
    EXPECT_EQ(Format("%1 %2", INT64_MIN, UINT64_MAX), "-9223372036854775808 18446744073709551615");
    EXPECT_EQ(Format("%1", false), "false");
}

TEST(MakeFailureTest, MessageAndTypedParameters) {
    Failure failure = MakeFailure(500, "{method} to {url} failed: {error} ({missing}) {",
                                  {{"method", "POST"},
                                   {"url", std::string("/a/b")},
                                   {"error", -7},
                                   {"retry", true},
                                   {"ratio", 0.5},
                                   {"count", 3u}});
    EXPECT_EQ(failure.code, 500u);
    EXPECT_EQ(failure.message, "POST to /a/b failed: -7 ({missing}) {");

    const BindingProperty& p = failure.parameters;
    EXPECT_EQ(p.Kind(), BindingKind::Structure);
    EXPECT_EQ(p.Size(), 7u);
    EXPECT_EQ(p.Field("method_str").GetString(), "POST");
    EXPECT_EQ(p.Field("url_str").GetString(), "/a/b");
    EXPECT_EQ(p.Field("error_int").GetSigned(), -7);
    EXPECT_EQ(p.Field("retry_bool").Kind(), BindingKind::Bool);
    EXPECT_TRUE(p.Field("retry_bool").GetBool());
    EXPECT_EQ(p.Field("ratio_float").GetFloat(), 0.5);
    EXPECT_EQ(p.Field("count_int").GetUnsigned(), 3u);
    EXPECT_EQ(p.Field("errorCode_int").AsUnsigned(), 500u);
}

TEST(MakeFailureTest, NamesWithATypeSuffixAreKept) {
    Failure failure = MakeFailure(0, "{a_bool}{b_int}{c_long}{d_float}{e_str}{f_time}{g_flag}",
                                  {{"a_bool", 1},
                                   {"b_int", 2},
                                   {"c_long", 3},
                                   {"d_float", 4},
                                   {"e_str", 5},
                                   {"f_time", 6},
                                   {"g_flag", 7}});
    EXPECT_EQ(failure.message, "1234567");
    std::vector<std::string> names;
    for (const auto& field : failure.parameters.Fields()) {
        names.emplace_back(field.name);
    }
    // A code of 0 is not stored; "_flag" is no type suffix.
    EXPECT_EQ(names, (std::vector<std::string>{"a_bool", "b_int", "c_long", "d_float", "e_str",
                                               "f_time", "g_flag_int"}));
}

}  // namespace
}  // namespace Orvan::Framework
