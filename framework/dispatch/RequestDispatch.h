// RequestDispatch: answers a request the host delivers to one of the module's
// endpoints. Finds the function among the candidate routes, answers the
// built-in "Help", binds the arguments (ArgumentBinding.h), invokes the
// handler (EndpointHandler.h) and fills the reply record.
//
// Reply: on success status 200, result format 1, the handler's value as the
// body (enumerations by name through the registry). On failure the failure
// flag, a copy of the message as error text and the failure's code as
// status; a failure without a code (argument binding, decoding, conversion)
// answers kDefaultFailureStatus. A route that does not match, or a request
// of another method than the endpoint's, answers "Invalid function" with 404.
// A handler that throws answers "Internal server error" with 500: nothing
// escapes to the host.
//
// Ownership: every reply filled here carries ReleaseDispatchReply as its
// release function, whatever the outcome; the host calls it once to free the
// body, the error text and anything else the reply owns. Until then the
// reply owns them. Threads: the host's thread; any number of requests may be
// in progress at once (a handler's wait lets the host deliver another), each
// with its own state.
#pragma once

#include <cstdint>
#include <span>

#include "framework/dispatch/RouteTable.h"
#include "framework/host/HostAbi.h"

namespace Orvan::Framework {

// The status of a failed reply whose failure carries no HTTP code.
inline constexpr uint16_t kDefaultFailureStatus = 400;
inline constexpr uint16_t kSuccessStatus = 200;
// The result format of every reply this dispatcher fills.
inline constexpr uint32_t kDefaultResultFormat = 1;

// The dispatch callback of every endpoint record: the request's dispatch
// context is the endpoint's function (a BindingFunctionInfo of the module's
// registry), whose route slot holds its compiled RouteEntry.
void QEL_HOST_CALL DispatchEndpointRequest(HostResponse* reply, HostRequest* request);

// Fills `reply` (overwritten) for `request` among `candidates`, whose
// functions are BindingFunctionInfo records.
void AnswerRequest(HostResponse& reply, const HostRequest& request,
                   std::span<const RouteEntry> candidates);

// Frees what a reply filled here owns and leaves those fields empty; a second
// call does nothing.
void QEL_HOST_CALL ReleaseDispatchReply(HostResponse* reply);

}  // namespace Orvan::Framework
