// Files where POSIX has something of its own: the mapping of paths, descriptors that children inherit, and
// opens that must not miss each other.

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
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

class NativeFiles : public testing::Test
{
  protected:
    NativeFiles() { EXPECT_EQ(ErrorOf(OpenFile(path, GENERIC_WRITE, 0, CREATE_ALWAYS)), ERROR_SUCCESS); }
    TemporaryFolder folder;
    const std::string path = folder / "file.txt";
    const std::string unixPath = ToUnixPath(Wide(path).c_str());
};

TEST_F(NativeFiles, ANameThatGoesWhileItIsOpenedIsNotOpened)
{
    // Deleted and made again by one thread, opened by another: an open that got hold of the old file would
    // write into nowhere.
    std::jthread remover(
        [&](const std::stop_token& stop)
        {
            while (!stop.stop_requested())
            {
                if (DeleteFileW(Wide(path).c_str()))
                {
                    CloseHandle(OpenFile(path, GENERIC_WRITE, 7, OPEN_ALWAYS));
                }
            }
        });
    int opened = 0;
    for (int i = 0; i < 5000; ++i)
    {
        const Handle file(OpenFile(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS));
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
    EXPECT_GT(opened, 0);
}

TEST_F(NativeFiles, OpensAtTheSameMomentDoNotMissEachOther)
{
    std::atomic<int> inside{0};
    std::atomic<int> opened{0};
    const auto open = [&]
    {
        for (int round = 0; round < 3000; ++round)
        {
            const Handle file(OpenFile(path, GENERIC_WRITE, 0));
            if (file.IsOpen())
            {
                EXPECT_EQ(inside.fetch_add(1), 0);
                ++opened;
                std::this_thread::yield();
                --inside;
            }
        }
    };
    {
        const std::jthread threads[] = {std::jthread(open), std::jthread(open), std::jthread(open)};
    }
    EXPECT_GT(opened, 100);
}

// A child between fork and exec has copies of all descriptors.
TEST_F(NativeFiles, ClosingEndsDenialsThoughAChildHasTheDescriptor)
{
    Handle file(OpenFile(path, GENERIC_WRITE, 0));
    const pid_t child = fork();
    if (child == 0)
    {
        pause();
        _exit(0);
    }
    file.Close();
    EXPECT_EQ(ErrorOf(OpenFile(path, GENERIC_WRITE, 0)), ERROR_SUCCESS);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST(NativePaths, DrivesAndSeparators)
{
    const std::string driveC = RootFolder() + "/drive_c";
    const std::pair<const char16_t*, std::string> cases[] = {
        {u"C:", driveC},
        {u"c:/a\\b", driveC + "/a/b"},
        {u"C:\\a\\.\\b\\..\\c\\", driveC + "/a/c"},
        {u"C:\\..\\..\\a", driveC + "/a"},
        {u"\\\\?\\C:\\a", driveC + "/a"},
        {u"z:\\proc\\self", "/proc/self"},
        {u"Z:\\..", "/"},
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
}
} // namespace
