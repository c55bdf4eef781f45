#pragma once
// The classes as the system finds them: registered with the files that are shipped.

#include <objbase.h>
#include <shlobj.h>

#include "tests/dll/modulehost.h"

namespace sndxtest
{
// Imports a registration file as a user does.
inline void ImportRegistration(const std::string& file)
{
    ChildProcess editor = ChildProcess::Program("C:\\windows\\regedit.exe",
                                                {"/S", TargetPath(SNDX_REGISTRATION_FOLDER "/" + file)});
    Check("regedit", editor.Wait() == 0 ? S_OK : E_FAIL);
}

// What the shell hands to a handler for files of one folder.
inline ComRef<IDataObject> SystemDataObject(const std::vector<std::string>& paths)
{
    ComRef<IShellFolder> folder;
    std::vector<LPITEMIDLIST> lists;
    std::vector<LPCITEMIDLIST> items;
    for (const std::string& path : paths)
    {
        LPITEMIDLIST list = nullptr;
        Check("SHParseDisplayName", SHParseDisplayName(Wide(path).c_str(), nullptr, &list, 0, nullptr));
        lists.push_back(list);
        LPCITEMIDLIST item = nullptr;
        Check("SHBindToParent", SHBindToParent(list, IID_IShellFolder, folder.Receive(), &item));
        items.push_back(item);
    }
    ComRef<IDataObject> data;
    Check("GetUIObjectOf", folder->GetUIObjectOf(nullptr, static_cast<UINT>(items.size()), items.data(),
                                                 IID_IDataObject, nullptr, data.Receive()));
    for (const LPITEMIDLIST list : lists)
    {
        ILFree(list);
    }
    return data;
}

// Both classes registered and COM ready on this thread.
class RegisteredModuleTest : public ModuleTest
{
  protected:
    RegisteredModuleTest()
    {
        ImportRegistration("register.reg");
        Check("OleInitialize", OleInitialize(nullptr));
    }
    ~RegisteredModuleTest() override
    {
        OleUninitialize();
        ImportRegistration("unregister.reg");
    }

    template <class T>
    static ComRef<T> Create(REFCLSID classId, REFIID interfaceId)
    {
        ComRef<T> object;
        Check("CoCreateInstance",
              CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interfaceId, object.Receive()));
        return object;
    }
    static bool IsLoaded() { return GetModuleHandleW(TEXT("sndxdll.dll")) != nullptr; }
};
} // namespace sndxtest
