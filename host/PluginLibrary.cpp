#include "host/PluginLibrary.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstdlib>
#else
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

namespace Orvan::Host {

namespace {

#if defined(_WIN32)
std::wstring Wide(const std::string& text) {
    if (text.empty()) {
        return {};
    }
    const int count =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(count > 0 ? count : 0), L'\0');
    if (count > 0) {
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                            count);
    }
    return wide;
}

std::string SystemMessage(DWORD code) {
    char* text = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string message =
        length != 0 && text != nullptr ? std::string(text, length) : std::string();
    LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' ||
                                message.back() == ' ' || message.back() == '.')) {
        message.pop_back();
    }
    return (message.empty() ? std::string("system error") : message) + " (error " +
           std::to_string(code) + ")";
}

void* OpenLibrary(const std::string& path, std::string& error) {
    HMODULE module = LoadLibraryW(Wide(path).c_str());
    if (module == nullptr) {
        error = SystemMessage(GetLastError());
    }
    return module;
}

void* FindSymbol(void* library, const std::string& name) {
    // A generic function pointer turned into an address; the detour through
    // void(*)() marks the conversion as intended.
    return reinterpret_cast<void*>(
        reinterpret_cast<void (*)()>(GetProcAddress(static_cast<HMODULE>(library), name.c_str())));
}

std::wstring ProgramPath() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD n = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (n == 0) {
            return {};
        }
        if (n < path.size()) {
            path.resize(n);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

// One argument of a command line as CommandLineToArgvW and the C runtime
// split it again: quoted, with backslashes before a quote doubled.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
        } else if (c == L'"') {
            quoted.append(backslashes * 2 + 1, L'\\');
            backslashes = 0;
        } else {
            quoted.append(backslashes, L'\\');
            backslashes = 0;
        }
        if (c != L'\\') {
            quoted += c;
        }
    }
    quoted.append(backslashes * 2, L'\\');
    return quoted + L"\"";
}

// Runs the entry in a child process: this program again, started with
// kProbeArgument (see RunProbeChild). Empty when it returned there; else why not.
std::string ProbeEntry(const std::string& path, const std::string& entryName,
                       const PluginLoadOptions& options) {
    const std::wstring program = ProgramPath();
    if (program.empty()) {
        return {};  // No probe possible; the real load decides.
    }
    std::wstring commandLine = Quoted(program) + L" " + Wide(PluginLibrary::kProbeArgument) + L" " +
                               Quoted(Wide(path)) + L" " + Quoted(Wide(entryName));
    for (uint32_t part : {options.major, options.minor, options.patch}) {
        commandLine += L" " + std::to_wstring(part);
    }

    SECURITY_ATTRIBUTES inherit{};
    inherit.nLength = sizeof inherit;
    inherit.bInheritHandle = TRUE;
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) {
        return {};
    }
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION process{};
    std::fflush(stdout);
    std::fflush(stderr);
    const BOOL started = CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                        0, nullptr, nullptr, &startup, &process);
    CloseHandle(writeEnd);
    if (!started) {
        CloseHandle(readEnd);
        return {};
    }
    std::string report;
    char buffer[4096];
    DWORD count = 0;
    while (ReadFile(readEnd, buffer, sizeof buffer, &count, nullptr) && count > 0) {
        report.append(buffer, count);
    }
    CloseHandle(readEnd);
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    while (!report.empty() && (report.back() == '\n' || report.back() == '\r')) {
        report.pop_back();
    }
    if (status == 0) {
        return {};
    }
    std::string reason;
    if (status == PluginLibrary::kProbeNoModule) {
        reason = "the plugin's entry returned without a module";
    } else if (status >= 0xC0000000u) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(status));
        reason = std::string("the plugin ended its process while loading (exception ") + code + ")";
    } else {
        reason = "the plugin's entry ended its process with status " + std::to_string(status);
    }
    if (!report.empty()) {
        reason += "; its report:\n" + report;
    }
    return reason;
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
        _exit(record.module != nullptr ? 0 : static_cast<int>(PluginLibrary::kProbeNoModule));
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
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == PluginLibrary::kProbeNoModule) {
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
    if (options.probe) {
#if defined(_WIN32)
        const std::string refusal = ProbeEntry(options.path, library->entryName_, options);
#else
        const std::string refusal = ProbeEntry(entry, options);
#endif
        if (!refusal.empty()) {
            error = "the plugin " + options.path + " did not load with core plugin API " +
                    VersionOf(options.major, options.minor, options.patch) + ": " + refusal;
            return nullptr;
        }
    }
    return Enter(std::move(library), entry, options, error);
}

int PluginLibrary::RunProbeChild(int argc, char** argv) {
#if defined(_WIN32)
    if (argc != 7 || std::strcmp(argv[1], kProbeArgument) != 0) {
        return -1;
    }
    // No error dialogs: a crash or a refusal is an exit status for the parent.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    std::string error;
    void* handle = OpenLibrary(argv[2], error);
    auto entry =
        handle != nullptr ? reinterpret_cast<EntryFunction>(FindSymbol(handle, argv[3])) : nullptr;
    if (entry == nullptr) {
        return 0;  // The parent reports a missing file or entry itself.
    }
    PluginLoadRecord record{};
    record.major = static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 10));
    record.minor = static_cast<uint32_t>(std::strtoul(argv[5], nullptr, 10));
    record.patch = static_cast<uint32_t>(std::strtoul(argv[6], nullptr, 10));
    entry(&record);
    std::fflush(nullptr);
    // The module stays alive: nothing of it may run its destructors here.
    ExitProcess(record.module != nullptr ? 0 : kProbeNoModule);
#else
    (void)argc;
    (void)argv;
    return -1;
#endif
}

std::string PluginLibrary::ProgramDirectory() {
#if defined(_WIN32)
    std::wstring program = ProgramPath();
    const size_t slash = program.find_last_of(L"\\/");
    program.resize(slash == std::wstring::npos ? 0 : slash + 1);
    const int count = WideCharToMultiByte(
        CP_UTF8, 0, program.data(), static_cast<int>(program.size()), nullptr, 0, nullptr, nullptr);
    std::string directory(static_cast<size_t>(count > 0 ? count : 0), '\0');
    if (count > 0) {
        WideCharToMultiByte(CP_UTF8, 0, program.data(), static_cast<int>(program.size()),
                            directory.data(), count, nullptr, nullptr);
    }
    return directory;
#else
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof path) {
        return {};
    }
    std::string directory(path, static_cast<size_t>(n));
    directory.resize(directory.rfind('/') + 1);
    return directory;
#endif
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
