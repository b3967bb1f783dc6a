#include "framework/dispatch/RequestDispatch.h"

#include <cstring>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/binding/ApiHelp.h"
#include "framework/binding/BindingFunctionInfo.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/dispatch/ArgumentBinding.h"
#include "framework/dispatch/EndpointHandler.h"
#include "framework/host/HostValueConversion.h"
#include "framework/host/ModuleMemory.h"

namespace Orvan::Framework {

namespace {

constexpr std::string_view kBuiltinTag = "$builtin";
constexpr std::string_view kHelpFunction = "Help";

// A copy owned by the reply; null when the allocation fails (the reply then
// goes without its text rather than without its status).
char* CopyText(std::string_view text) {
    auto* copy = static_cast<char*>(ModuleMemory::Allocate(text.size() + 1));
    if (copy != nullptr) {
        if (!text.empty()) {
            std::memcpy(copy, text.data(), text.size());
        }
        copy[text.size()] = '\0';
    }
    return copy;
}

uint16_t StatusOf(const Failure& failure) {
    if (failure.code == 0 || failure.code > 0xFFFF) {
        return kDefaultFailureStatus;
    }
    return static_cast<uint16_t>(failure.code);
}

void Fail(HostResponse& reply, std::string_view message, uint16_t status) {
    // A failed reply carries no body; drop one a handler's value may have left.
    ReleaseHostValue(reply.body);
    ModuleMemory::Free(const_cast<char*>(reply.errorText));
    reply.errorText = CopyText(message);
    reply.failed = 1;
    reply.status = status;
}

void Fail(HostResponse& reply, const Failure& failure) {
    Fail(reply, failure.message, StatusOf(failure));
}

void Succeed(HostResponse& reply, const BindingProperty& body,
             const BindingTypeRegistry& registry) {
    Maybe<> converted = ToHostValue(body, reply.body, &registry);
    if (!converted) {
        Fail(reply, converted.GetFailure().message, kDefaultFailureStatus);
        return;
    }
    reply.status = kSuccessStatus;
}

void AnswerBuiltin(HostResponse& reply, const BindingFunctionInfo& function) {
    if (function.name != kHelpFunction || function.registry == nullptr) {
        Fail(reply, "Unsupported builtin function", kDefaultFailureStatus);
        return;
    }
    Maybe<BindingProperty> help = BuildApiHelp(*function.registry, BindingHelpFormat::Full);
    if (!help) {
        Fail(reply, help.GetFailure().message, kDefaultFailureStatus);
        return;
    }
    Succeed(reply, help.Value(), *function.registry);
}

void Answer(HostResponse& reply, const HostRequest& request,
            std::span<const RouteEntry> candidates) {
    const DispatchRequest view = DispatchRequest::FromHost(request);
    const std::optional<RouteMatch> match =
        FindRouteOfMethod(candidates, view.method, view.Target());
    const auto* function =
        match ? static_cast<const BindingFunctionInfo*>(match->function) : nullptr;
    if (function == nullptr || function->registry == nullptr) {
        Fail(reply, "Invalid function", 404);
        return;
    }
    if (function->HasTag(kBuiltinTag)) {
        AnswerBuiltin(reply, *function);
        return;
    }
    const auto* handler = static_cast<const EndpointHandler*>(function->handler.get());
    if (handler == nullptr) {
        Fail(reply, "Invalid function", 404);
        return;
    }
    Maybe<std::vector<BindingProperty>> arguments = BindArguments(*function, view, *match);
    if (!arguments) {
        Fail(reply, arguments.GetFailure());
        return;
    }
    const EndpointCall call{*function, *function->registry, view.pluginHandle};
    Maybe<BindingProperty> result = handler->Invoke(arguments.Value(), call);
    if (!result) {
        Fail(reply, result.GetFailure());
        return;
    }
    Succeed(reply, result.Value(), *function->registry);
}

}  // namespace

void AnswerRequest(HostResponse& reply, const HostRequest& request,
                   std::span<const RouteEntry> candidates) {
    reply = HostResponse{};
    reply.release = &ReleaseDispatchReply;
    reply.resultFormat = kDefaultResultFormat;
    try {
        Answer(reply, request, candidates);
    } catch (...) {
        // Whatever was filled before the throw is dropped with the message.
        ReleaseDispatchReply(&reply);
        reply.release = &ReleaseDispatchReply;
        Fail(reply, "Internal server error", 500);
    }
}

void QEL_HOST_CALL DispatchEndpointRequest(HostResponse* reply, HostRequest* request) {
    if (reply == nullptr) {
        return;
    }
    const auto* function = request != nullptr
                               ? static_cast<const BindingFunctionInfo*>(request->dispatchContext)
                               : nullptr;
    const auto* route =
        function != nullptr ? static_cast<const RouteEntry*>(function->route.get()) : nullptr;
    if (route == nullptr) {
        *reply = HostResponse{};
        reply->release = &ReleaseDispatchReply;
        reply->resultFormat = kDefaultResultFormat;
        Fail(*reply, "Invalid function", 404);
        return;
    }
    AnswerRequest(*reply, *request, std::span<const RouteEntry>(route, 1));
}

void QEL_HOST_CALL ReleaseDispatchReply(HostResponse* reply) {
    if (reply == nullptr) {
        return;
    }
    ReleaseHostValue(reply->body);
    ModuleMemory::Free(const_cast<char*>(reply->errorText));
    reply->errorText = nullptr;
    ModuleMemory::Free(const_cast<char*>(reply->responderText));
    reply->responderText = nullptr;
    if (reply->headers != nullptr) {
        for (uint32_t i = 0; i < reply->headerCount; ++i) {
            ModuleMemory::Free(const_cast<char*>(reply->headers[i].name));
            ModuleMemory::Free(const_cast<char*>(reply->headers[i].value));
        }
        ModuleMemory::Free(reply->headers);
    }
    reply->headers = nullptr;
    reply->headerCount = 0;
}

}  // namespace Orvan::Framework
