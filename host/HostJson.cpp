#include "host/HostJson.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace Orvan::Host {

namespace {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

std::string Base64(const uint8_t* data, size_t size) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    for (size_t i = 0; i < size; i += 3) {
        const uint32_t a = data[i];
        const uint32_t b = i + 1 < size ? data[i + 1] : 0;
        const uint32_t c = i + 2 < size ? data[i + 2] : 0;
        const uint32_t bits = (a << 16) | (b << 8) | c;
        text += kAlphabet[(bits >> 18) & 63];
        text += kAlphabet[(bits >> 12) & 63];
        text += i + 1 < size ? kAlphabet[(bits >> 6) & 63] : '=';
        text += i + 2 < size ? kAlphabet[bits & 63] : '=';
    }
    return text;
}

bool Write(const HostValue& value, JsonWriter& writer, std::string& error, size_t depth) {
    if (depth > kMaxValueDepth) {
        error = "value nested deeper than " + std::to_string(kMaxValueDepth);
        return false;
    }
    const HostValuePayload& p = value.payload;
    switch (value.type) {
        case kHostValueNull:
            writer.Null();
            return true;
        case kHostValueBool:
            writer.Bool(p.boolValue != 0);
            return true;
        case kHostValueSigned:
            writer.Int64(p.signedValue);
            return true;
        case kHostValueUnsigned:
            writer.Uint64(p.unsignedValue);
            return true;
        case kHostValueFloat:
            if (std::isfinite(p.floatValue)) {
                writer.Double(p.floatValue);
            } else {
                writer.Null();
            }
            return true;
        case kHostValueTextUnowned:
        case kHostValueTextOwned: {
            const char* text = static_cast<const char*>(p.span.address);
            if (text == nullptr) {
                if (value.type == kHostValueTextOwned && p.span.length != 0) {
                    error = "text without an address";
                    return false;
                }
                writer.String("");
                return true;
            }
            const size_t length =
                value.type == kHostValueTextOwned ? p.span.length : std::strlen(text);
            writer.String(text, static_cast<rapidjson::SizeType>(length));
            return true;
        }
        case kHostValueBytesUnowned:
        case kHostValueBytesOwned: {
            if (p.span.address == nullptr && p.span.length != 0) {
                error = "bytes without an address";
                return false;
            }
            const std::string text =
                Base64(static_cast<const uint8_t*>(p.span.address), p.span.length);
            writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
            return true;
        }
        case kHostValueArray: {
            const auto* elements = static_cast<const HostValue*>(p.span.address);
            if (elements == nullptr && p.span.length != 0) {
                error = "array without an address";
                return false;
            }
            writer.StartArray();
            for (uint32_t i = 0; i < p.span.length; ++i) {
                if (!Write(elements[i], writer, error, depth + 1)) {
                    return false;
                }
            }
            writer.EndArray();
            return true;
        }
        case kHostValueObject: {
            const auto* entries = static_cast<const HostObjectEntry*>(p.span.address);
            if (entries == nullptr && p.span.length != 0) {
                error = "object without an address";
                return false;
            }
            writer.StartObject();
            for (uint32_t i = 0; i < p.span.length; ++i) {
                if (entries[i].key == nullptr) {
                    error = "object entry without a key";
                    return false;
                }
                writer.Key(entries[i].key);
                if (!Write(entries[i].value, writer, error, depth + 1)) {
                    return false;
                }
            }
            writer.EndObject();
            return true;
        }
        default:
            error = "unknown value type code " + std::to_string(value.type);
            return false;
    }
}

char* CopyText(const char* text, size_t length) {
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

bool Build(const rapidjson::Value& json, HostValue& out, size_t depth) {
    out = HostValue{};
    if (depth > kMaxValueDepth) {
        return false;
    }
    switch (json.GetType()) {
        case rapidjson::kNullType:
            return true;
        case rapidjson::kFalseType:
        case rapidjson::kTrueType:
            out.type = kHostValueBool;
            out.payload.boolValue = json.GetBool() ? 1 : 0;
            return true;
        case rapidjson::kNumberType:
            if (json.IsUint64()) {
                // Non-negative integers travel unsigned, as JSON readers give them.
                out.type = kHostValueUnsigned;
                out.payload.unsignedValue = json.GetUint64();
            } else if (json.IsInt64()) {
                out.type = kHostValueSigned;
                out.payload.signedValue = json.GetInt64();
            } else {
                out.type = kHostValueFloat;
                out.payload.floatValue = json.GetDouble();
            }
            return true;
        case rapidjson::kStringType:
            out.type = kHostValueTextOwned;
            out.payload.span.address = CopyText(json.GetString(), json.GetStringLength());
            out.payload.span.length = json.GetStringLength();
            return true;
        case rapidjson::kArrayType: {
            const uint32_t count = json.Size();
            auto* elements =
                static_cast<HostValue*>(std::calloc(count == 0 ? 1 : count, sizeof(HostValue)));
            out.type = kHostValueArray;
            out.payload.span.address = elements;
            out.payload.span.length = count;
            for (uint32_t i = 0; i < count; ++i) {
                if (!Build(json[i], elements[i], depth + 1)) {
                    return false;
                }
            }
            return true;
        }
        case rapidjson::kObjectType: {
            const uint32_t count = json.MemberCount();
            auto* entries = static_cast<HostObjectEntry*>(
                std::calloc(count == 0 ? 1 : count, sizeof(HostObjectEntry)));
            out.type = kHostValueObject;
            out.payload.span.address = entries;
            out.payload.span.length = count;
            uint32_t i = 0;
            for (auto member = json.MemberBegin(); member != json.MemberEnd(); ++member, ++i) {
                entries[i].key = CopyText(member->name.GetString(), member->name.GetStringLength());
                entries[i].keyOwned = 1;
                if (!Build(member->value, entries[i].value, depth + 1)) {
                    return false;
                }
            }
            return true;
        }
    }
    return false;
}

}  // namespace

bool HostValueToJson(const HostValue& value, std::string& out, std::string& error) {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    if (!Write(value, writer, error, 0)) {
        return false;
    }
    out.assign(buffer.GetString(), buffer.GetSize());
    return true;
}

bool JsonToHostValue(std::string_view json, HostValue& out, std::string& error) {
    out = HostValue{};
    if (json.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        return true;
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError()) {
        error = std::string(rapidjson::GetParseError_En(document.GetParseError())) + " at offset " +
                std::to_string(document.GetErrorOffset());
        return false;
    }
    if (!Build(document, out, 0)) {
        FreeHostValue(out);
        error = "value nested deeper than " + std::to_string(kMaxValueDepth);
        return false;
    }
    return true;
}

void FreeHostValue(HostValue& value) {
    switch (value.type) {
        case kHostValueTextOwned:
        case kHostValueBytesOwned:
            std::free(value.payload.span.address);
            break;
        case kHostValueArray: {
            auto* elements = static_cast<HostValue*>(value.payload.span.address);
            for (uint32_t i = 0; elements != nullptr && i < value.payload.span.length; ++i) {
                FreeHostValue(elements[i]);
            }
            std::free(elements);
            break;
        }
        case kHostValueObject: {
            auto* entries = static_cast<HostObjectEntry*>(value.payload.span.address);
            for (uint32_t i = 0; entries != nullptr && i < value.payload.span.length; ++i) {
                if (entries[i].keyOwned != 0) {
                    std::free(const_cast<char*>(entries[i].key));
                }
                FreeHostValue(entries[i].value);
            }
            std::free(entries);
            break;
        }
        default:
            break;
    }
    value = HostValue{};
}

std::string QuoteJson(std::string_view text) {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string CompactJson(std::string_view json) {
    // Re-writing recurses once per level; long texts are shown as they came.
    if (json.size() > 16384) {
        return std::string(json);
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError()) {
        return std::string(json);
    }
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    document.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace Orvan::Host
