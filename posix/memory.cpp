// Virtual memory over mmap and mprotect, and the process heap.

#include "sndx/memory.h"

#include "posix/internal.h"
#include "posix/mappings.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <mutex>

#include <sys/mman.h>
#include <unistd.h>

using namespace sndxposix;

namespace
{
const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
// Addresses from here on belong to the kernel.
constexpr std::uintptr_t endOfUserSpace = 0x7FFFFFFFF000;

std::uintptr_t PageOf(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address) & ~(pageSize - 1);
}

DWORD ProtectionOf(const Mapping& mapping)
{
    const bool executes = mapping.rights[2] == 'x';
    if (mapping.rights[1] == 'w')
    {
        return executes ? PAGE_EXECUTE_READWRITE : PAGE_READWRITE;
    }
    if (mapping.rights[0] == 'r')
    {
        return executes ? PAGE_EXECUTE_READ : PAGE_READONLY;
    }
    return executes ? PAGE_EXECUTE : PAGE_NOACCESS;
}

// The bits for mprotect; -1 for a protection that does not exist here.
int RightsOf(DWORD protection)
{
    switch (protection)
    {
    case PAGE_NOACCESS:
        return PROT_NONE;
    case PAGE_READONLY:
        return PROT_READ;
    case PAGE_READWRITE:
        return PROT_READ | PROT_WRITE;
    case PAGE_EXECUTE:
        return PROT_EXEC;
    case PAGE_EXECUTE_READ:
        return PROT_READ | PROT_EXEC;
    case PAGE_EXECUTE_READWRITE:
        return PROT_READ | PROT_WRITE | PROT_EXEC;
    default:
        return -1;
    }
}

// False with the last error set when the process has no descriptor left to look with.
bool FindRegion(std::uintptr_t page, MEMORY_BASIC_INFORMATION& information)
{
    MappingReader reader;
    if (!reader.IsOpen())
    {
        return FailWith(ErrorFromErrno(errno));
    }
    information = {};
    information.BaseAddress = reinterpret_cast<PVOID>(page);
    information.State = MEM_FREE;
    information.Protect = PAGE_NOACCESS;
    information.RegionSize = endOfUserSpace - page;
    for (Mapping mapping; reader.Next(mapping);)
    {
        if (page >= mapping.end)
        {
            continue;
        }
        if (page < mapping.begin)
        {
            information.RegionSize = std::min(mapping.begin, endOfUserSpace) - page; // free up to there
            return true;
        }
        information.AllocationBase = reinterpret_cast<PVOID>(mapping.begin);
        information.RegionSize = mapping.end - page;
        information.State = MEM_COMMIT;
        information.Protect = ProtectionOf(mapping);
        information.AllocationProtect = information.Protect;
        return true;
    }
    return true;
}

// Sizes of what VirtualAlloc has given, which VirtualFree does not get told.
struct Reservations
{
    std::mutex mutex;
    std::map<void*, std::size_t> sizes;
};

// Never destroyed: modules release memory in their static destructors.
Reservations& TheReservations()
{
    static Reservations& reservations = *new Reservations;
    return reservations;
}

// Rounds a range up to whole pages. False for an empty range and one that leaves the user's space.
bool ToPages(const void* address, std::size_t size, std::uintptr_t& begin, std::size_t& length)
{
    begin = PageOf(address);
    const auto first = reinterpret_cast<std::uintptr_t>(address);
    if (size == 0 || first >= endOfUserSpace || size > endOfUserSpace - first)
    {
        return false;
    }
    length = (first + size - begin + pageSize - 1) & ~(pageSize - 1);
    return true;
}
} // namespace

extern "C" SIZE_T WINAPI VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION* information, SIZE_T size)
{
    if (FailNextCall("VirtualQuery"))
    {
        return 0;
    }
    const int savedErrno = errno; // the product asks in the middle of anything
    const bool isUserSpace = reinterpret_cast<std::uintptr_t>(address) < endOfUserSpace;
    if (size < sizeof *information || !isUserSpace)
    {
        return FailWith(isUserSpace ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_PARAMETER, SIZE_T{0});
    }
    const bool found = FindRegion(PageOf(address), *information);
    errno = savedErrno;
    return found ? sizeof *information : 0;
}

extern "C" BOOL WINAPI VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, PDWORD oldProtection)
{
    if (FailNextCall("VirtualProtect"))
    {
        return FALSE;
    }
    const int rights = RightsOf(protection);
    std::uintptr_t begin = 0;
    std::size_t length = 0;
    if (oldProtection == nullptr)
    {
        return FailWith(ERROR_NOACCESS);
    }
    if (rights < 0 || !ToPages(address, size, begin, length))
    {
        return FailWith(rights < 0 ? ERROR_INVALID_PARAMETER : ERROR_INVALID_ADDRESS);
    }
    MEMORY_BASIC_INFORMATION old;
    if (!FindRegion(begin, old))
    {
        return FALSE;
    }
    if (old.State != MEM_COMMIT || mprotect(old.BaseAddress, length, rights) != 0)
    {
        return FailWith(old.State == MEM_COMMIT && errno != ENOMEM ? ErrorFromErrno(errno)
                                                                   : ERROR_INVALID_ADDRESS);
    }
    *oldProtection = old.Protect;
    return TRUE;
}

extern "C" LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection)
{
    const auto body = [&]() -> LPVOID
    {
        const int rights = RightsOf(protection);
        std::uintptr_t begin = 0;
        std::size_t length = 0;
        if (address != nullptr || (type & MEM_RESERVE) == 0 || rights < 0 ||
            !ToPages(address, size, begin, length))
        {
            return FailWith(ERROR_INVALID_PARAMETER, nullptr);
        }
        void* const block = mmap(nullptr, length, (type & MEM_COMMIT) != 0 ? rights : PROT_NONE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (block == MAP_FAILED)
        {
            return FailWith(ERROR_NOT_ENOUGH_MEMORY, nullptr);
        }
        Reservations& reservations = TheReservations();
        const std::lock_guard lock(reservations.mutex);
        reservations.sizes[block] = length;
        return block;
    };
    return Guarded(LPVOID{}, body);
}

extern "C" BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type)
{
    Reservations& reservations = TheReservations();
    const std::lock_guard lock(reservations.mutex);
    const auto found = reservations.sizes.find(address);
    if (size != 0 || type != MEM_RELEASE || found == reservations.sizes.end())
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    munmap(address, found->second);
    reservations.sizes.erase(found);
    return TRUE;
}

extern "C" void* _aligned_malloc(std::size_t size, std::size_t alignment)
{
    void* block = nullptr;
    return !FailNextCall("_aligned_malloc") &&
                   posix_memalign(&block, std::max(alignment, sizeof(void*)), size) == 0
               ? block
               : nullptr;
}

extern "C" void _aligned_free(void* block)
{
    std::free(block);
}

extern "C" HANDLE WINAPI GetProcessHeap()
{
    // The heap is the C library's; its handle need only be recognisable.
    static char heap;
    return &heap;
}

extern "C" LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
{
    if (FailNextCall("HeapAlloc") || heap != GetProcessHeap())
    {
        return nullptr;
    }
    return (flags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, size) : std::malloc(size);
}

extern "C" BOOL WINAPI HeapFree(HANDLE heap, DWORD /*flags*/, LPVOID block)
{
    if (heap != GetProcessHeap())
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    std::free(block);
    return TRUE;
}

extern "C" void WINAPI DebugBreak()
{
    std::raise(SIGTRAP);
}
