#include <gtest/gtest.h>

#include <string>

#include "framework/codec/Yaml.h"
#include "tests/codec/support/Describe.h"

namespace Orvan::Framework {
namespace {

using Testing::Describe;

std::string Outcome(std::string_view text) {
    Maybe<BindingProperty> read = ReadYaml(text);
    return read ? Describe(*read) : read.GetFailure().message;
}

struct YamlCase {
    std::string text;
    std::string expected;
};

TEST(YamlRead, ValuesTagsAndKeys) {
    const YamlCase cases[] = {
        {"", "~"},
        {"a: 1\nb: [x, 2]", "{a:u1,b:['x',u2]}"},
        {"a: 'true'\nb: on\nc: ~\nd: \"1\"\ne: |\n  12\n", "{a:'true',b:true,c:~,d:'1',e:'12\n'}"},
        {"- x\n- {k: v, k: w}\n- []", "['x',{k:'w'},[]]"},
        {"[42, -7, 1.5, 1e-3, 1e3, 0x1A, +5, .5, -0, 017]",
         "[u42,s-7,f1.5,f0.001,u1000,u26,u5,f0.5,u0,u17]"},
        {"[yes, No, OFF, y, n, Y, maybe, TRUE, tRUE]",
         "[true,false,false,true,false,true,'maybe',true,'tRUE']"},
        {"[null, Null, NULL, ~, '', nULL]", "[~,~,~,~,'','nULL']"},
        {"[inf, +inf, .inf, nan, 1e400]", "['inf','+inf','.inf',fnan,'1e400']"},
        {"[-1e400, 1e-400, -.5, 1.5e+2, 0.1, -0x1p3, 2.5E-1, 1.]",
         "[s-9223372036854775808,u0,f-0.5,u150,f0.10000000000000001,s-8,f0.25,u1]"},
        {"[-inf, 1e30, -1e30, 9007199254740993]",
         "[s-9223372036854775808,u18446744073709551615,s-9223372036854775808,u9007199254740992]"},
        {"a: !!str 12\nb: !!int -12\nc: !!int 0x10\nd: !!float 2.5\ne: !!bool yes\nf: !!bool maybe",
         "{a:'12',b:s-12,c:u16,d:f2.5,e:true,f:~}"},
        {"a: !!int 12x", "Value 12x for 'yaml' of type uint64_t is in an incorrect format"},
        {"a: !!int -99999999999999999999",
         "Value -99999999999999999999 for 'yaml' of type int64_t is out of range"},
        {"a: !!float x", "Value x for 'yaml' of type double is in an incorrect format"},
        {"a: !foo x", "Unsupported YAML tag '!foo'."},
        {"!!str k: v", "{k:'v'}"},
        {"!!int 1: x",
         "Invalid mapping key. Only string scalar keys are allowed. At line: 1 col: 1"},
        {"? [1]\n: x", "Unexpected start of sequence. At line: 1 col: 3"},
        {"? {a: 1}\n: x", "Unexpected start of mapping. At line: 1 col: 3"},
        {"--- 1\n--- 2", "Multi-document YAML is not supported."},
        {"--- ~\n--- 2", "u2"},
        {"a: [1, 2", "YAML parser error: did not find expected ',' or ']'. At line: 1 col: 0"},
        {"a: b: c",
         "YAML parser error: mapping values are not allowed in this context. At line: 0 col: 4"},
        {std::string("a: \x01", 4),
         "YAML parser error: control characters are not allowed. At line: 0 col: 0"},
    };
    for (const YamlCase& c : cases) {
        EXPECT_EQ(Outcome(c.text), c.expected) << c.text;
    }
}

TEST(YamlRead, AnchorsAndAliases) {
    const YamlCase cases[] = {
        {"a: &x 1\nb: *x", "{a:u1,b:u1}"},
        {"a: &x [1, {b: 2}]\nc: *x\nd: [*x]", "{a:[u1,{b:u2}],c:[u1,{b:u2}],d:[[u1,{b:u2}]]}"},
        {"&k a: 1\nb: *k\n*k : 2", "{a:u2,b:'a'}"},
        {"a: &x 1\n*x : 2",
         "Invalid mapping key. Only string scalar keys are allowed. At line: 2 col: 1"},
        {"b: *y", "Undefined alias encountered: \"y\". At line: 1 col: 4"},
        {"a: &x [*x]", "Cannot deserialize cyclic aliases. Alias \"x\". At line: 1 col: 8"},
        {"a: &x {b: [*x]}", "Cannot deserialize cyclic aliases. Alias \"x\". At line: 1 col: 12"},
        {"a: &x 1\nb: &x 2", "Duplicate occurrence of anchor \"x\". At line: 2 col: 4"},
        {"a: &x [&x 1]", "Duplicate occurrence of anchor \"x\". At line: 1 col: 8"},
    };
    for (const YamlCase& c : cases) {
        EXPECT_EQ(Outcome(c.text), c.expected) << c.text;
    }
}

TEST(YamlRead, NestingAndExpansionLimits) {
    EXPECT_EQ(Outcome(std::string(512, '[') + std::string(512, ']')),
              std::string(512, '[') + std::string(512, ']'));
    EXPECT_EQ(Outcome(std::string(513, '[') + std::string(513, ']')),
              "Nesting is deeper than 512. At line: 1 col: 513");

    // An alias whose copy would nest too deep is refused like direct nesting.
    std::string deep = "a: &x " + std::string(300, '[') + std::string(300, ']') +
                       "\nb: " + std::string(212, '[') + "*x" + std::string(212, ']');
    EXPECT_EQ(Outcome(deep), "Nesting is deeper than 512. At line: 2 col: 216");

    // Each level holds ten aliases of the one before: 10^7 values if expanded.
    std::string laughs = "a0: &a0 [x, x, x, x, x, x, x, x, x, x]\n";
    for (int i = 1; i <= 6; ++i) {
        std::string prev = "*a" + std::to_string(i - 1);
        laughs += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [";
        for (int k = 0; k < 10; ++k) {
            laughs += (k ? ", " : "") + prev;
        }
        laughs += "]\n";
    }
    std::string outcome = Outcome(laughs);
    EXPECT_EQ(outcome.rfind("Alias expansion exceeds 1000000 values. Alias \"a4\".", 0), 0u)
        << outcome;
}

}  // namespace
}  // namespace Orvan::Framework
