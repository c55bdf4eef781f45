// What a thousand lives of the module cost its host: activated from the registry, used, released and unloaded
// by COM. Windows only: it takes COM's own loading and unloading, and the system's tables of what a process
// holds.

#include <windows.h>

#include "tests/dll/registeredmodule.h"

using namespace sndxtest;

namespace
{
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

using ModuleReload = RegisteredModuleTest;
} // namespace

TEST_F(ModuleReload, CountersSeeWhatIsCounted)
{
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
    EXPECT_EQ(held.handles, before.handles + 1);
    EXPECT_EQ(held.gdiObjects, before.gdiObjects + 1);
    EXPECT_EQ(held.menus, before.menus + 1);
    EXPECT_GE(held.heapBytes, before.heapBytes + 1000);
    EXPECT_GT(held.heapBlocks, before.heapBlocks);
}

TEST_F(ModuleReload, AThousandLivesCostTheHostNothing)
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
            ASSERT_EQ(overlay->IsMemberOf(Wide(file).c_str(), 0), S_OK);
            const auto init = Create<IShellExtInit>(menuClass, IID_IShellExtInit);
            ASSERT_EQ(init->Initialize(nullptr, SystemDataObject({file}).Get(), nullptr), S_OK);
            ComRef<IContextMenu> menu;
            ASSERT_EQ(init->QueryInterface(IID_IContextMenu, menu.Receive()), S_OK);
            const HMENU shown = CreatePopupMenu();
            EXPECT_EQ(menu->QueryContextMenu(shown, 0, 1, 100, CMF_NORMAL), 3);
            DestroyMenu(shown);
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
}
