// Modules: shared libraries with the life cycle of Windows DLLs.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "posix/files/paths.h"
#include "posix/text/charsets.h"
#include "sndx/modules.h"
#include "sndxposix.h"

namespace sndxposix
{
namespace
{
using EntryPoint = BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID);

struct Module
{
    HMODULE handle; // address of the loaded image, for pseudo modules that of their record
    void* library;  // dlopen's handle, null for pseudo modules
    EntryPoint entry;
    std::u16string path;
    unsigned uses;
};

std::string ProgramFile()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error);
}

// The first page of the program's image; its headers lie behind the file header.
HMODULE ProgramHandle()
{
    return reinterpret_cast<HMODULE>(getauxval(AT_PHDR) & ~static_cast<unsigned long>(0xFFF));
}

// The loader's state, also for the end of the process. Its lock is held while constructors, destructors and
// DllMain run, as on Windows: a module must not wait there for another thread that loads or frees. It is
// recursive because they may themselves load and free.
struct LoaderState
{
    // Programs look into the two behind the program for functions of newer systems, or of Wine; there are
    // none but those that a test provides. Any distinct addresses serve as their handles.
    HINSTANCE__ pseudoModules[2] = {};
    std::vector<Module> modules{
        {ProgramHandle(), dlopen(nullptr, RTLD_NOW), nullptr, ToWindowsPath(ProgramFile()), 1},
        {&pseudoModules[0], nullptr, nullptr, u"C:\\windows\\system32\\kernel32.dll", 1},
        {&pseudoModules[1], nullptr, nullptr, u"C:\\windows\\system32\\ntdll.dll", 1}};

    std::map<std::string, void*> provided;

    // Null when no module meets the condition.
    template <class Condition>
    Module* FindIf(Condition condition)
    {
        const auto found = std::find_if(modules.begin(), modules.end(), condition);
        return found == modules.end() ? nullptr : &*found;
    }
    Module* Find(HMODULE handle)
    {
        return FindIf([&](const Module& module) { return module.handle == handle; });
    }
};
using Loader = Locked<LoaderState, std::recursive_mutex>;

std::u16string_view FileName(std::u16string_view path)
{
    return path.substr(path.find_last_of(u"\\/") + 1);
}

bool HasFolder(std::u16string_view path)
{
    return path.find_first_of(u"\\/:") != path.npos;
}

Module* FindByName(const Loader& loader, std::u16string_view name)
{
    const std::u16string wanted = FoldCase(FileName(name));
    return loader->FindIf([&](const Module& module) { return FoldCase(FileName(module.path)) == wanted; });
}

// The POSIX path of the file to load; empty when there is none.
std::string FindFile(const std::u16string& file)
{
    std::string path = ToUnixPath(file.c_str());
    if (!HasFolder(file))
    {
        const std::u16string program = ToWindowsPath(ProgramFile());
        const std::u16string beside = program.substr(0, program.rfind(u'\\') + 1) + file;
        if (const std::string candidate = ToUnixPath(beside.c_str()); access(candidate.c_str(), F_OK) == 0)
        {
            path = candidate;
        }
    }
    return access(path.c_str(), F_OK) == 0 ? path : std::string();
}

// exit() runs this before the static destructors of everything that was loaded before its registration.
// It is registered after each first load, so that every module's DllMain comes before its destructors, and
// the module loaded last comes first.
void DetachAtExit()
{
    const Loader loader;
    const auto last = std::find_if(loader->modules.rbegin(), loader->modules.rend(),
                                   [](const Module& module) { return module.entry != nullptr; });
    if (last != loader->modules.rend())
    {
        const EntryPoint entry = std::exchange(last->entry, nullptr);
        int endOfProcess = 0; // any address will do: not null is the message
        entry(last->handle, DLL_PROCESS_DETACH, &endOfProcess);
    }
}

HMODULE Load(const std::u16string& name)
{
    const Loader loader;
    if (Module* const loaded = HasFolder(name) ? nullptr : FindByName(loader, name))
    {
        ++loaded->uses;
        return loaded->handle;
    }
    const std::string path = FindFile(name);
    if (path.empty())
    {
        return FailWith(ERROR_MOD_NOT_FOUND, nullptr);
    }
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    link_map* map = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0)
    {
        // No shared library, or one that needs another that is missing; dlerror() tells which.
        return FailWith(ERROR_BAD_EXE_FORMAT, nullptr);
    }
    const auto handle = reinterpret_cast<HMODULE>(map->l_addr);
    if (Module* const loaded = loader->Find(handle))
    {
        ++loaded->uses;
        dlclose(library); // one use of dlopen's is enough
        return handle;
    }
    const auto entry = reinterpret_cast<EntryPoint>(dlsym(library, "DllMain"));
    // Known to the loader before DllMain asks for its own name.
    loader->modules.push_back({handle, library, entry, ToWindowsPath(path), 1});
    if (entry == nullptr || entry(handle, DLL_PROCESS_ATTACH, nullptr))
    {
        std::atexit(DetachAtExit);
        return handle;
    }
    entry(handle, DLL_PROCESS_DETACH, nullptr);
    std::erase_if(loader->modules, [&](const Module& module) { return module.handle == handle; });
    dlclose(library);
    return FailWith(ERROR_DLL_INIT_FAILED, nullptr);
}

// Runs use(loader, module) under the loader's lock. `failure`, with the last error set, for what is no loaded
// module.
template <class Result, class Use>
Result WithModule(const char* function, HMODULE handle, Result failure, Use&& use, Outputs outputs = {})
{
    const auto body = [&]() -> Result
    {
        const Loader loader;
        Module* const module = loader->Find(handle);
        return module == nullptr ? FailWith(ERROR_MOD_NOT_FOUND, failure) : use(loader, *module);
    };
    return Call(function, failure, body, outputs);
}
} // namespace

void ProvideFunction(const char* name, void* function)
{
    const Loader loader;
    loader->provided[name] = function;
}

extern "C" HMODULE WINAPI LoadLibraryW(LPCWSTR path)
{
    return Guarded(HMODULE{}, [&] { return Load(path); });
}

extern "C" HMODULE WINAPI LoadLibraryA(LPCSTR path)
{
    return Call("LoadLibraryA", HMODULE{}, [&] { return Load(Utf16(path)); });
}

extern "C" BOOL WINAPI FreeLibrary(HMODULE handle)
{
    const auto release = [&](const Loader& loader, Module& module)
    {
        // The program and the pseudo modules stay, however often they are freed.
        if (module.uses > 1 || module.library == nullptr || module.handle == ProgramHandle())
        {
            module.uses -= module.uses > 1 ? 1 : 0;
            return TRUE;
        }
        void* const library = module.library;
        if (const EntryPoint entry = std::exchange(module.entry, nullptr))
        {
            entry(handle, DLL_PROCESS_DETACH, nullptr);
        }
        // Its destructors may still ask for its name. They may not free it again.
        dlclose(library);
        std::erase_if(loader->modules, [&](const Module& gone) { return gone.handle == handle; });
        return TRUE;
    };
    return WithModule("FreeLibrary", handle, FALSE, release);
}

extern "C" FARPROC WINAPI GetProcAddress(HMODULE handle, LPCSTR name)
{
    const auto find = [&](const Loader& loader, const Module& module)
    {
        void* const address =
            module.library == nullptr ? loader->provided[name] : dlsym(module.library, name);
        return address == nullptr ? FailWith(ERROR_PROC_NOT_FOUND, FARPROC{})
                                  : reinterpret_cast<FARPROC>(address);
    };
    return WithModule("GetProcAddress", handle, FARPROC{}, find);
}

extern "C" HMODULE WINAPI GetModuleHandleW(LPCWSTR name)
{
    const auto body = [&]() -> HMODULE
    {
        if (name == nullptr)
        {
            return ProgramHandle();
        }
        const Loader loader;
        const Module* const module = FindByName(loader, name);
        return module == nullptr ? FailWith(ERROR_MOD_NOT_FOUND, HMODULE{}) : module->handle;
    };
    return Call("GetModuleHandleW", HMODULE{}, body);
}

extern "C" DWORD WINAPI GetModuleFileNameW(HMODULE handle, LPWSTR buffer, DWORD size)
{
    const auto copy = [&](const Loader&, const Module& module)
    {
        if (size > 0)
        {
            buffer[module.path.copy(buffer, size - 1)] = 0;
        }
        return size > module.path.size() ? static_cast<DWORD>(module.path.size())
                                         : FailWith(ERROR_INSUFFICIENT_BUFFER, size);
    };
    return WithModule("GetModuleFileNameW", handle == nullptr ? ProgramHandle() : handle, DWORD{0}, copy,
                      {{buffer, size * sizeof(WCHAR)}});
}

extern "C" BOOL WINAPI DisableThreadLibraryCalls(HMODULE handle)
{
    // Nothing to switch off: the layer tells no module of threads.
    return WithModule("DisableThreadLibraryCalls", handle, FALSE,
                      [](const Loader&, const Module&) { return TRUE; });
}
} // namespace sndxposix
