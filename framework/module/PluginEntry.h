// The plugin's entry: creates the module object and runs the handshake that
// fills the host's load record. The exported C function of a plugin is one
// line:
//
//   extern "C" QEL_PLUGIN_EXPORT void QEL_HOST_CALL load_<name>(PluginLoadRecord* record) {
//       LoadPluginModule<MyPlugin>(record, "<short name>");
//   }
//
// Words 3 to 6 of the record stay 0 when the module cannot be created; an
// incompatible core ends the process with a fatal report (AppModule.h).
//
// Threads: the host's thread, once per load.
#pragma once

#include <new>
#include <string_view>

#include "framework/host/HostAbi.h"
#include "framework/module/AppModule.h"

namespace Orvan::Framework {

// Clears the record's output words 3 to 6.
void ClearLoadRecordOutputs(PluginLoadRecord& record);

template <class Module>
void LoadPluginModule(PluginLoadRecord* record, std::string_view shortName) {
    static_assert(std::is_base_of_v<AppModule, Module>, "a plugin module derives from AppModule");
    if (record == nullptr) {
        return;
    }
    ClearLoadRecordOutputs(*record);
    // Nothing may escape to the host: a module that cannot be built is a
    // clean refusal.
    Module* module = nullptr;
    try {
        module = new (std::nothrow) Module();
        if (module != nullptr) {
            module->RunHandshake(*record, shortName);
        }
    } catch (...) {
        delete module;
        ClearLoadRecordOutputs(*record);
    }
}

}  // namespace Orvan::Framework
