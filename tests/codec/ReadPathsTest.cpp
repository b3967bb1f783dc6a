// The readers fill arrays of records through the previous sibling's names
// and texts; every input must give the tree the general path gives, with
// every interned entry counted once per use.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "framework/binding/internal/TreeAppend.h"
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

TEST(ReadPaths, JsonSiblingsThatLeaveTheModel) {
    const std::string cases[] = {
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
    for (const std::string& text : cases) {
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
TEST(ReadPaths, JsonGeneratedRecordsWithDepartures) {
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
        ExpectBothPathsAgree(text);
    }
}

TEST(ReadPaths, MsgPackSiblingsThatLeaveTheModel) {
    // [{"a":1,"b":"x"},{"b":"x","a":1},{"a":1,"a":2},{"a":"x"}] and a map
    // ending after a key.
    const std::vector<uint8_t> documents[] = {
        {0x94, 0x82, 0xA1, 'a',  0x01, 0xA1, 'b',  0xA1, 'x',  0x82, 0xA1, 'b', 0xA1, 'x', 0xA1,
         'a',  0x01, 0x82, 0xA1, 'a',  0x01, 0xA1, 'a',  0x02, 0x81, 0xA1, 'a', 0xA1, 'x'},
        {0x92, 0x82, 0xA1, 'a', 0x01, 0xA1, 'b', 0x02, 0x82, 0xA1, 'a', 0x01, 0xA1, 'b'},
    };
    for (const std::vector<uint8_t>& bytes : documents) {
        MsgPackResult fast = DecodeMsgPack(bytes.data(), bytes.size());
        MsgPackResult general = CodecInternal::DecodeMsgPackGeneralPath(bytes.data(), bytes.size());
        ASSERT_EQ(bool(fast.value), bool(general.value));
        EXPECT_EQ(fast.consumed, general.consumed);
        if (fast.value) {
            ExpectSameTree(*fast.value, *general.value, "msgpack");
        } else {
            EXPECT_EQ(fast.value.GetFailure().message, general.value.GetFailure().message);
        }
    }
}

}  // namespace
}  // namespace Orvan::Framework
