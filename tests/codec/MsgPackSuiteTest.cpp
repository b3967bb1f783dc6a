// Every vector of the public MessagePack suite: values of the supported types
// decode to the expected value, consuming every byte; ext and timestamp
// vectors fail with their positioned message.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "framework/codec/MsgPack.h"
#include "tests/codec/support/Describe.h"

namespace Orvan::Framework {
namespace {

using Testing::FromHex;

const char kSuite[] = "../shared/testdata/msgpack-test-suite/dist/msgpack-test-suite.json";

// The kind a scalar decodes to follows from its type byte, not its value.
BindingKind NumberKind(uint8_t type) {
    if ((type >= 0xCC && type <= 0xCF)) {
        return BindingKind::Unsigned;
    }
    if (type == 0xCA || type == 0xCB) {
        return BindingKind::Float;
    }
    return BindingKind::Signed;
}

double AsDouble(const BindingProperty& v) {
    switch (v.Kind()) {
        case BindingKind::Signed:
            return static_cast<double>(v.GetSigned());
        case BindingKind::Unsigned:
            return static_cast<double>(v.GetUnsigned());
        case BindingKind::Float:
            return v.GetFloat();
        default:
            return -1.234567e300;  // never expected
    }
}

// Compares a decoded value with the suite's expectation; returns "" or the difference.
std::string Compare(const BindingProperty& got, const char* type,
                    const rapidjson::Value& expected) {
    std::string t = type;
    auto mismatch = [&] { return t + " mismatch, got " + Testing::Describe(got); };
    if (t == "nil") {
        return got.IsEmpty() ? "" : mismatch();
    }
    if (t == "bool") {
        return got.Kind() == BindingKind::Bool && got.GetBool() == expected.GetBool() ? ""
                                                                                      : mismatch();
    }
    if (t == "binary") {
        std::vector<uint8_t> bytes = FromHex(expected.GetString());
        std::span<const uint8_t> blob = got.GetBlob();
        bool same = got.Kind() == BindingKind::Blob &&
                    std::equal(blob.begin(), blob.end(), bytes.begin(), bytes.end());
        return same ? "" : mismatch();
    }
    if (t == "number") {
        return AsDouble(got) == expected.GetDouble() ? "" : mismatch();
    }
    if (t == "bignum") {
        std::string text = expected.GetString();
        bool same = got.Kind() == BindingKind::Signed ? std::to_string(got.GetSigned()) == text
                    : got.Kind() == BindingKind::Unsigned
                        ? std::to_string(got.GetUnsigned()) == text
                        : AsDouble(got) == std::strtod(text.c_str(), nullptr);
        return same ? "" : mismatch();
    }
    if (t == "string") {
        return got.Kind() == BindingKind::String && got.GetString() == expected.GetString()
                   ? ""
                   : mismatch();
    }
    auto nestedType = [](const rapidjson::Value& v) {
        return v.IsNull()     ? "nil"
               : v.IsBool()   ? "bool"
               : v.IsNumber() ? "number"
               : v.IsString() ? "string"
               : v.IsArray()  ? "array"
                              : "map";
    };
    if (t == "array") {
        if (got.Kind() != BindingKind::Collection || got.Size() != expected.Size()) {
            return mismatch();
        }
        for (rapidjson::SizeType i = 0; i < expected.Size(); ++i) {
            std::string inner = Compare(got.Element(i), nestedType(expected[i]), expected[i]);
            if (!inner.empty()) {
                return inner;
            }
        }
        return "";
    }
    if (t == "map") {
        if (got.Kind() != BindingKind::Structure || got.Size() != expected.MemberCount()) {
            return mismatch();
        }
        for (const auto& member : expected.GetObject()) {
            std::string inner =
                Compare(got.Field(member.name.GetString()), nestedType(member.value), member.value);
            if (!inner.empty()) {
                return inner;
            }
        }
        return "";
    }
    return "unknown expectation " + t;
}

TEST(MsgPackSuite, EveryVector) {
    std::ifstream in(kSuite, std::ios::binary);
    ASSERT_TRUE(in) << kSuite;
    std::stringstream text;
    text << in.rdbuf();
    rapidjson::Document suite;
    suite.Parse(text.str().c_str());
    ASSERT_FALSE(suite.HasParseError());

    size_t decoded = 0;
    size_t refused = 0;
    for (const auto& file : suite.GetObject()) {
        for (const auto& entry : file.value.GetArray()) {
            // "bignum" is exact where "number" is not; prefer it when both are given.
            const char* type = entry.HasMember("bignum") ? "bignum" : nullptr;
            for (const auto& member : entry.GetObject()) {
                std::string key = member.name.GetString();
                if (!type && key != "msgpack") {
                    type = member.name.GetString();
                }
            }
            ASSERT_NE(type, nullptr);
            const rapidjson::Value& expected = entry[type];
            for (const auto& encoding : entry["msgpack"].GetArray()) {
                std::string hex = encoding.GetString();
                std::vector<uint8_t> bytes = FromHex(hex);
                MsgPackResult result = DecodeMsgPack(bytes.data(), bytes.size());
                std::string where = std::string(file.name.GetString()) + " " + hex;
                if (std::string(type) == "ext" || std::string(type) == "timestamp") {
                    ASSERT_FALSE(result.value.HasValue()) << where;
                    EXPECT_EQ(result.value.GetFailure().message,
                              "Invalid MessagePack data at position 1.")
                        << where;
                    ++refused;
                    continue;
                }
                ASSERT_TRUE(result.value.HasValue())
                    << where << ": " << result.value.GetFailure().message;
                EXPECT_EQ(result.consumed, bytes.size()) << where;
                const BindingProperty& got = *result.value;
                EXPECT_EQ(Compare(got, type, expected), "") << where;
                std::string t = type;
                if (t == "number" || t == "bignum") {
                    EXPECT_EQ(got.Kind(), NumberKind(bytes[0])) << where;
                }
                ++decoded;
            }
        }
    }
    EXPECT_EQ(decoded + refused, 233u);
    EXPECT_GT(refused, 0u);
}

}  // namespace
}  // namespace Orvan::Framework
