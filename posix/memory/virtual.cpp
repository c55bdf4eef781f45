// Virtual memory over mmap and mprotect.

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <map>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/descriptor.h"
#include "posix/base/locked.h"
#include "sndx/memory.h"

namespace sndxposix
{
namespace
{
const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
// Addresses from here on belong to the kernel.
constexpr std::uintptr_t endOfUserSpace = 0x7FFFFFFFF000;

std::uintptr_t PageOf(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address) & ~(pageSize - 1);
}

// The protections that exist here. Writing without reading does not: the first entry that covers the rights
// shown by the system is the mapping's protection.
constexpr struct
{
    DWORD protection;
    int rights; // bits for mprotect
} protections[] = {
    {PAGE_NOACCESS, PROT_NONE},
    {PAGE_READONLY, PROT_READ},
    {PAGE_READWRITE, PROT_READ | PROT_WRITE},
    {PAGE_EXECUTE_READ, PROT_READ | PROT_EXEC},
    {PAGE_EXECUTE_READWRITE, PROT_READ | PROT_WRITE | PROT_EXEC},
};

// -1 for a protection that does not exist here.
int RightsOf(DWORD protection)
{
    const auto* const found = std::find_if(std::begin(protections), std::end(protections),
                                           [&](const auto& each) { return each.protection == protection; });
    return found == std::end(protections) ? -1 : found->rights;
}

DWORD ProtectionOf(int rights)
{
    return std::find_if(std::begin(protections), std::end(protections),
                        [&](const auto& each) { return (rights & ~each.rights) == 0; })
        ->protection;
}

struct Mapping
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    int rights = 0;
};

// One line of /proc/self/maps: "7f12a000-7f12b000 rw-p 00000000 08:01 1234   /path".
Mapping ParseMapping(std::string_view line)
{
    Mapping mapping;
    const char* const end = line.data() + line.size();
    const char* at = std::from_chars(line.data(), end, mapping.begin, 16).ptr;
    at = std::from_chars(std::min(at + 1, end), end, mapping.end, 16).ptr;
    const std::string_view rights(at, static_cast<std::size_t>(end - at));
    mapping.rights = (rights.starts_with(" r") ? PROT_READ : 0) |
                     (rights.substr(0, 3).ends_with('w') ? PROT_WRITE : 0) |
                     (rights.substr(0, 4).ends_with('x') ? PROT_EXEC : 0);
    return mapping;
}

// The first mapping that ends behind the address; one without length when there is none. False with the last
// error set when the process has no descriptor left to look with. Takes nothing from the heap: it is called
// inside allocations and checks.
bool FindMapping(std::uintptr_t address, Mapping& mapping)
{
    mapping = {};
    const Descriptor file(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen())
    {
        return FailWithErrno();
    }
    char buffer[8192]; // more than the longest line
    std::size_t filled = 0;
    for (;;)
    {
        const ssize_t count = TEMP_FAILURE_RETRY(read(file.Get(), buffer + filled, sizeof buffer - filled));
        if (count <= 0)
        {
            return true;
        }
        std::string_view rest(buffer, filled + static_cast<std::size_t>(count));
        for (std::size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1))
        {
            const Mapping found = ParseMapping(rest.substr(0, end));
            if (address < found.end)
            {
                mapping = found;
                return true;
            }
        }
        filled = rest.size();
        std::memmove(buffer, rest.data(), filled);
    }
}

bool FindRegion(std::uintptr_t page, MEMORY_BASIC_INFORMATION& information)
{
    Mapping mapping;
    if (!FindMapping(page, mapping))
    {
        return false;
    }
    const bool isMapped = mapping.begin <= page && page < mapping.end;
    const std::uintptr_t end = isMapped ? mapping.end : mapping.end != 0 ? mapping.begin : endOfUserSpace;
    information.BaseAddress = reinterpret_cast<PVOID>(page);
    information.RegionSize = std::min(end, endOfUserSpace) - page;
    information.State = isMapped ? MEM_COMMIT : MEM_FREE;
    information.Protect = isMapped ? ProtectionOf(mapping.rights) : PAGE_NOACCESS;
    return true;
}

// Sizes of what VirtualAlloc has given, which VirtualFree does not get told.
using Reservations = std::map<void*, std::size_t>;

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
    if (FailNextCall("VirtualQuery", {{information, size}}))
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
    if (FailNextCall("VirtualProtect", {oldProtection}))
    {
        return FALSE;
    }
    const int rights = RightsOf(protection);
    std::uintptr_t begin = 0;
    std::size_t length = 0;
    if (rights < 0 || oldProtection == nullptr)
    {
        return FailWith(rights < 0 ? ERROR_INVALID_PARAMETER : ERROR_NOACCESS);
    }
    MEMORY_BASIC_INFORMATION old;
    if (!ToPages(address, size, begin, length))
    {
        return FailWith(ERROR_INVALID_ADDRESS);
    }
    if (!FindRegion(begin, old))
    {
        return FALSE;
    }
    if (old.State != MEM_COMMIT || mprotect(old.BaseAddress, length, rights) != 0)
    {
        const bool isHole = old.State != MEM_COMMIT || errno == ENOMEM;
        return isHole ? FailWith(ERROR_INVALID_ADDRESS) : FailWithErrno();
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
        (*Locked<Reservations>())[block] = length;
        CountLive(1);
        return block;
    };
    return Call("VirtualAlloc", LPVOID{}, body);
}

extern "C" BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type)
{
    const bool isWhole = size == 0 && type == MEM_RELEASE;
    const auto found = isWhole ? Locked<Reservations>()->extract(address) : Reservations::node_type();
    CountLive(found.empty() ? 0 : -1);
    return !found.empty() ? munmap(address, found.mapped()) == 0 : FailWith(ERROR_INVALID_PARAMETER);
}
} // namespace sndxposix
