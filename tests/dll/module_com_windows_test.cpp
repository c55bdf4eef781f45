// The classes as COM finds them: registered as the installer does, created through CoCreateInstance, and the
// module unloaded by COM itself. Windows only: the POSIX layer has no class registration.

#include <objbase.h>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
const std::string overlayClassText = "{041C6567-1AB1-4B57-BD0F-D91AC46B973B}";
const std::string menuClassText = "{75C582E7-666B-4191-9085-2B1F99D4CBCC}";

void SetDefaultValue(const std::string& key, const std::string& name, const std::string& text)
{
    HKEY handle = nullptr;
    Module::Check(HRESULT_FROM_WIN32(RegCreateKeyExW(HKEY_CLASSES_ROOT, Wide(key).c_str(), 0, nullptr, 0,
                                                     KEY_WRITE, nullptr, &handle, nullptr)));
    const WideString wide = Wide(text);
    const LONG error =
        RegSetValueExW(handle, Wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                       static_cast<DWORD>((wide.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(handle);
    Module::Check(HRESULT_FROM_WIN32(error));
}

// Both classes registered and COM ready on this thread.
class ModuleCom : public ModuleTest
{
  protected:
    ModuleCom()
    {
        for (const std::string& text : {overlayClassText, menuClassText})
        {
            SetDefaultValue("CLSID\\" + text + "\\InprocServer32", "", ModulePath());
            SetDefaultValue("CLSID\\" + text + "\\InprocServer32", "ThreadingModel", "Apartment");
        }
        Module::Check(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    }
    ~ModuleCom() override
    {
        CoUninitialize();
        for (const std::string& text : {overlayClassText, menuClassText})
        {
            RegDeleteTreeW(HKEY_CLASSES_ROOT, Wide("CLSID\\" + text).c_str());
        }
    }

    template <class T>
    static ComRef<T> Create(REFCLSID classId, REFIID interfaceId)
    {
        ComRef<T> object;
        Module::Check(
            CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interfaceId, object.Receive()));
        return object;
    }
    static bool IsLoaded() { return GetModuleHandleW(TEXT("sndxdll.dll")) != nullptr; }
};
} // namespace

TEST_F(ModuleCom, RegisteredClassesAnswer)
{
    AddItemsAsAccount();
    const std::string file = Items().File("a.txt");
    const auto overlay = Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
    EXPECT_TRUE(IsLoaded());
    EXPECT_EQ(overlay->IsMemberOf(Wide(file).c_str(), 0), S_OK);

    const auto init = Create<IShellExtInit>(menuClass, IID_IShellExtInit);
    EXPECT_EQ(init->Initialize(nullptr, MakeDropDataObject({file}).get(), nullptr), S_OK);
    ComRef<IContextMenu> menu;
    ASSERT_EQ(init->QueryInterface(IID_IContextMenu, menu.Receive()), S_OK);
    const HMENU shellMenu = CreatePopupMenu();
    EXPECT_EQ(menu->QueryContextMenu(shellMenu, 0, 1, 100, CMF_NORMAL), 3);
    DestroyMenu(shellMenu);
}

TEST_F(ModuleCom, AggregationAndUnknownInterfacesAreRefused)
{
    const auto outer = MakeDropDataObject({});
    for (const GUID& classId : {overlayClass, menuClass})
    {
        void* out = nullptr;
        EXPECT_EQ(CoCreateInstance(classId, outer.get(), CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
                  CLASS_E_NOAGGREGATION);
        EXPECT_EQ(CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, IID_IDataObject, &out),
                  E_NOINTERFACE);
    }
}

TEST_F(ModuleCom, ModuleIsUnloadedWhenItsLastObjectIsGone)
{
    auto overlay = Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
    auto menu = Create<IContextMenu>(menuClass, IID_IContextMenu);
    overlay.Reset();
    CoFreeUnusedLibrariesEx(0, 0);
    EXPECT_TRUE(IsLoaded()); // the menu object lives
    menu.Reset();
    CoFreeUnusedLibrariesEx(0, 0); // the first call may only mark the module …
    CoFreeUnusedLibrariesEx(0, 0);
    EXPECT_FALSE(IsLoaded());
    const Lines lines = WholeTrace();
    ASSERT_GT(lines.size(), 3u);
    EXPECT_THAT(Lines(lines.end() - 3, lines.end()), AreLines(ClosingLines()));
}
