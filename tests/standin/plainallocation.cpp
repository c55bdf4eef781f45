// Stand-in for the module's allocation operators in programs that link product code directly: the tracking
// form takes plain memory and delete stays the runtime's, because the test framework's own blocks are not the
// tracker's. FailAllocation makes tracked allocations fail.

#include <new>

#include "gen/debug.h"
#include "tests/standin/plainallocation.h"

namespace
{
int g_untilFailure = -1; // allocations before the failing one; -1 for none
int g_failures = 0;
int g_allocations = 0;

bool Fails()
{
    ++g_allocations;
    if (g_failures > 0 && g_untilFailure == 0)
    {
        --g_failures;
        return true;
    }
    g_untilFailure -= g_untilFailure > 0 ? 1 : 0;
    return false;
}
} // namespace

void sndxtest::FailAllocation(int after, int count)
{
    g_untilFailure = after;
    g_failures = count;
}

int sndxtest::AllocationCount()
{
    return g_allocations;
}

void* operator new(std::size_t size, const char*, const char*, std::int32_t) noexcept
{
    return Fails() ? nullptr : ::operator new(size, std::nothrow);
}

void* operator new[](std::size_t size, const char*, const char*, std::int32_t) noexcept
{
    return Fails() ? nullptr : ::operator new[](size, std::nothrow);
}

void operator delete(void* p, const char*, const char*, std::int32_t) noexcept
{
    ::operator delete(p);
}

void operator delete[](void* p, const char*, const char*, std::int32_t) noexcept
{
    ::operator delete[](p);
}

void LDebugHeapIgnoreLeak(void*, std::size_t) {}
