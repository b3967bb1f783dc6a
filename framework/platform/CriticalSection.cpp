#include "framework/platform/CriticalSection.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

namespace Orvan::Framework::Platform {

#if defined(_WIN32)

namespace {

CRITICAL_SECTION* Section(unsigned char* storage) {
    return reinterpret_cast<CRITICAL_SECTION*>(storage);
}

}  // namespace

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(void*) * 6);
static_assert(alignof(CRITICAL_SECTION) <= alignof(void*));

CriticalSection::CriticalSection() {
    InitializeCriticalSection(Section(storage_));
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(Section(storage_));
}

void CriticalSection::lock() {
    EnterCriticalSection(Section(storage_));
}

void CriticalSection::unlock() {
    LeaveCriticalSection(Section(storage_));
}

bool CriticalSection::try_lock() {
    return TryEnterCriticalSection(Section(storage_)) != 0;
}

#else

CriticalSection::CriticalSection() = default;
CriticalSection::~CriticalSection() = default;

void CriticalSection::lock() {
    mutex_.lock();
}

void CriticalSection::unlock() {
    mutex_.unlock();
}

bool CriticalSection::try_lock() {
    return mutex_.try_lock();
}

#endif

}  // namespace Orvan::Framework::Platform
