// The allocation operators of the module, on top of the tracker. They stay inside the module: its export
// table names the four entry points only, so the host's and other modules' operators are not touched. Test
// programs have a plain stand-in for this file: a test framework's own blocks are not the tracker's.

#include <stdlib.h>

#include "diag/heap.h"
#include "gen/debug.h"

void* operator new(std::size_t uSize, const char* szFile, const char* szFunction, std::int32_t nLine) noexcept
{
    const LDebugHeapLock lock;
    return LMemAllocation::Record(uSize, szFile, szFunction, nLine, false);
}

void* operator new[](std::size_t uSize, const char* szFile, const char* szFunction,
                     std::int32_t nLine) noexcept
{
    const LDebugHeapLock lock;
    return LMemAllocation::Record(uSize, szFile, szFunction, nLine, true);
}

void operator delete(void* p) noexcept
{
    LDebugHeapRelease(p, false);
}

void operator delete[](void* p) noexcept
{
    LDebugHeapRelease(p, true);
}

void operator delete(void* p, const char*, const char*, std::int32_t) noexcept
{
    operator delete(p);
}

void operator delete[](void* p, const char*, const char*, std::int32_t) noexcept
{
    operator delete[](p);
}

// Where a pure virtual function's place points before a constructor and after a destructor; some compilers
// leave it to the runtime, of which the module has none.
extern "C" void __cxa_pure_virtual()
{
    abort();
}

void LDebugHeapIgnoreLeak(void* p, std::size_t)
{
    LMemAllocation::IgnoreLeak(p);
}
