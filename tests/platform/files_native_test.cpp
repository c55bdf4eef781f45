// Files where POSIX has something of its own: descriptors that children inherit, and opens that must not miss
// each other.

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/temporaryfolder.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

class NativeFiles : public testing::Test
{
  protected:
    NativeFiles() { EXPECT_EQ(ErrorOf(OpenFile(path, GENERIC_WRITE, 0, CREATE_ALWAYS)), ERROR_SUCCESS); }
    TemporaryFolder folder;
    const std::string path = folder / "file.txt";
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
                EXPECT_EQ(std::filesystem::file_size(folder.Local("file.txt"), error), 7u);
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

} // namespace
