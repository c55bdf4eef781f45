// The number of attempts behind the waits on sharing violations, and calls that fail: only the native layer's
// can be made to.

#include <functional>

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "win32/file.h"

namespace
{
using namespace sndxtest;

class FileFailures : public ::testing::Test
{
  protected:
    FileFailures() { WriteWholeFile(name_, "x"); }
    ~FileFailures() override
    {
        sndxposix::ResetFailures();
        RemoveTraceFiles("attempts");
    }

    static void RefuseSharing(const char* function, unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
        {
            sndxposix::FailCall(function, ERROR_SHARING_VIOLATION, i);
        }
    }

    const std::string name_ = TraceFilePath("attempts");
    const WideString path_ = Wide(name_);
};

TEST_F(FileFailures, TheSeventhAttemptWithinASecondIsTheLast)
{
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"CreateFileW", [this] { return LReadFileRef(path_.c_str(), 1000).IsOpen(); }},
        {"DeleteFileW", [this] { return LFile::DeleteWithRetry(path_.c_str(), 1000); }}};
    for (const auto& [function, operation] : operations)
    {
        RefuseSharing(function, 8);
        EXPECT_FALSE(operation()) << function;
        EXPECT_EQ(sndxposix::PendingFailures(), 1u) << function;
        sndxposix::ResetFailures();
        RefuseSharing(function, 6);
        EXPECT_TRUE(operation()) << function;
    }
}

TEST_F(FileFailures, AnotherErrorBetweenEndsTheWaiting)
{
    RefuseSharing("CreateFileW", 2);
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
    EXPECT_FALSE(LReadFileRef(path_.c_str(), 60000).IsOpen());
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
}

TEST_F(FileFailures, FailedTransfersCountNothingAndAnUnknownFolderIsEmpty)
{
    char byte = 0;
    {
        LReadFileRef reader(path_.c_str(), 0);
        sndxposix::FailCall("ReadFile", ERROR_GEN_FAILURE);
        EXPECT_EQ(reader.Read(&byte, 1), 0u);
        EXPECT_EQ(reader.Read(&byte, 1), 1u);
    }
    sndxposix::FailCall("WriteFile", ERROR_DISK_FULL);
    EXPECT_EQ(LWriteFileRef(path_.c_str(), 0).Write(&byte, 1), 0u);
    sndxposix::FailCall("SHGetFolderPathW", ERROR_FILE_NOT_FOUND);
    WCHAR folder[LSTR] = {'x', 0};
    EXPECT_EQ(Utf8(LFile::GetAppDataFolder(folder)), "");
}
} // namespace
