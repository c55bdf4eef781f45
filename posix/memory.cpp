// Virtual memory over mmap and mprotect, and the process heap.

#include "sndx/memory.h"

#include "posix/guarded.h"
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

bool Fail(DWORD code)
{
    SetLastError(code);
    return false;
}

// False with the last error set when the process has no descriptor left to look with.
bool FindRegion(std::uintptr_t page, MEMORY_BASIC_INFORMATION& information)
{
    MappingReader reader;
    if (!reader.IsOpen())
    {
        return Fail(ErrorFromErrno(errno));
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
        information.Type = mapping.rights[3] == 's' ? MEM_MAPPED : mapping.isFile ? MEM_IMAGE : MEM_PRIVATE;
        return true;
    }
    return true;
}

// Sizes of the reservations made by VirtualAlloc, which VirtualFree does not get told.
struct Reservations
{
    std::mutex mutex;
    std::map<std::uintptr_t, std::size_t> sizes;
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
        SetLastError(isUserSpace ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_PARAMETER);
        return 0;
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
        return Fail(ERROR_NOACCESS);
    }
    if (rights < 0 || !ToPages(address, size, begin, length))
    {
        return Fail(rights < 0 ? ERROR_INVALID_PARAMETER : ERROR_INVALID_ADDRESS);
    }
    MEMORY_BASIC_INFORMATION old;
    if (!FindRegion(begin, old))
    {
        return FALSE;
    }
    if (old.State != MEM_COMMIT || mprotect(old.BaseAddress, length, rights) != 0)
    {
        return Fail(old.State == MEM_COMMIT && errno != ENOMEM ? ErrorFromErrno(errno)
                                                               : ERROR_INVALID_ADDRESS);
    }
    *oldProtection = old.Protect;
    return TRUE;
}

extern "C" LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection)
{
    const auto body = [&]() -> LPVOID
    {
        if (FailNextCall("VirtualAlloc"))
        {
            return nullptr;
        }
        const int rights = RightsOf(protection);
        std::uintptr_t begin = 0;
        std::size_t length = 0;
        if (rights < 0 || (type & (MEM_COMMIT | MEM_RESERVE)) == 0 || !ToPages(address, size, begin, length))
        {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        Reservations& reservations = TheReservations();
        const std::lock_guard lock(reservations.mutex);
        if (address != nullptr && (type & MEM_RESERVE) == 0)
        {
            const auto next = reservations.sizes.upper_bound(begin);
            const auto found =
                next == reservations.sizes.begin() ? reservations.sizes.end() : std::prev(next);
            if (found == reservations.sizes.end() || begin + length > found->first + found->second ||
                mprotect(reinterpret_cast<void*>(begin), length, rights) != 0)
            {
                SetLastError(ERROR_INVALID_ADDRESS);
                return nullptr;
            }
            return reinterpret_cast<LPVOID>(begin);
        }
        void* const block =
            mmap(address == nullptr ? nullptr : reinterpret_cast<void*>(begin), length,
                 (type & MEM_COMMIT) != 0 ? rights : PROT_NONE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | (address == nullptr ? 0 : MAP_FIXED_NOREPLACE),
                 -1, 0);
        if (block == MAP_FAILED)
        {
            SetLastError(errno == EEXIST ? ERROR_INVALID_ADDRESS : ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        reservations.sizes[reinterpret_cast<std::uintptr_t>(block)] = length;
        return block;
    };
    return Guarded(LPVOID{}, body);
}

extern "C" BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type)
{
    if (FailNextCall("VirtualFree"))
    {
        return FALSE;
    }
    Reservations& reservations = TheReservations();
    const std::lock_guard lock(reservations.mutex);
    if (type == MEM_RELEASE)
    {
        const auto found = reservations.sizes.find(reinterpret_cast<std::uintptr_t>(address));
        if (size != 0 || found == reservations.sizes.end())
        {
            return Fail(size != 0 ? ERROR_INVALID_PARAMETER : ERROR_INVALID_ADDRESS);
        }
        munmap(address, found->second);
        reservations.sizes.erase(found);
        return TRUE;
    }
    std::uintptr_t begin = 0;
    std::size_t length = 0;
    if (type != MEM_DECOMMIT || !ToPages(address, size, begin, length))
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    // The pages' contents go, the address range stays.
    void* const block = mmap(reinterpret_cast<void*>(begin), length, PROT_NONE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
    return block != MAP_FAILED || Fail(ErrorFromErrno(errno));
}

extern "C" void* _aligned_malloc(std::size_t size, std::size_t alignment)
{
    if (FailNextCall("_aligned_malloc"))
    {
        return nullptr;
    }
    if (alignment == 0 || (alignment & (alignment - 1)) != 0)
    {
        errno = EINVAL;
        return nullptr;
    }
    void* block = nullptr;
    const int error = posix_memalign(&block, std::max(alignment, sizeof(void*)), size);
    if (error != 0)
    {
        errno = error;
        return nullptr;
    }
    return block;
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
    // No size is too small for a block of its own.
    const SIZE_T bytes = size == 0 ? 1 : size;
    return (flags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, bytes) : std::malloc(bytes);
}

extern "C" BOOL WINAPI HeapFree(HANDLE heap, DWORD /*flags*/, LPVOID block)
{
    if (FailNextCall("HeapFree"))
    {
        return FALSE;
    }
    if (heap != GetProcessHeap())
    {
        return Fail(ERROR_INVALID_HANDLE);
    }
    std::free(block);
    return TRUE;
}

extern "C" void WINAPI DebugBreak()
{
    std::raise(SIGTRAP);
}
