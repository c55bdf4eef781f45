// Which paths belong to which folders, and the account table when memory or the shared stamp is missing.

#include "tests/dll/roomfixture.h"

using namespace sndxtest;

namespace
{
using RoomFolders = RoomTest;

bool Belongs(const std::string& folder, const std::string& file)
{
    return FileBelongsToFolder(Wide(folder).c_str(), Wide(file).c_str());
}

std::string PathOfLength(std::size_t length)
{
    return "C:\\A\\" + std::string(length - 5, 'x');
}

int TableSize()
{
    int size = 0;
    for (LListIterator<FolderPathItem> it(g_FolderList); it.IsValid(); it.Next())
    {
        ++size;
    }
    return size;
}

void LoadTable()
{
    LLockObjectScope lock(g_FolderListLock);
    LoadPaths();
}
} // namespace

TEST_F(RoomFolders, FileBelongsToItsAncestorsAndToNothingElse)
{
    const struct
    {
        const char* folder;
        const char* file;
        bool belongs;
    } cases[] = {
        {"C:\\Sync\\", "c:\\sync\\a\\b.txt", true},
        {"C:\\Sync", "C:\\Sync", false},
        {"C:\\Sync", "C:\\Sync\\", true}, // what stands before the last separator is the folder
        {"C:\\Sync", "C:\\Sync\\x", true},
        {"C:\\Sync", "C:\\Syncother\\x", false},
        {"C:\\Sync", "C:\\Syn\\x", false},
        {"C:\\Sync\\deep", "C:\\Sync\\x", false},
        {"C:\\", "C:\\x.txt", true},
        {"C:", "C:\\deep\\er\\x.txt", true},
        {"C:\\", "D:\\x.txt", false},
        {"C:/Sync", "C:\\Sync\\x", false},
        {"C:\\Sync", "C:/Sync/x", false},
        {"C:/Sync/", "C:/Sync\\x", true}, // both separate
        {"C:\\Sync\\\\", "C:\\Sync\\x", false},
        {"C:\\Sync\\/", "C:\\Sync\\x", false},
        {"C:\\Sync\\\\", "C:\\Sync\\\\x", true}, // one separator is left on either side
        {"C:\\SYNC[", "C:\\sync{\\x", false},    // letters only are folded
        {"C:\\Übung", "C:\\Übung\\x", true},
        {"C:\\ÜBUNG", "C:\\übung\\x", false},
        {"C:\\ÜbuNG", "c:\\ÜBUng\\x", true},
        {"\\\\server\\share", "\\\\Server\\Share\\a\\b", true},
        {"\\\\server\\share", "\\\\server\\other\\a", false},
        {"", "C:\\x", true},   // the walk ends at the empty parent of "C:"
        {"\\", "C:\\x", true}, // and so it does for a lone separator
        {"C:\\Sync", "x", false},
        {"C:\\Sync", "", false},
        {"/", "/a/b", false}, // the folder becomes empty, the walk ends at "/"
        {"/home", "/home/a", true},
        {"/home", "/other/a", false},
        {"/home", "/", false},
        {"C:\\Sync", "//a", false},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(Belongs(c.folder, c.file), c.belongs) << c.folder << " " << c.file;
    }
}

TEST_F(RoomFolders, BothPathsAreTracedFirst)
{
    const TraceCapture trace;
    EXPECT_TRUE(Belongs("C:\\Übung", "C:\\Übung\\ä"));
    EXPECT_EQ(trace.Texts(),
              (std::vector<std::string>{"FileBelongsToFolder: C:\\Übung\\ä", "Folder: C:\\Übung"}));
}

TEST_F(RoomFolders, NullAndOverlongPathsBelongNowhere)
{
    const TraceCapture nulls;
    EXPECT_FALSE(FileBelongsToFolder(nullptr, TEXT("C:\\x")));
    EXPECT_FALSE(FileBelongsToFolder(TEXT("C:"), nullptr));
    EXPECT_EQ(nulls.Texts(), (std::vector<std::string>{"FileBelongsToFolder: C:\\x", "Folder: !!! NULL !!!",
                                                       "FileBelongsToFolder: !!! NULL !!!", "Folder: C:"}));
    EXPECT_TRUE(Belongs("C:\\A", PathOfLength(259)));
    EXPECT_FALSE(Belongs("C:\\A", PathOfLength(260)));
    EXPECT_TRUE(Belongs(PathOfLength(257), PathOfLength(257) + "\\y"));
    EXPECT_FALSE(Belongs(PathOfLength(260), PathOfLength(260) + "\\y"));
    const TraceCapture trace;
    EXPECT_FALSE(Belongs("C:\\A", PathOfLength(261)));
    ASSERT_EQ(trace.Texts().size(), 3u);
    EXPECT_EQ(trace.Texts()[2], "**LFile::_GetFolderFromPath szPath is too long");
}

TEST_F(RoomFolders, AccountWithoutMemoryIsMissingAndTheOthersAreNot)
{
    AddAccount("A", "C:\\A", "1700000000");
    AddAccount("B", "C:\\B", "-5");
    AddAccount("C", "");
    AddAccount("D", "C:\\D", "");
    FailAllocation(1);
    LoadTable();
    EXPECT_EQ(TableSize(), 2);
    LListIterator<FolderPathItem> it(g_FolderList);
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(Utf8(it->szFolderPath), "C:\\D");
    EXPECT_EQ(it->lastUpdate, 0);
    it.Next();
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(Utf8(it->szFolderPath), "C:\\A");
    EXPECT_EQ(it->lastUpdate, 1700000000);
    LoadTable();
    EXPECT_EQ(TableSize(), 3);
    it = LListIterator<FolderPathItem>(g_FolderList);
    ASSERT_TRUE(it.IsValid());
    it.Next();
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->lastUpdate, -5); // sign-extended
}

TEST_F(RoomFolders, FolderThatDoesNotFitIsReadAsNone)
{
    AddAccount("A", PathOfLength(259));
    AddAccount("B", PathOfLength(260));
    LoadTable();
    EXPECT_EQ(TableSize(), 1);
}

TEST_F(RoomFolders, StampIsTheTickCountOfTheChangeAndTakenBeforeTheLoad)
{
    LoadTable();
    std::uint32_t& stamp = *g_SharedState.Get();
    EXPECT_EQ(stamp, 0u); // a new block
    EXPECT_EQ(g_uLoadedState, 0u);
    const DWORD before = GetTickCount();
    StateChanged();
    EXPECT_LE(stamp - before, GetTickCount() - before);
    EXPECT_EQ(g_uLoadedState, 0u); // not before the next check
    stamp = 0x80000001;            // any difference counts, older or newer
    LLockObjectScope lock(g_FolderListLock);
    CheckPaths();
    EXPECT_EQ(g_uLoadedState, 0x80000001u);
    const TraceCapture trace;
    CheckPaths();
    EXPECT_EQ(trace.Texts(), std::vector<std::string>{"CheckPaths"});
}

TEST_F(RoomFolders, WithoutTheSharedBlockTheStampOfTheLastLoadStays)
{
    AddAccount("A", "C:\\A");
    *g_SharedState.Get() = 77;
    LoadTable();
    g_SharedState.Close();
    const TraceCapture trace;
    StateChanged();
    {
        LLockObjectScope lock(g_FolderListLock);
        CheckPaths();
    }
    EXPECT_EQ(trace.Texts(), (std::vector<std::string>{"StateChanged", "CheckPaths"}));
    LoadTable();
    EXPECT_EQ(g_uLoadedState, 77u);
    EXPECT_EQ(TableSize(), 1);
}
