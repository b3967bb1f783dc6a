// YAML reading: libyaml's events drive the shared value builder; anchors keep
// stored copies of their values.
#include <yaml.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "framework/binding/ScalarConversion.h"
#include "framework/codec/BindingVisitor.h"
#include "framework/codec/CodecLimits.h"
#include "framework/codec/Yaml.h"
#include "framework/codec/internal/ValueBuilder.h"

namespace Orvan::Framework {
namespace {

constexpr std::string_view kTagStr = "tag:yaml.org,2002:str";
constexpr std::string_view kTagInt = "tag:yaml.org,2002:int";
constexpr std::string_view kTagFloat = "tag:yaml.org,2002:float";
constexpr std::string_view kTagBool = "tag:yaml.org,2002:bool";

bool IsNullWord(std::string_view t) {
    if (t.empty()) {
        return true;
    }
    char first = t[0];
    if (first != '~' && first != 'n' && first != 'N') {
        return false;
    }
    return t == "~" || t == "null" || t == "Null" || t == "NULL";
}

// 1 for a true word, 0 for a false word, -1 for anything else.
int BoolWord(std::string_view t) {
    static constexpr std::string_view kTrue[] = {"true", "True", "TRUE", "y",  "Y", "yes",
                                                 "Yes",  "YES",  "on",   "On", "ON"};
    static constexpr std::string_view kFalse[] = {"false", "False", "FALSE", "n",   "N",  "no",
                                                  "No",    "NO",    "off",   "Off", "OFF"};
    if (t.empty() || t.size() > 5) {
        return -1;
    }
    switch (t[0]) {
        case 't':
        case 'T':
        case 'y':
        case 'Y':
        case 'o':
        case 'O':
        case 'f':
        case 'F':
        case 'n':
        case 'N':
            break;
        default:
            return -1;
    }
    for (std::string_view w : kTrue) {
        if (t == w) {
            return 1;
        }
    }
    for (std::string_view w : kFalse) {
        if (t == w) {
            return 0;
        }
    }
    return -1;
}

// A number without a fractional part, truncated into the 64-bit kinds; values
// outside both ranges (including -infinity) saturate.
void SetIntegral(CodecInternal::ValueBuilder& builder, double d) {
    if (d < 0) {
        if (d < -9223372036854775808.0) {
            builder.Signed(INT64_MIN);
        } else {
            builder.Signed(static_cast<int64_t>(d));
        }
    } else if (d >= 18446744073709551616.0) {
        builder.Unsigned(UINT64_MAX);
    } else {
        builder.Unsigned(static_cast<uint64_t>(d));
    }
}

// A plain decimal number (digits, point, exponent; a leading minus) read
// with from_chars, which rounds as strtod does and is several times faster.
// Anything else (signs, blanks, hexadecimal, words, values out of range)
// is left to strtod.
bool PlainDecimal(const char* text, size_t size, double& value) {
    size_t i = text[0] == '-' ? 1 : 0;
    if (i >= size || !((text[i] >= '0' && text[i] <= '9') || text[i] == '.')) {
        return false;
    }
    for (size_t j = i; j < size; ++j) {
        char c = text[j];
        if (c == 'x' || c == 'X' || c == 'p' || c == 'P') {
            return false;
        }
    }
    std::from_chars_result parsed = std::from_chars(text, text + size, value);
    return parsed.ec == std::errc() && parsed.ptr == text + size;
}

// Untagged plain scalar typing, into the builder's next target. `text` is
// NUL-terminated at text[size].
void SetPlain(CodecInternal::ValueBuilder& builder, const char* text, size_t size) {
    std::string_view view(text, size);
    if (IsNullWord(view)) {
        builder.Null();
        return;
    }
    // Short decimal integers are exact in a double; skip strtod for them.
    {
        size_t i = text[0] == '-' ? 1 : 0;
        size_t digits = size - i;
        if (digits != 0 && digits <= 15) {
            uint64_t v = 0;
            for (; i < size && text[i] >= '0' && text[i] <= '9'; ++i) {
                v = v * 10 + static_cast<uint64_t>(text[i] - '0');
            }
            if (i == size) {
                if (text[0] == '-' && v != 0) {
                    builder.Signed(-static_cast<int64_t>(v));
                } else {
                    builder.Unsigned(v);
                }
                return;
            }
        }
    }
    char first = text[0];
    bool maybeNumber = (first >= '0' && first <= '9') || first == '-' || first == '+' ||
                       first == '.' || first == 'i' || first == 'I' || first == 'n' ||
                       first == 'N' || first == ' ' || first == '\t';
    if (maybeNumber) {
        double d = 0;
        const char* end = nullptr;
        if (!PlainDecimal(text, size, d)) {
            char* parsedEnd = nullptr;
            d = std::strtod(text, &parsedEnd);
            end = parsedEnd;
        } else {
            end = text + size;
        }
        if (end == text + size && !(std::isinf(d) && d > 0)) {
            if (std::trunc(d) == d) {
                SetIntegral(builder, d);
            } else {
                builder.Float(d);
            }
            return;
        }
    }
    int word = BoolWord(view);
    if (word >= 0) {
        builder.Bool(word == 1);
        return;
    }
    builder.String(view);
}

// Counts the values of a tree and its container depth, without recursion.
class ShapeVisitor final : public BindingVisitor {
public:
    size_t values = 0;
    size_t height = 0;

    void VisitEmpty() override { ++values; }
    void VisitBool(bool) override { ++values; }
    void VisitSigned(int64_t) override { ++values; }
    void VisitUnsigned(uint64_t) override { ++values; }
    void VisitFloat(double) override { ++values; }
    void VisitString(std::string_view) override { ++values; }
    void VisitBlob(std::span<const uint8_t>) override { ++values; }
    void VisitEnum(BindingEnumValue) override { ++values; }
    void BeginCollection(size_t) override { Open(); }
    void BeginElement(size_t) override {}
    void EndElement(size_t) override {}
    void EndCollection() override { --depth_; }
    void BeginStructure(size_t) override { Open(); }
    void FieldName(std::string_view) override {}
    void EndField(std::string_view) override {}
    void EndStructure() override { --depth_; }

private:
    void Open() {
        ++values;
        if (++depth_ > height) {
            height = depth_;
        }
    }
    size_t depth_ = 0;
};

class YamlBuilder {
public:
    YamlBuilder(BindingProperty& result, size_t size) : result_(result), builder_(result) {
        builder_.ExpectInput(size, 64);
    }

    const std::string& Error() const { return error_; }

    void Finish() { builder_.Finish(); }

    // Returns false once a failure is recorded.
    bool Handle(const yaml_event_t& event) {
        switch (event.type) {
            case YAML_NO_EVENT:
            case YAML_STREAM_START_EVENT:
            case YAML_STREAM_END_EVENT:
            case YAML_DOCUMENT_END_EVENT:
                return true;
            case YAML_DOCUMENT_START_EVENT:
                if (!result_.IsEmpty()) {
                    return Fail("Multi-document YAML is not supported.");
                }
                return true;
            case YAML_SCALAR_EVENT:
                return Scalar(event);
            case YAML_SEQUENCE_START_EVENT:
            case YAML_MAPPING_START_EVENT:
                return Open(event);
            case YAML_SEQUENCE_END_EVENT:
            case YAML_MAPPING_END_EVENT:
                return Close();
            case YAML_ALIAS_EVENT:
                return Alias(event);
        }
        return true;
    }

    bool Fail(std::string message) {
        error_ = std::move(message);
        return false;
    }

private:
    struct Stored {
        BindingProperty value;
        size_t values = 0;
        size_t height = 0;
    };

    static std::string At(const yaml_mark_t& mark) {
        return " At line: " + std::to_string(mark.line + 1) +
               " col: " + std::to_string(mark.column + 1);
    }
    static std::string_view Text(const yaml_char_t* text) {
        return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
    }

    // Checks that an anchor name is new; returns false (with the failure) if not.
    bool NewAnchor(std::string_view name, const yaml_event_t& event) {
        bool used = stored_.count(std::string(name)) != 0;
        for (const std::string& open : openAnchors_) {
            used = used || open == name;
        }
        if (used) {
            return Fail("Duplicate occurrence of anchor \"" + std::string(name) + "\"." +
                        At(event.start_mark));
        }
        return true;
    }

    void Store(std::string_view name, const BindingProperty& value) {
        Stored& slot = stored_[std::string(name)];
        slot.value = value;
        ShapeVisitor shape;
        WalkBinding(slot.value, shape);
        slot.values = shape.values;
        slot.height = shape.height;
    }

    bool Scalar(const yaml_event_t& event) {
        const auto& scalar = event.data.scalar;
        std::string_view anchor = Text(scalar.anchor);
        std::string_view tag = Text(scalar.tag);
        const char* text = reinterpret_cast<const char*>(scalar.value);
        std::string_view view(text, scalar.length);
        if (!anchor.empty() && !NewAnchor(anchor, event)) {
            return false;
        }
        if (builder_.InKeyPosition()) {
            if (!tag.empty() && tag != kTagStr) {
                return Fail("Invalid mapping key. Only string scalar keys are allowed." +
                            At(event.start_mark));
            }
            builder_.Key(view);
            if (!anchor.empty()) {
                Store(anchor, BindingProperty(view));
            }
            return true;
        }

        if (tag.empty() || tag == kTagStr) {
            if (tag.empty() && scalar.style == YAML_PLAIN_SCALAR_STYLE) {
                SetPlain(builder_, text, scalar.length);
            } else {
                builder_.String(view);
            }
            if (!anchor.empty()) {
                Store(anchor, builder_.LastTarget());
            }
            return true;
        }
        BindingProperty& target = builder_.Target();
        if (tag == kTagInt) {
            if (!view.empty() && view[0] == '-') {
                auto parsed = ParseSignedText(view, "yaml", "int64_t", INT64_MIN, INT64_MAX);
                if (!parsed) {
                    return Fail(parsed.GetFailure().message);
                }
                target.SetSigned(*parsed);
            } else {
                auto parsed = ParseUnsignedText(view, "yaml", "uint64_t", UINT64_MAX);
                if (!parsed) {
                    return Fail(parsed.GetFailure().message);
                }
                target.SetUnsigned(*parsed);
            }
        } else if (tag == kTagFloat) {
            auto parsed = ParseDoubleText(view, "yaml", "double", 1.7976931348623157e308);
            if (!parsed) {
                return Fail(parsed.GetFailure().message);
            }
            target.SetFloat(*parsed);
        } else if (tag == kTagBool) {
            int word = BoolWord(view);
            if (word >= 0) {
                target.SetBool(word == 1);
            }
        } else {
            return Fail("Unsupported YAML tag '" + std::string(tag) + "'.");
        }
        if (!anchor.empty()) {
            Store(anchor, target);
        }
        return true;
    }

    bool Open(const yaml_event_t& event) {
        bool sequence = event.type == YAML_SEQUENCE_START_EVENT;
        if (builder_.InKeyPosition()) {
            return Fail(std::string(sequence ? "Unexpected start of sequence."
                                             : "Unexpected start of mapping.") +
                        At(event.start_mark));
        }
        std::string_view anchor =
            Text(sequence ? event.data.sequence_start.anchor : event.data.mapping_start.anchor);
        if (!anchor.empty() && !NewAnchor(anchor, event)) {
            return false;
        }
        BindingProperty* opened = sequence ? builder_.BeginCollection() : builder_.BeginStructure();
        if (opened == nullptr) {
            return TooDeep(event);
        }
        frameAnchored_.push_back(!anchor.empty());
        if (!anchor.empty()) {
            openAnchors_.emplace_back(anchor);
        }
        return true;
    }

    bool Close() {
        const BindingProperty* closed = builder_.End();
        if (frameAnchored_.back()) {
            Store(openAnchors_.back(), *closed);
            openAnchors_.pop_back();
        }
        frameAnchored_.pop_back();
        return true;
    }

    bool Alias(const yaml_event_t& event) {
        std::string name(Text(event.data.alias.anchor));
        for (const std::string& open : openAnchors_) {
            if (open == name) {
                return Fail("Cannot deserialize cyclic aliases. Alias \"" + name + "\"." +
                            At(event.start_mark));
            }
        }
        auto found = stored_.find(name);
        if (found == stored_.end()) {
            return Fail("Undefined alias encountered: \"" + name + "\"." + At(event.start_mark));
        }
        const Stored& stored = found->second;
        if (builder_.InKeyPosition()) {
            if (stored.value.Kind() != BindingKind::String) {
                return Fail("Invalid mapping key. Only string scalar keys are allowed." +
                            At(event.start_mark));
            }
            builder_.Key(stored.value.GetString());
            return true;
        }
        if (builder_.Depth() + stored.height > kMaxNestingDepth) {
            return TooDeep(event);
        }
        aliasValues_ += stored.values;
        if (aliasValues_ > kMaxAliasValues) {
            return Fail("Alias expansion exceeds " + std::to_string(kMaxAliasValues) +
                        " values. Alias \"" + name + "\"." + At(event.start_mark));
        }
        builder_.Target() = stored.value;
        return true;
    }

    bool TooDeep(const yaml_event_t& event) {
        return Fail("Nesting is deeper than " + std::to_string(kMaxNestingDepth) + "." +
                    At(event.start_mark));
    }

    BindingProperty& result_;
    CodecInternal::ValueBuilder builder_;
    std::unordered_map<std::string, Stored> stored_;
    std::vector<bool> frameAnchored_;       // per open container: whether it has an anchor
    std::vector<std::string> openAnchors_;  // the non-empty ones, innermost last
    size_t aliasValues_ = 0;
    std::string error_;
};

// Owns a parser for the duration of one read.
struct ParserGuard {
    yaml_parser_t parser;
    bool ready;
    ParserGuard() { ready = yaml_parser_initialize(&parser) != 0; }
    ~ParserGuard() {
        if (ready) {
            yaml_parser_delete(&parser);
        }
    }
    ParserGuard(const ParserGuard&) = delete;
    ParserGuard& operator=(const ParserGuard&) = delete;
};

struct EventGuard {
    yaml_event_t event;
    ~EventGuard() { yaml_event_delete(&event); }
};

}  // namespace

Maybe<BindingProperty> ReadYaml(std::string_view text) {
    ParserGuard guard;
    if (!guard.ready) {
        return Failure("YAML parser error: memory error. At line: 0 col: 0");
    }
    yaml_parser_t& parser = guard.parser;
    yaml_parser_set_encoding(&parser, YAML_UTF8_ENCODING);
    yaml_parser_set_input_string(&parser, reinterpret_cast<const unsigned char*>(text.data()),
                                 text.size());

    BindingProperty result;
    YamlBuilder builder(result, text.size());
    for (;;) {
        EventGuard current;
        if (!yaml_parser_parse(&parser, &current.event)) {
            // A failed parse leaves the event zeroed, so deleting it is safe.
            std::string message = "YAML parser error: ";
            message += parser.problem ? parser.problem : "unknown error";
            message += ". At line: " + std::to_string(parser.problem_mark.line) +
                       " col: " + std::to_string(parser.problem_mark.column);
            return Failure(std::move(message));
        }
        if (!builder.Handle(current.event)) {
            return Failure(builder.Error());
        }
        if (current.event.type == YAML_STREAM_END_EVENT) {
            break;
        }
    }
    builder.Finish();
    return result;
}

}  // namespace Orvan::Framework
