#include "framework/binding/BindingProperty.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/binding/internal/BindingContext.h"
#include "framework/platform/PageSource.h"

namespace Orvan::Framework {
namespace {

using Internal::InternTable;

std::vector<std::string> FieldNames(const BindingProperty& value) {
    std::vector<std::string> names;
    for (auto field : value.Fields()) {
        names.emplace_back(field.name);
    }
    return names;
}

BindingProperty Blob(std::vector<uint8_t> bytes) {
    return BindingProperty(std::move(bytes));
}

// The names reach messages, where they are checked; here only the bounds.
TEST(BindingKindNameTest, NamesEndAtTheLastCode) {
    EXPECT_STREQ(BindingKindName(0), "empty");
    EXPECT_STREQ(BindingKindName(9), "structure");
    EXPECT_STREQ(BindingKindName(10), "");
    EXPECT_STREQ(BindingKindName(0xFFFFFFFFu), "");
}

TEST(BindingPropertyTest, MutableAccessChangesKindReadOnlyAccessDoesNot) {
    BindingProperty list;
    list.MutableElement(3).SetSigned(7);
    ASSERT_EQ(list.Kind(), BindingKind::Collection);
    ASSERT_EQ(list.Size(), 4u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(list.Element(i).IsEmpty());
    }
    EXPECT_EQ(list.Element(3).GetSigned(), 7);

    BindingProperty flag(true);
    flag.MutableField("x").SetString("y");
    EXPECT_EQ(flag.Kind(), BindingKind::Structure);
    EXPECT_EQ(FieldNames(flag), std::vector<std::string>{"x"});

    // Read-only access on the wrong kind yields the shared empty value.
    EXPECT_TRUE(list.Field("x").IsEmpty());
    EXPECT_FALSE(list.HasField("x"));
    EXPECT_EQ(&list.Field("x"), &BindingProperty::EmptyValue());
    EXPECT_EQ(&flag.Element(0), &BindingProperty::EmptyValue());
    EXPECT_EQ(&list.Element(4), &BindingProperty::EmptyValue());
    EXPECT_EQ(list.Size(), 4u);
    EXPECT_EQ(list.Kind(), BindingKind::Collection);

    // A setter on a composite clears it first.
    list.SetString("z");
    EXPECT_EQ(list.Kind(), BindingKind::String);
    EXPECT_TRUE(list.Elements().empty());
    list.Append().SetBool(true);
    EXPECT_EQ(list.Size(), 1u);
}

TEST(BindingPropertyTest, FieldsIterateInUnsignedByteOrder) {
    BindingProperty record;
    for (const char* name : {"b", "a", "c", "B", "ab", "\xC3\xA9", "", "a"}) {
        record.MutableField(name).SetSigned(1);
    }
    EXPECT_EQ(FieldNames(record),
              (std::vector<std::string>{"", "B", "a", "ab", "b", "c", "\xC3\xA9"}));
    EXPECT_EQ(record.Fields().size(), 7u);

    // Names end at their first NUL, as C texts do.
    record.MutableField(std::string_view("c\0x", 3)).SetSigned(2);
    EXPECT_EQ(record.Field("c").GetSigned(), 2);
    EXPECT_EQ(record.Size(), 7u);

    EXPECT_TRUE(record.RemoveField("ab"));
    EXPECT_FALSE(record.RemoveField("ab"));
    EXPECT_EQ(FieldNames(record), (std::vector<std::string>{"", "B", "a", "b", "c", "\xC3\xA9"}));
}

TEST(BindingPropertyTest, FieldOrderHoldsWhateverOrderRecordsAreBuiltIn) {
    // One tree, records built in different orders: positions remembered from
    // one record must never misplace or duplicate a field of the next.
    const std::vector<std::vector<std::string>> orders = {
        {"queueId", "counter", "phase", "id", "summonerId", "summonerName"},
        {"summonerName", "summonerId", "phase", "queueId", "id", "counter"},
        {"id", "counter", "phase", "queueId", "summonerId", "summonerName"},
        {"queueId", "counter", "queueId", "phase", "summonerName", "id", "summonerId"},
        {"phase", "counter"},
    };
    BindingProperty tree;
    for (int round = 0; round < 3; ++round) {
        for (const auto& order : orders) {
            BindingProperty& record = tree.Append();
            for (const auto& name : order) {
                record.MutableField(name).SetString(name);
            }
        }
    }
    for (const auto& record : tree.Elements()) {
        std::vector<std::string> names = FieldNames(record);
        EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
        EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
        for (const auto& name : names) {
            EXPECT_EQ(record.Field(name).GetString(), name);
        }
    }
    EXPECT_EQ(tree.Element(3).Size(), 6u);
}

struct ObserverCase {
    const char* label;
    BindingProperty value;
    int64_t asSigned;
    uint64_t asUnsigned;
    const char* text;
    bool isTrue;
    size_t size;
};

TEST(BindingPropertyTest, ObserversConvertPerKind) {
    const StaticType* noType = nullptr;
    const uint64_t max = std::numeric_limits<uint64_t>::max();
    ObserverCase cases[] = {
        {"empty", BindingProperty(), 0, 0, "", false, 0},
        {"bool", BindingProperty(true), 1, 1, "true", true, 1},
        {"negative", BindingProperty(int64_t{-42}), -42, max - 41, "-42", true, 1},
        {"unsigned", BindingProperty(max), -1, max, "18446744073709551615", true, 1},
        {"float", BindingProperty(1.5), 1, 1, "1.500000", true, 1},
        {"negative float", BindingProperty(-2.75), -2, max - 1, "-2.750000", true, 1},
        {"huge float", BindingProperty(1e300), std::numeric_limits<int64_t>::max(), max, nullptr,
         true, 1},
        {"nan", BindingProperty(std::nan("")), 0, 0, nullptr, true, 1},
        {"hex", BindingProperty("0x10"), 16, 16, "0x10", false, 4},
        {"octal", BindingProperty("010"), 8, 8, "010", false, 3},
        {"garbage", BindingProperty("12abc"), 12, 12, "12abc", false, 5},
        {"one", BindingProperty("1"), 1, 1, "1", true, 1},
        {"true", BindingProperty("true"), 0, 0, "true", true, 4},
        {"TRUE", BindingProperty("TRUE"), 0, 0, "TRUE", false, 4},
        {"yes", BindingProperty("yes"), 0, 0, "yes", false, 3},
        {"minus one", BindingProperty("-1"), -1, max, "-1", false, 2},
        {"blob", Blob({0x00, 0xFF}), 0, 0, "AP8=", true, 2},
        {"blob 1", Blob({'f'}), 0, 0, "Zg==", true, 1},
        {"blob 3", Blob({'f', 'o', 'o'}), 0, 0, "Zm9v", true, 3},
        {"empty blob", Blob({}), 0, 0, "", false, 0},
        {"enum", BindingProperty(BindingEnumValue{-3, noType}), -3, max - 2, "-3", true, 1},
        {"zero enum", BindingProperty(BindingEnumValue{0, noType}), 0, 0, "0", false, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(c.value.AsSigned(), c.asSigned);
        EXPECT_EQ(c.value.AsUnsigned(), c.asUnsigned);
        if (c.text != nullptr) {
            EXPECT_EQ(c.value.AsText(), c.text);
        }
        EXPECT_EQ(c.value.IsTrue(), c.isTrue);
        EXPECT_EQ(c.value.Size(), c.size);
    }

    BindingProperty list;
    list.Append();
    EXPECT_TRUE(list.IsTrue());
    EXPECT_EQ(list.AsText(), "");
    EXPECT_EQ(BindingProperty(uint64_t{5}).AsUnsigned(9), 5u);
    EXPECT_EQ(BindingProperty(int64_t{5}).AsUnsigned(9), 9u);
    EXPECT_EQ(BindingProperty("5").AsUnsigned(9), 9u);
}

TEST(BindingPropertyTest, EmptyAndNullTextsShareOneStaticString) {
    BindingProperty fromEmpty("");
    BindingProperty fromNull(static_cast<const char*>(nullptr));
    BindingProperty set;
    set.SetString(std::string_view());
    for (const BindingProperty* value : {&fromEmpty, &fromNull, &set}) {
        EXPECT_EQ(value->Kind(), BindingKind::String);
        EXPECT_EQ(value->Size(), 0u);
        EXPECT_EQ(*value, fromEmpty);
        // No storage was needed for it.
        EXPECT_EQ(BindingContext::Context(*value), nullptr);
    }
    BindingProperty tree;
    tree.MutableField("a").SetString("");
    EXPECT_EQ(BindingContext::Context(tree)->Strings().Count(), 1u);  // only the name
    EXPECT_EQ(tree.Field("a"), fromNull);
}

TEST(BindingPropertyTest, EqualityFollowsTheValueModel) {
    BindingProperty structure;
    structure.MutableField("b").SetUnsigned(2);
    structure.MutableField("a").MutableElement(1).SetString("x");
    BindingProperty otherOrder;
    otherOrder.MutableField("a").MutableElement(1).SetString("x");
    otherOrder.MutableField("b").SetUnsigned(2);
    BindingProperty renamed;
    renamed.MutableField("a").MutableElement(1).SetString("x");
    renamed.MutableField("c").SetUnsigned(2);
    int typeTag = 0;
    auto* type = reinterpret_cast<const StaticType*>(&typeTag);
    BindingProperty blob = Blob({1, 2});

    struct Case {
        const char* label;
        const BindingProperty& left;
        BindingProperty right;
        bool equal;
    };
    const BindingProperty five(int64_t{5});
    const BindingProperty nan(std::nan(""));
    Case cases[] = {
        {"signed vs unsigned", five, BindingProperty(uint64_t{5}), false},
        {"same signed", five, BindingProperty(int64_t{5}), true},
        {"empty", BindingProperty::EmptyValue(), BindingProperty(), true},
        {"nan", nan, BindingProperty(std::nan("")), false},
        {"nan itself", nan, nan, false},
        {"zero floats", BindingProperty(0.0), BindingProperty(-0.0), true},
        {"string", BindingProperty("abc"), BindingProperty("abc"), true},
        {"string differs", BindingProperty("abc"), BindingProperty("abd"), false},
        {"string vs empty", BindingProperty("a"), BindingProperty(""), false},
        {"blob itself", blob, BindingProperty(), true},  // filled below
        {"blob copy", blob, BindingProperty(blob), false},
        {"enum", BindingProperty(BindingEnumValue{1, type}),
         BindingProperty(BindingEnumValue{1, type}), true},
        {"enum type", BindingProperty(BindingEnumValue{1, type}),
         BindingProperty(BindingEnumValue{1, nullptr}), false},
        {"enum value", BindingProperty(BindingEnumValue{1, type}),
         BindingProperty(BindingEnumValue{2, type}), false},
        {"structure order of building", structure, BindingProperty(otherOrder), true},
        {"structure renamed", structure, BindingProperty(renamed), false},
        {"structure copy", structure, BindingProperty(structure), true},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.label);
        if (std::string_view(c.label) == "blob itself") {
            EXPECT_TRUE(c.left == blob);
            continue;
        }
        EXPECT_EQ(c.left == c.right, c.equal);
        EXPECT_EQ(c.right == c.left, c.equal);
    }

    BindingProperty shorter;
    shorter.MutableElement(0);
    BindingProperty longer;
    longer.MutableElement(1);
    EXPECT_NE(shorter, longer);
    longer.Resize(1);
    EXPECT_EQ(shorter, longer);
}

TEST(BindingPropertyTest, CopiesLandInTheTargetContext) {
    BindingProperty source;
    source.MutableField("name").SetString("alpha");
    source.MutableField("bytes").SetBlob(std::vector<uint8_t>{1, 2, 3});
    source.MutableField("list").MutableElement(2).SetFloat(0.5);

    BindingProperty target;
    target.MutableElement(0) = source;  // into a borrowed context
    const BindingProperty& element = target.Element(0);
    EXPECT_EQ(BindingContext::Context(element), BindingContext::Context(target));
    EXPECT_EQ(BindingContext::Context(element.Field("name")), BindingContext::Context(target));
    EXPECT_EQ(element.Field("name"), source.Field("name"));
    EXPECT_EQ(element.Field("list"), source.Field("list"));
    EXPECT_NE(element.Field("bytes"), source.Field("bytes"));
    EXPECT_EQ(element.Field("bytes").AsText(), "AQID");

    // Moving between two standalone values swaps and clears the source.
    BindingProperty holder("old");
    BindingContext* sourceContext = BindingContext::Context(source);
    holder = std::move(source);
    EXPECT_EQ(BindingContext::Context(holder), sourceContext);
    EXPECT_TRUE(source.IsEmpty());  // NOLINT(bugprone-use-after-move): what is checked
    EXPECT_EQ(holder.Field("name").GetString(), "alpha");

    // Moving out of a tree copies and clears the element.
    BindingProperty taken(std::move(target.MutableElement(0)));
    EXPECT_TRUE(target.Element(0).IsEmpty());
    EXPECT_EQ(target.Size(), 1u);
    EXPECT_EQ(taken.Field("name").GetString(), "alpha");
    EXPECT_NE(BindingContext::Context(taken), BindingContext::Context(target));

    // Moving a standalone value into a tree copies too.
    target.MutableElement(1) = std::move(taken);
    EXPECT_TRUE(taken.IsEmpty());  // NOLINT(bugprone-use-after-move): what is checked
    EXPECT_EQ(target.Element(1).Field("list").Size(), 3u);

    BindingProperty& self = holder;
    holder = self;
    holder = std::move(self);
    EXPECT_EQ(holder.Field("name").GetString(), "alpha");
}

TEST(BindingPropertyTest, AssignmentWithinOneTree) {
    BindingProperty tree;
    tree.MutableElement(0).MutableField("k").SetString("v");
    tree.MutableElement(1).SetString("w");

    // Parent into its own child: the copy is taken before the child changes.
    tree.MutableElement(1) = tree;
    EXPECT_EQ(tree.Element(1).Element(1).GetString(), "w");
    EXPECT_EQ(tree.Element(1).Element(0).Field("k").GetString(), "v");

    // Child into its parent, by copy and by move.
    BindingProperty other(tree);
    tree = tree.Element(1);
    EXPECT_EQ(tree.Element(1).GetString(), "w");
    other = std::move(other.MutableElement(1));
    EXPECT_EQ(other.Element(0).Field("k").GetString(), "v");
    EXPECT_EQ(other.Element(1).GetString(), "w");

    // A text taken from the value itself.
    BindingProperty text("self");
    text.SetString(text.GetString());
    EXPECT_EQ(text.GetString(), "self");
    text.MutableField(text.GetString()).SetBool(true);
    EXPECT_TRUE(text.HasField("self"));
}

TEST(BindingPropertyTest, InternedStringsAreCountedPerContext) {
    BindingProperty tree;
    for (int i = 0; i < 3; ++i) {
        BindingProperty& item = tree.MutableElement(static_cast<size_t>(i));
        item.MutableField("id").SetString("shared");
        item.MutableField("other").SetString("unique" + std::to_string(i));
    }
    InternTable& strings = BindingContext::Context(tree)->Strings();
    EXPECT_EQ(strings.Count(), 6u);  // "id", "other", "shared", three uniques
    ASSERT_NE(strings.Find("shared"), nullptr);
    EXPECT_EQ(strings.Find("shared")->refCount, 3u);
    EXPECT_EQ(strings.Find("id")->refCount, 3u);
    EXPECT_EQ(strings.Find("id")->hash, Internal::HashText("id"));

    tree.MutableElement(0).MutableField("id").SetSigned(1);
    EXPECT_EQ(strings.Find("shared")->refCount, 2u);
    tree.MutableElement(1).RemoveField("id");
    EXPECT_EQ(strings.Find("id")->refCount, 2u);
    tree.Resize(1);
    EXPECT_EQ(strings.Find("shared"), nullptr);
    EXPECT_EQ(strings.Find("unique2"), nullptr);
    // A deep copy into another tree takes its own references there.
    tree.MutableElement(1).MutableField("id").SetString("shared");
    BindingProperty copy(tree);
    InternTable& copied = BindingContext::Context(copy)->Strings();
    EXPECT_EQ(copied.Find("id")->refCount, 2u);
    EXPECT_EQ(copied.Find("shared")->refCount, 1u);
    EXPECT_EQ(copied.Find("other")->refCount, 1u);
    tree.Clear();
    EXPECT_EQ(strings.Count(), 0u);
    EXPECT_EQ(copied.Find("id")->refCount, 2u);

    // The table keeps a load factor of at most one while growing.
    for (int i = 0; i < 1000; ++i) {
        tree.MutableElement(static_cast<size_t>(i)).SetString(std::to_string(i));
    }
    EXPECT_EQ(strings.Count(), 1000u);
    EXPECT_GE(strings.BucketCount(), strings.Count());
}

// Texts that differ in a single byte, in their length only, or by trailing
// NULs must land apart, and a text hashes the same wherever its bytes sit,
// whichever path (a fresh intern, a lookup, a copy into another tree) takes it.
TEST(BindingPropertyTest, TextHashSeparatesNearTextsOnEveryPath) {
    struct Family {
        const char* label;
        std::vector<std::string> texts;
    };
    std::vector<Family> families(4);
    families[0].label = "one byte changed at each position";
    families[1].label = "lengths 1..300 of one letter";
    families[2].label = "trailing NULs";
    families[3].label = "numbers as texts";
    for (size_t length = 1; length <= 40; ++length) {
        for (size_t at = 0; at < length; ++at) {
            for (char c : {'b', 'c', 'z'}) {
                std::string text(length, 'a');
                text[at] = c;
                families[0].texts.push_back(text);
            }
        }
    }
    for (size_t length = 1; length <= 300; ++length) {
        families[1].texts.emplace_back(length, 'q');
        families[2].texts.push_back("name" + std::string(length, '\0'));
    }
    for (int i = 0; i < 3000; ++i) {
        families[3].texts.push_back(std::to_string(i * 7919));
    }
    for (const Family& family : families) {
        SCOPED_TRACE(family.label);
        std::vector<uint32_t> hashes;
        std::vector<int> buckets(1024);
        for (const std::string& text : family.texts) {
            uint32_t hash = Internal::HashText(text);
            hashes.push_back(hash);
            ++buckets[hash & 1023];
            std::string shifted = "x" + text;  // another alignment
            EXPECT_EQ(Internal::HashText(std::string_view(shifted).substr(1)), hash);
        }
        std::sort(hashes.begin(), hashes.end());
        EXPECT_EQ(std::unique(hashes.begin(), hashes.end()), hashes.end());
        size_t expectedLoad = family.texts.size() / 1024 + 1;
        EXPECT_LE(*std::max_element(buckets.begin(), buckets.end()), 4 * expectedLoad + 4);

        BindingProperty tree;
        for (const std::string& text : family.texts) {
            tree.Append().SetString(text);
        }
        const InternTable& strings = BindingContext::Context(tree)->Strings();
        BindingProperty copy(tree);
        const InternTable& copied = BindingContext::Context(copy)->Strings();
        EXPECT_EQ(strings.Count(), family.texts.size());
        for (const std::string& text : family.texts) {
            ASSERT_NE(strings.Find(text), nullptr) << text.size();
            ASSERT_NE(copied.Find(text), nullptr) << text.size();
            EXPECT_EQ(copied.Find(text)->hash, strings.Find(text)->hash);
        }
    }
}

BindingProperty BuildRecords(int count) {
    BindingProperty tree;
    for (int i = 0; i < count; ++i) {
        BindingProperty& item = tree.Append();
        item.MutableField("blob").SetBlob(std::vector<uint8_t>{1});
        item.MutableField("enum").SetEnum({i, nullptr});
        item.MutableField("list").MutableElement(0).SetSigned(i);
    }
    return tree;
}

TEST(BindingPropertyTest, PoolPagesAreReusedAcrossTrees) {
    auto& source = Platform::PageSource::Instance();
    {
        BindingProperty warm = BuildRecords(2000);
        BindingProperty second = BuildRecords(2000);
        BindingContext* context = BindingContext::Context(warm);
        EXPECT_GT(context->Structures().PageCount(), 1u);
        EXPECT_EQ(context->Blobs().LiveSlots(), 2000u);
        warm.Resize(10);
        // Emptied pages go back, except one spare kept per pool.
        EXPECT_EQ(context->Blobs().LiveSlots(), 10u);
        EXPECT_LE(context->Blobs().PageCount(), 2u);
        BindingProperty copy(warm);
    }
    size_t reserved = source.ReservedBytes();
    size_t freePages = source.FreePages();
    for (int round = 0; round < 5; ++round) {
        BindingProperty again = BuildRecords(2000);
        const BindingProperty copy(again);  // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(copy.Size(), again.Size());
    }
    EXPECT_EQ(source.ReservedBytes(), reserved);
    EXPECT_EQ(source.FreePages(), freePages);
}

TEST(BindingPropertyTest, DeepNestingIsCopiedComparedAndFreedWithoutRecursion) {
    constexpr int kDepth = 20000;
    BindingProperty root;
    BindingProperty* node = &root;
    for (int i = 0; i < kDepth; ++i) {
        node = (i % 2 == 0) ? &node->MutableElement(0) : &node->MutableField("f");
    }
    node->SetString("leaf");

    BindingProperty copy(root);
    EXPECT_EQ(copy, root);
    const BindingProperty* walk = &copy;
    for (int i = 0; i < kDepth; ++i) {
        walk = (i % 2 == 0) ? &walk->Element(0) : &walk->Field("f");
    }
    EXPECT_EQ(walk->GetString(), "leaf");
    node->SetString("changed");
    EXPECT_NE(copy, root);
    root.Clear();
    EXPECT_EQ(BindingContext::Context(root)->Strings().Count(), 0u);
}

TEST(BindingPropertyTest, ReserveAndResize) {
    BindingProperty value;
    value.Reserve(std::numeric_limits<size_t>::max());  // a hint, capped
    EXPECT_EQ(value.Kind(), BindingKind::Collection);
    EXPECT_EQ(value.Size(), 0u);
    value.Resize(3);
    value.MutableElement(2).SetString("x");
    value.Resize(1);
    EXPECT_EQ(BindingContext::Context(value)->Strings().Count(), 0u);
    value.Resize(2);
    EXPECT_TRUE(value.Element(1).IsEmpty());

    BindingProperty record;
    record.MutableField("a");
    record.Reserve(10);
    EXPECT_EQ(record.Kind(), BindingKind::Structure);
}

// A record counts its entries in 32 bits: growth past that is refused before
// anything is allocated or counted, and the collection keeps what it held.
TEST(BindingPropertyTest, CollectionsRefuseMoreEntriesThanARecordCounts) {
    if constexpr (sizeof(size_t) > 4) {
        const size_t beyond = size_t{1} << 32;
        struct Case {
            const char* label;
            void (*grow)(BindingProperty&, size_t);
        };
        const Case cases[] = {
            {"Resize", [](BindingProperty& v, size_t n) { v.Resize(n); }},
            {"MutableElement", [](BindingProperty& v, size_t n) { v.MutableElement(n - 1); }},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.label);
            for (size_t count : {beyond, beyond + 1, beyond * 4}) {
                BindingProperty value;
                value.Resize(2);
                value.MutableElement(1).SetString("kept");
                EXPECT_THROW(c.grow(value, count), std::length_error);
                EXPECT_EQ(value.Size(), 2u);
                EXPECT_EQ(value.Element(1).GetString(), "kept");
            }
        }
    }
}

}  // namespace
}  // namespace Orvan::Framework
