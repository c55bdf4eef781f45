// The registered classes: created through CoCreateInstance, given the system's own data object, and unloaded
// by COM itself. Windows only: the POSIX layer has no class registration and no shell.

#include <windows.h>
#include <shellapi.h>

#include "tests/dll/registeredmodule.h"
#include "tests/support/registrykey.h"

using namespace sndxtest;

namespace
{
using ModuleCom = RegisteredModuleTest;
} // namespace

TEST_F(ModuleCom, RegisteredClassesServeTheSystemsSelection)
{
    AddItemsAsAccount();
    const std::vector<std::string> files = {Items().File("b.txt"), Items().File("a b.txt"),
                                            Items().File("\u00e4\u20ac.txt")};
    const auto overlay = Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
    EXPECT_EQ(overlay->IsMemberOf(Wide(files[0]).c_str(), 0), S_OK);

    const auto init = Create<IShellExtInit>(menuClass, IID_IShellExtInit);
    EXPECT_EQ(init->Initialize(nullptr, SystemDataObject(files).Get(), nullptr), S_OK);
    ComRef<IContextMenu> menu;
    ASSERT_EQ(init->QueryInterface(IID_IContextMenu, menu.Receive()), S_OK);
    const HMENU shellMenu = CreatePopupMenu();
    EXPECT_EQ(menu->QueryContextMenu(shellMenu, 0, 1, 100, CMF_NORMAL), 3);
    DestroyMenu(shellMenu);
    Lines taken = WholeTrace();
    const std::string start = "LSendoraContextMenu::Initialize ";
    std::erase_if(taken, [&](const auto& line) { return !line.starts_with(start) || line == start; });
    EXPECT_EQ(taken, (Lines{start + files[0], start + files[1], start + files[2]}));
}

// The one place where the shell of Wine asks registered menu handlers: a verb that the class itself does not
// have. It goes no further than Initialize, because the handler knows nothing of sites; a real Explorer does
// not ask that.
TEST_F(ModuleCom, TheShellItselfFindsTheMenuHandlerThroughTheRegistration)
{
    const std::string file = Items().File("a.txt");
    for (const char* className : {"*", "Directory"})
    {
        RemoveTraceFiles();
        const WideString path = Wide(file);
        SHELLEXECUTEINFOW info = {};
        info.cbSize = sizeof info;
        info.fMask = SEE_MASK_CLASSKEY | SEE_MASK_IDLIST | SEE_MASK_FLAG_NO_UI;
        LPITEMIDLIST list = nullptr;
        Module::Check(SHParseDisplayName(path.c_str(), nullptr, &list, 0, nullptr));
        info.lpIDList = list;
        const Key fileClass(Key::Open, HKEY_CLASSES_ROOT, className, KEY_READ);
        info.hkeyClass = fileClass;
        ShellExecuteExW(&info);
        ILFree(list);
        EXPECT_TRUE(Contains(WholeTrace(), "LSendoraContextMenu::Initialize " + file)) << className;
        CoFreeUnusedLibrariesEx(0, 0);
    }
}

TEST_F(ModuleCom, UnregisteringRemovesEveryEntry)
{
    const std::string overlayId = "{041C6567-1AB1-4B57-BD0F-D91AC46B973B}";
    const std::string menuId = "{75C582E7-666B-4191-9085-2B1F99D4CBCC}";
    const std::string classes = "Software\\Classes\\";
    const std::string system = "Software\\Microsoft\\Windows\\CurrentVersion\\";
    const auto expectEntries = [&](LONG error)
    {
        for (const std::string& path : {classes + "CLSID\\" + overlayId, classes + "CLSID\\" + menuId,
                                        classes + "*\\shellex\\ContextMenuHandlers\\" + menuId,
                                        classes + "Directory\\shellex\\ContextMenuHandlers\\" + menuId,
                                        system + "Explorer\\ShellIconOverlayIdentifiers\\  Sendora"})
        {
            EXPECT_EQ(Key(Key::Open, HKEY_LOCAL_MACHINE, path, KEY_READ).error, error) << path;
        }
        const Key approved(Key::Open, HKEY_LOCAL_MACHINE, system + "Shell Extensions\\Approved", KEY_READ);
        for (const std::string& id : {overlayId, menuId})
        {
            EXPECT_EQ(approved.Get(id) == "error 2", error == ERROR_FILE_NOT_FOUND) << approved.Get(id);
        }
    };
    expectEntries(ERROR_SUCCESS);
    ImportRegistration("unregister.reg");
    expectEntries(ERROR_FILE_NOT_FOUND);
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
    EXPECT_EQ(LastLines(WholeTrace()), ClosingLines());
}
