// The readers fill arrays of records through the previous sibling's names
// and texts; every input must give the tree the general path gives, with
// every interned entry counted once per use.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "framework/binding/internal/TreeAppend.h"
#include "framework/codec/CodecLimits.h"
#include "framework/codec/Json.h"
#include "framework/codec/MsgPack.h"
#include "framework/codec/internal/ReadPaths.h"
#include "tests/codec/support/Describe.h"

namespace Orvan::Framework {
namespace {

using Internal::InternEntry;
using Testing::Describe;

// Counts the references the tree holds to each entry (names and texts).
void CountUses(const BindingProperty& value, std::map<const InternEntry*, uint32_t>& uses) {
    switch (value.Kind()) {
        case BindingKind::String:
            ++uses[Internal::StringEntryOf(value)];
            break;
        case BindingKind::Collection:
            for (const BindingProperty& element : value.Elements()) {
                CountUses(element, uses);
            }
            break;
        case BindingKind::Structure: {
            const Internal::StructureRecord* record = Internal::StructureOf(value);
            for (size_t i = 0; i < record->size; ++i) {
                ++uses[record->items[i].name];
                CountUses(record->items[i].value, uses);
            }
            break;
        }
        default:
            break;
    }
}

// Every entry's count equals its uses in the tree, and the table holds
// nothing else.
void ExpectCountsMatchUses(const BindingProperty& root, const std::string& label) {
    std::map<const InternEntry*, uint32_t> uses;
    CountUses(root, uses);
    size_t stored = 0;
    for (const auto& [entry, count] : uses) {
        if (entry->length == 0) {
            continue;
        }
        ++stored;
        EXPECT_EQ(entry->refCount, count) << label << ": " << entry->View();
    }
    BindingContext* context = BindingContext::Context(root);
    if (context != nullptr) {
        EXPECT_EQ(context->Strings().Count(), stored) << label;
    }
}

// Whole-word equality of fields in order, names by bytes.
void ExpectSameTree(const BindingProperty& fast, const BindingProperty& general,
                    const std::string& label) {
    EXPECT_EQ(Describe(fast), Describe(general)) << label;
    EXPECT_TRUE(fast == general) << label;
    ExpectCountsMatchUses(fast, label + " (models)");
    ExpectCountsMatchUses(general, label + " (general)");
}

void ExpectBothPathsAgree(const std::string& text) {
    Maybe<BindingProperty> fast = ReadJson(text);
    Maybe<BindingProperty> general = CodecInternal::ReadJsonGeneralPath(text);
    ASSERT_EQ(bool(fast), bool(general)) << text;
    if (!fast) {
        EXPECT_EQ(fast.GetFailure().message, general.GetFailure().message) << text;
        return;
    }
    ExpectSameTree(*fast, *general, text.substr(0, 120));
}

const std::vector<std::string>& SiblingCases() {
    static const std::vector<std::string> cases = {
        // Same names in order: the model path throughout.
        R"([{"a":1,"b":"x"},{"a":2,"b":"x"},{"a":3,"b":"y"}])",
        // Names out of order, repeated, missing, added, renamed.
        R"([{"a":1,"b":2},{"b":2,"a":1}])",
        R"([{"a":1,"b":2},{"a":1,"a":3,"b":4}])",
        R"([{"a":1,"b":2},{"a":1,"b":2,"b":5}])",
        R"([{"a":1,"b":2,"c":3},{"a":1,"c":3}])",
        R"([{"a":1,"c":3},{"a":1,"b":2,"c":3,"d":4}])",
        R"([{"ab":1,"b":2},{"aa":1,"b":2},{"ab":1,"bb":2}])",
        R"([{"b":1,"a":2},{"b":1,"a":2}])",
        // Names of the model left out: one, several, more than are looked
        // ahead for, then a name out of order or repeated after the gap.
        R"([{"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7},{"a":1,"c":3,"g":7}])",
        R"([{"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7},{"b":1,"f":3},{"a":0,"g":1}])",
        R"([{"a":1,"b":2,"c":3,"d":4},{"a":1,"c":3,"b":2},{"a":1,"c":3,"c":4,"d":{}}])",
        R"([{"a":{"x":1,"y":2},"b":[{"p":1,"q":2}]},{"b":[{"q":3},{"p":1}]},{"a":{"y":3}}])",
        // Same length, same prefix, differing late; long names.
        R"([{"abcdefghijklmnopq":1,"z":0},{"abcdefghijklmnopr":1,"z":0}])",
        // NUL inside a name: the name ends there, in both paths.
        R"([{"a":1,"b":2},{"a\u0000x":1,"b":2},{"a":1,"b\u0000":3}])",
        R"([{"a":1},{"a\u0000":2,"a":3}])",
        // Kinds that change between siblings, at the field and the element.
        R"([{"a":{"x":1},"b":[1,2]},{"a":[1],"b":{"x":1}},{"a":"t","b":null}])",
        R"([[1,2,3],{"a":1},[4],"s",[{"a":1}],[{"a":2,"b":3}]])",
        // Texts equal to the model's, differing in length or bytes, empty.
        R"([{"s":"same"},{"s":"same"},{"s":"sane"},{"s":""},{"s":""},{"s":"samesamesame"}])",
        R"([{"s":"a\"b"},{"s":"a\"b"},{"s":"a\u0000b"},{"s":"a\u0000b"}])",
        // Nested records take the previous sibling's nested record as model.
        R"({"items":[{"o":{"p":1,"q":{"r":"x"}},"l":[{"k":1},{"k":2}]},
                     {"o":{"p":2,"q":{"r":"x","s":1}},"l":[{"k":3},{"j":4,"k":5}]},
                     {"o":{"q":{"r":"y"},"p":3},"l":[]}]})",
        // A repeated name whose second value is a container.
        R"([{"a":1,"b":2},{"a":{"x":1},"a":[2],"b":2}])",
        // Empty records and arrays beside full ones.
        R"([{},{"a":1},{},[],[1],[]])",
        // Errors part way through a record that follows the model.
        R"([{"a":1,"b":2},{"a":1,"b":)",
        R"([{"a":1,"b":2},{"a":1,"b":2)",
    };
    return cases;
}

TEST(ReadPaths, JsonSiblingsThatLeaveTheModel) {
    for (const std::string& text : SiblingCases()) {
        ExpectBothPathsAgree(text);
    }
}

TEST(ReadPaths, JsonDeepNestingOfRecords) {
    // Records nested to the limit, twice, so the second chain follows the
    // first as its model; then one level too many.
    std::string chain;
    for (int i = 0; i < 255; ++i) {
        chain += R"({"a":[)";
    }
    chain += "1";
    for (int i = 0; i < 255; ++i) {
        chain += "]}";
    }
    ExpectBothPathsAgree("[" + chain + "," + chain + "]");
    ExpectBothPathsAgree("[" + chain + ",[" + chain + "]]");
}

// Documents of records with random departures from their siblings.
// Arrays of records with random departures from their siblings: names
// missing, out of order, repeated.
std::vector<std::string> GeneratedDocuments() {
    std::vector<std::string> documents;
    uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state](uint32_t n) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<uint32_t>(state >> 33) % n;
    };
    const char* names[] = {"alpha", "beta", "delta", "epsilon", "gamma", "id", "kappa", "z"};
    for (int document = 0; document < 200; ++document) {
        std::string text = "[";
        int records = 1 + static_cast<int>(next(8));
        for (int r = 0; r < records; ++r) {
            text += r ? ",{" : "{";
            bool first = true;
            for (int n = 0; n < 8; ++n) {
                uint32_t roll = next(20);
                if (roll == 0) {
                    continue;  // missing
                }
                int name = roll == 1 ? static_cast<int>(next(8)) : n;  // out of order or repeated
                text += first ? "" : ",";
                first = false;
                text += '"';
                text += names[name];
                text += roll == 2 ? "\\u0000\":" : "\":";
                switch (next(6)) {
                    case 0:
                        text += std::to_string(next(5));
                        break;
                    case 1:
                        text += R"("v)" + std::to_string(next(3)) + '"';
                        break;
                    case 2:
                        text += R"({"x":)" + std::to_string(next(3)) + "}";
                        break;
                    case 3:
                        text += R"([{"y":1},{"y":)" + std::to_string(next(3)) + "}]";
                        break;
                    case 4:
                        text += "null";
                        break;
                    default:
                        text += R"("")";
                        break;
                }
            }
            text += "}";
        }
        text += "]";
        documents.push_back(std::move(text));
    }
    return documents;
}

TEST(ReadPaths, JsonGeneratedRecordsWithDepartures) {
    for (const std::string& text : GeneratedDocuments()) {
        ExpectBothPathsAgree(text);
    }
}

// MessagePack of a JSON text with its names in the order written (repeats
// kept). `wide` picks the longer forms (str 8/16, array and map 16, uint and
// int of more bytes than needed, float 32 where exact), so every length and
// number form is read on both paths.
class Packer {
public:
    explicit Packer(bool wide) : wide_(wide) {}

    std::vector<uint8_t> Pack(const rapidjson::Value& value) {
        Value(value);
        return std::move(out_);
    }

private:
    void Byte(uint64_t b) { out_.push_back(static_cast<uint8_t>(b)); }
    void Big(uint64_t v, int bytes) {
        for (int i = bytes - 1; i >= 0; --i) {
            Byte(v >> (8 * i));
        }
    }
    void Head(size_t n, uint8_t fix, uint8_t fixLimit, uint8_t sixteen) {
        if (!wide_ && n < fixLimit) {
            Byte(fix | n);
        } else {
            Byte(sixteen);
            Big(n, 2);
        }
    }
    void Text(const char* text, size_t n) {
        if (!wide_ && n < 32) {
            Byte(0xA0 | n);
        } else if (n < 256 && (n % 2 == 0)) {
            Byte(0xD9);
            Big(n, 1);
        } else {
            Byte(0xDA);
            Big(n, 2);
        }
        out_.insert(out_.end(), text, text + n);
    }
    void Value(const rapidjson::Value& v) {
        if (v.IsNull()) {
            Byte(0xC0);
        } else if (v.IsBool()) {
            Byte(v.GetBool() ? 0xC3 : 0xC2);
        } else if (v.IsUint64()) {
            uint64_t u = v.GetUint64();
            if (!wide_ && u < 128) {
                Byte(u);
            } else if (u < 256) {
                Byte(wide_ ? 0xCD : 0xCC);
                Big(u, wide_ ? 2 : 1);
            } else {
                Byte(wide_ ? 0xCF : 0xCE);
                Big(u, wide_ ? 8 : 4);
            }
        } else if (v.IsInt64()) {
            int64_t i = v.GetInt64();
            if (!wide_ && i >= -32) {
                Byte(static_cast<uint64_t>(i) & 0xFF);
            } else {
                Byte(wide_ ? 0xD3 : 0xD0);
                Big(static_cast<uint64_t>(i), wide_ ? 8 : 1);
            }
        } else if (v.IsDouble()) {
            double d = v.GetDouble();
            float f = static_cast<float>(d);
            if (wide_ && static_cast<double>(f) == d) {
                Byte(0xCA);
                Big(std::bit_cast<uint32_t>(f), 4);
            } else {
                Byte(0xCB);
                Big(std::bit_cast<uint64_t>(d), 8);
            }
        } else if (v.IsString()) {
            Text(v.GetString(), v.GetStringLength());
        } else if (v.IsArray()) {
            Head(v.Size(), 0x90, 16, 0xDC);
            for (const rapidjson::Value& e : v.GetArray()) {
                Value(e);
            }
        } else {
            Head(v.MemberCount(), 0x80, 16, 0xDE);
            for (const auto& m : v.GetObject()) {
                Text(m.name.GetString(), m.name.GetStringLength());
                Value(m.value);
            }
        }
    }

    bool wide_;
    std::vector<uint8_t> out_;
};

void ExpectBothDecodersAgree(const std::vector<uint8_t>& bytes, const std::string& label) {
    MsgPackResult fast = DecodeMsgPack(bytes.data(), bytes.size());
    MsgPackResult general = CodecInternal::DecodeMsgPackGeneralPath(bytes.data(), bytes.size());
    ASSERT_EQ(bool(fast.value), bool(general.value)) << label;
    EXPECT_EQ(fast.consumed, general.consumed) << label;
    if (fast.value) {
        ExpectSameTree(*fast.value, *general.value, label);
    } else {
        EXPECT_EQ(fast.value.GetFailure().message, general.value.GetFailure().message) << label;
    }
}

// Each document whole and cut at every byte: a cut ends inside containers,
// after a key, inside a length or a number, and both decoders must stop at
// the same place with the same tree or message.
void ExpectBothDecodersAgreeOnEveryCut(const std::vector<uint8_t>& bytes,
                                       const std::string& label) {
    for (size_t n = 0; n <= bytes.size(); ++n) {
        std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        ExpectBothDecodersAgree(cut, label + " cut at " + std::to_string(n));
    }
}

std::vector<uint8_t> PackJson(const std::string& text, bool wide) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    EXPECT_FALSE(document.HasParseError()) << text;
    return Packer(wide).Pack(document);
}

TEST(ReadPaths, MsgPackSiblingsThatLeaveTheModel) {
    for (const std::string& text : SiblingCases()) {
        rapidjson::Document document;
        document.Parse(text.c_str(), text.size());
        if (document.HasParseError()) {
            continue;  // the JSON errors part way through
        }
        for (bool wide : {false, true}) {
            ExpectBothDecodersAgreeOnEveryCut(PackJson(text, wide), text.substr(0, 80));
        }
    }
}

TEST(ReadPaths, MsgPackGeneratedRecordsWithDepartures) {
    for (const std::string& text : GeneratedDocuments()) {
        for (bool wide : {false, true}) {
            ExpectBothDecodersAgree(PackJson(text, wide), text.substr(0, 80));
        }
    }
}

TEST(ReadPaths, MsgPackFailuresAndLimits) {
    const std::vector<uint8_t> documents[] = {
        // A key that is not a string, in a record that follows its model.
        {0x92, 0x81, 0xA1, 'a', 0x01, 0x81, 0x01, 0x02},
        // Ext and the unused byte inside records.
        {0x92, 0x81, 0xA1, 'a', 0x01, 0x81, 0xA1, 'a', 0xC1},
        {0x91, 0x81, 0xA1, 'a', 0xD4, 0x00, 0x00},
        // A repeated name whose later value is null, a container, a text.
        {0x81, 0xA1, 'a', 0x01},
        {0x92, 0x82, 0xA1, 'a', 0x01, 0xA1, 'a', 0xC0, 0x83, 0xA1, 'a',
         0x91, 0x01, 0xA1, 'a', 0x80, 0xA1, 'a', 0xA2, 0x01, 0x02},
        // Counts far beyond the input.
        {0xDD, 0xFF, 0xFF, 0xFF, 0xFF, 0x01},
        {0xDF, 0xFF, 0xFF, 0xFF, 0xFF, 0xA1, 'a', 0x01},
        // Trailing bytes after the top-level value.
        {0x91, 0x01, 0x02, 0x03},
        // Empty containers beside full ones, as records and elements.
        {0x94, 0x80, 0x81, 0xA1, 'a', 0x90, 0x81, 0xA1, 'a', 0x91, 0x80, 0x90},
    };
    for (const std::vector<uint8_t>& bytes : documents) {
        ExpectBothDecodersAgreeOnEveryCut(bytes, "document of " + std::to_string(bytes.size()));
    }
    // Nested to the limit, twice, so the second chain follows the first as
    // its model; then one level too many.
    for (size_t depth : {kMaxNestingDepth, kMaxNestingDepth + 1}) {
        std::vector<uint8_t> chain;
        for (size_t i = 1; i < depth; i += 2) {
            chain.insert(chain.end(), {0x81, 0xA1, 'a', 0x91});
        }
        if (depth % 2 == 1) {
            chain.push_back(0x91);
        }
        chain.push_back(0x01);
        std::vector<uint8_t> two = {0x92};
        two.insert(two.end(), chain.begin(), chain.end());
        two.insert(two.end(), chain.begin(), chain.end());
        ExpectBothDecodersAgree(chain, "chain of " + std::to_string(depth));
        ExpectBothDecodersAgree(two, "two chains of " + std::to_string(depth));
    }
}

// A large document of numbers: the string buckets reserved for its size
// and the doubled array are given back once it is read.
TEST(ReadPaths, ReadTreesHoldWhatTheirDataNeeds) {
    std::string text = R"({"values":[)";
    for (int i = 0; i < 50000; ++i) {
        text += (i ? "," : "") + std::to_string(i * 7919 % 100000);
    }
    text += "]}";
    for (bool general : {false, true}) {
        Maybe<BindingProperty> read =
            general ? CodecInternal::ReadJsonGeneralPath(text) : ReadJson(text);
        ASSERT_TRUE(read);
        const BindingProperty& values = read->Field("values");
        const Internal::CollectionRecord* record = Internal::CollectionOf(values);
        EXPECT_EQ(record->size, 50000u);
        EXPECT_EQ(record->capacity, record->size);
        BindingContext* context = BindingContext::Context(*read);
        EXPECT_EQ(context->Strings().Count(), 1u);
        EXPECT_LE(context->Strings().BucketCount(), 16u);
    }
}

// Records of one unique text each, about 90 bytes a record: the readers'
// size-based estimate of the texts is well above their count, and the table
// must not keep the difference (the next power of two above the count at
// most).
TEST(ReadPaths, StringBucketsFollowTheTextsNotTheInputSize) {
    std::string json = R"({"items":[)";
    std::vector<uint8_t> msgpack = {0x81, 0xA5, 'i', 't', 'e', 'm', 's', 0xDD};
    constexpr uint32_t kRecords = 12000;
    for (int shift = 24; shift >= 0; shift -= 8) {
        msgpack.push_back(static_cast<uint8_t>(kRecords >> shift));
    }
    for (uint32_t i = 0; i < kRecords; ++i) {
        std::string label = "label-" + std::to_string(i * 7919);
        json += (i ? "," : "");
        json += R"({"id":)" + std::to_string(i) + R"(,"label":")" + label +
                R"(","note":"a text that every record repeats as it is"})";
        msgpack.insert(msgpack.end(), {0x83, 0xA2, 'i', 'd', 0xCE});
        for (int shift = 24; shift >= 0; shift -= 8) {
            msgpack.push_back(static_cast<uint8_t>(i >> shift));
        }
        msgpack.insert(msgpack.end(), {0xA5, 'l', 'a', 'b', 'e', 'l'});
        msgpack.push_back(static_cast<uint8_t>(0xA0 | label.size()));
        msgpack.insert(msgpack.end(), label.begin(), label.end());
        const std::string note = "a text every record repeats";
        msgpack.insert(msgpack.end(), {0xA4, 'n', 'o', 't', 'e'});
        msgpack.push_back(static_cast<uint8_t>(0xA0 | note.size()));
        msgpack.insert(msgpack.end(), note.begin(), note.end());
    }
    json += "]}";
    struct Case {
        const char* label;
        Maybe<BindingProperty> read;
    };
    Case cases[] = {
        {"json", ReadJson(json)},
        {"json, general path", CodecInternal::ReadJsonGeneralPath(json)},
        {"msgpack", Maybe<BindingProperty>(DecodeMsgPack(msgpack.data(), msgpack.size()).value)},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.label);
        ASSERT_TRUE(c.read);
        EXPECT_EQ(c.read->Field("items").Size(), kRecords);
        const Internal::InternTable& strings = BindingContext::Context(*c.read)->Strings();
        EXPECT_GE(strings.Count(), kRecords);
        EXPECT_LE(strings.BucketCount(), std::bit_ceil(strings.Count()));
    }
}

}  // namespace
}  // namespace Orvan::Framework
