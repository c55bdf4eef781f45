#pragma once
// Replaces functions that the loaded module imports, for this process only: the pointers through which the
// module calls them are overwritten. On request even before the module's first line of code runs.

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

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
// Visits (name, slot) for every imported function.
#ifdef _WIN32
template <class Visit>
void ForEachImport(void* image, Visit visit)
{
    auto* const base = static_cast<BYTE*>(image);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const DWORD at = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* from = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + at); from->Name != 0; ++from)
    {
        auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + from->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++slot)
        {
            if (!IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
            {
                const auto* byName =
                    reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
                visit(reinterpret_cast<const char*>(byName->Name), reinterpret_cast<void**>(slot));
            }
        }
    }
}
#else
struct ImportTables
{
    ElfW(Addr) base = 0;
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    struct
    {
        const ElfW(Rela) * first = nullptr;
        std::size_t bytes = 0;
    } relocations[2]; // of data, of calls
};

inline ImportTables FindImportTables(void* image)
{
    ImportTables tables;
    tables.base = reinterpret_cast<ElfW(Addr)>(image);
    dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* result)
        {
            auto& found = *static_cast<ImportTables*>(result);
            for (int i = 0; object->dlpi_addr == found.base && i < object->dlpi_phnum; ++i)
            {
                if (object->dlpi_phdr[i].p_type != PT_DYNAMIC)
                {
                    continue;
                }
                const auto* entry =
                    reinterpret_cast<const ElfW(Dyn)*>(found.base + object->dlpi_phdr[i].p_vaddr);
                for (; entry->d_tag != DT_NULL; ++entry)
                {
                    const auto* const table = reinterpret_cast<const void*>(entry->d_un.d_ptr);
                    switch (entry->d_tag)
                    {
                    case DT_SYMTAB:
                        found.symbols = static_cast<const ElfW(Sym)*>(table);
                        break;
                    case DT_STRTAB:
                        found.names = static_cast<const char*>(table);
                        break;
                    case DT_RELA:
                        found.relocations[0].first = static_cast<const ElfW(Rela)*>(table);
                        break;
                    case DT_RELASZ:
                        found.relocations[0].bytes = entry->d_un.d_val;
                        break;
                    case DT_JMPREL:
                        found.relocations[1].first = static_cast<const ElfW(Rela)*>(table);
                        break;
                    case DT_PLTRELSZ:
                        found.relocations[1].bytes = entry->d_un.d_val;
                        break;
                    default:
                        break;
                    }
                }
            }
            return 0;
        },
        &tables);
    return tables;
}

template <class Visit>
void ForEachImport(void* image, Visit visit)
{
    const ImportTables tables = FindImportTables(image);
    for (const auto& relocations : tables.relocations)
    {
        for (std::size_t i = 0; i < relocations.bytes / sizeof(ElfW(Rela)); ++i)
        {
            const ElfW(Rela)& relocation = relocations.first[i];
            const ElfW(Sym)& symbol = tables.symbols[ELF64_R_SYM(relocation.r_info)];
            visit(tables.names + symbol.st_name, reinterpret_cast<void**>(tables.base + relocation.r_offset));
        }
    }
}
#endif

// False when the module does not import the function.
inline bool ReplaceImport(HMODULE module, const char* name, void* replacement)
{
    bool replaced = false;
    ForEachImport(module,
                  [&](const char* imported, void** slot)
                  {
                      if (std::strcmp(imported, name) == 0)
                      {
                          DWORD before = 0;
                          VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &before);
                          std::memcpy(slot, &replacement, sizeof replacement);
                          replaced = true;
                      }
                  });
    return replaced;
}

// Calls a function with the module's handle when the module has been mapped and linked, and none of its code
// has run yet. One at a time.
class BeforeConstruction
{
  public:
    using Callback = void (*)(HMODULE module);

#ifdef _WIN32
    BeforeConstruction(const std::string& fileName, Callback callback)
    {
        fileName_ = Wide(fileName);
        callback_ = callback;
        Call<LONG(ULONG, Notification*, void*, void**)>("LdrRegisterDllNotification", 0, &Notify, nullptr,
                                                        &cookie_);
    }
    ~BeforeConstruction()
    {
        Call<LONG(void*)>("LdrUnregisterDllNotification", cookie_);
    }
#else
    BeforeConstruction(const std::string& fileName, Callback callback)
    {
        fileName_ = "/" + fileName;
        callback_ = callback;
    }
    ~BeforeConstruction()
    {
        callback_ = nullptr;
    }

    // The module's first constructor makes a lock: see below.
    static void LockIsMade()
    {
        if (callback_ != nullptr)
        {
            dl_iterate_phdr(
                [](dl_phdr_info* object, std::size_t, void*)
                {
                    if (std::string(object->dlpi_name).ends_with(fileName_))
                    {
                        std::exchange(callback_, nullptr)(reinterpret_cast<HMODULE>(object->dlpi_addr));
                        return 1;
                    }
                    return 0;
                },
                nullptr);
        }
    }
#endif
    BeforeConstruction(const BeforeConstruction&) = delete;
    BeforeConstruction& operator=(const BeforeConstruction&) = delete;

  private:
#ifdef _WIN32
    struct Loaded
    {
        ULONG flags;
        const UNICODE_STRING* path;
        const UNICODE_STRING* name;
        void* base;
        ULONG size;
    };
    using Notification = void CALLBACK(ULONG, const Loaded*, void*);

    static void CALLBACK Notify(ULONG reason, const Loaded* module, void*)
    {
        constexpr ULONG loaded = 1;
        if (reason == loaded && lstrcmpiW(module->name->Buffer, fileName_.c_str()) == 0)
        {
            callback_(static_cast<HMODULE>(module->base));
        }
    }
    template <class Function, class... Arguments>
    static void Call(const char* name, Arguments... arguments)
    {
        void* const address = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name));
        if (address == nullptr || reinterpret_cast<Function*>(address)(arguments...) != 0)
        {
            throw std::runtime_error(name);
        }
    }

    inline static WideString fileName_;
    void* cookie_ = nullptr;
#else
    inline static std::string fileName_;
#endif
    inline static Callback callback_ = nullptr;
};
} // namespace sndxtest

#ifndef _WIN32
// Stands in front of the layer's own function in every test of this program and calls it.
extern "C" inline __attribute__((used)) BOOL WINAPI InitializeCriticalSectionEx(CRITICAL_SECTION* section,
                                                                                DWORD spins, DWORD flags)
{
    sndxtest::BeforeConstruction::LockIsMade();
    static void* const next = dlsym(RTLD_NEXT, "InitializeCriticalSectionEx");
    return reinterpret_cast<decltype(&InitializeCriticalSectionEx)>(next)(section, spins, flags);
}
#endif
