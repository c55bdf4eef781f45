#pragma once
// The runtime's heap as the module uses it, from its first constructor on: every block it takes and gives
// back, and the choice of one request that fails. The pointers through which the module calls the functions
// that it imports are overwritten, for this process only, before its first line of code runs.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <malloc.h>

#include <gtest/gtest.h>

#include <windows.h>

#ifdef _WIN32
#include <winternl.h>
#else
#include <dlfcn.h>
#include <link.h>
#endif

#include "tests/support/text.h"

namespace sndxtest
{
// Where a module's tables of imports are found.
#ifdef _WIN32
using MappedModule = HMODULE;
#else
using MappedModule = const link_map*;
#endif

inline void ReplaceImport(MappedModule image, const std::string& name, void* replacement)
{
    const auto overwrite = [replacement](void* slot)
    {
        DWORD before = 0;
        VirtualProtect(slot, sizeof replacement, PAGE_READWRITE, &before);
        std::memcpy(slot, &replacement, sizeof replacement);
    };
#ifdef _WIN32
    auto* const base = reinterpret_cast<BYTE*>(image);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const DWORD at = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* from = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + at); from->Name != 0; ++from)
    {
        const auto* imported = reinterpret_cast<const ULONG_PTR*>(base + from->OriginalFirstThunk);
        auto* slot = reinterpret_cast<void**>(base + from->FirstThunk);
        for (; *imported != 0; ++imported, ++slot) // none by ordinal alone
        {
            if (name == reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + *imported)->Name)
            {
                overwrite(slot);
            }
        }
    }
#else
    std::map<ElfW(Sxword), ElfW(Addr)> tables;
    for (const ElfW(Dyn)* entry = image->l_ld; entry->d_tag != DT_NULL; ++entry)
    {
        tables[entry->d_tag] = entry->d_un.d_ptr;
    }
    const auto* const symbols = reinterpret_cast<const ElfW(Sym)*>(tables[DT_SYMTAB]);
    const auto* const names = reinterpret_cast<const char*>(tables[DT_STRTAB]);
    // Relocations of data and of calls.
    for (const auto& [table, size] : {std::pair{DT_RELA, DT_RELASZ}, std::pair{DT_JMPREL, DT_PLTRELSZ}})
    {
        const auto* const first = reinterpret_cast<const ElfW(Rela)*>(tables[table]);
        for (std::size_t i = 0; i < tables[size] / sizeof *first; ++i)
        {
            if (name == names + symbols[ELF64_R_SYM(first[i].r_info)].st_name)
            {
                overwrite(reinterpret_cast<void*>(image->l_addr + first[i].r_offset));
            }
        }
    }
#endif
}

#ifdef _WIN32
// What the loader tells of a module: the system's headers do not have it.
struct LoadedModule
{
    ULONG flags;
    const UNICODE_STRING* path;
    const UNICODE_STRING* name;
    void* base;
    ULONG size;
};
using LoadNotification = void CALLBACK(ULONG reason, const LoadedModule*, void* context);
extern "C" NTSTATUS NTAPI LdrRegisterDllNotification(ULONG flags, LoadNotification*, void* context,
                                                     void** cookie);
extern "C" NTSTATUS NTAPI LdrUnregisterDllNotification(void* cookie);
#endif

// Watches the module that is loaded during its life. One at a time.
class ModuleHeap
{
  public:
    // The request number `failing`, counted from 1, gets nothing; 0 for none.
    explicit ModuleHeap(const std::string& fileName, std::size_t failing = 0)
    {
        state_ = {fileName, failing, 0, {}, {}};
        mostInside_ = 0;
#ifdef _WIN32
        LdrRegisterDllNotification(0, &Notify, nullptr, &cookie_);
#endif
    }
    ~ModuleHeap()
    {
#ifdef _WIN32
        LdrUnregisterDllNotification(cookie_);
#endif
        state_.awaited.clear();
    }
    ModuleHeap(const ModuleHeap&) = delete;
    ModuleHeap& operator=(const ModuleHeap&) = delete;

    static std::size_t Requests()
    {
        return state_.requests;
    }
    static bool HasFailed()
    {
        return !state_.failed.empty();
    }
    // The failed request, for messages.
    static const std::string& Failed()
    {
        return state_.failed;
    }
    // Threads of the module that were inside the runtime's functions at a time.
    static std::size_t MostInside()
    {
        return mostInside_;
    }
    // Blocks taken with the function and not yet given back, or all of them.
    static std::size_t Live(const std::string& taker = {})
    {
        return static_cast<std::size_t>(
            std::count_if(state_.live.begin(), state_.live.end(),
                          [&](const auto& block) { return taker.empty() || block.second.taker == taker; }));
    }
    // Gives back blocks that the unloaded module has left behind.
    static void ReleaseLive()
    {
        for (const auto& block : std::exchange(state_.live, {}))
        {
            block.second.release(block.first);
        }
    }
#ifndef _WIN32
    // The first thing that the module's first constructor does is to make a lock: see below.
    static void LockIsMade(const void* caller)
    {
        Dl_info symbol;
        link_map* image = nullptr;
        if (!state_.awaited.empty() &&
            dladdr1(caller, &symbol, reinterpret_cast<void**>(&image), RTLD_DL_LINKMAP) != 0 &&
            std::string(image->l_name).ends_with("/" + state_.awaited))
        {
            state_.awaited.clear();
            Install(image);
        }
    }
#endif

  private:
    using Release = void (*)(void*);
    struct Block
    {
        std::string taker;
        Release release; // the one right way
    };
    struct State
    {
        std::string awaited; // the module's file name
        std::size_t failing;
        std::size_t requests;
        std::string failed;
        std::map<void*, Block> live;
    };

#ifdef _WIN32
    static void CALLBACK Notify(ULONG reason, const LoadedModule* module, void*)
    {
        constexpr ULONG loaded = 1;
        if (reason == loaded && lstrcmpiW(module->name->Buffer, Wide(state_.awaited).c_str()) == 0)
        {
            Install(static_cast<HMODULE>(module->base));
        }
    }
#endif

    static void Install(MappedModule image)
    {
        const std::pair<const char*, void*> functions[] = {
            {"malloc", reinterpret_cast<void*>(&Malloc)},
            {"calloc", reinterpret_cast<void*>(&Calloc)},
            {"free", reinterpret_cast<void*>(&GiveBack<&std::free>)},
            {"_aligned_malloc", reinterpret_cast<void*>(&AlignedMalloc)},
            {"_aligned_free", reinterpret_cast<void*>(&GiveBack<&_aligned_free>)},
            {"HeapAlloc", reinterpret_cast<void*>(&ProcessHeapAlloc)},
            {"HeapFree", reinterpret_cast<void*>(&ProcessHeapFree)},
        };
        for (const auto& [name, replacement] : functions)
        {
            ReplaceImport(image, name, replacement);
        }
    }

    // One thread inside the runtime's functions, and the use of the state above.
    class Visit
    {
      public:
        Visit()
        {
            const std::size_t now = ++inside_;
            mostInside_ = std::max<std::size_t>(mostInside_, now);
            std::this_thread::yield(); // whoever can come in shall
            mutex_.lock();
        }
        ~Visit()
        {
            mutex_.unlock();
            --inside_;
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

      private:
        inline static std::atomic<std::size_t> inside_ = 0;
        inline static std::mutex mutex_;
    };

    template <class Take>
    static void* Request(const char* taker, std::size_t size, Release release, Take take)
    {
        const Visit visit;
        if (++state_.requests == state_.failing)
        {
            state_.failed = std::string(taker) + " of " + std::to_string(size) + " bytes";
            return nullptr;
        }
        void* const block = take();
        state_.live[block] = {taker, release};
        return block;
    }
    static void* __cdecl Malloc(std::size_t size)
    {
        return Request("malloc", size, &std::free, [=] { return std::malloc(size); });
    }
    static void* __cdecl Calloc(std::size_t count, std::size_t size)
    {
        return Request("calloc", count * size, &std::free, [=] { return std::calloc(count, size); });
    }
    static void* __cdecl AlignedMalloc(std::size_t size, std::size_t alignment)
    {
        return Request("_aligned_malloc", size, &_aligned_free,
                       [=] { return _aligned_malloc(size, alignment); });
    }
    static void* WINAPI ProcessHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
    {
        return Request("HeapAlloc", size, &FreeToProcessHeap, [=] { return HeapAlloc(heap, flags, size); });
    }

    // Only blocks of the module, and each the way it was taken; anything else would be the end of a host.
    template <Release release>
    static void __cdecl GiveBack(void* block)
    {
        const Visit visit;
        const auto found = state_.live.find(block);
        if (block == nullptr || found == state_.live.end())
        {
            EXPECT_EQ(block, nullptr) << "not a block of the module, or no longer";
            return;
        }
        EXPECT_EQ(release, found->second.release) << "not the way to give back " << found->second.taker;
        const Release right = found->second.release;
        state_.live.erase(found);
        right(block);
    }
    static BOOL WINAPI ProcessHeapFree(HANDLE, DWORD, LPVOID block)
    {
        GiveBack<&FreeToProcessHeap>(block);
        return TRUE;
    }
    static void FreeToProcessHeap(void* block)
    {
        HeapFree(GetProcessHeap(), 0, block);
    }

    inline static State state_{};
    inline static std::atomic<std::size_t> mostInside_ = 0;
#ifdef _WIN32
    void* cookie_ = nullptr;
#endif
};
} // namespace sndxtest

#ifndef _WIN32
// Stands in front of the layer's own function in every test of this program and calls it.
extern "C" inline __attribute__((used)) BOOL WINAPI InitializeCriticalSectionEx(CRITICAL_SECTION* section,
                                                                                DWORD spins, DWORD flags)
{
    sndxtest::ModuleHeap::LockIsMade(__builtin_return_address(0));
    static void* const next = dlsym(RTLD_NEXT, "InitializeCriticalSectionEx");
    return reinterpret_cast<decltype(&InitializeCriticalSectionEx)>(next)(section, spins, flags);
}
#endif
