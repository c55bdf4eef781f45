// Failures of the system's calls in the middle of building a menu. Native only: the layer can make one call
// fail; the system itself does not refuse these on request.

#include <sndxposix.h>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
class ModuleMenuFaults : public ModuleTest
{
  protected:
    ModuleMenuFaults() { AddAccount("A", "C:\\A"); }
    ~ModuleMenuFaults() override { sndxposix::ResetFailures(); }
};

constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);
} // namespace

TEST_F(ModuleMenuFaults, LockThatFailsReleasesTheMedium)
{
    const Module module;
    MenuHandler handler(module);
    // The data object locks the block too, when it makes it.
    sndxposix::FailCall("GlobalLock", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(handler.Select({"C:\\A\\x"}, {.withOwner = true}), E_INVALIDARG);
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_EQ(DropDataObject::LiveMediums(), 0);
}

TEST_F(ModuleMenuFaults, LockedBlockIsUnlockedAgain)
{
    const Module module;
    MenuHandler handler(module);
    // Nothing but a failed call of it shows that it is called at all.
    for (const std::vector<std::string>& paths : {std::vector<std::string>{"C:\\A\\x"}, {}})
    {
        sndxposix::FailCall("GlobalUnlock", ERROR_NOT_ENOUGH_MEMORY, 1);
        EXPECT_EQ(handler.Select(paths), paths.empty() ? E_INVALIDARG : S_OK);
        EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    }
}

TEST_F(ModuleMenuFaults, UnreadablePathStopsTheReadingAndKeepsTheEarlierOnes)
{
    const Module module;
    MenuHandler handler(module);
    const TraceCapture trace;
    sndxposix::FailCall("DragQueryFileW", ERROR_INVALID_PARAMETER, 2); // count, first path, second path
    EXPECT_EQ(handler.Select({"C:\\A\\x", "C:\\A\\y", "C:\\A\\z"}, {.withOwner = true}), E_INVALIDARG);
    EXPECT_THAT(trace.Texts(),
                AreLines({"LSendoraContextMenu::Initialize ", "LSendoraContextMenu::Initialize C:\\A\\x"}));
    EXPECT_EQ(DropDataObject::LiveMediums(), 0);
    const HMENU menu = CreatePopupMenu();
    EXPECT_EQ(handler.Query(menu), 3);
    DestroyMenu(menu);
}

TEST_F(ModuleMenuFaults, NoHalfMenuIsAdded)
{
    const Module module;
    MenuHandler handler(module, {"C:\\A\\x"});
    const HMENU menu = CreatePopupMenu();
    for (unsigned skip = 0; skip < 4; ++skip) // three commands, then the submenu itself
    {
        sndxposix::FailCall("InsertMenuW", ERROR_NOT_ENOUGH_MEMORY, skip);
        EXPECT_EQ(handler.Query(menu), nothingAdded) << skip;
        EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    }
    sndxposix::FailCall("CreatePopupMenu", ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(handler.Query(menu), nothingAdded);
    EXPECT_EQ(GetMenuItemCount(menu), 0);
    EXPECT_EQ(handler.Query(menu), 3);
    DestroyMenu(menu);
}
