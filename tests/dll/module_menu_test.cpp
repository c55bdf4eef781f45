// The context menu: what a selection is read from, what the shell's menu gains, help texts and verbs.

#include "tests/dll/modulehost.h"
#ifndef _WIN32
#include "sndxposix.h"
#endif

using namespace sndxtest;

namespace
{
constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);
const std::string initialize = "LSendoraContextMenu::Initialize ";
const std::string query = "LSendoraContextMenu::QueryContextMenu ";
const std::string queryInterface = "LSendoraContextMenu::QueryInterface ";

// With a menu of the shell's that has two items of its own.
class ModuleMenu : public ModuleTest
{
  protected:
    ModuleMenu()
    {
        AppendMenuW(menu_, MF_STRING, 1, TEXT("Before"));
        AppendMenuW(menu_, MF_STRING, 2, TEXT("After"));
    }
    ~ModuleMenu() override { DestroyMenu(menu_); }

    // One line an item, those of a submenu indented.
    static Lines ItemsOf(HMENU menu, const std::string& indent = {})
    {
        Lines lines;
        for (int i = 0; i < GetMenuItemCount(menu); ++i)
        {
            WCHAR text[100] = {};
            GetMenuStringW(menu, static_cast<UINT>(i), text, 100, MF_BYPOSITION);
            const HMENU popup = GetSubMenu(menu, i);
            const std::string rest = popup == nullptr ? " " + std::to_string(GetMenuItemID(menu, i)) : ":";
            lines = lines + Lines{indent + Utf8(text) + rest} +
                    (popup == nullptr ? Lines() : ItemsOf(popup, "  "));
        }
        return lines;
    }
    const HMENU menu_ = CreatePopupMenu();
};

std::string HelpText(MenuHandler& handler, UINT_PTR offset, UINT size)
{
    WCHAR buffer[100];
    std::fill(std::begin(buffer), std::end(buffer), WCHAR{'#'});
    EXPECT_EQ(handler.Menu()->GetCommandString(offset, GCS_HELPTEXTW, nullptr,
                                               reinterpret_cast<CHAR*>(buffer), size),
              S_OK);
    EXPECT_EQ(buffer[size], WCHAR{'#'});
    buffer[99] = 0;
    return Utf8(buffer);
}
} // namespace

TEST_F(ModuleMenu, RightClickTracesEveryStep)
{
    AddAccount("A", "C:\\Konten\\Grün");
    AddAccount("B", "C:\\Konten\\B");
    const std::string first = "C:\\Konten\\Grün\\ä.txt";
    const std::string second = "D:\\elsewhere";
    Module module;
    TraceCapture trace;
    {
        MenuHandler handler(module, {first, second});
        EXPECT_EQ(handler.Query(menu_), 3);
        EXPECT_EQ(HelpText(handler, 1, 50), "Mit Sendora herunterladen");
        EXPECT_EQ(handler.Invoke(0), E_FAIL); // there is no main program
    }
    const Lines absent = {"LNamedPipe::_Open CreateFile FAILED:...",
                          "LNamedPipe::_Open Could not open \"SendoraService\""};
    EXPECT_TRUE(AreLines(trace.Texts(),
                         Lines{"GUID = 75c582e7 666b 4191 9085 2b1f99d4cbcc",
                               "LComDiagnostic::ObjectCreate this=...", // factory
                               "LComDiagnostic::ObjectCreate this=...", // handler
                               queryInterface, "GUID = 000214e8 0000 0000 c000 000000000046", queryInterface,
                               "GUID = 000214e4 0000 0000 c000 000000000046", initialize, initialize + first,
                               initialize + second, query, query + "file: " + first, "CheckPaths",
                               query + "Checking folder: C:\\Konten\\B"} +
                             WalkLines(first, {"C:\\Konten\\B"}) +
                             Lines{query + "Checking folder: C:\\Konten\\Grün"} +
                             WalkLines(first, {"C:\\Konten\\Grün"}) +
                             Lines{query + "Does belong", "LSendoraContextMenu::GetCommandString",
                                   "LSendoraContextMenu::InvokeCommand ", "_LUserSetting32GetString ",
                                   "_LSharedSetting32GetString "} +
                             absent + Lines{"LNamedPipe::Open  SendoraService"} + absent));
    trace.Restart();
    module.Free(); // everything was released on the way
    EXPECT_TRUE(AreLines(trace.Texts(), ClosingLines()));
}

TEST_F(ModuleMenu, UnusableDataIsRefusedAndNothingOfItKept)
{
    AddAccount("A", "C:\\A");
    const Module module;
    const std::pair<std::vector<std::string>, DropOptions> cases[] = {
        {{"C:\\A\\x"}, {.noDropFormat = true}},
        {{"C:\\A\\x"}, {.failGetData = true}},
        {{"C:\\A\\x"}, {.nullBlock = true, .withOwner = true}},
        {{}, {.withOwner = true}},
    };
    for (const auto& [paths, options] : cases)
    {
        MenuHandler handler(module);
        const TraceCapture trace;
        EXPECT_EQ(handler.Select(paths, options), E_INVALIDARG);
        EXPECT_TRUE(AreLines(trace.Texts(), {initialize}));
        EXPECT_EQ(LiveDropObjects(), 0);
        EXPECT_EQ(LiveDropMediums(), 0);
        EXPECT_EQ(handler.Query(menu_), nothingAdded);
    }
    const auto init = module.Create<IShellExtInit>(menuClass, IID_IShellExtInit);
    EXPECT_EQ(init->Initialize(nullptr, nullptr, nullptr), E_INVALIDARG);
}

TEST_F(ModuleMenu, SubmenuIsInsertedAtTheShellsPositionWithTheShellsIdentifiers)
{
    AddItemsAsAccount();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Path() + "\\sub";
    const Module module;
    Lines inserted;
    UINT id = 0;
    for (const std::string& path : {file, folder, Items().Path() + "\\missing"})
    {
        const HRESULT used = path == folder ? 2 : 3;
        EXPECT_EQ(MenuHandler(module, {path}).Query(menu_, 1, id, id + 2), used) << path;
        Lines added = {"Sendora:", "  Hochladen " + std::to_string(id),
                       "  Herunterladen " + std::to_string(id + 1)};
        added.insert(added.end(), path == folder ? 0 : 1, "  Löschen " + std::to_string(id + 2));
        inserted = added + inserted;
        EXPECT_EQ(ItemsOf(menu_), Lines{"Before 1"} + inserted + Lines{"After 2"});
        id += 0x3000;
    }
}

TEST_F(ModuleMenu, NothingIsAddedWithoutRoomForThreeCommandsOrForADefaultOnlyQuery)
{
    AddItemsAsAccount();
    Items().File("sub\\a.txt");
    const Module module;
    MenuHandler inside(module, {Items().Path() + "\\sub"}); // a folder uses two, and wants room for three
    MenuHandler outside(module, {"C:\\x"});
    const auto only = UINT{CMF_DEFAULTONLY};
    const std::tuple<MenuHandler&, UINT, UINT, UINT, HRESULT> cases[] = {
        {inside, 100, 101, CMF_NORMAL, nothingAdded}, {inside, 100, 99, CMF_NORMAL, nothingAdded},
        {inside, 0, 1, CMF_NORMAL, nothingAdded},     {inside, 100, 101, only, nothingAdded},
        {inside, 100, 102, only | CMF_EXPLORE, S_OK}, {outside, 100, 102, only, nothingAdded},
    };
    for (const auto& [handler, first, last, flags, result] : cases)
    {
        EXPECT_EQ(handler.Query(menu_, 0, first, last, flags), result) << first << " " << last;
        EXPECT_EQ(ItemsOf(menu_), (Lines{"Before 1", "After 2"}));
    }
    EXPECT_EQ(inside.Query(menu_, 0, 100, 102, CMF_EXPLORE | CMF_VERBSONLY), 2);
}

TEST_F(ModuleMenu, FirstItemDecides)
{
    AddItemsAsAccount();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Path() + "\\sub";
    const Module module;
    EXPECT_EQ(MenuHandler(module, {file, "C:\\elsewhere", folder}).Query(menu_), 3);
    EXPECT_EQ(MenuHandler(module, {folder, file}).Query(menu_), 2);
    EXPECT_EQ(MenuHandler(module, {"C:\\elsewhere", file}).Query(menu_), nothingAdded);
    EXPECT_EQ(MenuHandler(module, {Items().Path(), file}).Query(menu_), nothingAdded);
    EXPECT_EQ(ItemsOf(menu_).size(), 2u + (1 + 3) + (1 + 2));
    MenuHandler none(module);
    const TraceCapture trace;
    EXPECT_EQ(none.Query(menu_), nothingAdded);
    EXPECT_EQ(trace.Texts(), (Lines{query, query + "Does NOT belong"}));
}

TEST_F(ModuleMenu, HelpTextsOfAllCommandsWhateverWasAdded)
{
    const Module module;
    MenuHandler handler(module);
    const TraceCapture trace;
    UINT_PTR command = 0;
    for (const std::string text :
         {"Mit Sendora hochladen", "Mit Sendora herunterladen", "Mit Sendora löschen"})
    {
        const auto length = static_cast<UINT>(Wide(text).size());
        EXPECT_EQ(HelpText(handler, command, length + 1), text);
        EXPECT_EQ(HelpText(handler, command, length), text.substr(0, text.size() - 1));
        EXPECT_EQ(HelpText(handler, command, 5), "Mit ");
        EXPECT_EQ(HelpText(handler, command, 0), std::string(99, '#')); // untouched
        ++command;
    }
    WCHAR buffer[10] = {WCHAR{'#'}};
    auto* const narrow = reinterpret_cast<CHAR*>(buffer);
    for (const auto& [offset, type] : {std::pair{UINT_PTR{3}, GCS_HELPTEXTW},
                                       {~UINT_PTR{0}, GCS_HELPTEXTW},
                                       {UINT_PTR{0}, GCS_VERBW},
                                       {UINT_PTR{0}, GCS_HELPTEXTA},
                                       {UINT_PTR{0}, GCS_VALIDATEW}})
    {
        EXPECT_EQ(handler.Menu()->GetCommandString(offset, type, nullptr, narrow, 10), E_INVALIDARG);
    }
    EXPECT_EQ(handler.Menu()->GetCommandString(0, GCS_HELPTEXTW, nullptr, nullptr, 10), E_INVALIDARG);
    EXPECT_EQ(buffer[0], WCHAR{'#'});
    EXPECT_EQ(trace.Texts(), Lines(3 * 4 + 6, "LSendoraContextMenu::GetCommandString"));
}

TEST_F(ModuleMenu, VerbsInWordsAreRefusedBeforeAnythingIsDone)
{
    AddAccount("A", "C:\\A");
    const Module module;
    MenuHandler handler(module, {"C:\\A\\x"});
    const TraceCapture trace;
    const char word[] = "upload";
    for (const UINT_PTR verb : {reinterpret_cast<UINT_PTR>(word), UINT_PTR{0x10000}, UINT_PTR{0x80000000}})
    {
        EXPECT_EQ(handler.Invoke(verb), E_INVALIDARG);
    }
    EXPECT_EQ(handler.Menu()->InvokeCommand(nullptr), E_INVALIDARG);
    EXPECT_EQ(trace.Texts(), Lines(4, "LSendoraContextMenu::InvokeCommand "));
}

#ifndef _WIN32 // the layer can make one call fail
TEST_F(ModuleMenu, EarlierPathsAreKeptWhenOneCannotBeRead)
{
    AddAccount("A", "C:\\A");
    const Module module;
    MenuHandler handler(module);
    sndxposix::FailCall("DragQueryFileW", ERROR_NOT_ENOUGH_MEMORY, 2); // count, first path, second path
    EXPECT_EQ(handler.Select({"C:\\A\\x", "C:\\A\\y", "C:\\A\\z"}), E_INVALIDARG);
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_EQ(handler.Query(menu_), 3);
}
#endif
