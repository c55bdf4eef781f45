// What only the linked rooms show: which path belongs to which folder, the account table and its stamp, and
// faults that no caller in the module makes.

#include <thread>

#include "dll/folders.h"
#include "dll/request.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/support/timing.h"

using namespace sndxtest;

namespace
{
// No settings and an empty table, before and after.
class Room : public testing::Test
{
  protected:
    Room() { RemoveTraceFiles(); }
    ~Room() override { g_FolderList.DeleteAll(); }

  private:
    CleanSettings settings_;
};

std::string PathOfLength(std::size_t length)
{
    return "C:\\A\\" + std::string(length - 5, 'x');
}

// The table as it is loaded now, every folder with the time of its last update.
Lines LoadTable()
{
    LLockObjectScope lock(g_FolderListLock);
    LoadPaths();
    Lines table;
    for (LListIterator<FolderPathItem> it(g_FolderList); it.IsValid(); it.Next())
    {
        table.push_back(Utf8(it->szFolderPath) + " " + std::to_string(it->lastUpdate));
    }
    return table;
}
} // namespace

TEST_F(Room, FileBelongsToItsAncestorsAndToNothingElse)
{
    const std::string longest = PathOfLength(257);
    const std::string tooLong = PathOfLength(260);
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"C:\\Sync\\", "c:\\sync\\a\\b.txt", true},
        {"C:\\Sync", "C:\\Sync", false},
        {"C:\\Sync", "C:\\Sync\\", true}, // what stands before the last separator is the folder
        {"C:\\Sync", "C:\\Syncother\\x", false},
        {"C:\\", "C:\\x.txt", true},
        {"C:", "C:\\deep\\er\\x.txt", true},
        {"C:/Sync", "C:\\Sync\\x", false},
        {"C:/Sync/", "C:/Sync\\x", true}, // both separate
        {"C:\\Sync\\\\", "C:\\Sync\\x", false},
        {"C:\\Sync\\\\", "C:\\Sync\\\\x", true}, // one separator is left on either side
        {"C:\\ÜbuNG[", "c:\\ÜBUng[\\x", true},   // letters from A to Z are folded, nothing else
        {"C:\\Übung", "C:\\übung\\x", false},
        {"\\\\server\\share", "\\\\Server\\Share\\a\\b", true},
        {"", "C:\\x", true},  // the walk ends at the empty parent of "C:"
        {"/", "/a/b", false}, // the folder becomes empty, the walk ends at "/"
        {"/home", "/home/a", true},
        {"C:\\A", PathOfLength(259), true},
        {"C:\\A", tooLong, false},
        {longest, longest + "\\y", true},
        {tooLong, tooLong + "\\y", false},
    };
    for (const auto& [folder, file, belongs] : cases)
    {
        EXPECT_EQ(FileBelongsToFolder(Wide(folder).c_str(), Wide(file).c_str()), belongs)
            << folder << " " << file;
    }
}

TEST_F(Room, NullAndOverlongPathsAreReported)
{
    const TraceCapture trace;
    EXPECT_FALSE(FileBelongsToFolder(nullptr, TEXT("C:\\x")));
    EXPECT_FALSE(FileBelongsToFolder(TEXT("C:"), nullptr));
    const std::string tooLong = PathOfLength(261);
    EXPECT_FALSE(FileBelongsToFolder(TEXT("C:"), Wide(tooLong).c_str()));
    GetSendoraPath(nullptr);
    EXPECT_EQ(trace.Texts(), (Lines{"FileBelongsToFolder: C:\\x", "Folder: !!! NULL !!!",
                                    "FileBelongsToFolder: !!! NULL !!!",
                                    "Folder: C:", "FileBelongsToFolder: " + tooLong.substr(0, 259),
                                    "Folder: C:", // values are cut there
                                    "**LFile::_GetFolderFromPath szPath is too long",
                                    "**GetSendoraPath Invalid input (nullptr)"}));
}

TEST_F(Room, TableHoldsEveryAccountWithAFolderThatFitsLastListedFirst)
{
    AddAccount("A", "C:\\A", "1700000000");
    AddAccount("B", "C:\\B", "-5");
    AddAccount("C", "");
    AddAccount("D", PathOfLength(260));
    AddAccount("E", "C:\\E", "");
    FailAllocation(1); // an account without memory is missing, and the others are not
    EXPECT_EQ(LoadTable(), (Lines{"C:\\E 0", "C:\\A 1700000000"}));
    EXPECT_EQ(LoadTable(), (Lines{"C:\\E 0", "C:\\B -5", "C:\\A 1700000000"}));
}

TEST_F(Room, StampOfTheChangeCausesOneLoadWhateverTheDifference)
{
    std::uint32_t& stamp = *g_SharedState.Get();
    EXPECT_EQ(stamp, 0u); // a new block
    const DWORD before = GetTickCount();
    StateChanged();
    EXPECT_LE(stamp - before, GetTickCount() - before);
    LLockObjectScope lock(g_FolderListLock);
    for (const std::uint32_t changed : {stamp, 0x80000001u, 5u}) // newer or older
    {
        stamp = changed;
        CheckPaths();
        EXPECT_EQ(g_uLoadedState, changed);
        const TraceCapture trace;
        CheckPaths();
        EXPECT_EQ(trace.Texts(), Lines{"CheckPaths"});
    }
    g_SharedState.Close(); // as when it cannot be made
    const TraceCapture trace;
    StateChanged();
    CheckPaths();
    EXPECT_EQ(trace.Texts(), (Lines{"StateChanged", "CheckPaths"}));
    LoadPaths();
    EXPECT_EQ(g_uLoadedState, 5u);
    g_SharedState._Create(TEXT("SharedMemoryForsndxtest"), sizeof(stamp), false, false);
}

TEST_F(Room, ChangeDuringALoadCausesOneMore)
{
    for (int i = 0; i < 50; ++i)
    {
        AddAccount(std::to_string(i), "C:\\A");
    }
    const TraceCapture trace;
    std::thread change(
        [&]
        {
            const Stopwatch waiting; // without a pause: the load is short
            while (trace.Texts().size() < 20 && waiting.Milliseconds() < 20000)
            {
            }
            EXPECT_GE(trace.Texts().size(), 20u) << "no account is read";
            *g_SharedState.Get() = 99;
        });
    LoadTable();
    change.join();
    EXPECT_NE(g_uLoadedState, 99u);
}
