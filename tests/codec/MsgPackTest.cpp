#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/codec/MsgPack.h"
#include "tests/codec/support/Describe.h"

namespace Orvan::Framework {
namespace {

using Testing::Describe;
using Testing::FromHex;

struct DecodeCase {
    std::string hex;
    std::string expected;  // described value, or the failure message
    size_t consumed;
};

std::string Outcome(const MsgPackResult& result) {
    return result.value ? Describe(*result.value) : result.value.GetFailure().message;
}

TEST(MsgPackDecode, TypeBytesTruncationsAndInvalidData) {
    const DecodeCase cases[] = {
        {"", "~", 0},
        {"92 01 ff", "[s1,s-1]", 3},
        {"81 a1 61 cc ff", "{a:u255}", 5},
        {"82 a1 62 7f a1 61 e0", "{a:s-32,b:s127}", 7},
        {"82 a1 61 01 a1 61 02", "{a:s2}", 7},
        {"c0", "~", 1},
        {"93 c2 c3 c0", "[false,true,~]", 4},
        {"d0 80 d1 80 00", "s-128", 2},
        {"d1 80 00", "s-32768", 3},
        {"d2 80 00 00 00", "s-2147483648", 5},
        {"d3 80 00 00 00 00 00 00 00", "s-9223372036854775808", 9},
        {"cd ff ff", "u65535", 3},
        {"ce ff ff ff ff", "u4294967295", 5},
        {"cf ff ff ff ff ff ff ff ff", "u18446744073709551615", 9},
        {"ca 3f c0 00 00", "f1.5", 5},
        {"cb 3f b9 99 99 99 99 99 9a", "f0.10000000000000001", 9},
        {"c4 02 00 ff", "bAP8=", 4},
        {"c5 00 00", "b", 3},
        {"d9 02 68 69", "'hi'", 4},
        {"da 00 01 78", "'x'", 4},
        {"db 00 00 00 00", "''", 5},
        {"dc 00 01 01", "[s1]", 4},
        {"de 00 01 a1 6b 90", "{k:[]}", 6},
        {"91 90 01", "[[]]", 2},
        {"80", "{}", 1},
        {"01 02", "s1", 1},
        // Input ending inside containers is not a failure.
        {"93 01", "[s1]", 2},
        {"82 a1 61 01 a1 62", "{a:s1}", 6},
        {"dd ff ff ff ff 01", "[s1]", 6},
        {"df ff ff ff ff", "{}", 5},
        // Failures.
        {"81 01 02", "Invalid MessagePack data at position 2. Map keys must be strings.", 2},
        {"81 c0 01", "Invalid MessagePack data at position 2. Map keys must be strings.", 2},
        {"c1", "Invalid MessagePack data at position 1.", 1},
        {"92 01 c7 00 01", "Invalid MessagePack data at position 3.", 3},
        {"d8 05", "Invalid MessagePack data at position 1.", 1},
        {"cc", "Invalid MessagePack data. 8-bit integer value at position 1 is truncated.", 1},
        {"cd 01", "Invalid MessagePack data. 16-bit integer value at position 1 is truncated.", 1},
        {"ca 00 00", "Invalid MessagePack data. 32-bit integer value at position 1 is truncated.",
         1},
        {"91 cf 01", "Invalid MessagePack data. 64-bit integer value at position 2 is truncated.",
         2},
        {"d9", "Invalid MessagePack data. 8-bit integer value at position 1 is truncated.", 1},
        {"81 da 00", "Invalid MessagePack data. 16-bit integer value at position 2 is truncated.",
         2},
        {"dd 00 00", "Invalid MessagePack data. 32-bit integer value at position 1 is truncated.",
         1},
        {"a3 61 62", "Invalid MessagePack data. String of size 3 at position 1 is truncated.", 1},
        {"81 d9 05 61", "Invalid MessagePack data. String of size 5 at position 3 is truncated.",
         3},
        {"c4 03 01", "Invalid MessagePack data. Raw bytes of size 3 at position 2 are truncated.",
         2},
        {"c6 ff ff ff ff 00",
         "Invalid MessagePack data. Raw bytes of size 4294967295 at position 5 are truncated.", 5},
    };
    for (const DecodeCase& c : cases) {
        std::vector<uint8_t> bytes = FromHex(c.hex);
        MsgPackResult result = DecodeMsgPack(bytes.data(), bytes.size());
        EXPECT_EQ(Outcome(result), c.expected) << c.hex;
        EXPECT_EQ(result.consumed, c.consumed) << c.hex;
    }
}

TEST(MsgPackDecode, NestingLimit) {
    std::vector<uint8_t> bytes(512, 0x91);
    bytes.push_back(0x01);
    MsgPackResult ok = DecodeMsgPack(bytes.data(), bytes.size());
    EXPECT_TRUE(ok.value.HasValue());
    EXPECT_EQ(ok.consumed, 513u);

    for (uint8_t container : {0x91, 0x90, 0x80}) {
        std::vector<uint8_t> deep(512, 0x91);
        deep.push_back(container);
        deep.push_back(0x01);
        MsgPackResult result = DecodeMsgPack(deep.data(), deep.size());
        ASSERT_FALSE(result.value.HasValue());
        EXPECT_EQ(result.value.GetFailure().message,
                  "Invalid MessagePack data at position 513. Nesting is deeper than 512.");
    }
}

}  // namespace
}  // namespace Orvan::Framework
