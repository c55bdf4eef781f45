#include "tools/shellhost/module.h"

#include "tools/shellhost/results.h"

namespace sndxtools
{
namespace
{
template <class Function>
void Find(HMODULE library, const char* name, const std::string& moduleName, Function& function)
{
    // By way of void*: a direct cast between function types draws a warning.
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    if (function == nullptr)
    {
        throw ModuleError("'" + moduleName + "' does not export " + name);
    }
}
} // namespace

Module::Module(const WideString& path) : library_(LoadLibraryW(path.c_str()))
{
    const std::string name = Utf8(path);
    if (library_ == nullptr)
    {
        throw ModuleError("cannot load '" + name + "': error " + std::to_string(GetLastError()));
    }
    try
    {
        Find(library_, "DllGetClassObject", name, getClassObject_);
        Find(library_, "DllCanUnloadNow", name, canUnloadNow_);
        Find(library_, "StateChanged", name, stateChanged_);
    }
    catch (...)
    {
        FreeLibrary(library_);
        throw;
    }
}

Module::~Module()
{
    FreeLibrary(library_);
}

bool Module::IsLoaded(const WideString& path)
{
    return GetModuleHandleW(path.substr(path.find_last_of(TEXT("\\/")) + 1).c_str()) != nullptr;
}

ComRef<IClassFactory> Module::ClassFactory(const CLSID& classId) const
{
    ComRef<IClassFactory> factory;
    const HRESULT result = getClassObject_(classId, IID_IClassFactory, factory.Receive());
    Check("DllGetClassObject", result, bool(factory));
    return factory;
}
} // namespace sndxtools
