// The overlay identifier: which items get the icon, where the icon comes from, when the account table behind
// the answers is loaded anew, and what is traced.

#include <atomic>
#include <thread>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleOverlay = ModuleTest;

HRESULT Ask(IShellIconOverlayIdentifier* overlay, const std::string& path, DWORD attributes = 0)
{
    return overlay->IsMemberOf(Wide(path).c_str(), attributes);
}

// On Windows; Wine gives every file the archive attribute and no folder, and lets nobody change that.
void SetArchive(const std::string& path, bool set)
{
    const DWORD others = GetFileAttributesW(Wide(path).c_str()) & ~DWORD{FILE_ATTRIBUTE_ARCHIVE};
    SetFileAttributesW(Wide(path).c_str(), others | (set ? FILE_ATTRIBUTE_ARCHIVE : 0));
}

bool HasArchive(const std::string& path) // attributes that cannot be read count as set
{
    return (GetFileAttributesW(Wide(path).c_str()) & FILE_ATTRIBUTE_ARCHIVE) != 0;
}
} // namespace

TEST_F(ModuleOverlay, ArchiveAttributeOfTheItemItselfDecidesInsideAnAccountFolder)
{
    AddItemsAsAccount();
    const std::string file = Items().File("sub\\a.txt");
    const std::string folder = Items().Path() + "\\sub";
    const std::string missing = Items().Path() + "\\missing";
    const Module module;
    const auto overlay = module.Overlay();
    int answers[2] = {};
    for (const bool set : {true, false})
    {
        for (const std::string& path : {file, folder, missing})
        {
            SetArchive(path, set);
            const bool shown = HasArchive(path);
            EXPECT_TRUE(UnderWine() || path == missing || shown == set) << path;
            // The shell's own idea of the attributes is not used.
            for (const DWORD passed : {DWORD{0}, DWORD{0xFFFFFFFF}})
            {
                const TraceCapture trace;
                EXPECT_EQ(Ask(overlay.Get(), path, passed), shown ? S_OK : S_FALSE) << path << set;
                const std::string answer = "LShellExt::IsMemberOf returned: ";
                EXPECT_EQ(trace.Texts(), Lines{"CheckPaths"} + WalkLines(path, {Items().Path()}) +
                                             Lines{answer + (shown ? "1" : "0")});
            }
            ++answers[shown ? 1 : 0];
        }
    }
    EXPECT_TRUE(answers[0] > 0 && answers[1] > 0);
}

TEST_F(ModuleOverlay, IconIsTheFirstOneOfTheModule)
{
    const Module module;
    const auto overlay = module.Overlay();
    WCHAR own[1024];
    const auto length = static_cast<int>(GetModuleFileNameW(module.Handle(), own, 1024));
    for (const int size : {1024, length + 1, length, 5, 1}) // a path that does not fit is cut
    {
        std::vector<WCHAR> buffer(1024 + 1, WCHAR{'#'});
        int index = -1;
        DWORD flags = 0;
        EXPECT_EQ(overlay->GetOverlayInfo(buffer.data(), size, &index, &flags), S_OK);
        EXPECT_EQ(WideString(buffer.data()),
                  WideString(own, static_cast<std::size_t>(std::min(size - 1, length))));
        EXPECT_EQ(buffer[static_cast<std::size_t>(size)], WCHAR{'#'}); // not one character too many
        EXPECT_EQ(index, 0);
        EXPECT_EQ(flags, 3u);
    }
    WCHAR buffer[8] = {};
    int number = -1;
    DWORD flags = 0;
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 0, &number, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(nullptr, 8, &number, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 8, nullptr, &flags), E_INVALIDARG);
    EXPECT_EQ(overlay->GetOverlayInfo(buffer, 8, &number, nullptr), E_INVALIDARG);
    EXPECT_EQ(overlay->GetPriority(&number), S_OK);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(overlay->GetPriority(nullptr), E_FAIL);
}

SNDX_CHILD(AnnounceAChange)
{
    const Module module;
    const TraceCapture trace;
    module.StateChanged();
    return trace.Texts() == Lines{"StateChanged"} ? 0 : 2;
}

TEST_F(ModuleOverlay, TableIsReloadedAfterAChangeInAnyProcessAndOnlyThen)
{
    AddAccount("Gone", "C:\\Gone");
    const Module module;
    const auto overlay = module.Overlay();
    TraceCapture trace;
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_OK);

    RemoveAllSettings();
    AddAccount("New", "C:\\New");
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_OK); // nobody has said so yet
    EXPECT_FALSE(Contains(trace.Texts(), "LoadPaths"));

    ASSERT_EQ(ChildProcess("AnnounceAChange", {}).Wait(), 0);
    trace.Restart(); // the other host's trace has the same name and ends with an unload
    EXPECT_EQ(Ask(overlay.Get(), "C:\\Gone\\x"), S_FALSE);
    const Lines lines = trace.Texts();
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 2), (Lines{"CheckPaths", "LoadPaths"}));
    EXPECT_EQ(LastLines(lines), WalkLines("C:\\Gone\\x", {"C:\\New"}) +
                                    Lines{"LShellExt::IsMemberOf returned false because !bFound"});
    trace.Restart();
    EXPECT_EQ(Ask(overlay.Get(), "C:\\New\\x"), S_OK);
    EXPECT_FALSE(Contains(trace.Texts(), "LoadPaths")); // once is enough

    Sleep(20); // the stamp is the time of the change
    RemoveAllSettings();
    module.StateChanged();
    EXPECT_EQ(Ask(overlay.Get(), "C:\\New\\x"), S_FALSE);
}

TEST_F(ModuleOverlay, ManyThreadsAskWhileAnotherAnnouncesChanges)
{
    AddItemsAsAccount();
    AddAccount("Other", "C:\\Other");
    const std::string file = Items().File("a.txt");
    const Module module;
    const auto overlay = module.Overlay();
    const TraceCapture trace;
    std::atomic<int> running = 4;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (const std::string& path : {file, std::string("C:\\Elsewhere\\1"), file, std::string("C:\\2")})
    {
        threads.emplace_back(
            [&, path]
            {
                for (int round = 0; round < 40; ++round)
                {
                    wrong += Ask(overlay.Get(), path) == (path == file ? S_OK : S_FALSE) ? 0 : 1;
                    Sleep(1);
                }
                --running;
            });
    }
    while (running > 0)
    {
        module.StateChanged();
        Sleep(3);
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    const Lines lines = trace.Texts();
    EXPECT_GT(std::count(lines.begin(), lines.end(), "LoadPaths"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "CheckPaths"),
              4 * 40); // each waits for the others' lines
    EXPECT_FALSE(
        std::any_of(lines.begin(), lines.end(), [](const auto& line) { return line.starts_with("**"); }));
}
