#pragma once
// Stand-ins for functions that the module imports, from its first line of code on: the pointers through which
// it calls them are overwritten, for this process only.

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

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

// Works on the module that is loaded during its life. One at a time.
class ModuleImports
{
  public:
    using StandIns = std::vector<std::pair<std::string, void*>>; // by the functions' names

    ModuleImports(const std::string& fileName, StandIns standIns)
    {
        awaited_ = fileName;
        standIns_ = std::move(standIns);
#ifdef _WIN32
        LdrRegisterDllNotification(0, &Notify, nullptr, &cookie_);
#endif
    }
    ~ModuleImports()
    {
#ifdef _WIN32
        LdrUnregisterDllNotification(cookie_);
#endif
        awaited_.clear();
    }
    ModuleImports(const ModuleImports&) = delete;
    ModuleImports& operator=(const ModuleImports&) = delete;

#ifndef _WIN32
    // The first thing that the module's first constructor does is to make a lock: see below.
    static void LockIsMade(const void* caller)
    {
        Dl_info symbol;
        link_map* image = nullptr;
        if (!awaited_.empty() &&
            dladdr1(caller, &symbol, reinterpret_cast<void**>(&image), RTLD_DL_LINKMAP) != 0 &&
            std::string(image->l_name).ends_with("/" + awaited_))
        {
            awaited_.clear();
            Install(image);
        }
    }
#endif

  private:
#ifdef _WIN32
    static void CALLBACK Notify(ULONG reason, const LoadedModule* module, void*)
    {
        constexpr ULONG loaded = 1;
        if (reason == loaded && lstrcmpiW(module->name->Buffer, Wide(awaited_).c_str()) == 0)
        {
            Install(static_cast<HMODULE>(module->base));
        }
    }
#endif
    static void Install(MappedModule image)
    {
        for (const auto& [name, standIn] : standIns_)
        {
            ReplaceImport(image, name, standIn);
        }
    }

    inline static std::string awaited_; // the module's file name
    inline static StandIns standIns_;
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
    sndxtest::ModuleImports::LockIsMade(__builtin_return_address(0));
    static void* const next = dlsym(RTLD_NEXT, "InitializeCriticalSectionEx");
    return reinterpret_cast<decltype(&InitializeCriticalSectionEx)>(next)(section, spins, flags);
}
#endif
