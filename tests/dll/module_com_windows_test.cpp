// The registered classes: created through CoCreateInstance, given the system's own data object, and unloaded
// by COM itself. Windows only: the POSIX layer has no class registration and no shell.

#include <windows.h>
#include <shellapi.h>

#include "tests/dll/registeredmodule.h"

using namespace sndxtest;

namespace
{
using ModuleCom = RegisteredModuleTest;

bool HasKey(const std::string& path)
{
    HKEY key = nullptr;
    const bool found =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, Wide(path).c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS;
    if (found)
    {
        RegCloseKey(key);
    }
    return found;
}
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
    Lines taken;
    for (const std::string& line : WholeTrace())
    {
        constexpr std::string_view start = "LSendoraContextMenu::Initialize ";
        if (line.starts_with(start) && line.size() > start.size())
        {
            taken.push_back(line.substr(start.size()));
        }
    }
    EXPECT_EQ(taken, files);
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
        Check("SHParseDisplayName", SHParseDisplayName(path.c_str(), nullptr, &list, 0, nullptr));
        info.lpIDList = list;
        ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, Wide(className).c_str(), 0, KEY_READ, &info.hkeyClass),
                  ERROR_SUCCESS);
        ShellExecuteExW(&info);
        RegCloseKey(info.hkeyClass);
        ILFree(list);
        EXPECT_THAT(WholeTrace(), testing::Contains("LSendoraContextMenu::Initialize " + file)) << className;
        CoFreeUnusedLibrariesEx(0, 0);
    }
}

TEST_F(ModuleCom, AggregationAndUnknownInterfacesAreRefused)
{
    const auto outer = MakeDropDataObject({});
    for (const GUID& classId : {overlayClass, menuClass})
    {
        void* out = nullptr;
        EXPECT_EQ(CoCreateInstance(classId, outer.Get(), CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
                  CLASS_E_NOAGGREGATION);
        EXPECT_EQ(CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, IID_IDataObject, &out),
                  E_NOINTERFACE);
    }
}

TEST_F(ModuleCom, UnregisteringRemovesEveryEntry)
{
    const std::string classes = "Software\\Classes\\";
    const std::string explorer = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\";
    const std::string overlayText = sndxtools::contract::overlayClassText;
    const std::string menuText = sndxtools::contract::menuClassText;
    const std::vector<std::string> keys = {classes + "CLSID\\" + overlayText, classes + "CLSID\\" + menuText,
                                           classes + "*\\shellex\\ContextMenuHandlers\\" + menuText,
                                           classes + "Directory\\shellex\\ContextMenuHandlers\\" + menuText,
                                           explorer + "ShellIconOverlayIdentifiers\\  Sendora"};
    EXPECT_THAT(keys, testing::Each(testing::Truly(HasKey)));
    ImportRegistration("unregister.reg");
    EXPECT_THAT(keys, testing::Each(testing::Not(testing::Truly(HasKey))));
    HKEY approved = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                            TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Shell Extensions\\Approved"),
                            0, KEY_READ, &approved),
              ERROR_SUCCESS);
    for (const std::string& name : {overlayText, menuText})
    {
        EXPECT_EQ(RegQueryValueExW(approved, Wide(name).c_str(), nullptr, nullptr, nullptr, nullptr),
                  ERROR_FILE_NOT_FOUND);
    }
    RegCloseKey(approved);
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
