// Files where POSIX has something of its own: the mapping of paths, descriptors that children inherit, and
// opens that must not miss each other.

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "posix/internal.h"
#include "tests/platform/handle.h"
#include "tests/support/temporaryfolder.h"

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

// An open that missed another one would let two inside; one that got hold of a file just deleted would write
// into nowhere.
TEST_F(NativeFiles, OpensAndDeletionsAtTheSameMomentDoNotMissEachOther)
{
    std::atomic<int> inside{0};
    std::atomic<int> opened{0};
    const auto openAndDelete = [&]
    {
        for (int round = 0; round < 3000; ++round)
        {
            DeleteFileW(Wide(path).c_str());
            const Handle file(OpenFile(path, GENERIC_WRITE, 0, OPEN_ALWAYS));
            if (file.IsOpen())
            {
                EXPECT_EQ(inside.fetch_add(1), 0);
                DWORD bytes = 0;
                EXPECT_TRUE(WriteFile(file, "written", 7, &bytes, nullptr));
                std::error_code error;
                EXPECT_EQ(std::filesystem::file_size(unixPath, error), 7u);
                ++opened;
                --inside;
            }
        }
    };
    {
        const std::jthread threads[] = {std::jthread(openAndDelete), std::jthread(openAndDelete),
                                        std::jthread(openAndDelete)};
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
        {u"\\\\?\\C:\\a", driveC + "/a"},
        {u"z:\\proc\\self", "/proc/self"},
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
