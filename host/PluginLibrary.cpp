#include "host/PluginLibrary.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

namespace Orvan::Host {

namespace {

#if defined(_WIN32)
void* OpenLibrary(const std::string& path, std::string& error) {
    HMODULE module = LoadLibraryA(path.c_str());
    if (module == nullptr) {
        error = "cannot load " + path + " (error " + std::to_string(GetLastError()) + ")";
    }
    return module;
}

void* FindSymbol(void* library, const std::string& name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name.c_str()));
}
#else
void* OpenLibrary(const std::string& path, std::string& error) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* text = dlerror();
        error = text != nullptr ? text : "cannot load " + path;
    }
    return library;
}

void* FindSymbol(void* library, const std::string& name) {
    return dlsym(library, name.c_str());
}

// Runs the entry in a child process. Empty when it returned there; else why not.
std::string ProbeEntry(PluginLibrary::EntryFunction entry, const PluginLoadOptions& options) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        return {};  // No probe possible; the real load decides.
    }
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t child = fork();
    if (child < 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        return {};
    }
    if (child == 0) {
        close(pipeFds[0]);
        dup2(pipeFds[1], STDERR_FILENO);
        close(pipeFds[1]);
        PluginLoadRecord record{};
        record.major = options.major;
        record.minor = options.minor;
        record.patch = options.patch;
        entry(&record);
        _exit(record.module != nullptr ? 0 : 3);
    }
    close(pipeFds[1]);
    std::string report;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(pipeFds[0], buffer, sizeof buffer);
        if (count > 0) {
            report.append(buffer, static_cast<size_t>(count));
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    close(pipeFds[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    while (!report.empty() && (report.back() == '\n' || report.back() == '\r')) {
        report.pop_back();
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    std::string reason;
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const char* name = strsignal(signal);
        reason = "the plugin ended its process while loading (signal " + std::to_string(signal) +
                 (name != nullptr ? std::string(", ") + name : std::string()) + ")";
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == 3) {
        reason = "the plugin's entry returned without a module";
    } else {
        reason = "the plugin's entry ended its process with status " +
                 std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    if (!report.empty()) {
        reason += "; its report:\n" + report;
    }
    return reason;
}
#endif

std::string VersionOf(uint32_t major, uint32_t minor, uint32_t patch) {
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

}  // namespace

std::string PluginLibrary::DefaultEntryName(const std::string& path) {
    std::string stem = path.substr(
        path.find_last_of("/\\") == std::string::npos ? 0 : path.find_last_of("/\\") + 1);
    const size_t dot = stem.find('.');
    if (dot != std::string::npos) {
        stem.resize(dot);
    }
    for (const char* prefix : {"dvo-be-", "dvo-fe-", "dvo-xx-"}) {
        if (stem.rfind(prefix, 0) == 0) {
            stem.erase(0, std::strlen(prefix));
            break;
        }
    }
    for (char& c : stem) {
        if (c == '-') {
            c = '_';
        }
    }
    return "load_" + stem;
}

std::unique_ptr<PluginLibrary> PluginLibrary::Load(const PluginLoadOptions& options,
                                                   std::string& error) {
    std::unique_ptr<PluginLibrary> library(new PluginLibrary());
    library->path_ = options.path;
    library->entryName_ =
        options.entryName.empty() ? DefaultEntryName(options.path) : options.entryName;
    std::string openError;
    library->handle_ = OpenLibrary(options.path, openError);
    if (library->handle_ == nullptr) {
        error = "cannot load the plugin " + options.path + ": " + openError;
        return nullptr;
    }
    auto entry = reinterpret_cast<EntryFunction>(FindSymbol(library->handle_, library->entryName_));
    if (entry == nullptr) {
        error = "the plugin " + options.path + " has no entry named " + library->entryName_;
        return nullptr;
    }
#if !defined(_WIN32)
    if (options.probe) {
        const std::string refusal = ProbeEntry(entry, options);
        if (!refusal.empty()) {
            error = "the plugin " + options.path + " did not load with core plugin API " +
                    VersionOf(options.major, options.minor, options.patch) + ": " + refusal;
            return nullptr;
        }
    }
#endif
    return Enter(std::move(library), entry, options, error);
}

std::unique_ptr<PluginLibrary> PluginLibrary::FromEntry(EntryFunction entry,
                                                        const std::string& name,
                                                        const PluginLoadOptions& options,
                                                        std::string& error) {
    std::unique_ptr<PluginLibrary> library(new PluginLibrary());
    library->path_ = name;
    library->entryName_ = name;
    return Enter(std::move(library), entry, options, error);
}

std::unique_ptr<PluginLibrary> PluginLibrary::Enter(std::unique_ptr<PluginLibrary> library,
                                                    EntryFunction entry,
                                                    const PluginLoadOptions& options,
                                                    std::string& error) {
    library->record_.major = options.major;
    library->record_.minor = options.minor;
    library->record_.patch = options.patch;
    entry(&library->record_);
    const PluginLoadRecord& record = library->record_;
    if (record.callbacks == nullptr || record.module == nullptr ||
        record.callbacks->StartModule == nullptr || record.callbacks->DestroyModule == nullptr) {
        error = "the plugin " + library->path_ + " returned from " + library->entryName_ +
                " without a module";
        return nullptr;
    }
    return library;
}

PluginLibrary::~PluginLibrary() {
    ReleaseModule();
}

void PluginLibrary::ReleaseModule() {
    if (record_.module == nullptr || record_.callbacks == nullptr ||
        record_.callbacks->DestroyModule == nullptr) {
        return;
    }
    record_.callbacks->DestroyModule(record_.module);
    record_.module = nullptr;
    record_.apiDescriptor = nullptr;
    record_.shortName = nullptr;
}

std::string PluginLibrary::ShortName() const {
    return record_.shortName != nullptr ? record_.shortName : "";
}

std::string PluginLibrary::VersionText() const {
    return VersionOf(record_.major, record_.minor, record_.patch);
}

std::vector<const EndpointRecord*> PluginLibrary::Endpoints() const {
    std::vector<const EndpointRecord*> endpoints;
    const PluginApiDescriptor* api = record_.apiDescriptor;
    if (api == nullptr || api->endpoints == nullptr) {
        return endpoints;
    }
    // The records lie consecutively; each also names the next.
    for (uint32_t i = 0; i < api->endpointCount; ++i) {
        endpoints.push_back(&api->endpoints[i]);
    }
    return endpoints;
}

uint32_t PluginLibrary::TypeCount() const {
    return record_.apiDescriptor != nullptr ? record_.apiDescriptor->typeCount : 0;
}

uint32_t PluginLibrary::EventCount() const {
    return record_.apiDescriptor != nullptr ? record_.apiDescriptor->eventCount : 0;
}

}  // namespace Orvan::Host
