#include "framework/platform/EventTracing.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
// evntprov.h uses the base types of windows.h without including it.
#include <windows.h>

#include <evntprov.h>

#include <cstring>
#endif

namespace Orvan::Framework::Platform {

#if defined(_WIN32)

namespace {

using EventRegisterFn = ULONG(WINAPI*)(LPCGUID, PENABLECALLBACK, PVOID, PREGHANDLE);
using EventWriteFn = ULONG(WINAPI*)(REGHANDLE, PCEVENT_DESCRIPTOR, ULONG, PEVENT_DATA_DESCRIPTOR);
using EventUnregisterFn = ULONG(WINAPI*)(REGHANDLE);

// GetProcAddress answers with a generic function pointer; the detour through
// void(*)() marks the conversion to the real signature as intended.
template <typename Function>
Function LookUp(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// The three functions, looked up once; all null when Advapi32 lacks them.
struct EventFunctions {
    EventRegisterFn registerFn = nullptr;
    EventWriteFn writeFn = nullptr;
    EventUnregisterFn unregisterFn = nullptr;

    EventFunctions() {
        HMODULE advapi = LoadLibraryW(L"Advapi32.dll");
        if (advapi == nullptr) {
            return;
        }
        auto r = LookUp<EventRegisterFn>(advapi, "EventRegister");
        auto w = LookUp<EventWriteFn>(advapi, "EventWrite");
        auto u = LookUp<EventUnregisterFn>(advapi, "EventUnregister");
        if (r != nullptr && w != nullptr && u != nullptr) {
            registerFn = r;
            writeFn = w;
            unregisterFn = u;
        }
    }
};

const EventFunctions& Functions() {
    static const EventFunctions functions;
    return functions;
}

}  // namespace

struct TraceProviderCallbacks {
    static void NTAPI OnEnable(LPCGUID, ULONG isEnabled, UCHAR, ULONGLONG, ULONGLONG,
                               PEVENT_FILTER_DESCRIPTOR, PVOID context) {
        static_cast<TraceProvider*>(context)->enabled_.store(isEnabled != 0,
                                                             std::memory_order_relaxed);
    }
};

bool TraceProvider::Register() {
    const EventFunctions& f = Functions();
    if (f.registerFn == nullptr || handle_ != 0) {
        return handle_ != 0;
    }
    GUID guid;
    static_assert(sizeof guid == sizeof id_);
    std::memcpy(&guid, &id_, sizeof guid);
    REGHANDLE handle = 0;
    // The system calls OnEnable during registration when a session is already on.
    if (f.registerFn(&guid, &TraceProviderCallbacks::OnEnable, this, &handle) != ERROR_SUCCESS) {
        return false;
    }
    handle_ = handle;
    return true;
}

void TraceProvider::Unregister() {
    if (handle_ != 0 && Functions().unregisterFn != nullptr) {
        Functions().unregisterFn(handle_);
    }
    handle_ = 0;
    enabled_.store(false, std::memory_order_relaxed);
}

bool TraceProvider::Write(uint16_t eventId, uint8_t level, const TraceField* fields, size_t count) {
    if (handle_ == 0 || Functions().writeFn == nullptr || count > 16) {
        return false;
    }
    EVENT_DESCRIPTOR descriptor{};
    descriptor.Id = eventId;
    descriptor.Level = level;
    EVENT_DATA_DESCRIPTOR data[16];
    for (size_t i = 0; i < count; ++i) {
        EventDataDescCreate(&data[i], fields[i].data, fields[i].size);
    }
    return Functions().writeFn(handle_, &descriptor, static_cast<ULONG>(count), data) ==
           ERROR_SUCCESS;
}

#else

// No event tracing here: nothing registers, nothing is written.
bool TraceProvider::Register() {
    return false;
}

void TraceProvider::Unregister() {
    handle_ = 0;
    enabled_.store(false, std::memory_order_relaxed);
}

bool TraceProvider::Write(uint16_t, uint8_t, const TraceField*, size_t) {
    return false;
}

#endif

}  // namespace Orvan::Framework::Platform
