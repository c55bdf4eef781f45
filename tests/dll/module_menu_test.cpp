// The context menu: what a selection is read from, what the shell's menu gains, help texts and verbs.

#include "tests/dll/modulehost.h"

using namespace sndxtest;
using testing::Contains;
using testing::IsEmpty;

namespace
{
using ModuleMenu = ModuleTest;

constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);
const std::string initialize = "LSendoraContextMenu::Initialize ";
const std::string query = "LSendoraContextMenu::QueryContextMenu ";
const std::string queryInterface = "LSendoraContextMenu::QueryInterface ";

// A menu of the shell's, as text: one line an item, those of a submenu indented.
class ShellMenu
{
  public:
    ShellMenu()
    {
        for (const WCHAR* text : {TEXT("Before"), TEXT("After")})
        {
            AppendMenuW(menu_, MF_STRING, nextId_++, text);
        }
    }
    ~ShellMenu() { DestroyMenu(menu_); }
    ShellMenu(const ShellMenu&) = delete;
    ShellMenu& operator=(const ShellMenu&) = delete;

    HMENU Handle() const { return menu_; }
    Lines Items() const { return ItemsOf(menu_, ""); }
    static Lines Own() { return {"Before 1", "After 2"}; }

  private:
    static Lines ItemsOf(HMENU menu, const std::string& indent)
    {
        Lines lines;
        for (int i = 0; i < GetMenuItemCount(menu); ++i)
        {
            const auto position = static_cast<UINT>(i);
            WCHAR text[100] = {};
            GetMenuStringW(menu, position, text, 100, MF_BYPOSITION);
            const HMENU popup = GetSubMenu(menu, i);
            if (popup != nullptr)
            {
                lines.push_back(indent + Utf8(text) + ":");
                lines = Join({lines, ItemsOf(popup, indent + "  ")});
                continue;
            }
            lines.push_back(indent + Utf8(text) + " " + std::to_string(GetMenuItemID(menu, i)));
            EXPECT_EQ(GetMenuState(menu, position, MF_BYPOSITION), UINT{MF_STRING | MF_ENABLED});
        }
        return lines;
    }
    HMENU menu_ = CreatePopupMenu();
    UINT_PTR nextId_ = 1;
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
        const auto factory = module.Factory(menuClass);
        EXPECT_THAT(trace.Texts(), AreLines({menuGuidLine, ObjectLine(factory.Get())}));
        trace.Restart();
        ComRef<IContextMenu> menu;
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IContextMenu, menu.Receive()), S_OK);
        EXPECT_THAT(trace.Texts(), AreLines({ObjectLine(menu.Get()), queryInterface,
                                             "GUID = 000214e4 0000 0000 c000 000000000046"}));
        trace.Restart();
        ComRef<IShellExtInit> init;
        ASSERT_EQ(menu->QueryInterface(IID_IShellExtInit, init.Receive()), S_OK);
        EXPECT_EQ(init->Initialize(nullptr, MakeDropDataObject({first, second}).get(), nullptr), S_OK);
        const ShellMenu shellMenu;
        EXPECT_EQ(menu->QueryContextMenu(shellMenu.Handle(), 0, 1, 1000, CMF_NORMAL), 3);
        WCHAR help[50];
        EXPECT_EQ(menu->GetCommandString(1, GCS_HELPTEXTW, nullptr, reinterpret_cast<CHAR*>(help), 50), S_OK);
        CMINVOKECOMMANDINFO info = {};
        info.cbSize = sizeof info;
        info.lpVerb = MAKEINTRESOURCEA(0);
        EXPECT_EQ(menu->InvokeCommand(&info), E_FAIL); // there is no main program
    }
    EXPECT_THAT(trace.Texts(),
                AreLines(Join({{queryInterface, "GUID = 000214e8 0000 0000 c000 000000000046", initialize,
                                initialize + first, initialize + second, query, query + "file: " + first,
                                "CheckPaths", query + "Checking folder: C:\\Konten\\B"},
                               WalkLines(first, {"C:\\Konten\\B"}),
                               {query + "Checking folder: C:\\Konten\\Grün"},
                               WalkLines(first, {"C:\\Konten\\Grün"}),
                               {query + "Does belong", "LSendoraContextMenu::GetCommandString",
                                "LSendoraContextMenu::InvokeCommand ", "_LUserSetting32GetString ",
                                "_LSharedSetting32GetString ", "LNamedPipe::_Open CreateFile FAILED:...",
                                "LNamedPipe::_Open Could not open \"SendoraService\"",
                                "LNamedPipe::Open  SendoraService", "LNamedPipe::_Open CreateFile FAILED:...",
                                "LNamedPipe::_Open Could not open \"SendoraService\""}})));
    trace.Restart();
    module.Free(); // everything was released on the way
    EXPECT_THAT(trace.Texts(), AreLines(ClosingLines()));
}

TEST_F(ModuleMenu, UnusableDataIsRefusedAndNothingOfItKept)
{
    AddAccount("A", "C:\\A");
    const Module module;
    struct
    {
        const char* what;
        std::vector<std::string> paths;
        DropOptions options;
    } cases[] = {
        {"no such format", {"C:\\A\\x"}, {.noDropFormat = true}},
        {"failing", {"C:\\A\\x"}, {.failGetData = true}},
        {"no memory", {"C:\\A\\x"}, {.nullBlock = true}},
        {"no memory, with an owner", {"C:\\A\\x"}, {.nullBlock = true, .withOwner = true}},
        {"no paths", {}, {.withOwner = true}},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        MenuHandler handler(module);
        const TraceCapture trace;
        EXPECT_EQ(handler.Select(c.paths, c.options), E_INVALIDARG);
        EXPECT_THAT(trace.Texts(), AreLines({initialize}));
        EXPECT_EQ(DropDataObject::LiveObjects(), 0);
        EXPECT_EQ(DropDataObject::LiveMediums(), 0);
        const ShellMenu menu;
        EXPECT_EQ(handler.Query(menu.Handle()), nothingAdded);
    }
    MenuHandler handler(module);
    const TraceCapture trace;
    EXPECT_EQ(handler.Init()->Initialize(nullptr, nullptr, nullptr), E_INVALIDARG);
    EXPECT_THAT(trace.Texts(), AreLines({initialize}));
}

TEST_F(ModuleMenu, SelectionIsReadFromWideAndNarrowDataAndReleased)
{
    AddAccount("A", "C:\\A");
    const Module module;
    for (const bool narrow : {false, true})
    {
        MenuHandler handler(module);
        const TraceCapture trace;
        EXPECT_EQ(handler.Select({"C:\\A\\x", "C:\\A\\" + std::string(300, 'y')},
                                 {.withOwner = true, .narrow = narrow}),
                  S_OK);
        EXPECT_THAT(trace.Texts(), AreLines({initialize, initialize + "C:\\A\\x",
                                             initialize + "C:\\A\\" + std::string(259 - 5, 'y')}));
        EXPECT_EQ(DropDataObject::LiveMediums(), 0);
        const ShellMenu menu;
        EXPECT_EQ(handler.Query(menu.Handle()), 3);
    }
    EXPECT_EQ(DropDataObject::LiveObjects(), 0);
}

TEST_F(ModuleMenu, SubmenuIsInsertedAtTheShellsPositionWithTheShellsIdentifiers)
{
    AddItemsAsAccount();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Folder("sub");
    const Module module;
    const auto added = [](const std::string& path, unsigned first)
    {
        Lines lines = {"Sendora:", "  Hochladen " + std::to_string(first),
                       "  Herunterladen " + std::to_string(first + 1)};
        if (!path.ends_with("sub"))
        {
            lines.push_back("  Löschen " + std::to_string(first + 2));
        }
        return lines;
    };
    for (const std::string& path : {file, folder, Items().Path() + "\\missing"})
    {
        SCOPED_TRACE(path);
        MenuHandler handler(module, {path});
        const HRESULT used = path == folder ? 2 : 3;
        {
            const ShellMenu menu;
            EXPECT_EQ(handler.Query(menu.Handle(), 1, 100, 200), used);
            EXPECT_EQ(menu.Items(), Join({{"Before 1"}, added(path, 100), {"After 2"}}));
        }
        {
            const ShellMenu menu;
            EXPECT_EQ(handler.Query(menu.Handle(), 0, 0x7000, 0x7002), used);
            EXPECT_EQ(handler.Query(menu.Handle(), 3, 0, 2), used); // asked twice it answers twice
            EXPECT_EQ(menu.Items(), Join({added(path, 0x7000), ShellMenu::Own(), added(path, 0)}));
        }
    }
}

TEST_F(ModuleMenu, NothingIsAddedWithoutRoomForThreeCommandsOrForADefaultOnlyQuery)
{
    AddItemsAsAccount();
    const std::string folder = Items().Folder("sub");
    const Module module;
    MenuHandler inside(module, {folder}); // a folder uses two, and wants room for three
    MenuHandler outside(module, {"C:\\x"});
    const ShellMenu menu;
    const auto only = UINT{CMF_DEFAULTONLY};
    struct
    {
        MenuHandler& handler;
        UINT first;
        UINT last;
        UINT flags;
        HRESULT result;
    } cases[] = {
        {inside, 100, 101, CMF_NORMAL, nothingAdded},
        {inside, 100, 99, CMF_NORMAL, nothingAdded},
        {inside, 0, 1, CMF_NORMAL, nothingAdded},
        {inside, 100, 101, only, nothingAdded},
        {inside, 100, 102, only, S_OK},
        {inside, 100, 102, only | CMF_EXPLORE, S_OK},
        {outside, 100, 102, only, nothingAdded},
        {outside, 100, 101, CMF_NORMAL, nothingAdded},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.handler.Query(menu.Handle(), 0, c.first, c.last, c.flags), c.result)
            << c.first << " " << c.last;
        EXPECT_EQ(menu.Items(), ShellMenu::Own());
    }
    EXPECT_EQ(inside.Query(menu.Handle(), 0, 100, 102, CMF_EXPLORE | CMF_VERBSONLY), 2);
}

TEST_F(ModuleMenu, FirstItemDecides)
{
    AddItemsAsAccount();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Folder("sub");
    const Module module;
    const std::string outside = "C:\\elsewhere\\b";
    struct
    {
        std::vector<std::string> paths;
        HRESULT result;
    } cases[] = {
        {{file, outside, folder}, 3},           {{folder, file}, 2},
        {{outside, file}, nothingAdded},        {{Items().Path()}, nothingAdded},
        {{Items().Path(), file}, nothingAdded},
    };
    for (const auto& c : cases)
    {
        MenuHandler handler(module, c.paths);
        const ShellMenu menu;
        const TraceCapture trace;
        EXPECT_EQ(handler.Query(menu.Handle()), c.result) << c.paths[0];
        EXPECT_EQ(menu.Items().size(), c.result == nothingAdded ? 2u : 3u + static_cast<unsigned>(c.result));
        const bool belongs = c.result != nothingAdded;
        EXPECT_THAT(trace.Texts(), AreLines(Join({{query, query + "file: " + c.paths[0], "CheckPaths",
                                                   query + "Checking folder: " + Items().Path()},
                                                  WalkLines(c.paths[0], {Items().Path()}),
                                                  {query + (belongs ? "Does belong" : "Does NOT belong")}})));
    }
}

TEST_F(ModuleMenu, SecondInitializeAppends)
{
    AddItemsAsAccount();
    const std::string file = Items().File("a.txt");
    const Module module;
    MenuHandler handler(module);
    const ShellMenu menu;
    {
        const TraceCapture trace;
        EXPECT_EQ(handler.Query(menu.Handle()), nothingAdded); // no selection yet
        EXPECT_THAT(trace.Texts(), AreLines({query, query + "Does NOT belong"}));
    }
    EXPECT_EQ(handler.Select({"C:\\elsewhere"}), S_OK);
    EXPECT_EQ(handler.Select({file}), S_OK);
    EXPECT_EQ(handler.Select({}), E_INVALIDARG);
    EXPECT_EQ(handler.Query(menu.Handle()), nothingAdded); // the first one ever decides
    MenuHandler other(module, {file});
    EXPECT_EQ(other.Select({"C:\\elsewhere"}), S_OK);
    EXPECT_EQ(other.Query(menu.Handle()), 3);
}

TEST_F(ModuleMenu, HelpTextsOfAllCommandsWhateverWasAdded)
{
    const Module module;
    MenuHandler handler(module);
    const std::string texts[] = {"Mit Sendora hochladen", "Mit Sendora herunterladen", "Mit Sendora löschen"};
    const TraceCapture trace;
    for (UINT_PTR offset = 0; offset < 3; ++offset)
    {
        const std::string& text = texts[offset];
        const auto length = static_cast<UINT>(Wide(text).size());
        EXPECT_EQ(HelpText(handler, offset, 90), text);
        EXPECT_EQ(HelpText(handler, offset, length + 1), text);
        EXPECT_EQ(HelpText(handler, offset, length), text.substr(0, text.size() - 1));
        EXPECT_EQ(HelpText(handler, offset, 5), "Mit ");
        EXPECT_EQ(HelpText(handler, offset, 1), "");
        EXPECT_EQ(HelpText(handler, offset, 0), std::string(99, '#')); // untouched
    }
    WCHAR buffer[10] = {WCHAR{'#'}};
    auto* const narrow = reinterpret_cast<CHAR*>(buffer);
    for (const UINT_PTR offset : {UINT_PTR{3}, UINT_PTR{100}, ~UINT_PTR{0}})
    {
        EXPECT_EQ(handler.Menu()->GetCommandString(offset, GCS_HELPTEXTW, nullptr, narrow, 10), E_INVALIDARG);
    }
    for (const UINT type : {UINT{GCS_VERBA}, UINT{GCS_HELPTEXTA}, UINT{GCS_VALIDATEA}, UINT{GCS_VERBW},
                            UINT{GCS_VALIDATEW}, UINT{7}})
    {
        EXPECT_EQ(handler.Menu()->GetCommandString(0, type, nullptr, narrow, 10), E_INVALIDARG) << type;
    }
    EXPECT_EQ(handler.Menu()->GetCommandString(0, GCS_HELPTEXTW, nullptr, nullptr, 10), E_INVALIDARG);
    EXPECT_EQ(buffer[0], WCHAR{'#'});
    EXPECT_EQ(trace.Texts(), Lines(3 * 6 + 3 + 6 + 1, "LSendoraContextMenu::GetCommandString"));
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
