// The number of attempts behind the waits on sharing violations, and a shell that knows no application-data
// folder. Only the native layer's calls can be made to fail.

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "win32/file.h"

namespace
{
constexpr DWORD sharingViolation = 32;

class FileFailures : public ::testing::Test
{
  protected:
    FileFailures() : path_(sndxtest::Wide(name_)) { sndxtest::WriteWholeFile(name_, "x"); }
    ~FileFailures() override
    {
        sndxposix::ResetFailures();
        DeleteFileW(path_.c_str());
    }

    static void FailCalls(const char* function, unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
        {
            sndxposix::FailCall(function, sharingViolation, i);
        }
    }

    const std::string name_ = "C:\\attempts.txt";
    const sndxtest::WideString path_;
};

TEST_F(FileFailures, TheSeventhAttemptWithinASecondIsTheLast)
{
    FailCalls("CreateFileW", 6);
    EXPECT_TRUE(LReadFileRef(path_.c_str(), 1000).IsOpen());
    FailCalls("CreateFileW", 8);
    EXPECT_FALSE(LReadFileRef(path_.c_str(), 1000).IsOpen());
    EXPECT_EQ(1u, sndxposix::PendingFailures());
    sndxposix::ResetFailures();

    FailCalls("DeleteFileW", 8);
    EXPECT_FALSE(LFile::DeleteWithRetry(path_.c_str(), 1000));
    EXPECT_EQ(1u, sndxposix::PendingFailures());
    sndxposix::ResetFailures();
    FailCalls("DeleteFileW", 6);
    EXPECT_TRUE(LFile::DeleteWithRetry(path_.c_str(), 1000));
}

TEST_F(FileFailures, AnotherErrorBetweenEndsTheWaiting)
{
    FailCalls("CreateFileW", 2);
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
    EXPECT_FALSE(LReadFileRef(path_.c_str(), 60000).IsOpen());
    EXPECT_EQ(0u, sndxposix::PendingFailures());
}

TEST_F(FileFailures, WithoutTheShellsAnswerTheFolderIsEmpty)
{
    sndxposix::FailCall("SHGetFolderPathW", ERROR_FILE_NOT_FOUND);
    WCHAR folder[LSTR] = {'x', 0};
    LFile::GetAppDataFolder(folder);
    EXPECT_EQ("", sndxtest::Utf8(folder));
}

TEST_F(FileFailures, FailedTransfersCountNothing)
{
    sndxposix::FailCall("ReadFile", ERROR_GEN_FAILURE);
    char byte = 0;
    LReadFileRef reader(path_.c_str(), 0);
    EXPECT_EQ(0u, reader.Read(&byte, 1));
    EXPECT_EQ(1u, reader.Read(&byte, 1));
    reader.Close();
    sndxposix::FailCall("WriteFile", ERROR_DISK_FULL);
    LWriteFileRef writer(path_.c_str(), 0);
    EXPECT_EQ(0u, writer.Write(&byte, 1));
}
} // namespace
