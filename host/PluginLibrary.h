// PluginLibrary: loads a plugin's shared object (a DLL through LoadLibraryW on
// Windows) and runs its entry with the core's plugin API version, as the
// plugin manager does. Before the entry runs in the host's own process it
// runs once in a throw-away child process (a fork here; on Windows this
// program started again with kProbeArgument, see RunProbeChild), because a
// plugin that refuses the core's version ends the process it runs in; the
// host reports that refusal, with the plugin's own report, instead of dying
// with it.
//
// Ownership: the shared object stays mapped for the life of the process (a
// module's code must outlive every pointer the host keeps into it).
// Threads: the host's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/HostAbi.h"

namespace Orvan::Host {

struct PluginLoadOptions {
    std::string path;
    // Empty: "load_" followed by the short name taken from the file name
    // ("dvo-be-qel-lobby-team-builder.so" gives load_qel_lobby_team_builder).
    std::string entryName;
    uint32_t major = 18;
    uint32_t minor = 0;
    uint32_t patch = 0;
    // Run the entry in a child process first.
    bool probe = true;
};

class PluginLibrary {
public:
    using EntryFunction = void(QEL_HOST_CALL*)(PluginLoadRecord*);

    // Null with `error` set when the file, the entry or the module is
    // missing, or when the plugin refuses the core's version.
    static std::unique_ptr<PluginLibrary> Load(const PluginLoadOptions& options,
                                               std::string& error);
    // A plugin linked into the program: the entry runs at once, in process.
    static std::unique_ptr<PluginLibrary> FromEntry(EntryFunction entry, const std::string& name,
                                                    const PluginLoadOptions& options,
                                                    std::string& error);

    // Destroys a module that was never released (a load nothing attached).
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // Destroys the module the entry created, once. The descriptor and the
    // short name lie in the module's memory, so they are gone afterwards too.
    void ReleaseModule();

    const PluginLoadRecord& Record() const { return record_; }
    const std::string& Path() const { return path_; }
    const std::string& EntryName() const { return entryName_; }
    std::string ShortName() const;
    // The plugin's own version as its entry wrote it ("18.0.0").
    std::string VersionText() const;
    std::vector<const EndpointRecord*> Endpoints() const;
    uint32_t TypeCount() const;
    uint32_t EventCount() const;

    static std::string DefaultEntryName(const std::string& path);
    // The folder of the running program, with its trailing separator.
    static std::string ProgramDirectory();

    // The first argument that makes the program a probe child:
    //   PROGRAM --probe-plugin-entry PATH ENTRY MAJOR MINOR PATCH
    static constexpr const char* kProbeArgument = "--probe-plugin-entry";
    // The probe child's status when the entry returned without a module (3
    // is taken: it is abort()'s status on Windows).
    static constexpr uint32_t kProbeNoModule = 4;
    // Called first by main: in a probe child (Windows only) runs the entry and
    // ends the process with 0 or kProbeNoModule; otherwise returns -1.
    static int RunProbeChild(int argc, char** argv);

private:
    PluginLibrary() = default;
    static std::unique_ptr<PluginLibrary> Enter(std::unique_ptr<PluginLibrary> library,
                                                EntryFunction entry,
                                                const PluginLoadOptions& options,
                                                std::string& error);

    std::string path_;
    std::string entryName_;
    void* handle_ = nullptr;
    PluginLoadRecord record_{};
};

}  // namespace Orvan::Host
