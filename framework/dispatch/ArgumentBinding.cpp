#include "framework/dispatch/ArgumentBinding.h"

#include <cctype>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include "framework/dispatch/AsciiCase.h"

#include "framework/binding/MessageFormat.h"
#include "framework/binding/StaticType.h"
#include "framework/codec/CodecLimits.h"
#include "framework/codec/Json.h"
#include "framework/codec/MsgPack.h"
#include "framework/codec/Yaml.h"
#include "framework/dispatch/PercentDecoding.h"
#include "framework/host/HostValueConversion.h"

namespace Orvan::Framework {

namespace {

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (AsciiLower(text[i]) != prefix[i]) {
            return false;
        }
    }
    return true;
}

std::string_view SkipLeadingSpaces(std::string_view text) {
    size_t i = 0;
    while (i < text.size() &&
           (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n')) {
        ++i;
    }
    return text.substr(i);
}

bool LooksLikeMsgPack(std::string_view text) {
    if (text.empty()) {
        return false;
    }
    const auto first = static_cast<uint8_t>(text.front());
    // fixmap and fixarray, then array 16/32 and map 16/32: the only leading
    // bytes that open a container.
    return (first >= 0x80 && first <= 0x9F) || (first >= 0xDC && first <= 0xDF);
}

// The body up to its first NUL byte, never past its length.
std::string_view BodyText(std::span<const uint8_t> body) {
    const auto* text = reinterpret_cast<const char*>(body.data());
    const void* nul = std::memchr(text, '\0', body.size());
    return std::string_view(text, nul != nullptr
                                      ? static_cast<size_t>(static_cast<const char*>(nul) - text)
                                      : body.size());
}

enum class IndexError { None, Format, Range };

// Parses an index segment with the rules of strtoul in base 0: "0x" and a hex
// digit start a hexadecimal number, another leading "0" an octal one, else
// decimal. Trailing characters are a format error; values of 2^31 or more
// are out of range.
IndexError ParseIndex(std::string_view segment, uint64_t& index) {
    size_t i = 0;
    unsigned base = 10;
    if (segment.size() >= 3 && segment[0] == '0' && (segment[1] == 'x' || segment[1] == 'X') &&
        std::isxdigit(static_cast<unsigned char>(segment[2])) != 0) {
        base = 16;
        i = 2;
    } else if (segment[0] == '0') {
        base = 8;
    }
    uint64_t value = 0;
    bool overflow = false;
    for (; i < segment.size(); ++i) {
        const char c = segment[i];
        unsigned digit = 0;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A' + 10);
        } else {
            break;
        }
        if (digit >= base) {
            break;
        }
        if (value > (std::numeric_limits<uint64_t>::max() - digit) / base) {
            overflow = true;
        } else {
            value = value * base + digit;
        }
    }
    if (i != segment.size()) {
        return IndexError::Format;
    }
    if (overflow || value >= (uint64_t{1} << 31)) {
        return IndexError::Range;
    }
    index = value;
    return IndexError::None;
}

bool IsCompositeCode(BindingTypeCode code) {
    return code == BindingTypeCode::Object || code == BindingTypeCode::Vector ||
           code == BindingTypeCode::Struct;
}

enum class CodeScan { Valid, Unknown, OtherFailure };

// Walks a HostValue in the conversion's order up to the first value the
// conversion refuses, and tells whether that was a type code outside 0..10.
// Bounded by the conversion's own depth limit.
CodeScan ScanCodes(const HostValue& value, size_t depth) {
    if (value.type > kHostValueObject) {
        return CodeScan::Unknown;
    }
    if (value.type < kHostValueTextOwned || value.type == kHostValueTextUnowned) {
        return CodeScan::Valid;
    }
    const void* address = value.payload.span.address;
    const uint32_t length = value.payload.span.length;
    if (address == nullptr) {
        return length == 0 ? CodeScan::Valid : CodeScan::OtherFailure;
    }
    if (length == 0 || (value.type != kHostValueArray && value.type != kHostValueObject)) {
        return CodeScan::Valid;
    }
    if (depth >= kMaxHostValueDepth) {
        return CodeScan::OtherFailure;
    }
    for (uint32_t i = 0; i < length; ++i) {
        const HostValue* child = nullptr;
        if (value.type == kHostValueArray) {
            child = &static_cast<const HostValue*>(address)[i];
        } else {
            const HostObjectEntry& entry = static_cast<const HostObjectEntry*>(address)[i];
            if (entry.key == nullptr) {
                return CodeScan::OtherFailure;
            }
            child = &entry.value;
        }
        const CodeScan scan = ScanCodes(*child, depth + 1);
        if (scan != CodeScan::Valid) {
            return scan;
        }
    }
    return CodeScan::Valid;
}

class ArgumentBinder {
public:
    explicit ArgumentBinder(const BindingFunctionInfo& function)
        : function_(function), slots_(function.arguments.size()) {
        for (size_t i = 0; i < slots_.size(); ++i) {
            const BindingArgumentInfo& argument = function.arguments[i];
            if (argument.type.type == BindingTypeCode::Bool && argument.optional == 0) {
                slots_[i].SetBool(false);
            }
        }
    }

    Maybe<> BindHeaders(std::span<const HostHeader> headers) {
        if (headers.empty()) {
            return Maybe<>::Success();
        }
        std::string lowered;
        for (const BindingArgumentInfo& argument : function_.arguments) {
            if (argument.location != ArgumentLocation::Any &&
                argument.location != ArgumentLocation::Header) {
                continue;
            }
            lowered.resize(argument.name.size());
            for (size_t i = 0; i < lowered.size(); ++i) {
                lowered[i] = AsciiLower(argument.name[i]);
            }
            // A later header of the same name replaces an earlier one.
            for (size_t i = headers.size(); i-- > 0;) {
                const HostHeader& header = headers[i];
                if (header.name == nullptr || lowered != header.name) {
                    continue;
                }
                const std::string_view value =
                    header.value != nullptr ? std::string_view(header.value) : std::string_view();
                QEL_RETURN_IF_FAILED(BindNamed(argument.name, value, ArgumentLocation::Header));
                break;
            }
        }
        return Maybe<>::Success();
    }

    Maybe<> BindPath(const RouteMatch& match) {
        for (const auto& [name, value] : match.parameters) {
            QEL_RETURN_IF_FAILED(BindNamed(name, value, ArgumentLocation::Path));
        }
        return Maybe<>::Success();
    }

    Maybe<> BindQuery(std::string_view query) {
        if (query.empty()) {
            return Maybe<>::Success();
        }
        std::map<std::string, std::string, std::less<>> pieces;
        size_t start = 0;
        while (start <= query.size()) {
            size_t end = query.find('&', start);
            if (end == std::string_view::npos) {
                end = query.size();
            }
            const std::string_view piece = query.substr(start, end - start);
            // "a=1&&b=2" and a trailing "&" name nothing.
            if (!piece.empty()) {
                const size_t equals = piece.find('=');
                const std::string_view key = piece.substr(0, equals);
                const std::string_view value = equals == std::string_view::npos
                                                   ? std::string_view()
                                                   : piece.substr(equals + 1);
                pieces.insert_or_assign(PercentDecode(key), PercentDecode(value));
            }
            start = end + 1;
        }
        for (const auto& [key, value] : pieces) {
            QEL_RETURN_IF_FAILED(BindNamed(key, value, ArgumentLocation::Query));
        }
        return Maybe<>::Success();
    }

    Maybe<> BindCallArguments(std::span<const HostArgument> arguments, size_t pathParameters) {
        for (size_t i = 0; i < arguments.size(); ++i) {
            const HostArgument& argument = arguments[i];
            size_t index = 0;
            if (argument.name != nullptr) {
                if (!Find(argument.name, index)) {
                    return UnknownArgument(argument.name);
                }
            } else {
                index = pathParameters + i;
                if (index >= slots_.size()) {
                    return UnknownArgument(std::to_string(index));
                }
            }
            Maybe<BindingProperty> value =
                ConvertCallArgument(argument.value, function_.arguments[index].name);
            if (!value) {
                return std::move(value).GetFailure();
            }
            slots_[index] = std::move(value).Value();
        }
        return Maybe<>::Success();
    }

    Maybe<> BindBody(const DispatchRequest& request) {
        if (!request.HasBody()) {
            return Maybe<>::Success();
        }
        size_t index = 0;
        for (; index < slots_.size(); ++index) {
            if (function_.arguments[index].location == ArgumentLocation::Body) {
                break;
            }
        }
        if (index == slots_.size()) {
            return Maybe<>::Success();  // nobody asked for a body
        }
        Maybe<BindingProperty> value = DecodeBody(request.contentType, request.body);
        if (!value) {
            return std::move(value).GetFailure();
        }
        slots_[index] = std::move(value).Value();
        return Maybe<>::Success();
    }

    std::vector<BindingProperty> TakeSlots() { return std::move(slots_); }

private:
    bool Find(std::string_view name, size_t& index) const {
        const uint32_t hash = HashFnv1a32(name);
        for (size_t i = 0; i < function_.arguments.size(); ++i) {
            const BindingArgumentInfo& argument = function_.arguments[i];
            // Records made by hand may leave the hash unset.
            if ((argument.nameHash == hash || argument.nameHash == 0) && argument.name == name) {
                index = i;
                return true;
            }
        }
        return false;
    }

    Failure UnknownArgument(std::string_view name) const {
        return Failure(Format("Unknown argument '%1' for '%2'.", name, function_.name));
    }

    // One value of a header, the path or the query under its key, which may
    // carry a member path after the first ".".
    Maybe<> BindNamed(std::string_view key, std::string_view value, ArgumentLocation location) {
        const size_t dot = key.find('.');
        const std::string_view name = key.substr(0, dot);
        size_t index = 0;
        if (!Find(name, index)) {
            return UnknownArgument(name);
        }
        const BindingArgumentInfo& argument = function_.arguments[index];
        if (argument.location != ArgumentLocation::Any && argument.location != location) {
            return Failure(Format("Argument '%1' for '%2' was specified in an invalid location.",
                                  argument.name, function_.name));
        }
        BindingProperty& slot = slots_[index];
        if (dot == std::string_view::npos) {
            return BindWhole(argument, slot, value);
        }
        return BindMember(argument, slot, key.substr(dot + 1), value);
    }

    Maybe<> BindWhole(const BindingArgumentInfo& argument, BindingProperty& slot,
                      std::string_view value) {
        const BindingTypeCode code = argument.type.type;
        if (!value.empty()) {
            Maybe<BindingProperty> decoded =
                DecodeArgumentText(value, {}, IsCompositeCode(code), argument.name, function_.name);
            if (!decoded) {
                return std::move(decoded).GetFailure();
            }
            slot = std::move(decoded).Value();
            return Maybe<>::Success();
        }
        switch (code) {
            case BindingTypeCode::Bool:
                slot.SetBool(true);
                return Maybe<>::Success();
            case BindingTypeCode::Struct:
            case BindingTypeCode::Object:
                slot.SetEmptyStructure();
                return Maybe<>::Success();
            case BindingTypeCode::Vector:
                slot.SetEmptyCollection();
                return Maybe<>::Success();
            default:
                return Failure(Format("Expected value for argument '%1'.", argument.name));
        }
    }

    Maybe<> BindMember(const BindingArgumentInfo& argument, BindingProperty& slot,
                       std::string_view path, std::string_view value) {
        BindingProperty* current = &slot;
        size_t start = 0;
        for (;;) {
            const size_t end = path.find('.', start);
            const std::string_view segment = path.substr(start, end - start);
            if (!segment.empty() && segment.front() >= '0' && segment.front() <= '9') {
                uint64_t index = 0;
                switch (ParseIndex(segment, index)) {
                    case IndexError::Format:
                        return Failure(Format("Index %1 is in an incorrect format", segment));
                    case IndexError::Range:
                        return Failure(Format("Index %1 is out of range", segment));
                    case IndexError::None:
                        break;
                }
                const size_t size =
                    current->Kind() == BindingKind::Collection ? current->Size() : 0;
                if (index >= size) {
                    const size_t growth = static_cast<size_t>(index) + 1 - size;
                    if (growth > kMaxIndexedElements - indexedElements_) {
                        return Failure(Format("Index %1 is out of range", segment));
                    }
                    indexedElements_ += growth;
                }
                current = &current->MutableElement(static_cast<size_t>(index));
            } else {
                current = &current->MutableField(segment);
            }
            if (end == std::string_view::npos) {
                break;
            }
            start = end + 1;
        }
        Maybe<BindingProperty> decoded =
            DecodeArgumentText(value, {}, false, argument.name, function_.name);
        if (!decoded) {
            return std::move(decoded).GetFailure();
        }
        *current = std::move(decoded).Value();
        return Maybe<>::Success();
    }

    const BindingFunctionInfo& function_;
    std::vector<BindingProperty> slots_;
    size_t indexedElements_ = 0;
};

}  // namespace

DispatchRequest DispatchRequest::FromHost(const HostRequest& request) {
    DispatchRequest view;
    view.method = request.method;
    view.uri = request.uri != nullptr ? std::string_view(request.uri) : std::string_view();
    if (request.arguments != nullptr) {
        view.arguments = std::span<const HostArgument>(request.arguments, request.argumentCount);
    }
    if (request.headers != nullptr) {
        view.headers = std::span<const HostHeader>(request.headers, request.headerCount);
    }
    view.contentType =
        request.contentType != nullptr ? std::string_view(request.contentType) : std::string_view();
    if (request.body != nullptr) {
        view.body = std::span<const uint8_t>(request.body, request.bodyLength);
        view.hasBody = true;
    }
    view.pluginHandle = request.pluginHandle;
    view.functionName = request.functionName != nullptr ? std::string_view(request.functionName)
                                                        : std::string_view();
    return view;
}

std::string_view DispatchRequest::Target() const {
    return method == kHostMethodDirectCall ? functionName : PathOfUri(uri);
}

Maybe<std::vector<BindingProperty>> BindArguments(const BindingFunctionInfo& function,
                                                  const DispatchRequest& request,
                                                  const RouteMatch& match) {
    ArgumentBinder binder(function);
    QEL_RETURN_IF_FAILED(binder.BindHeaders(request.headers));
    QEL_RETURN_IF_FAILED(binder.BindPath(match));
    if (request.method != kHostMethodDirectCall) {
        QEL_RETURN_IF_FAILED(binder.BindQuery(QueryOfUri(request.uri)));
    }
    const size_t pathParameters = match.route != nullptr ? match.route->parameters.size() : 0;
    QEL_RETURN_IF_FAILED(binder.BindCallArguments(request.arguments, pathParameters));
    QEL_RETURN_IF_FAILED(binder.BindBody(request));
    return binder.TakeSlots();
}

Maybe<BindingProperty> DecodeArgumentText(std::string_view text, std::string_view contentType,
                                          bool sniff, std::string_view argumentName,
                                          std::string_view functionName) {
    const bool sniffing = sniff && contentType.empty() && !text.empty();
    if (StartsWithIgnoringCase(contentType, "application/x-msgpack") ||
        (sniffing && LooksLikeMsgPack(text))) {
        MsgPackResult result =
            DecodeMsgPack(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        if (!result.value) {
            return Failure(
                Format("Couldn't deserialize MessagePack value for parameter '%1' of '%2': %3",
                       argumentName, functionName, result.value.GetFailure().message));
        }
        return std::move(result.value).Value();
    }
    const std::string_view trimmed = SkipLeadingSpaces(text);
    if (StartsWithIgnoringCase(contentType, "application/json") ||
        (sniffing && !trimmed.empty() && (trimmed.front() == '{' || trimmed.front() == '['))) {
        Maybe<BindingProperty> value = ReadJson(text);
        if (!value) {
            return Failure(Format("Couldn't deserialize JSON value for parameter '%1' of '%2': %3",
                                  argumentName, functionName, value.GetFailure().message));
        }
        return value;
    }
    if (StartsWithIgnoringCase(contentType, "text/x-yaml") ||
        (sniffing && trimmed.substr(0, 3) == "---")) {
        Maybe<BindingProperty> value = ReadYaml(text);
        if (!value) {
            return Failure(Format("Couldn't deserialize YAML value for parameter '%1' of '%2': %3",
                                  argumentName, functionName, value.GetFailure().message));
        }
        return value;
    }
    if (StartsWithIgnoringCase(contentType, "application/octet-stream")) {
        BindingProperty blob;
        blob.SetBlob(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        return blob;
    }
    return BindingProperty(text);
}

Maybe<BindingProperty> DecodeBody(std::string_view contentType, std::span<const uint8_t> body) {
    if (StartsWithIgnoringCase(contentType, "application/x-msgpack")) {
        MsgPackResult result = DecodeMsgPack(body.data(), body.size());
        if (!result.value) {
            return std::move(result.value).GetFailure();
        }
        if (result.consumed != body.size()) {
            return Failure("Extra MessgePack data found in body");
        }
        return std::move(result.value).Value();
    }
    if (StartsWithIgnoringCase(contentType, "application/json") ||
        StartsWithIgnoringCase(contentType, "application/vnd.api+json")) {
        return ReadJson(BodyText(body));
    }
    if (StartsWithIgnoringCase(contentType, "application/x-yaml")) {
        return ReadYaml(BodyText(body));
    }
    return Failure("Unsupported body content type");
}

Maybe<BindingProperty> ConvertCallArgument(const HostValue& value, std::string_view argumentName) {
    if (value.type <= kHostValueObject) {
        Maybe<BindingProperty> converted = FromHostValue(value, argumentName);
        if (converted || ScanCodes(value, 0) != CodeScan::Unknown) {
            return converted;
        }
    }
    // The name of a code outside the table is the empty text.
    return Failure(Format(
        "Couldn't assign value to '%1' of type object because the input is of an incompatible "
        "type '%2'.",
        argumentName, std::string_view()));
}

}  // namespace Orvan::Framework
