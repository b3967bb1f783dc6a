// JSON writing: a BindingVisitor over RapidJSON's compact or pretty writer.
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <string>

#include "framework/binding/BindingTypeRegistry.h"
#include "framework/codec/BindingVisitor.h"
#include "framework/codec/Json.h"
#include "framework/codec/internal/Base64.h"

namespace Orvan::Framework {
namespace {

template <class Writer>
class JsonVisitor final : public BindingVisitor {
public:
    JsonVisitor(Writer& writer, const BindingTypeRegistry* registry)
        : writer_(writer), registry_(registry) {}

    void VisitEmpty() override { writer_.Null(); }
    void VisitBool(bool value) override { writer_.Bool(value); }
    void VisitSigned(int64_t value) override { writer_.Int64(value); }
    void VisitUnsigned(uint64_t value) override { writer_.Uint64(value); }
    void VisitFloat(double value) override {
        // RapidJSON refuses NaN and infinities after it has already written the
        // separator; null keeps the document well-formed.
        if (std::isfinite(value)) {
            writer_.Double(value);
        } else {
            writer_.Null();
        }
    }
    void VisitString(std::string_view text) override {
        writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    }
    void VisitBlob(std::span<const uint8_t> bytes) override {
        CodecInternal::AssignBase64(scratch_, bytes);
        writer_.String(scratch_.data(), static_cast<rapidjson::SizeType>(scratch_.size()));
    }
    void VisitEnum(BindingEnumValue value) override {
        if (registry_ != nullptr && value.type != nullptr) {
            if (const char* name = registry_->EnumeratorName(*value.type, value.value)) {
                writer_.String(name);
                return;
            }
        }
        writer_.Int(value.value);
    }
    void BeginCollection(size_t) override { writer_.StartArray(); }
    void BeginElement(size_t) override {}
    void EndElement(size_t) override {}
    void EndCollection() override { writer_.EndArray(); }
    void BeginStructure(size_t) override { writer_.StartObject(); }
    void FieldName(std::string_view name) override {
        writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    }
    void EndField(std::string_view) override {}
    void EndStructure() override { writer_.EndObject(); }

private:
    Writer& writer_;
    const BindingTypeRegistry* registry_;
    std::string scratch_;
};

}  // namespace

std::string WriteJson(const BindingProperty& value, const BindingTypeRegistry* registry,
                      std::string_view lineBreak) {
    if (value.IsEmpty()) {
        return {};
    }
    rapidjson::StringBuffer buffer;
    if (lineBreak.empty()) {
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        JsonVisitor<decltype(writer)> visitor(writer, registry);
        WalkBinding(value, visitor);
        return std::string(buffer.GetString(), buffer.GetSize());
    }

    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 4);
    JsonVisitor<decltype(writer)> visitor(writer, registry);
    WalkBinding(value, visitor);
    std::string_view text(buffer.GetString(), buffer.GetSize());
    if (lineBreak == "\n") {
        return std::string(text);
    }
    // Line feeds inside strings are escaped by the writer, so every raw line
    // feed is a line break of the layout.
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char c : text) {
        if (c == '\n') {
            out.append(lineBreak);
        } else {
            out.push_back(c);
        }
    }
    return out;
}

}  // namespace Orvan::Framework
