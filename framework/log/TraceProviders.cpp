#include "framework/log/TraceProviders.h"

#include <cstring>

#include "framework/platform/Thread.h"

namespace Orvan::Framework {

namespace {

constexpr Platform::TraceGuid kProviderIds[kTraceProviderCount] = {
    {0x7584f8f0, 0x74fe, 0x4113, {0x99, 0xd2, 0x19, 0x11, 0xa6, 0x32, 0x81, 0x0b}},
    {0xff573abc, 0x1c6a, 0x4b59, {0x8f, 0x3b, 0xc1, 0xf9, 0x86, 0x53, 0xfc, 0xb7}},
    {0xd4fbe0de, 0x0f47, 0x407e, {0xa3, 0xb2, 0xdc, 0x19, 0xba, 0x89, 0x00, 0x05}},
    {0x31841453, 0xb7f0, 0x4d74, {0xb0, 0xb2, 0x7a, 0x38, 0xc2, 0x22, 0xe6, 0x2b}},
};

constexpr uint16_t kThreadNameEventId = 1;
constexpr uint8_t kInformationLevel = 4;

Platform::TraceProvider* Providers() {
    static Platform::TraceProvider providers[kTraceProviderCount] = {
        Platform::TraceProvider(kProviderIds[0]), Platform::TraceProvider(kProviderIds[1]),
        Platform::TraceProvider(kProviderIds[2]), Platform::TraceProvider(kProviderIds[3])};
    return providers;
}

void WriteThreadName(Platform::TraceProvider& provider, const char* name) {
    uint32_t threadId = static_cast<uint32_t>(Platform::CurrentThreadId());
    Platform::TraceField fields[] = {
        {&threadId, sizeof threadId},
        {name, static_cast<uint32_t>(std::strlen(name) + 1)},
    };
    provider.Write(kThreadNameEventId, kInformationLevel, fields, 2);
}

}  // namespace

void RegisterTraceProviders() {
    Platform::TraceProvider* providers = Providers();
    for (unsigned i = 0; i < kTraceProviderCount; ++i) {
        if (!providers[i].IsRegistered()) {
            providers[i].Register();
        }
    }
    if (providers[1].IsEnabled()) {
        WriteThreadName(providers[1], "Main thread");
    }
}

void UnregisterTraceProviders() {
    Platform::TraceProvider* providers = Providers();
    for (unsigned i = 0; i < kTraceProviderCount; ++i) {
        providers[i].Unregister();
    }
}

Platform::TraceProvider& TraceProviderAt(unsigned index) {
    return Providers()[index < kTraceProviderCount ? index : 0];
}

}  // namespace Orvan::Framework
