// The registered classes: created through CoCreateInstance, given the system's own data object, unloaded by
// COM itself, and what a thousand such lives cost their host. Windows only: the POSIX layer has no class
// registration, no shell and no tables of what a process holds.

#include <array>
#include <optional>

#include <windows.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include "tests/dll/modulehost.h"
#include "tests/support/registrykey.h"

using namespace sndxtest;

namespace
{
// Imports a registration file as a user does.
void ImportRegistration(const std::string& file)
{
    ChildProcess editor = ChildProcess::Program("C:\\windows\\regedit.exe",
                                                {"/S", TargetPath(SNDX_REGISTRATION_FOLDER "/" + file)});
    Check("regedit", editor.Wait() == 0 ? S_OK : E_FAIL);
}

// What the shell hands to a handler for files of one folder.
ComRef<IDataObject> SystemDataObject(const std::vector<std::string>& paths)
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
class ModuleCom : public ModuleTest
{
  protected:
    ModuleCom()
    {
        ImportRegistration("register.reg");
        Check("OleInitialize", OleInitialize(nullptr));
    }
    ~ModuleCom() override
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
    // Asks both classes about files of an account; gives the menu's handler.
    static MenuHandler ServeSelection(const ComRef<IShellIconOverlayIdentifier>& overlay,
                                      const std::vector<std::string>& files)
    {
        EXPECT_EQ(overlay->IsMemberOf(Wide(files[0]).c_str(), 0), S_OK);
        auto init = Create<IShellExtInit>(menuClass, IID_IShellExtInit);
        EXPECT_EQ(init->Initialize(nullptr, SystemDataObject(files).Get(), nullptr), S_OK);
        MenuHandler handler(std::move(init));
        const HMENU shown = CreatePopupMenu();
        EXPECT_EQ(handler.Query(shown), 3);
        DestroyMenu(shown);
        return handler;
    }
    static bool IsLoaded() { return GetModuleHandleW(TEXT("sndxdll.dll")) != nullptr; }
};

// What a process holds, counted by asking for every possible handle: the calls that give totals are not
// implemented by Wine.
struct Holdings
{
    int handles = 0;
    int gdiObjects = 0;
    int menus = 0;
    std::size_t heapBytes = 0; // requested, in all heaps of the process
    std::size_t heapBlocks = 0;

    Holdings()
    {
        // Far beyond the few hundred that a process has here. Handles of the kernel differ in steps of 4,
        // those of windows and menus in steps of 2.
        for (std::uintptr_t value = 2; value < 0x4000; value += 2)
        {
            DWORD flags = 0;
            handles +=
                value % 4 == 0 && GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
            gdiObjects += GetObjectType(reinterpret_cast<HGDIOBJ>(value)) != 0 ? 1 : 0;
            gdiObjects += GetObjectType(reinterpret_cast<HGDIOBJ>(value + 1)) != 0 ? 1 : 0;
            menus += IsMenu(reinterpret_cast<HMENU>(value)) ? 1 : 0;
        }
        std::array<HANDLE, 64> heaps{};
        const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
        for (DWORD i = 0; i < count; ++i)
        {
            HeapLock(heaps[i]);
            PROCESS_HEAP_ENTRY entry = {};
            while (HeapWalk(heaps[i], &entry))
            {
                const bool busy = (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
                heapBytes += busy ? entry.cbData : 0;
                heapBlocks += busy ? 1 : 0;
            }
            HeapUnlock(heaps[i]);
        }
    }
    bool operator==(const Holdings&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Holdings& holdings)
{
    return stream << holdings.handles << " handles, " << holdings.gdiObjects << " GDI objects, "
                  << holdings.menus << " menus, " << holdings.heapBytes << " bytes in " << holdings.heapBlocks
                  << " blocks";
}
} // namespace

TEST_F(ModuleCom, RegisteredClassesServeTheSystemsSelection)
{
    AddItemsAsAccount();
    const std::vector<std::string> files = {Items().File("b.txt"), Items().File("a b.txt"),
                                            Items().File("\u00e4\u20ac.txt")};
    ServeSelection(Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier), files);
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
        Check("SHParseDisplayName", SHParseDisplayName(path.c_str(), nullptr, &list, 0, nullptr));
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
    const std::string overlayId = sndxtools::contract::overlayClassText;
    const std::string menuId = sndxtools::contract::menuClassText;
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

TEST_F(ModuleCom, AThousandLivesCostTheHostNothing)
{
    AddItemsAsAccount();
    const std::string file = Items().File("a.txt");
    std::optional<Holdings> atFirst;
    constexpr int warmUp = 20; // what the system sets up for good at its first uses
    for (int life = 0; life < warmUp + 1000; ++life)
    {
        {
            const auto overlay =
                Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
            const auto menu = ServeSelection(overlay, {file});
            CoFreeUnusedLibrariesEx(0, 0);
            ASSERT_TRUE(IsLoaded()) << "life " << life;
        }
        CoFreeUnusedLibrariesEx(0, 0);
        ASSERT_FALSE(IsLoaded()) << "life " << life;
        if (life == warmUp)
        {
            atFirst.emplace();
        }
    }
    EXPECT_EQ(Holdings(), atFirst);
    // Each of the counters counts.
    const Holdings before;
    const HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HBRUSH brush = CreateSolidBrush(RGB(1, 2, 3));
    const HMENU menu = CreatePopupMenu();
    void* block = std::malloc(1000);
    const Holdings held;
    std::free(block);
    DestroyMenu(menu);
    DeleteObject(brush);
    CloseHandle(handle);
    EXPECT_TRUE(held.handles == before.handles + 1 && held.gdiObjects == before.gdiObjects + 1 &&
                held.menus == before.menus + 1 && held.heapBytes >= before.heapBytes + 1000 &&
                held.heapBlocks > before.heapBlocks)
        << before << ", then " << held;
}

// A lock that threads have waited for has taken an event from the system.
TEST_F(ModuleCom, LivesUnderContentionLeaveNoHandle)
{
    AddItemsAsAccount();
    int atFirst = 0;
    constexpr int warmUp = 20;
    for (int life = 0; life < warmUp + 80; ++life) // without the deletion of the lock four stay
    {
        const Module module;
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back(
                [&module]
                {
                    for (int times = 0; times < 5; ++times)
                    {
                        module.Overlay();
                        MenuHandler(module, {"C:\\A\\x"});
                    }
                });
        }
        threads.clear();
        if (life == warmUp)
        {
            atFirst = Holdings().handles;
        }
    }
    EXPECT_LE(Holdings().handles, atFirst); // one of a thread that was just ending may have been among these
}
