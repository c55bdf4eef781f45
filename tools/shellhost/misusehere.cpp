#include "tools/shellhost/misuse.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <windows.h>

#ifndef _WIN32
#include <sys/prctl.h>
#endif

namespace sndxtools
{
namespace
{
#ifdef _WIN32
LONG WINAPI EndAtOnce(EXCEPTION_POINTERS*)
{
    return EXCEPTION_EXECUTE_HANDLER;
}

// The process ends with the exception's code; no dialog and no debugger come up.
void EndQuietly()
{
    SetUnhandledExceptionFilter(&EndAtOnce);
}
#else
// No memory image is left behind.
void EndQuietly()
{
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}
#endif

// Takes memory from the runtime until one of the blocks covers the address, which must have been released
// just before: nothing else may allocate in between. The runtime keeps released blocks by size, so the sizes
// that a small object with its tracking record can have are tried, from the largest: a smaller request could
// split the block. What was taken is kept until the process ends.
bool FetchBack(const void* released)
{
    constexpr std::size_t step = 16;
    constexpr std::size_t sizes = 16;
    constexpr std::size_t blocksOfASize = 64;
    static void* taken[sizes * blocksOfASize];
    const auto address = reinterpret_cast<std::uintptr_t>(released);
    for (std::size_t i = 0; i < sizes * blocksOfASize; ++i)
    {
        const std::size_t size = (sizes - i / blocksOfASize) * step;
        taken[i] = std::malloc(size);
        const auto begin = reinterpret_cast<std::uintptr_t>(taken[i]);
        if (begin <= address && address - begin < size)
        {
            return true;
        }
    }
    return false;
}
} // namespace

int CommitMisuse(Host& host, Misuse misuse, std::ostream& out)
{
    EndQuietly();
    // A class factory is the module's smallest object and owns no other block.
    ComRef<IClassFactory> holder = host.LoadedModule().ClassFactory(contextMenuClass);
    IClassFactory* const object = holder.Get();
    object->AddRef();
    holder.Reset();
    void* table = nullptr;
    std::memcpy(&table, static_cast<void*>(object), sizeof table);
    const ULONG left = object->Release();
    const bool fetched = FetchBack(object);
    out << "The only reference is released: Release answers " << left << ", the object has ended.\n";
    if (!fetched)
    {
        out << "The runtime does not hand out its memory again (memory mode 5, or it holds released memory\n"
            << "back). Going on would touch memory of others; it is left at that.\n";
        return exitRefused;
    }
    if (misuse == Misuse::doubleRelease)
    {
        std::memcpy(static_cast<void*>(object), &table, sizeof table);
        out << "Its function table is put back and a reference is taken: AddRef answers " << object->AddRef()
            << ".\n";
    }
    out << "Now it is released once more.\n" << std::flush;
    out << "Release answers " << object->Release() << "; the process carries on.\n";
    return exitAnswered;
}
} // namespace sndxtools
