// Files of the POSIX layer where Wine is no measure: it keeps no archive attribute, and as superuser it
// writes read-only files. Also what exists on POSIX only: the mapping of paths, and special files.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "posix/internal.h"
#include "tests/platform/handle.h"
#include "tests/platform/temporaryfolder.h"

namespace
{
using namespace sndxtest;
using sndxposix::RootFolder;
using sndxposix::ToUnixPath;
using sndxposix::ToWindowsPath;

HANDLE Open(const WideString& path, DWORD access, DWORD share, DWORD disposition)
{
    return CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

class NativeFiles : public testing::Test
{
  protected:
    NativeFiles() { EXPECT_TRUE(Handle(Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS)).IsOpen()); }
    TemporaryFolder folder;
    const WideString path = folder / "file.txt";
    const std::string unixPath = ToUnixPath(path.c_str());
};

TEST_F(NativeFiles, AttributesAreKeptAndHoldForTheSuperuserToo)
{
    for (const DWORD attributes :
         {FILE_ATTRIBUTE_NORMAL, FILE_ATTRIBUTE_ARCHIVE, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY})
    {
        ASSERT_TRUE(SetFileAttributesW(path.c_str(), attributes));
        EXPECT_EQ(GetFileAttributesW(path.c_str()), attributes);
    }
    EXPECT_EQ(ErrorOf(Open(path, GENERIC_WRITE, 0, OPEN_EXISTING)), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Handle(Open(path, GENERIC_READ, 0, OPEN_EXISTING)).IsOpen());
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    EXPECT_EQ(access(unixPath.c_str(), F_OK), 0);
    // The form that other programs write.
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_ARCHIVE));
    ASSERT_EQ(setxattr(unixPath.c_str(), "user.DOSATTRIB", "0x6", 3, 0), 0);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
}

TEST_F(NativeFiles, SpecialFilesAreNone)
{
    const std::string fifo = unixPath + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const WideString name = folder / "file.txt.fifo";
    EXPECT_EQ(GetFileAttributesW(name.c_str()), INVALID_FILE_ATTRIBUTES);
    // Would block without end if the layer waited for the other end of the FIFO.
    EXPECT_EQ(Open(name, GENERIC_READ, 0, OPEN_EXISTING), INVALID_HANDLE_VALUE);
}

TEST_F(NativeFiles, ANameThatGoesWhileItIsOpenedIsNotOpened)
{
    // Deleted and made again by one thread, opened by another: an open that got hold of the old file would
    // write into nowhere.
    std::atomic<bool> stop{false};
    std::thread remover(
        [&]
        {
            while (!stop)
            {
                if (DeleteFileW(path.c_str()))
                {
                    CloseHandle(Open(path, GENERIC_WRITE, 7, OPEN_ALWAYS));
                }
            }
        });
    int opened = 0;
    for (int i = 0; i < 5000; ++i)
    {
        const Handle file(Open(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS));
        if (file.IsOpen())
        {
            // Nobody can delete it now: what is written is what the name leads to.
            DWORD bytes = 0;
            EXPECT_TRUE(WriteFile(file, &i, sizeof i, &bytes, nullptr));
            int found = -1;
            const int direct = open(unixPath.c_str(), O_RDONLY | O_CLOEXEC);
            EXPECT_EQ(read(direct, &found, sizeof found), static_cast<ssize_t>(sizeof found));
            close(direct);
            EXPECT_EQ(found, i);
            ++opened;
        }
    }
    stop = true;
    remover.join();
    EXPECT_GT(opened, 0);
}

TEST_F(NativeFiles, OpensAtTheSameMomentDoNotMissEachOther)
{
    std::atomic<int> inside{0};
    std::atomic<int> opened{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int round = 0; round < 3000; ++round)
                {
                    const Handle file(Open(path, GENERIC_WRITE, 0, OPEN_EXISTING));
                    if (file.IsOpen())
                    {
                        EXPECT_EQ(inside.fetch_add(1), 0);
                        ++opened;
                        std::this_thread::yield();
                        --inside;
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_GT(opened, 100);
}

// A child between fork and exec has copies of all descriptors.
TEST_F(NativeFiles, ClosingEndsDenialsThoughAChildHasTheDescriptor)
{
    Handle file(Open(path, GENERIC_WRITE, 0, OPEN_EXISTING));
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        close(pipe[1]);
        char byte;
        _exit(static_cast<int>(read(pipe[0], &byte, 1))); // until the parent closes its end
    }
    file.Close();
    EXPECT_TRUE(Handle(Open(path, GENERIC_WRITE, 0, OPEN_EXISTING)).IsOpen());
    close(pipe[0]);
    close(pipe[1]);
    waitpid(child, nullptr, 0);
}

TEST(NativePaths, DrivesAndSeparators)
{
    const std::string driveC = RootFolder() + "/drive_c";
    const std::pair<const char16_t*, std::string> cases[] = {
        {u"C:\\", driveC},
        {u"C:", driveC},
        {u"c:/a\\b", driveC + "/a/b"},
        {u"C:\\a\\", driveC + "/a"},
        {u"C:\\a\\.\\b\\..\\c", driveC + "/a/c"},
        {u"C:\\..\\..\\a", driveC + "/a"},
        {u"\\\\?\\C:\\a", driveC + "/a"},
        {u"Z:\\", "/"},
        {u"z:\\proc\\self", "/proc/self"},
        {u"Z:\\..\\proc", "/proc"},
        {u"Q:\\a", ""},
        {u"\\\\server\\share", ""},
        {u"", ""},
    };
    for (const auto& [windows, expected] : cases)
    {
        EXPECT_EQ(ToUnixPath(windows), expected) << Utf8(windows);
    }
    EXPECT_EQ(Utf8(ToWindowsPath(driveC)), "C:\\");
    EXPECT_EQ(Utf8(ToWindowsPath(driveC + "/a/b")), "C:\\a\\b");
    EXPECT_EQ(Utf8(ToWindowsPath(driveC + "2/a")), Utf8(ToWindowsPath(RootFolder())) + "\\drive_c2\\a");
    EXPECT_EQ(Utf8(ToWindowsPath("/")), "Z:\\");
    EXPECT_EQ(Utf8(ToWindowsPath("/proc/self")), "Z:\\proc\\self");
}

TEST(NativePaths, NamesAsSpelledComeFirst)
{
    const TemporaryFolder folder;
    const std::string unixFolder = ToUnixPath((folder / "").c_str());
    for (const char* name : {"/Name", "/name"})
    {
        close(open((unixFolder + name).c_str(), O_CREAT | O_CLOEXEC | O_WRONLY, 0600));
    }
    EXPECT_EQ(ToUnixPath((folder / "Name").c_str()), unixFolder + "/Name");
    EXPECT_EQ(ToUnixPath((folder / "name").c_str()), unixFolder + "/name");
    EXPECT_EQ(sndxposix::FoldCase(u"A\u00C4\u0106\u0178\u0416\u00D7z"), u"a\u00E4\u0107\u00FF\u0436\u00D7z");
}
} // namespace
