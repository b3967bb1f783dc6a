#include "framework/binding/NativeConversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "framework/binding/ScalarConversion.h"
#include "framework/binding/TypeRegistration.h"

namespace Orvan::Framework {
namespace {

enum class Color : int32_t { Red = 1, Green = 2, Blue = 4 };
enum class Small : uint8_t { Zero = 0, Big = 200 };

struct Inner {
    int32_t a = 0;
    std::string s;
    bool operator==(const Inner&) const = default;
};

struct Unregistered {
    int32_t a = 0;
};

struct WithRequired {
    int32_t id = 0;
    std::string note;
};

struct Outer {
    bool flag = false;
    int32_t count = -1;
    Color color = Color::Red;
    Inner inner;
    std::vector<Inner> inners;
    std::vector<int32_t> numbers;
    std::map<std::string, int32_t> scores;
    std::unordered_map<std::string, Color> colors;
    std::optional<std::string> nickname;
    std::vector<uint8_t> bytes;
    BindingProperty extra;
    std::vector<bool> bits;
    double ratio = 0.0;
    bool operator==(const Outer&) const = default;
};

// Registered under names whose order differs from registration order, so
// that "first failure" is visibly registration order.
struct Ordered {
    int32_t zeta = 0;
    int32_t alpha = 0;
};

struct HoldsUnregistered {
    Unregistered u;
};

struct Omit {
    bool b = false;
    int32_t i = 0;
    uint64_t u = 0;
    double d = 0.0;
    std::string s;
    std::vector<uint8_t> blob;
    std::vector<int32_t> list;
    std::map<std::string, int32_t> map;
    Color color = static_cast<Color>(0);
    std::optional<int32_t> maybe;
    BindingProperty object;
    int32_t always = 0;
};

// Names that cannot simply be appended in order: a name given twice, a NUL
// byte (the name ends there), the empty name.
struct Unusual {
    int32_t first = 1;
    int32_t second = 2;
    int32_t cut = 3;
    int32_t nameless = 4;
};

// Omitted members before, between and after kept ones, in a record kept in
// a list, so that fields taken off again leave the next ones where they go.
struct Sparse {
    int32_t zz = 0;
    std::string mm;
    int32_t aa = 0;
    std::vector<Omit> omits;
    std::optional<std::string> bb;
};

// Registered after the container that uses it.
struct Late {
    int32_t v = 0;
};
struct HoldsLate {
    std::vector<Late> lates;
};

// One registry for the whole file, built by the fixture.
BindingTypeRegistry* gRegistry = nullptr;

class NativeConversionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        gRegistry = new BindingTypeRegistry;
        BindingTypeRegistry& r = *gRegistry;
        RegisterEnum<Color>(r, "TestColor")
            .Value("Red", Color::Red)
            .Value("Green", Color::Green)
            .Value("Blue", Color::Blue);
        RegisterEnum<Small>(r, "TestSmall").Value("Zero", Small::Zero).Value("Big", Small::Big);
        RegisterStruct<Inner>(r, "TestInner").Field("a", &Inner::a).Field("s", &Inner::s);
        RegisterStruct<WithRequired>(r, "TestWithRequired")
            .Field("id", &WithRequired::id, kRequired)
            .Field("note", &WithRequired::note);
        RegisterStruct<Outer>(r, "TestOuter")
            .Field("flag", &Outer::flag)
            .Field("count", &Outer::count)
            .Field("color", &Outer::color)
            .Field("inner", &Outer::inner)
            .Field("inners", &Outer::inners)
            .Field("numbers", &Outer::numbers)
            .Field("scores", &Outer::scores)
            .Field("colors", &Outer::colors)
            .Field("nickname", &Outer::nickname, kOmitIfEmpty)
            .Field("bytes", &Outer::bytes)
            .Field("extra", &Outer::extra)
            .Field("bits", &Outer::bits)
            .Field("ratio", &Outer::ratio);
        RegisterStruct<Ordered>(r, "TestOrdered")
            .Field("zeta", &Ordered::zeta)
            .Field("alpha", &Ordered::alpha);
        RegisterStruct<HoldsUnregistered>(r, "TestHoldsUnregistered")
            .Field("u", &HoldsUnregistered::u);
        RegisterStruct<Omit>(r, "TestOmit")
            .Field("b", &Omit::b, kOmitIfEmpty)
            .Field("i", &Omit::i, kOmitIfEmpty)
            .Field("u", &Omit::u, kOmitIfEmpty)
            .Field("d", &Omit::d, kOmitIfEmpty)
            .Field("s", &Omit::s, kOmitIfEmpty)
            .Field("blob", &Omit::blob, kOmitIfEmpty)
            .Field("list", &Omit::list, kOmitIfEmpty)
            .Field("map", &Omit::map, kOmitIfEmpty)
            .Field("color", &Omit::color, kOmitIfEmpty)
            .Field("maybe", &Omit::maybe, kOmitIfEmpty)
            .Field("object", &Omit::object, kOmitIfEmpty)
            .Field("always", &Omit::always);
        RegisterStruct<Unusual>(r, "TestUnusual")
            .Field("dup", &Unusual::first)
            .Field("dup", &Unusual::second)
            .Field(std::string_view("cut\0off", 7), &Unusual::cut)
            .Field("", &Unusual::nameless);
        RegisterStruct<Sparse>(r, "TestSparse")
            .Field("zz", &Sparse::zz, kOmitIfEmpty)
            .Field("mm", &Sparse::mm, kOmitIfEmpty)
            .Field("aa", &Sparse::aa, kOmitIfEmpty)
            .Field("omits", &Sparse::omits)
            .Field("bb", &Sparse::bb, kOmitIfEmpty);
        RegisterStruct<HoldsLate>(r, "TestHoldsLate").Field("lates", &HoldsLate::lates);
        RegisterStruct<Late>(r, "TestLate").Field("v", &Late::v);
    }
    static void TearDownTestSuite() {
        delete gRegistry;
        gRegistry = nullptr;
    }

    static const BindingTypeRegistry& R() { return *gRegistry; }
};

BindingProperty Str(std::string_view text) {
    return BindingProperty(text);
}
BindingProperty Signed(int64_t v) {
    return BindingProperty(v);
}
BindingProperty Unsigned(uint64_t v) {
    return BindingProperty(v);
}
BindingProperty Float(double v) {
    return BindingProperty(v);
}
BindingProperty Enum(int32_t v, const StaticType& type = StaticType::Of<Color>()) {
    return BindingProperty(BindingEnumValue{v, &type});
}
BindingProperty Collection() {
    BindingProperty p;
    p.SetEmptyCollection();
    return p;
}
BindingProperty Structure() {
    BindingProperty p;
    p.SetEmptyStructure();
    return p;
}

std::string Show(bool v) {
    return v ? "true" : "false";
}
template <class T>
std::string Show(const T& v) {
    if constexpr (std::is_same_v<T, std::string>) {
        return v;
    } else if constexpr (std::is_enum_v<T>) {
        return std::to_string(static_cast<int64_t>(v));
    } else if constexpr (std::is_floating_point_v<T>) {
        char text[64];
        std::snprintf(text, sizeof(text), "%g", static_cast<double>(v));
        return text;
    } else if constexpr (Detail::IsOptional<T>::value) {
        return v.has_value() ? Show(*v) : "absent";
    } else if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
        std::string out;
        for (uint8_t b : v) {
            out += std::to_string(b) + ",";
        }
        return out;
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(v);
    } else {
        return "record";  // the cases with records check messages only
    }
}

// "= <value>" on success, else the failure's message.
template <class T>
std::string Try(const BindingProperty& input) {
    Maybe<T> result = ConvertFromProperty<T>(*gRegistry, input, "x");
    return result ? "= " + Show(*result) : result.GetFailure().message;
}

struct Case {
    const char* label;
    std::function<std::string()> run;
    std::string expected;
};

void RunTable(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        EXPECT_EQ(c.run(), c.expected) << c.label;
    }
}

TEST_F(NativeConversionTest, EveryMessageOfValueToNative) {
    BindingProperty missingRequired = Structure();
    missingRequired.MutableField("note").SetString("n");
    RunTable({
        {"empty scalar", [] { return Try<int32_t>(BindingProperty()); },
         "A value for 'x' is required."},
        {"empty struct at the top", [] { return Try<Inner>(BindingProperty()); },
         "A value for 'x' is required."},
        {"bool text", [] { return Try<bool>(Str("True")); },
         "Value True for 'x' of type bool is in an incorrect format. Options are \"true\", "
         "\"false\", \"1\", \"0\"."},
        {"bool from signed", [] { return Try<bool>(Signed(1)); },
         "Couldn't assign value to 'x' of type bool because the input is of an invalid type "
         "signed."},
        {"int format", [] { return Try<int32_t>(Str("1e3")); },
         "Value 1e3 for 'x' of type int32 is in an incorrect format"},
        {"int range", [] { return Try<uint32_t>(Unsigned(4294967296ull)); },
         "Value 4294967296 for 'x' of type uint32 is out of range"},
        {"int invalid type", [] { return Try<int32_t>(BindingProperty(true)); },
         "Couldn't assign value to 'x' of type int32 because the input is of an invalid type "
         "bool."},
        {"string from number", [] { return Try<std::string>(Signed(5)); },
         "Couldn't assign value to 'x' because the input is not a string."},
        {"string from unnamed enum", [] { return Try<std::string>(Enum(7)); },
         "7 is not a valid enumeration value for 'x'."},
        {"enum from number", [] { return Try<Color>(Signed(3)); },
         "3 is not a valid TestColor enumeration value for 'x'."},
        {"enum from float", [] { return Try<Color>(Float(1.0)); },
         "Couldn't assign value to 'x' of enum type because the input is of an invalid type "
         "float."},
        {"unregistered struct", [] { return Try<Unregistered>(Structure()); },
         "Couldn't assign value to 'x' because the input is an unregistered structure or not a "
         "structure at all."},
        {"struct from number", [] { return Try<Inner>(Signed(1)); },
         "Couldn't assign value to 'x' of type TestInner because the input not a structure."},
        {"required field", [&] { return Try<WithRequired>(missingRequired); },
         "Couldn't assign value to 'x' of type TestWithRequired because the input structure "
         "doesn't have required field 'id'."},
        {"vector from text", [] { return Try<std::vector<int32_t>>(Str("[1]")); },
         "Couldn't assign value to 'x' of type vector because the input not a collection."},
        {"map from collection", [] { return Try<std::map<std::string, int32_t>>(Collection()); },
         "Couldn't assign value to 'x' of type map because the input not a structure."},
    });
}

TEST_F(NativeConversionTest, UnregisteredStructureToValue) {
    Maybe<BindingProperty> top = ConvertToProperty(R(), Unregistered{});
    ASSERT_FALSE(top);
    EXPECT_EQ(top.GetFailure().message,
              "Couldn't convert native value because it's an unregistered structure.");

    // Nested: the member's message surfaces; the other direction names the member.
    Maybe<BindingProperty> nested = ConvertToProperty(R(), HoldsUnregistered{});
    ASSERT_FALSE(nested);
    EXPECT_EQ(nested.GetFailure().message,
              "Couldn't convert native value because it's an unregistered structure.");
    BindingProperty input;
    input.MutableField("u").MutableField("a").SetSigned(1);
    EXPECT_EQ(Try<HoldsUnregistered>(input),
              "Couldn't assign value to 'u' because the input is an unregistered structure or not "
              "a structure at all.");
}

TEST_F(NativeConversionTest, IntegerRules) {
    RunTable({
        {"hex text", [] { return Try<int32_t>(Str("0x10")); }, "= 16"},
        {"octal text", [] { return Try<int32_t>(Str("010")); }, "= 8"},
        {"empty text", [] { return Try<int32_t>(Str("")); }, "= 0"},
        {"leading space", [] { return Try<int32_t>(Str(" 12")); }, "= 12"},
        {"trailing space", [] { return Try<int32_t>(Str("12 ")); },
         "Value 12  for 'x' of type int32 is in an incorrect format"},
        {"only space", [] { return Try<int16_t>(Str(" ")); },
         "Value   for 'x' of type int16 is in an incorrect format"},
        {"text beyond int8", [] { return Try<int8_t>(Str("128")); },
         "Value 128 for 'x' of type int8 is out of range"},
        {"text ERANGE", [] { return Try<int64_t>(Str("9223372036854775808")); },
         "Value 9223372036854775808 for 'x' of type int64 is out of range"},
        {"minus text to uint64", [] { return Try<uint64_t>(Str("-1")); },
         "Value -1 for 'x' of type uint64 is out of range"},
        {"max uint64 text", [] { return Try<uint64_t>(Str("18446744073709551615")); },
         "= 18446744073709551615"},
        {"float truncates", [] { return Try<int32_t>(Float(2.9)); }, "= 2"},
        {"negative float truncates", [] { return Try<int32_t>(Float(-2.9)); }, "= -2"},
        {"float beyond int32", [] { return Try<int32_t>(Float(3e9)); },
         "Value 3e+09 for 'x' of type int32 is out of range"},
        {"negative float to unsigned", [] { return Try<uint8_t>(Float(-0.5)); },
         "Value -0.5 for 'x' of type uint8 is out of range"},
        {"NaN", [] { return Try<int32_t>(Float(std::nan(""))); },
         "Value nan for 'x' of type int32 is out of range"},
        {"2^64 as float clamps", [] { return Try<uint64_t>(Float(18446744073709551616.0)); },
         "= 18446744073709551615"},
        {"2^63 as float clamps", [] { return Try<int64_t>(Float(9223372036854775808.0)); },
         "= 9223372036854775807"},
        {"int8 limits", [] { return Try<int8_t>(Signed(-128)); }, "= -128"},
        {"below int8", [] { return Try<int8_t>(Signed(-129)); },
         "Value -129 for 'x' of type int8 is out of range"},
        {"negative to unsigned", [] { return Try<uint16_t>(Signed(-1)); },
         "Value -1 for 'x' of type uint16 is out of range"},
        {"unsigned beyond int64", [] { return Try<int64_t>(Unsigned(9223372036854775808ull)); },
         "Value 9223372036854775808 for 'x' of type int64 is out of range"},
        {"enum input", [] { return Try<int32_t>(Enum(4)); }, "= 4"},
        {"negative enum to unsigned", [] { return Try<uint32_t>(Enum(-1)); },
         "Value -1 for 'x' of type uint32 is out of range"},
        {"blob input", [] { return Try<uint8_t>(BindingProperty(std::vector<uint8_t>{1})); },
         "Couldn't assign value to 'x' of type uint8 because the input is of an invalid type "
         "blob."},
        {"structure input", [] { return Try<int64_t>(Structure()); },
         "Couldn't assign value to 'x' of type int64 because the input is of an invalid type "
         "structure."},
    });
}

TEST_F(NativeConversionTest, FloatBoolStringAndBlobRules) {
    RunTable({
        {"float beyond limit", [] { return Try<float>(Float(3.5e38)); },
         "Value 3.5e+38 for 'x' of type float is out of range"},
        {"float at limit", [] { return Try<float>(Float(-3.4028234663852886e38)); },
         "= -3.40282e+38"},
        {"double from text", [] { return Try<double>(Str("1e3")); }, "= 1000"},
        {"double text overflow", [] { return Try<double>(Str("1e400")); },
         "Value 1e400 for 'x' of type double is out of range"},
        {"double text underflow", [] { return Try<double>(Str("1e-400")); },
         "Value 1e-400 for 'x' of type double is out of range"},
        {"float text beyond", [] { return Try<float>(Str("4e38")); },
         "Value 4e38 for 'x' of type float is out of range"},
        {"double bad text", [] { return Try<double>(Str("1.5x")); },
         "Value 1.5x for 'x' of type double is in an incorrect format"},
        {"double empty text", [] { return Try<double>(Str("")); }, "= 0"},
        {"float from unsigned", [] { return Try<float>(Unsigned(16)); }, "= 16"},
        {"double from enum", [] { return Try<double>(Enum(2)); }, "= 2"},
        {"double from collection", [] { return Try<double>(Collection()); },
         "Couldn't assign value to 'x' of type double because the input is of an invalid type "
         "collection."},
        {"bool from 1", [] { return Try<bool>(Str("1")); }, "= true"},
        {"bool from false", [] { return Try<bool>(Str("false")); }, "= false"},
        {"bool from yes", [] { return Try<bool>(Str("yes")); },
         "Value yes for 'x' of type bool is in an incorrect format. Options are \"true\", "
         "\"false\", \"1\", \"0\"."},
        {"empty bool", [] { return Try<bool>(BindingProperty()); }, "A value for 'x' is required."},
        {"string from enum", [] { return Try<std::string>(Enum(2)); }, "= Green"},
        {"string from bool", [] { return Try<std::string>(BindingProperty(false)); },
         "Couldn't assign value to 'x' because the input is not a string."},
        {"blob from base64", [] { return Try<std::vector<uint8_t>>(Str("AP8=")); }, "= 0,255,"},
        {"blob from bad base64", [] { return Try<std::vector<uint8_t>>(Str("A*==")); },
         "Value A*== for 'x' of type blob is in an incorrect format"},
        {"blob from number", [] { return Try<std::vector<uint8_t>>(Signed(1)); },
         "Couldn't assign value to 'x' of type blob because the input is of an invalid type "
         "signed."},
    });
}

TEST(ScalarConversionTest, TextRulesForReaders) {
    auto text = [](auto maybe) { return maybe ? "= " + Show(*maybe) : maybe.GetFailure().message; };
    EXPECT_EQ(text(ParseSignedText("-0x10", "yaml", "int64_t", INT64_MIN, INT64_MAX)), "= -16");
    EXPECT_EQ(text(ParseSignedText("1.5", "yaml", "int64_t", INT64_MIN, INT64_MAX)),
              "Value 1.5 for 'yaml' of type int64_t is in an incorrect format");
    EXPECT_EQ(text(ParseUnsignedText("-0", "yaml", "uint64_t", UINT64_MAX)),
              "Value -0 for 'yaml' of type uint64_t is out of range");
    EXPECT_EQ(text(ParseUnsignedText("18446744073709551616", "yaml", "uint64_t", UINT64_MAX)),
              "Value 18446744073709551616 for 'yaml' of type uint64_t is out of range");
    EXPECT_EQ(text(ParseDoubleText("2.5e1", "yaml", "double", 1.7976931348623157e308)), "= 25");
    EXPECT_EQ(text(ParseDoubleText("nan", "yaml", "double", 1.7976931348623157e308)),
              "Value nan for 'yaml' of type double is out of range");
    EXPECT_EQ(text(ParseDoubleText(std::string_view("1\0", 2), "yaml", "double", 1e308)),
              std::string("Value 1\0 for 'yaml' of type double is in an incorrect format", 60));
}

TEST_F(NativeConversionTest, EnumRules) {
    RunTable({
        {"by name", [] { return Try<Color>(Str("Green")); }, "= 2"},
        {"case-sensitive", [] { return Try<Color>(Str("green")); },
         "green is not a valid TestColor enumeration value for 'x'."},
        {"registered value spelled", [] { return Try<Color>(Str("4")); }, "= 4"},
        {"hex spelled", [] { return Try<Color>(Str("0x2")); }, "= 2"},
        {"unregistered value spelled", [] { return Try<Color>(Str("3")); },
         "3 is not a valid TestColor enumeration value for 'x'."},
        {"numeric overflow replaced", [] { return Try<Color>(Str("99999999999")); },
         "99999999999 is not a valid TestColor enumeration value for 'x'."},
        {"low 32 bits", [] { return Try<Color>(Signed(4294967297ll)); }, "= 1"},
        {"unsigned", [] { return Try<Color>(Unsigned(4)); }, "= 4"},
        {"other enum's value", [] { return Try<Color>(Enum(200, StaticType::Of<Small>())); },
         "200 is not a valid TestColor enumeration value for 'x'."},
        {"narrow enum", [] { return Try<Small>(Str("Big")); }, "= 200"},
        {"empty", [] { return Try<Color>(BindingProperty()); }, "A value for 'x' is required."},
        {"blob", [] { return Try<Color>(BindingProperty(std::vector<uint8_t>{})); },
         "Couldn't assign value to 'x' of enum type because the input is of an invalid type "
         "blob."},
    });
}

TEST_F(NativeConversionTest, StructInputKeepsMissingMembersAndIgnoresUnknownOnes) {
    Outer target;
    target.count = 7;
    target.inner.s = "kept";
    BindingProperty input;
    input.MutableField("flag").SetBool(true);
    input.MutableField("unknown").SetString("ignored");
    input.MutableField("inner").MutableField("a").SetSigned(3);
    input.MutableField("count");  // "empty": treated as missing
    ASSERT_TRUE(AssignFromProperty(R(), input, "<value>", target));
    EXPECT_TRUE(target.flag);
    EXPECT_EQ(target.count, 7);
    EXPECT_EQ(target.inner.a, 3);
    EXPECT_EQ(target.inner.s, "kept");
}

TEST_F(NativeConversionTest, FirstFailureInRegistrationOrderWins) {
    BindingProperty input;
    input.MutableField("alpha").SetString("bad alpha");
    input.MutableField("zeta").SetString("bad zeta");
    EXPECT_EQ(Try<Ordered>(input),
              "Value bad zeta for 'zeta' of type int32 is in an incorrect format");

    BindingProperty list;
    list.MutableElement(0).SetSigned(1);
    list.MutableElement(1).SetString("two");
    list.MutableElement(2).SetString("three");
    EXPECT_EQ(Try<std::vector<int32_t>>(list),
              "Value two for 'x' of type int32 is in an incorrect format");

    BindingConversionResult result;
    result.Fail("first");
    result.Fail("second");
    EXPECT_EQ(result.ok, 0);
    EXPECT_EQ(result.Error(), "first");
    EXPECT_EQ(result.value.Kind(), BindingKind::Structure);
}

TEST_F(NativeConversionTest, ContainersSkipEmptyEntries) {
    BindingProperty input;
    input.MutableField("inners").MutableElement(1).MutableField("a").SetSigned(5);
    input.MutableField("numbers").MutableElement(2).SetSigned(9);
    input.MutableField("scores").MutableField("kept").SetSigned(1);
    input.MutableField("scores").MutableField("skipped");
    input.MutableField("colors").MutableField("sky").SetString("Blue");
    input.MutableField("bits").MutableElement(1).SetString("true");
    Outer target;
    target.inners = {Inner{1, "old"}};
    ASSERT_TRUE(AssignFromProperty(R(), input, "<value>", target));
    ASSERT_EQ(target.inners.size(), 2u);
    EXPECT_EQ(target.inners[0].a, 0);
    EXPECT_EQ(target.inners[0].s, "");
    EXPECT_EQ(target.inners[1].a, 5);
    EXPECT_EQ(target.numbers, (std::vector<int32_t>{0, 0, 9}));
    EXPECT_EQ(target.scores, (std::map<std::string, int32_t>{{"kept", 1}}));
    EXPECT_EQ(target.colors.at("sky"), Color::Blue);
    EXPECT_EQ(target.bits, (std::vector<bool>{false, true}));
}

TEST_F(NativeConversionTest, RoundTripThroughValue) {
    Outer source;
    source.flag = true;
    source.count = -3;
    source.color = Color::Blue;
    source.inner = {4, "four"};
    source.inners = {{1, "one"}, {2, "two"}};
    source.numbers = {1, 2, 3};
    source.scores = {{"a", 1}, {"b", 2}};
    source.colors = {{"x", Color::Green}};
    source.nickname = "nick";
    source.bytes = {0, 255};
    source.extra.MutableField("any").SetSigned(1);
    source.bits = {true, false};
    source.ratio = 0.25;

    Maybe<BindingProperty> value = ConvertToProperty(R(), source);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->Field("count").Kind(), BindingKind::Signed);
    EXPECT_EQ(value->Field("color").Kind(), BindingKind::Enum);
    EXPECT_EQ(value->Field("color").GetEnum().type->id, StaticType::Of<Color>().id);
    EXPECT_STREQ(R().EnumeratorName(*value->Field("color").GetEnum().type, 4), "Blue");
    EXPECT_EQ(value->Field("bytes").Kind(), BindingKind::Blob);
    EXPECT_EQ(value->Field("scores").Field("b").GetSigned(), 2);

    Maybe<Outer> back = ConvertFromProperty<Outer>(R(), *value, "<value>");
    ASSERT_TRUE(back) << back.GetFailure().message;
    EXPECT_TRUE(*back == source);
}

TEST_F(NativeConversionTest, OmitIfEmptyLeavesOutEmptyFalseAndZero) {
    Maybe<BindingProperty> empty = ConvertToProperty(R(), Omit{});
    ASSERT_TRUE(empty);
    ASSERT_EQ(empty->Size(), 1u);
    EXPECT_TRUE(empty->HasField("always"));

    Omit full;
    full.b = true;
    full.i = -1;
    full.u = 1;
    full.d = 0.5;
    full.s = "s";
    full.blob = {0};
    full.list = {0};
    full.map = {{"k", 0}};
    full.color = Color::Red;
    full.maybe = 0;  // present, though zero: an optional is left out only when absent
    full.object.SetSigned(2);
    Maybe<BindingProperty> value = ConvertToProperty(R(), full);
    ASSERT_TRUE(value);
    for (const char* name : {"b", "i", "u", "d", "s", "blob", "list", "map", "color", "object"}) {
        EXPECT_TRUE(value->HasField(name)) << name;
    }
    EXPECT_TRUE(value->HasField("maybe"));
}

// A record's value is built by appending its names in order where they
// allow it; either way it must be the structure that setting each member by
// name makes: the same names in byte order, the same values, nothing left
// of a member that is left out.
TEST_F(NativeConversionTest, RecordValuesMatchFieldByFieldConstruction) {
    auto names = [](const BindingProperty& value) {
        std::string out;
        for (BindingProperty::FieldRef field : value.Fields()) {
            out += std::string(field.name) + ";";
        }
        return out;
    };
    Omit someOmit;
    someOmit.i = 5;
    someOmit.s = "kept";
    Sparse sparseFull;
    sparseFull.zz = 1;
    sparseFull.mm = "m";
    sparseFull.aa = 2;
    sparseFull.bb = "";
    sparseFull.omits = {Omit{}, someOmit};
    Sparse sparseMiddle;
    sparseMiddle.mm = "only";
    sparseMiddle.omits = {someOmit};

    BindingProperty omitValue;
    omitValue.MutableField("always").SetSigned(0);
    omitValue.MutableField("i").SetSigned(5);
    omitValue.MutableField("s").SetString("kept");
    BindingProperty emptyOmitValue;
    emptyOmitValue.MutableField("always").SetSigned(0);

    BindingProperty fullValue;
    fullValue.MutableField("zz").SetSigned(1);
    fullValue.MutableField("mm").SetString("m");
    fullValue.MutableField("aa").SetSigned(2);
    fullValue.MutableField("bb").SetString("");
    fullValue.MutableField("omits").MutableElement(0) = emptyOmitValue;
    fullValue.MutableField("omits").MutableElement(1) = omitValue;
    BindingProperty middleValue;
    middleValue.MutableField("mm").SetString("only");
    middleValue.MutableField("omits").MutableElement(0) = omitValue;
    BindingProperty noneValue;
    noneValue.MutableField("omits").SetEmptyCollection();
    BindingProperty unusualValue;
    unusualValue.MutableField("dup").SetSigned(2);  // the later member wins
    unusualValue.MutableField("cut").SetSigned(3);
    unusualValue.MutableField("").SetSigned(4);

    struct RecordCase {
        const char* label;
        std::function<Maybe<BindingProperty>()> convert;
        BindingProperty expected;
        std::string expectedNames;
    };
    const RecordCase cases[] = {
        {"every member kept", [&] { return ConvertToProperty(R(), sparseFull); }, fullValue,
         "aa;bb;mm;omits;zz;"},
        {"left out around a kept one", [&] { return ConvertToProperty(R(), sparseMiddle); },
         middleValue, "mm;omits;"},
        {"all but one left out", [] { return ConvertToProperty(R(), Sparse{}); }, noneValue,
         "omits;"},
        {"left out at the end", [&] { return ConvertToProperty(R(), someOmit); }, omitValue,
         "always;i;s;"},
        {"unusual names", [] { return ConvertToProperty(R(), Unusual{}); }, unusualValue,
         ";cut;dup;"},
    };
    for (const RecordCase& c : cases) {
        SCOPED_TRACE(c.label);
        Maybe<BindingProperty> value = c.convert();
        ASSERT_TRUE(value) << value.GetFailure().message;
        EXPECT_EQ(names(*value), c.expectedNames);
        EXPECT_EQ(names(*value), names(c.expected));
        EXPECT_TRUE(*value == c.expected);
        // The value stays usable as a tree: a copy equals it, and a name
        // looked up is found where the order puts it.
        BindingProperty copy = *value;
        EXPECT_TRUE(copy == *value);
        for (BindingProperty::FieldRef field : c.expected.Fields()) {
            EXPECT_TRUE(value->HasField(field.name)) << field.name;
        }
    }
    EXPECT_TRUE(R().FindByName("TestSparse")->namesAppendInOrder);
    EXPECT_FALSE(R().FindByName("TestUnusual")->namesAppendInOrder);
}

TEST_F(NativeConversionTest, ElementTypesRegisteredAfterTheirContainer) {
    BindingProperty input;
    input.MutableField("lates").MutableElement(0).MutableField("v").SetSigned(8);
    Maybe<HoldsLate> value = ConvertFromProperty<HoldsLate>(R(), input, "<value>");
    ASSERT_TRUE(value) << value.GetFailure().message;
    ASSERT_EQ(value->lates.size(), 1u);
    EXPECT_EQ(value->lates[0].v, 8);
    const BindingTypeInfo* holder = R().FindByName("TestHoldsLate");
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(holder->fields[0].type.info, nullptr);
    EXPECT_EQ(R().Resolve(holder->fields[0].type), R().FindByName("TestLate"));
}

TEST_F(NativeConversionTest, TypeErasedForms) {
    BindingProperty input;
    input.MutableField("a").SetSigned(2);
    Inner inner;
    ASSERT_TRUE(AssignFromProperty(R(), StaticType::Of<Inner>(), input, "<value>", &inner));
    EXPECT_EQ(inner.a, 2);

    Small small = Small::Zero;
    ASSERT_TRUE(
        AssignFromProperty(R(), *R().FindByName("TestSmall"), Str("Big"), "<value>", &small));
    EXPECT_EQ(small, Small::Big);
    Maybe<BindingProperty> smallValue = ConvertToProperty(R(), StaticType::Of<Small>(), &small);
    ASSERT_TRUE(smallValue);
    EXPECT_EQ(smallValue->GetEnum().value, 200);

    Maybe<> unknown = AssignFromProperty(R(), StaticType::Of<Unregistered>(), input, "<result>",
                                         static_cast<void*>(&inner));
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.GetFailure().message,
              "Couldn't assign value to '<result>' because the input is an unregistered structure "
              "or not a structure at all.");

    auto converter = MakeFieldConverter<std::vector<Color>>();
    std::vector<Color> colors;
    BindingProperty list;
    list.MutableElement(0).SetString("Red");
    ASSERT_TRUE(AssignFromProperty(R(), *converter, list, "<value>", &colors));
    EXPECT_EQ(colors, std::vector<Color>{Color::Red});
    Maybe<BindingProperty> back = ConvertToProperty(R(), *converter, &colors);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->Element(0).GetEnum().value, 1);
}

TEST_F(NativeConversionTest, OptionalMembers) {
    EXPECT_EQ(Try<std::optional<int32_t>>(Str("5")), "= 5");
    Maybe<std::optional<int32_t>> absent =
        ConvertFromProperty<std::optional<int32_t>>(R(), BindingProperty(), "x");
    ASSERT_TRUE(absent);
    EXPECT_FALSE(absent->has_value());
    Maybe<BindingProperty> none = ConvertToProperty(R(), std::optional<int32_t>());
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->IsEmpty());
}

}  // namespace
}  // namespace Orvan::Framework
