// RawActionFields: one field of an action object as the service sent it,
// converted on its own. The action sets travel as dynamic values; the
// operations that act on one action (bans, action changes) read only the
// fields they need, so a field that does not fit its record type (an actor
// beyond 32 bits, a champion sent as a word) hides nothing else of the action.
//
// Header-only, no state. Threads: any.
#pragma once

#include <string_view>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/NativeConversion.h"

namespace Orvan::Client::LobbyTeamBuilder {

// The field converted to T, or the fallback when the object has no such
// field or it does not convert.
template <class T>
T ReadActionField(const Framework::BindingTypeRegistry& registry,
                  const Framework::BindingProperty& action, std::string_view name, T fallback) {
    if (!action.HasField(name)) {
        return fallback;
    }
    T value = fallback;
    if (!Framework::AssignFromProperty(registry, action.Field(name), name, value)) {
        return fallback;
    }
    return value;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
