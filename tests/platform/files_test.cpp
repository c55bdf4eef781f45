// Files: share modes, the fate of open files, and what is missing or no file.

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/temporaryfolder.h"
#include "tests/support/child.h"
#include "tests/support/tracefile.h"

namespace
{
using namespace sndxtest;

constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

DWORD TryOpen(const std::string& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
{
    return ErrorOf(OpenFile(path, access, share, disposition));
}

DWORD TryMove(const std::string& from, const std::string& to)
{
    return ErrorOf(MoveFileW(Wide(from).c_str(), Wide(to).c_str()));
}

DWORD TryDelete(const std::string& path)
{
    return ErrorOf(DeleteFileW(Wide(path).c_str()));
}

class Files : public testing::Test
{
  protected:
    Files()
    {
        ClearPoints();
        WriteWholeFile(path, "text");
    }
    TemporaryFolder folder;
    const std::string path = folder / "file \u00C4.txt";
    const std::string other = folder / "other.txt";
};

// All combinations of two opens: the second is refused exactly when one does what the other denies.
TEST_F(Files, ShareModesOfTwoOpens)
{
    const auto kinds = [](DWORD access) {
        return (access & GENERIC_READ ? FILE_SHARE_READ : 0) |
               (access & GENERIC_WRITE ? FILE_SHARE_WRITE : 0);
    };
    const DWORD accesses[] = {GENERIC_READ, GENERIC_WRITE, readWrite};
    constexpr DWORD modes = shareAll + 1;
    for (DWORD i = 0; i < 3 * modes; ++i)
    {
        const DWORD access1 = accesses[i / modes];
        const DWORD share1 = i % modes;
        const Handle first(OpenFile(path, access1, share1));
        ASSERT_TRUE(first.IsOpen());
        for (DWORD j = 0; j < 3 * modes; ++j)
        {
            const DWORD access2 = accesses[j / modes];
            const DWORD share2 = j % modes;
            const bool allowed = (kinds(access2) & ~share1) == 0 && (kinds(access1) & ~share2) == 0;
            ASSERT_EQ(TryOpen(path, access2, share2), allowed ? 0 : ERROR_SHARING_VIOLATION)
                << std::hex << access1 << " " << share1 << " then " << access2 << " " << share2;
        }
    }
    EXPECT_EQ(TryOpen(path, readWrite, 0), 0u) << "closing must end what an open denies";
}

TEST_F(Files, OpenFilesAreEmptiedMovedAndDeletedOnlyWhenShared)
{
    {
        const Handle open(OpenFile(path, GENERIC_READ, FILE_SHARE_READ));
        EXPECT_EQ(TryDelete(path), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(TryMove(path, other), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(TryOpen(path, GENERIC_WRITE, shareAll, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
    }
    Handle open(OpenFile(path, GENERIC_READ, shareAll));
    EXPECT_EQ(TryMove(path, other), ERROR_SUCCESS);
    EXPECT_EQ(ReadWholeFile(other), "text") << "refused before it was emptied";
    WriteWholeFile(path, "new");
    EXPECT_EQ(TryMove(path, other), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(TryDelete(other), ERROR_SUCCESS);
    open.Close();
    EXPECT_EQ(TryDelete(other), ERROR_FILE_NOT_FOUND);
}

SNDX_CHILD(KeepOpen)
{
    const Handle file(OpenFile(arguments.at(0), readWrite, FILE_SHARE_READ));
    Announce(file.IsOpen() ? "open" : "failed");
    return WaitFor("never", 60000);
}

TEST_F(Files, ShareModesReachOtherProcessesAndEndWithThem)
{
    ChildProcess child("KeepOpen", {path});
    ASSERT_TRUE(WaitFor("open"));
    EXPECT_EQ(TryOpen(path, GENERIC_READ, FILE_SHARE_READ), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(TryOpen(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE), 0u);
    child.Kill();
    EXPECT_EQ(TryOpen(path, readWrite, FILE_SHARE_READ), 0u);
}

TEST_F(Files, NamesAreFoundInEitherCaseAndWhatIsMissingIsTold)
{
    EXPECT_EQ(TryOpen(folder / "FILE \u00E4.TXT", GENERIC_READ, 0), ERROR_SUCCESS);
    EXPECT_EQ(TryOpen(folder / "file \u00E4.txt", readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
    EXPECT_EQ(TryOpen(folder / "", GENERIC_READ, shareAll), ERROR_ACCESS_DENIED) << "a folder";
    EXPECT_EQ(TryMove(path, folder / "no\\x"), ERROR_PATH_NOT_FOUND);
    const std::pair<std::string, DWORD> missing[] = {{folder / "none", ERROR_FILE_NOT_FOUND},
                                                     {folder / "none\\none", ERROR_PATH_NOT_FOUND},
                                                     {"", ERROR_PATH_NOT_FOUND},
                                                     {folder / "*", ERROR_INVALID_NAME}};
    for (const auto& [name, error] : missing)
    {
        EXPECT_EQ(ErrorOf(GetFileAttributesW(Wide(name).c_str()) != INVALID_FILE_ATTRIBUTES), error) << name;
        EXPECT_EQ(TryOpen(name, GENERIC_READ, 0), error) << name;
        EXPECT_EQ(TryMove(name, other), error) << name;
    }
}

TEST_F(Files, FoldersAreListedByNamesThatFit)
{
    const auto list = [this](const std::string& pattern)
    {
        Lines found;
        WIN32_FIND_DATAW data;
        const HANDLE find = FindFirstFileW(Wide(folder / pattern).c_str(), &data);
        for (BOOL more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileW(find, &data))
        {
            found.push_back(Utf8(data.cFileName) + " " + std::to_string(data.nFileSizeLow));
        }
        const std::string error = std::to_string(GetLastError());
        EXPECT_TRUE(find == INVALID_HANDLE_VALUE || FindClose(find));
        std::ranges::sort(found); // Wine lists as the file system does
        found.push_back(error);
        return found;
    };
    folder.File("file.txt\\inside.txt");
    const Lines two = {"file \u00C4.txt 4", "file.txt 0", "18"};
    EXPECT_EQ(list("FI*.TXT"), two);
    EXPECT_EQ(list("file \u00E4.txt"), (Lines{"file \u00C4.txt 4", "18"})) << "as it is spelled";
    EXPECT_EQ(list("file \u00C4.txt*.txt"), Lines{"2"}) << "the two ends of a name do not overlap";
    EXPECT_EQ(list("none*"), Lines{"2"});
    EXPECT_EQ(list("none\\*"), Lines{"3"});
}
} // namespace
