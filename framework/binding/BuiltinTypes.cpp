#include "framework/binding/BuiltinTypes.h"

#include "framework/binding/BindingFieldConverter.h"
#include "framework/binding/BindingTypeRegistry.h"
#include "framework/binding/TypeRegistration.h"

namespace Orvan::Framework {

namespace {

void RegisterHelpTypes(BindingTypeRegistry& registry) {
    RegisterEnum<BindingHelpFormat>(registry, "BindingHelpFormat")
        .Value("Full", BindingHelpFormat::Full, "Native help format")
        .Value("Epytext", BindingHelpFormat::Epytext, "Python epytext format")
        .Description("Help format for binding functions and types.")
        .Tags({"$builtin", "help"});

    // Element records first, so that the containers' identifiers name them.
    using TypeId = BindingFullTypeIdentifier;
    RegisterStruct<TypeId>(registry, "BindingFullTypeIdentifier")
        .Field("type", &TypeId::type)
        .Field("elementType", &TypeId::elementType)
        .Description("Describes the type of a value.")
        .Tags({"$builtin", "help"});

    using Argument = BindingFullArgumentHelp;
    RegisterStruct<Argument>(registry, "BindingFullArgumentHelp")
        .Field("name", &Argument::name)
        .Field("description", &Argument::description)
        .Field("type", &Argument::type)
        .Field("optional", &Argument::optional)
        .Description("Describes a function parameter.")
        .Tags({"$builtin", "help"});

    using Function = BindingFullFunctionHelp;
    RegisterStruct<Function>(registry, "BindingFullFunctionHelp")
        .Field("name", &Function::name)
        .Field("nameSpace", &Function::nameSpace)
        .Field("arguments", &Function::arguments)
        .Field("returns", &Function::returns)
        .Field("description", &Function::description)
        .Field("help", &Function::help)
        .Field("threadSafe", &Function::threadSafe)
        .Field("async", &Function::async)
        .Field("tags", &Function::tags)
        .Description("Describes a function.")
        .Tags({"$builtin", "help"});

    using EnumValue = BindingFullEnumValueHelp;
    RegisterStruct<EnumValue>(registry, "BindingFullEnumValueHelp")
        .Field("name", &EnumValue::name)
        .Field("description", &EnumValue::description)
        .Field("value", &EnumValue::value)
        .Description("Describes an enumerator.")
        .Tags({"$builtin", "help"});

    using FieldHelp = BindingFullFieldHelp;
    RegisterStruct<FieldHelp>(registry, "BindingFullFieldHelp")
        .Field("name", &FieldHelp::name)
        .Field("description", &FieldHelp::description)
        .Field("offset", &FieldHelp::offset)
        .Field("type", &FieldHelp::type)
        .Field("optional", &FieldHelp::optional)
        .Description("Describes a member of a struct.")
        .Tags({"$builtin", "help"});

    using TypeHelp = BindingFullTypeHelp;
    RegisterStruct<TypeHelp>(registry, "BindingFullTypeHelp")
        .Field("name", &TypeHelp::name)
        .Field("nameSpace", &TypeHelp::nameSpace)
        .Field("size", &TypeHelp::size)
        .Field("description", &TypeHelp::description)
        .Field("tags", &TypeHelp::tags)
        .Field("fields", &TypeHelp::fields)
        .Field("values", &TypeHelp::values)
        .Description("Describes a struct or enum type.")
        .Tags({"$builtin", "help"});

    using Event = BindingFullEventHelp;
    RegisterStruct<Event>(registry, "BindingFullEventHelp")
        .Field("name", &Event::name)
        .Field("nameSpace", &Event::nameSpace)
        .Field("type", &Event::type)
        .Field("description", &Event::description)
        .Field("tags", &Event::tags)
        .Description("Describes an event.")
        .Tags({"$builtin", "help"});

    using Api = BindingFullApiHelp;
    RegisterStruct<Api>(registry, "BindingFullApiHelp")
        .Field("functions", &Api::functions)
        .Field("types", &Api::types)
        .Field("events", &Api::events)
        .Description("Describes the exposed native API.")
        .Tags({"$builtin", "help"});
}

void RegisterAsyncAndEventTypes(BindingTypeRegistry& registry) {
    using State = BindingAsyncState;
    RegisterEnum<State>(registry, "BindingAsyncState")
        .Value("None", State::None, "Invalid state")
        .Value("Running", State::Running, "The operation is in flight")
        .Value("Cancelling", State::Cancelling, "A request to cancel the operation has been made")
        .Value("Cancelled", State::Cancelled, "The operation was cancelled")
        .Value("Succeeded", State::Succeeded, "The operation completed successfully")
        .Value("Failed", State::Failed, "The operation encountered an error")
        .Description("Possible states of an asynchronous operation.")
        .Tags({"$builtin", "async"});

    RegisterStruct<BindingGenericEvent>(registry, "BindingGenericEvent")
        .Field("data", &BindingGenericEvent::data, "Event data")
        .Description("Represents generic data for an event.");

    RegisterStruct<BindingCallbackEvent>(registry, "BindingCallbackEvent")
        .Field("id", &BindingCallbackEvent::id, "ID of the callback being invoked")
        .Field("parameters", &BindingCallbackEvent::parameters, "Callback parameters")
        .Description("Represents the parameters of a call to a provided callback.");

    RegisterStruct<BindingGenericAsyncEvent>(registry, "BindingGenericAsyncEvent")
        .Field("asyncToken", &BindingGenericAsyncEvent::asyncToken, "Asynchronous operation token")
        .Field("data", &BindingGenericAsyncEvent::data, "Event data")
        .Description("Represents generic data for an asynchronous event.")
        .Tags({"$builtin", "async"});

    RegisterStruct<BindingAsyncFailureEvent>(registry, "BindingAsyncFailureEvent")
        .Field("asyncToken", &BindingAsyncFailureEvent::asyncToken, "Asynchronous operation token")
        .Field("error", &BindingAsyncFailureEvent::error, "Error message")
        .Description("Represents a failed asynchronous operation.")
        .Tags({"$builtin", "async"});

    RegisterStruct<BindingAsyncCancelEvent>(registry, "BindingAsyncCancelEvent")
        .Field("asyncToken", &BindingAsyncCancelEvent::asyncToken, "Asynchronous operation token")
        .Description("Represents a cancelled asynchronous operation.")
        .Tags({"$builtin", "async"});

    BindingEventInfo callback;
    callback.name = "OnCallback";
    callback.type = IdentifierOf<BindingCallbackEvent>(&registry);
    callback.description = "Fired when a callback is invoked.";
    callback.tags = {"$builtin"};
    registry.AddEvent(std::move(callback));
}

}  // namespace

void RegisterBuiltinTypes(BindingTypeRegistry& registry) {
    RegisterHelpTypes(registry);
    RegisterAsyncAndEventTypes(registry);
}

}  // namespace Orvan::Framework
