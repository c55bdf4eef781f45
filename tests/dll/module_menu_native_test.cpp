// Failures of the system's calls while a selection is read and a menu is built. Native only: the layer can
// make one call fail; the system itself does not refuse these on request.

#include <sndxposix.h>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
class ModuleMenuFaults : public ModuleTest
{
  protected:
    ModuleMenuFaults() { AddAccount("A", "C:\\A"); }
    ~ModuleMenuFaults() override
    {
        sndxposix::ResetFailures();
        DestroyMenu(menu_);
    }
    const HMENU menu_ = CreatePopupMenu();
};
} // namespace

TEST_F(ModuleMenuFaults, MediumIsReleasedAndEarlierPathsAreKept)
{
    const Module module;
    const struct
    {
        const char* call;
        unsigned skip;
        HRESULT result;
        HRESULT added;
    } cases[] = {
        // The data object locks the block too, when it makes it.
        {"GlobalLock", 1, E_INVALIDARG, static_cast<HRESULT>(0x80000000u)},
        // Count, first path, second path.
        {"DragQueryFileW", 2, E_INVALIDARG, 3},
        // The data object's own, then the module's: nothing but a failed call shows that it is made at all.
        {"GlobalUnlock", 1, S_OK, 3},
    };
    for (const auto& c : cases)
    {
        MenuHandler handler(module);
        sndxposix::FailCall(c.call, ERROR_NOT_ENOUGH_MEMORY, c.skip);
        EXPECT_EQ(handler.Select({"C:\\A\\x", "C:\\A\\y", "C:\\A\\z"}, {.withOwner = true}), c.result)
            << c.call;
        EXPECT_EQ(sndxposix::PendingFailures(), 0u) << c.call;
        EXPECT_EQ(LiveDropMediums(), 0) << c.call;
        EXPECT_EQ(handler.Query(menu_), c.added) << c.call;
    }
}

TEST_F(ModuleMenuFaults, NoHalfMenuIsAdded)
{
    const Module module;
    MenuHandler handler(module, {"C:\\A\\x"});
    const auto expectNothing = [&](const char* call, unsigned skip)
    {
        sndxposix::FailCall(call, ERROR_NOT_ENOUGH_MEMORY, skip);
        EXPECT_EQ(handler.Query(menu_), static_cast<HRESULT>(0x80000000u)) << call << skip;
        EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    };
    for (unsigned skip = 0; skip < 4; ++skip) // three commands, then the submenu itself
    {
        expectNothing("InsertMenuW", skip);
    }
    expectNothing("CreatePopupMenu", 0);
    EXPECT_EQ(GetMenuItemCount(menu_), 0);
    EXPECT_EQ(handler.Query(menu_), 3);
}
