// TypedResource: a resource event handed to a typed handler, its data
// converted into the handler's native type. A "Delete" event carries T's
// default value.
//
// Ownership: a plain record, copied by value. Threads: any.
#pragma once

#include <string>

#include "framework/host/FrameworkTypes.h"

namespace Orvan::Framework {

template <class T>
struct TypedResource {
    std::string uri;
    PluginResourceEventType eventType = PluginResourceEventType::Create;
    T value{};
};

}  // namespace Orvan::Framework
