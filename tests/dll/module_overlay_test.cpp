// The overlay identifier: which items get the icon, where the icon comes from, and what is traced.

#include <atomic>
#include <thread>

#include "tests/dll/archiveattribute.h"
#include "tests/dll/modulehost.h"

using namespace sndxtest;
using testing::Contains;
using testing::Each;
using testing::Not;

namespace
{
using ModuleOverlay = ModuleTest;

HRESULT Ask(IShellIconOverlayIdentifier* overlay, const std::string& path, DWORD attributes = 0)
{
    return overlay->IsMemberOf(Wide(path).c_str(), attributes);
}
} // namespace

TEST_F(ModuleOverlay, ArchiveAttributeOfTheItemItselfDecidesInsideAnAccountFolder)
{
    AddItemsAsAccount();
    const std::string& root = Items().Path();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Folder("sub");
    const Module module;
    ArchiveAttribute archive(module.Handle());
    const auto overlay = module.Overlay();
    struct
    {
        std::string path;
        bool set;
        HRESULT result;
    } cases[] = {
        {file, true, S_OK},
        {file, false, S_FALSE},
        {folder, true, S_OK},
        {folder, false, S_FALSE},
        {root + "\\missing", false, S_OK}, // attributes that cannot be read count as set
    };
    for (const auto& c : cases)
    {
        archive.Set(c.path, c.set);
        // The shell's own idea of the attributes is not used.
        for (const DWORD passed : {DWORD{0}, DWORD{FILE_ATTRIBUTE_ARCHIVE}, DWORD{0xFFFFFFFF}})
        {
            const TraceCapture trace;
            EXPECT_EQ(Ask(overlay.Get(), c.path, passed), c.result) << c.path << c.set;
            EXPECT_THAT(trace.Texts(), AreLines(Join({{"CheckPaths"},
                                                      WalkLines(c.path, {root}),
                                                      {"LShellExt::IsMemberOf returned: " +
                                                       std::to_string(c.result == S_OK ? 1 : 0)}})));
        }
    }
}

TEST_F(ModuleOverlay, ItemsOutsideEveryAccountFolderGetNoIcon)
{
    AddItemsAsAccount();
    AddAccount("Other", "C:\\Other");
    const std::string& root = Items().Path();
    Items().File("a.txt");
    const Module module;
    const auto overlay = module.Overlay();
    // The folder itself, a sibling whose name begins with its name, nothing at all.
    for (const std::string& path : {root, root + "other\\a", std::string("C:\\"), std::string()})
    {
        const TraceCapture trace;
        EXPECT_EQ(Ask(overlay.Get(), path), S_FALSE) << path;
        EXPECT_THAT(trace.Texts(),
                    AreLines(Join({{"CheckPaths"},
                                   WalkLines(path, {"C:\\Other", root}),
                                   {"LShellExt::IsMemberOf returned false because !bFound"}})));
    }
    EXPECT_EQ(overlay->IsMemberOf(nullptr, 0), S_FALSE);
}

TEST_F(ModuleOverlay, OverlongPathIsReportedAndBelongsNowhere)
{
    AddAccount("A", "C:\\A");
    const Module module;
    const auto overlay = module.Overlay();
    const auto path = [](std::size_t length) { return "C:\\A\\" + std::string(length - 5, 'x'); };
    EXPECT_EQ(Ask(overlay.Get(), path(259)), S_OK); // not there: its attributes cannot be read
    const TraceCapture trace;
    EXPECT_EQ(Ask(overlay.Get(), path(261)), S_FALSE);
    const Lines lines = trace.Texts();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[1], ("FileBelongsToFolder: " + path(261)).substr(0, 21 + 259)); // values are cut there
    EXPECT_EQ(lines[3], "**LFile::_GetFolderFromPath szPath is too long");
    EXPECT_EQ(lines[4], "LShellExt::IsMemberOf returned false because !bFound");
}

TEST_F(ModuleOverlay, IconIsTheFirstOneOfTheModule)
{
    const Module module;
    const auto overlay = module.Overlay();
    WCHAR own[1024];
    const DWORD length = GetModuleFileNameW(module.Handle(), own, 1024);
    const std::string path = Utf8(own);
    ASSERT_EQ(path.size(), length) << "the path of the build has to be plain text";

    const TraceCapture trace;
    for (const int size : {1024, static_cast<int>(length) + 1, static_cast<int>(length), 5, 1})
    {
        std::vector<WCHAR> buffer(1024 + 1, WCHAR{'#'});
        int index = -1;
        DWORD flags = 0;
        EXPECT_EQ(overlay->GetOverlayInfo(buffer.data(), size, &index, &flags), S_OK);
        EXPECT_EQ(Utf8(buffer.data()), path.substr(0, static_cast<std::size_t>(size) - 1)) << size;
        EXPECT_EQ(buffer[static_cast<std::size_t>(size)], WCHAR{'#'}); // not one character too many
        EXPECT_EQ(index, 0);
        EXPECT_EQ(flags, 3u);
    }
    WCHAR buffer[8] = {WCHAR{'#'}};
    int index = 0;
    DWORD flags = 0;
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 0, &index, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, -1, &index, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(nullptr, 8, &index, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 8, nullptr, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 8, &index, nullptr), E_INVALIDARG);
    EXPECT_EQ(buffer[0], WCHAR{'#'});

    int priority = -1;
    EXPECT_EQ(overlay->GetPriority(&priority), S_OK);
    EXPECT_EQ(priority, 0);
    EXPECT_EQ(overlay->GetPriority(nullptr), E_FAIL);
    EXPECT_THAT(trace.Texts(), testing::IsEmpty());
}

// --- The account table behind the answers ------------------------------------------------------------------

TEST_F(ModuleOverlay, AccountsAreWalkedFromTheLastListedToTheFirst)
{
    AddAccount("A", "C:\\A");
    AddAccount("B", "");
    AddAccount("C", "C:\\C");
    AddAccount("D", "C:\\D\\");
    const Module module;
    const auto overlay = module.Overlay();
    const TraceCapture trace;
    EXPECT_EQ(Ask(overlay.Get(), "C:\\C\\x"), S_OK);
    EXPECT_THAT(trace.Texts(), AreLines(Join({{"CheckPaths"},
                                              WalkLines("C:\\C\\x", {"C:\\D\\", "C:\\C"}),
                                              {"LShellExt::IsMemberOf returned: 1"}})));
    EXPECT_EQ(Ask(overlay.Get(), "c:\\d\\x"), S_OK);
    EXPECT_EQ(Ask(overlay.Get(), "C:\\A\\deep\\er\\x"), S_OK);
}

SNDX_CHILD(AnnounceAChange)
{
    const Module module;
    const TraceCapture trace;
    module.StateChanged();
    return trace.Texts() == Lines{"StateChanged"} ? 0 : 2;
}

TEST_F(ModuleOverlay, TableIsReloadedAfterAChangeInAnotherProcessAndOnlyThen)
{
    AddAccount("Gone", "C:\\Gone");
    const Module module;
    const auto overlay = module.Overlay();
    TraceCapture trace;
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_OK);

    RemoveAllSettings();
    AddAccount("New", "C:\\New");
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_OK); // nobody has said so yet
    EXPECT_THAT(trace.Texts(), Not(Contains("LoadPaths")));

    ASSERT_EQ(ChildProcess("AnnounceAChange", {}).Wait(), 0);
    trace.Restart(); // the other host's trace has the same name and ends with an unload
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_FALSE);
    EXPECT_THAT(trace.Texts(), AreLines(Join({{"CheckPaths"},
                                              LoadLines({"C:\\New"}),
                                              WalkLines("C:\\Gone\\x", {"C:\\New"}),
                                              {"LShellExt::IsMemberOf returned false because !bFound"}})));
    trace.Restart();
    EXPECT_EQ(Ask(overlay.Get(), "C:\\New\\x"), S_OK);
    EXPECT_THAT(trace.Texts(), Not(Contains("LoadPaths"))); // once is enough
}

TEST_F(ModuleOverlay, OwnChangeIsSeenAtTheNextQueryToo)
{
    const Module module;
    const auto overlay = module.Overlay();
    AddAccount("New", "C:\\New");
    TraceCapture trace;
    module.StateChanged();
    EXPECT_THAT(trace.Texts(), AreLines({"StateChanged"}));
    trace.Restart();
    EXPECT_EQ(Ask(overlay.Get(), "C:\\New\\x"), S_OK);
    EXPECT_THAT(trace.Texts(), Contains("LoadPaths"));
}

TEST_F(ModuleOverlay, WithoutTheSharedStampTheTableStaysAsLoaded)
{
    // Another kind of object has taken the name.
    const HANDLE taken = CreateMutexW(nullptr, FALSE, TEXT("SharedMemoryForsndxdll"));
    ASSERT_NE(taken, nullptr);
    AddAccount("A", "C:\\A");
    {
        const Module module;
        const Lines loaded = WholeTrace();
        EXPECT_THAT(loaded,
                    Contains(testing::StartsWith(
                        "LIPCSharedMemoryBuffer::_Create CreateFileMapping failed returned error: ")));
        EXPECT_THAT(loaded, Contains("LoadPaths Add: pNew->szFolderPath"));
        const auto overlay = module.Overlay();
        RemoveAllSettings();
        const TraceCapture trace;
        module.StateChanged();
        EXPECT_EQ(Ask(overlay.Get(), "C:\\A\\x"), S_OK);
        EXPECT_THAT(trace.Texts(), AreLines(Join({{"StateChanged", "CheckPaths"},
                                                  WalkLines("C:\\A\\x", {"C:\\A"}),
                                                  {"LShellExt::IsMemberOf returned: 1"}})));
    }
    CloseHandle(taken);
}

TEST_F(ModuleOverlay, ManyThreadsAskWhileAnotherAnnouncesChanges)
{
    AddItemsAsAccount();
    AddAccount("Other", "C:\\Other");
    const std::string file = Items().File("a.txt");
    const Module module;
    const auto overlay = module.Overlay();
    const TraceCapture trace;
    constexpr int askers = 4;
    constexpr int rounds = 40;
    std::atomic<int> running = askers;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < askers; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                const std::string path = i % 2 == 0 ? file : "C:\\Elsewhere\\" + std::to_string(i);
                for (int round = 0; round < rounds; ++round)
                {
                    wrong += Ask(overlay.Get(), path) == (i % 2 == 0 ? S_OK : S_FALSE) ? 0 : 1;
                    Sleep(1);
                }
                --running;
            });
    }
    int announced = 0;
    for (; running > 0; ++announced)
    {
        module.StateChanged();
        Sleep(3);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    const std::vector<TraceLine> lines = trace.Lines();
    const auto count = [&](const std::string& text)
    {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const TraceLine& line) { return line.text == text; });
    };
    // A writer that finds the file taken again and again gives its line up after seconds; that is rare.
    const auto nearly = [](int all) { return testing::AllOf(testing::Ge(all - all / 10), testing::Le(all)); };
    EXPECT_THAT(count("CheckPaths"), nearly(askers * rounds));
    EXPECT_THAT(count("LShellExt::IsMemberOf returned: 1"), nearly(askers / 2 * rounds));
    EXPECT_THAT(count("StateChanged"), nearly(announced));
    EXPECT_GT(count("LoadPaths"), 0);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const TraceLine& line) { return line.error; }), 0);
}
