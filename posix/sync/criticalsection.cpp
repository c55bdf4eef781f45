// The recursive lock of one process.

#include "sndx/sync.h"

namespace sndxposix
{
extern "C" BOOL WINAPI InitializeCriticalSectionEx(LPCRITICAL_SECTION section, DWORD, DWORD)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&section->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return TRUE;
}

extern "C" void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section)
{
    // Unbounded, as on Windows.
    pthread_mutex_lock(&section->mutex);
}

extern "C" void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section)
{
    pthread_mutex_unlock(&section->mutex);
}

extern "C" void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    pthread_mutex_destroy(&section->mutex);
}
} // namespace sndxposix
