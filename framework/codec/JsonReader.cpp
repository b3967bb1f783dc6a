// JSON reading: RapidJSON's SAX reader (default grammar, strings decoded in
// place) drives the shared value builder, so the tree is built in place without an intermediate
// document.
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <cstring>
#include <string>

#include "framework/codec/Json.h"
#include "framework/codec/internal/ReadPaths.h"
#include "framework/codec/internal/ValueBuilder.h"

namespace Orvan::Framework {
namespace {

class BuildHandler {
public:
    BuildHandler(BindingProperty& root, CodecInternal::ValueBuilder::Path path, size_t size)
        : builder_(root, path) {
        // Records of DTOs carry a new text every 64 bytes or so.
        builder_.ExpectInput(size, 64);
    }

    bool Null() {
        builder_.Null();
        return true;
    }
    bool Bool(bool b) {
        builder_.Bool(b);
        return true;
    }
    bool Int(int i) {
        builder_.Signed(i);
        return true;
    }
    bool Uint(unsigned u) {
        builder_.Unsigned(u);
        return true;
    }
    bool Int64(int64_t i) {
        builder_.Signed(i);
        return true;
    }
    bool Uint64(uint64_t u) {
        builder_.Unsigned(u);
        return true;
    }
    bool Double(double d) {
        builder_.Float(d);
        return true;
    }
    bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }  // not requested
    bool String(const char* text, rapidjson::SizeType length, bool) {
        builder_.String(std::string_view(text, length));
        return true;
    }
    bool StartObject() { return builder_.BeginStructure() != nullptr; }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        builder_.Key(std::string_view(text, length));
        return true;
    }
    bool EndObject(rapidjson::SizeType) {
        builder_.End();
        return true;
    }
    bool StartArray() { return builder_.BeginCollection() != nullptr; }
    bool EndArray(rapidjson::SizeType) {
        builder_.End();
        return true;
    }

    void Finish() { builder_.Finish(); }

private:
    CodecInternal::ValueBuilder builder_;
};

Maybe<BindingProperty> Read(std::string_view text, CodecInternal::ValueBuilder::Path path) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    if (const void* nul = text.empty() ? nullptr : std::memchr(begin, '\0', text.size())) {
        end = static_cast<const char*>(nul);
    }

    const char* p = begin;
    while (p != end && (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')) {
        ++p;
    }
    BindingProperty result;
    if (p == end) {
        return result;
    }

    // RapidJSON's string stream runs until a NUL, which a view does not
    // promise; a terminated copy costs less than a bounds check on every byte
    // (about a tenth of the scan). Being a copy, it is also where the reader
    // decodes each string in place, rather than pushing every byte through
    // its own stack; the grammar, the events and the error offsets are those
    // of the default flags. Offsets count from the first byte, leading blanks
    // included.
    std::string buffer(begin, end);
    rapidjson::InsituStringStream stream(buffer.data());
    BuildHandler handler(result, path, buffer.size());
    rapidjson::Reader reader;
    rapidjson::ParseResult parsed = reader.Parse<rapidjson::kParseInsituFlag>(stream, handler);
    if (parsed.IsError()) {
        std::string message = "Error: ";
        message += rapidjson::GetParseError_En(parsed.Code());
        message += " at offset ";
        message += std::to_string(parsed.Offset());
        message += '.';
        return Failure(std::move(message));
    }
    handler.Finish();
    return result;
}

}  // namespace

Maybe<BindingProperty> ReadJson(std::string_view text) {
    return Read(text, CodecInternal::ValueBuilder::Path::WithModels);
}

namespace CodecInternal {

Maybe<BindingProperty> ReadJsonGeneralPath(std::string_view text) {
    return Read(text, ValueBuilder::Path::General);
}

}  // namespace CodecInternal
}  // namespace Orvan::Framework
