// File objects and the operations that ask the system: waiting on sharing violations, share modes, and the
// line reader. Moves are tested with the trace file; writers in several processes and the test for a folder,
// with the module.

#include <functional>
#include <tuple>

#ifndef _WIN32
#include "sndxposix.h"
#endif
#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "win32/file.h"

namespace
{
using namespace sndxtest;

#ifndef _WIN32 // the native layer's calls can be made to fail
void RefuseSharing(const char* function, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
    {
        sndxposix::FailCall(function, ERROR_SHARING_VIOLATION, i);
    }
}
#endif

class File : public ::testing::Test
{
  protected:
    File() { RemoveTraceFiles("file"); }
    ~File() override
    {
        RemoveTraceFiles("file");
        EXPECT_EQ(trace_.Texts(), Lines());
    }

    // The file, open, sharing what it is told to.
    HANDLE Hold(DWORD share) const
    {
        return CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_ALWAYS, 0,
                           nullptr);
    }

    const std::string name_ = TraceFilePath("file");
    const WideString path_ = Wide(name_);
    const WideString missing_ = Wide(name_ + ".none\\a.txt"); // so is its folder
    TraceCapture trace_;
};

TEST_F(File, AHeldFileIsWaitedForNoLongerThanTheTimeOut)
{
    const LFileRef held(Hold(0));
    // 300 ms: 3, 6, 12, 24, 48 and 96 ms; 1000 ms: 8 to 256 ms.
    for (const auto& [timeout, sleeps] : {std::pair{0u, 0}, {1u, 0}, {300u, 189}, {1000u, 504}})
    {
        for (const bool removal : {false, true})
        {
            const Stopwatch stopwatch;
            EXPECT_FALSE(removal ? LFile::DeleteWithRetry(path_.c_str(), timeout)
                                 : LReadFileRef(path_.c_str(), timeout).IsOpen());
            EXPECT_GE(stopwatch.Milliseconds(), AtLeast(sleeps)) << timeout;
            EXPECT_LT(stopwatch.Milliseconds(), sleeps + 1500) << timeout;
        }
    }
}

TEST_F(File, OtherFailuresAreNotWaitedFor)
{
    const Stopwatch stopwatch;
    EXPECT_FALSE(LReadFileRef(path_.c_str(), 60000).IsOpen());
    EXPECT_FALSE(LWriteFileRef(missing_.c_str(), 60000).IsOpen());
    EXPECT_FALSE(LFile::DeleteWithRetry(path_.c_str(), 60000));
#ifndef _WIN32
    RefuseSharing("CreateFileW", 2);
    sndxposix::FailCall("CreateFileW", ERROR_ACCESS_DENIED, 2);
    EXPECT_FALSE(LReadFileRef(path_.c_str(), 60000).IsOpen());
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
#endif
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
}

TEST_F(File, AWriterAppendsAndExcludesWritersAndReadersShare)
{
    EXPECT_EQ(LWriteFileRef(path_.c_str(), 0).Write("ab", 2), 2u);
    {
        LWriteFileRef writer(path_.c_str(), 0);
        EXPECT_EQ(writer.Write("c", 1), 1u);
        EXPECT_FALSE(LWriteFileRef(path_.c_str(), 0).IsOpen());
        EXPECT_FALSE(LReadFileRef(path_.c_str(), 0).IsOpen()) << "one that does not put up with a writer";
        EXPECT_EQ(ReadWholeFile(name_), "abc") << "one that shares writing";
    }
    LReadFileRef reader(path_.c_str(), 0);
    LReadFileRef second(path_.c_str(), 0);
    EXPECT_FALSE(LWriteFileRef(path_.c_str(), 0).IsOpen());
    char buffer[8] = {};
    EXPECT_EQ(reader.Read(buffer, 2), 2u);
    EXPECT_EQ(second.Read(buffer, sizeof(buffer)), 3u) << "what is left, less than asked for";
    EXPECT_EQ(second.Read(buffer, sizeof(buffer)), 0u) << "end of file";
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(File, AnObjectOwnsItsHandle)
{
    EXPECT_FALSE(LFileRef().IsOpen());
    EXPECT_TRUE(LFileRef(nullptr).IsOpen()) << "only INVALID_HANDLE_VALUE means none";
    const auto left = HandlesLeft(
        [this]
        {
            LFileRef file(Hold(0));
            file.Close();
            file.Close();
            EXPECT_FALSE(file.IsOpen());
            EXPECT_TRUE(LReadFileRef(path_.c_str(), 0).IsOpen());
        });
    EXPECT_EQ(left, 0);
}

TEST_F(File, AFileThatIsNotOpenGivesNothingAndSizesBeyond32BitsAreReported)
{
    constexpr std::size_t tooLarge = std::size_t{UINT32_MAX} + 1;
    char buffer[4] = {'x', 'y', 'z', 0};
    LReadFileRef reader(missing_.c_str(), 0);
    LWriteFileRef writer(missing_.c_str(), 0);
    EXPECT_EQ(reader.Read(buffer, UINT32_MAX), 0u);
    EXPECT_EQ(writer.Write(buffer, UINT32_MAX), 0u);
    EXPECT_EQ(trace_.Texts(), Lines());
    reader.Read(buffer, tooLarge);
    writer.Write(buffer, tooLarge);
    EXPECT_EQ(WithoutLineNumbers(trace_.Texts()),
              (Lines{Assertion("LFileRef::_Read", "BufferSize <= UINT32_MAX", "win32/file.cpp"),
                     Assertion("LFileRef::_Write", "BufferSize <= UINT32_MAX", "win32/file.cpp")}));
    trace_.Restart();
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_FALSE(LBufferedReadFileRef(missing_.c_str(), 0).ReadLine(buffer, sizeof(buffer)));
    EXPECT_STREQ(buffer, "");
}

TEST_F(File, LinesAreSplitAtEveryKindOfEndAndCutToTheBuffer)
{
    const auto many = [](std::size_t count) { return std::string(count, 'x'); };
    // What the file holds, the size of the line buffer, the lines.
    const std::tuple<std::string, std::size_t, Lines> readings[] = {
        {"", 100, {}},
        {"a\r\n\rb\nc", 100, {"a", "", "b", "c"}},
        {"\n", 100, {""}},
        {"a\r", 100, {"a"}},
        {"a\r\n", 100, {"a"}},
        {"a\n\rb", 100, {"a", "", "b"}},
        {"abcdef\ngh\nijk", 4, {"abc", "gh", "ijk"}},
        {"ab\nc\n", 1, {"", ""}},
        {"\xC3\xB6 \xFF\t\x01\n", 100, {"\xC3\xB6 \xFF\t\x01"}},
        // The reader fills a buffer of 8192 bytes: ends on, across and behind its border, and a longer line.
        {many(8191) + "\r\nb", 9000, {many(8191), "b"}},
        {many(8191) + "\rb", 9000, {many(8191), "b"}},
        {many(8191) + "\r", 9000, {many(8191)}},
        {many(8192), 9000, {many(8192)}},
        {many(20000) + "\n\nc\n", 8192, {many(8191), "", "c"}},
    };
    for (const auto& [content, size, expected] : readings)
    {
        SCOPED_TRACE(content.substr(0, 20) + " " + std::to_string(content.size()));
        WriteWholeFile(name_, content);
        LBufferedReadFileRef file(path_.c_str(), 0);
        Lines lines;
        std::vector<char> buffer(size, '#');
        while (file.ReadLine(buffer.data(), buffer.size()) && lines.size() < 20)
        {
            lines.emplace_back(buffer.data());
        }
        EXPECT_EQ(lines, expected);
        EXPECT_STREQ(buffer.data(), "");
        EXPECT_FALSE(file.ReadLine(buffer.data(), buffer.size())) << "the end stays the end";
    }
}

#ifndef _WIN32
TEST_F(File, TheSeventhAttemptWithinASecondIsTheLast)
{
    WriteWholeFile(name_, "x");
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"CreateFileW", [this] { return LReadFileRef(path_.c_str(), 1000).IsOpen(); }},
        {"CreateFileW", [this] { return LWriteFileRef(path_.c_str(), 1000).IsOpen(); }},
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

TEST_F(File, FailedTransfersCountNothing)
{
    WriteWholeFile(name_, "x");
    char byte = 0;
    {
        LReadFileRef reader(path_.c_str(), 0);
        sndxposix::FailCall("ReadFile", ERROR_GEN_FAILURE);
        EXPECT_EQ(reader.Read(&byte, 1), 0u);
        EXPECT_EQ(reader.Read(&byte, 1), 1u);
    }
    sndxposix::FailCall("WriteFile", ERROR_DISK_FULL);
    EXPECT_EQ(LWriteFileRef(path_.c_str(), 0).Write(&byte, 1), 0u);
}
#endif
} // namespace
