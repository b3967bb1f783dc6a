// ArgumentBinding: fills a function's declared arguments from one request:
// headers, path parameters, the query string, the call's own arguments and
// the body, in that order, each source able to overwrite what an earlier one
// put into a slot. The result is one BindingProperty per declared argument, in
// declaration order; the handler converts them into its native parameters
// through the type registry.
//
// Sources and their rules:
//   headers     a declared argument of location 0 or 4 takes the header named
//               like the argument in lower case (the last one of that name);
//   path        each template parameter, by name;
//   query       "key=value" pieces split at "&", percent-decoded, taken in
//               key order (a repeated key keeps its last value); a key may
//               carry a member path ("filter.name", "ids.0");
//   call        named arguments by exact name, unnamed ones by position after
//               the path parameters, converted from HostValue;
//   body        only when the function declares a body argument: MessagePack,
//               JSON or YAML by content type (prefix, case ignored).
// The first failure stops binding; its message is the reply's error text.
// Failures carry code 0: the dispatcher answers them with its default status.
//
// Ownership: a DispatchRequest views the host's request record, which must
// outlive it; bound values are standalone copies. Threads: pure functions
// over their inputs; the function record is read-only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"
#include "framework/dispatch/RouteTable.h"
#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

// A view of a HostRequest with the host's null addresses turned into empty
// texts and spans.
struct DispatchRequest {
    uint32_t method = 0;
    std::string_view uri;
    std::span<const HostArgument> arguments;
    std::span<const HostHeader> headers;
    std::string_view contentType;
    std::span<const uint8_t> body;
    // A body the host handed over, even an empty one: an empty body is still
    // decoded, and fails the way its content type fails on no bytes.
    bool hasBody = false;
    uint32_t pluginHandle = 0;
    // The function name of a direct call.
    std::string_view functionName;

    static DispatchRequest FromHost(const HostRequest& request);

    bool HasBody() const { return hasBody; }
    // What routes are matched against: the function name of a direct call,
    // else the path of the URI.
    std::string_view Target() const;
};

// Upper bound on the elements that member-path indexes ("ids.5") may create
// in one request, all arguments together; an index that would pass it is out
// of range. Without it one short query could ask for two billion elements.
inline constexpr size_t kMaxIndexedElements = 65536;

Maybe<std::vector<BindingProperty>> BindArguments(const BindingFunctionInfo& function,
                                                  const DispatchRequest& request,
                                                  const RouteMatch& match);

// Decodes one argument text. A content type beginning with
// "application/x-msgpack", "application/json", "text/x-yaml" or
// "application/octet-stream" selects MessagePack, JSON, YAML or a blob; with
// `sniff` and no content type, the text's first bytes choose between
// MessagePack (0x80-0x9F, 0xDC-0xDF), JSON ("{" or "[" after spaces) and
// YAML ("---" after spaces). Anything else becomes a string value.
Maybe<BindingProperty> DecodeArgumentText(std::string_view text, std::string_view contentType,
                                          bool sniff, std::string_view argumentName,
                                          std::string_view functionName);

// Decodes a request body by content type. JSON and YAML bodies end at their
// first NUL byte; a MessagePack body must be one value with nothing after it.
Maybe<BindingProperty> DecodeBody(std::string_view contentType, std::span<const uint8_t> body);

// Converts a call argument. A type code outside 0..10, at any depth, fails
// with the incompatible-type message naming the argument.
Maybe<BindingProperty> ConvertCallArgument(const HostValue& value, std::string_view argumentName);

}  // namespace Orvan::Framework
