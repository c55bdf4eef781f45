// File objects and the operations that ask the system: waiting on sharing violations, sharing between
// processes, and the line reader.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include <shlobj.h>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/file.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::ReadWholeFile;
using sndxtest::Stopwatch;
using sndxtest::TraceCapture;
using sndxtest::Wide;
using sndxtest::WideString;
using sndxtest::WriteWholeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class File : public ::testing::Test
{
  protected:
    File()
    {
        WCHAR temp[MAX_PATH + 1];
        GetTempPathW(MAX_PATH + 1, temp);
        folder_ = sndxtest::Utf8(temp) + "sndxfile" + std::to_string(GetCurrentProcessId());
        EXPECT_TRUE(CreateDirectoryW(Wide(folder_).c_str(), nullptr));
    }
    ~File() override
    {
        for (const std::string name : {"a.txt", "b.txt"})
        {
            DeleteFileW(Path(name).c_str());
        }
        EXPECT_TRUE(RemoveDirectoryW(Wide(folder_).c_str())) << "a handle was left open";
        EXPECT_THAT(sndxtest::OwnTexts(trace_), IsEmpty());
    }

    std::string Name(const std::string& name) const { return folder_ + "\\" + name; }
    WideString Path(const std::string& name) const { return Wide(Name(name)); }

    std::string folder_;
    TraceCapture trace_;
};

// An open file that shares what it is told to.
class OpenedFile
{
  public:
    OpenedFile(const WideString& path, DWORD share)
        : handle_(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_ALWAYS, 0,
                              nullptr))
    {
        EXPECT_NE(INVALID_HANDLE_VALUE, handle_);
    }
    ~OpenedFile() { Close(); }
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;
    void Close()
    {
        if (handle_ != INVALID_HANDLE_VALUE)
        {
            CloseHandle(handle_);
            handle_ = INVALID_HANDLE_VALUE;
        }
    }

  private:
    HANDLE handle_;
};

// Runs an operation while another thread lets the file go after a while.
template <class Operation>
auto WithRelease(OpenedFile& file, DWORD after, Operation operation)
{
    std::thread other(
        [&]
        {
            Sleep(after);
            file.Close();
        });
    const auto result = operation();
    other.join();
    return result;
}

SNDX_CHILD(HoldFile)
{
    const OpenedFile file(Wide(arguments.at(0)), FILE_SHARE_READ);
    sndxtest::Announce("held");
    sndxtest::WaitFor("release");
    return 0;
}

SNDX_CHILD(AppendLines)
{
    const WideString path = Wide(arguments.at(0));
    for (int i = 0; i < 50; ++i)
    {
        const std::string line = arguments.at(1) + std::to_string(i) + std::string(500, '.') + "\n";
        LWriteFileRef file(path.c_str(), 10000);
        if (file.Write(line.data(), line.size()) != line.size())
        {
            return 1;
        }
    }
    return 0;
}

TEST_F(File, FoldersAreToldFromFiles)
{
    WriteWholeFile(Name("a.txt"), "x");
    EXPECT_TRUE(LFile::IsFolder(Wide(folder_).c_str()));
    EXPECT_FALSE(LFile::IsFolder(Path("a.txt").c_str()));
    EXPECT_FALSE(LFile::IsFolder(Path("missing").c_str()));
    EXPECT_FALSE(LFile::IsFolder(TEXT("")));
}

TEST_F(File, TheApplicationDataFolderIsTheShellsOwn)
{
    WCHAR expected[MAX_PATH] = {};
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, expected));
    WCHAR folder[LSTR] = {'x', 0};
    EXPECT_EQ(folder, LFile::GetAppDataFolder(folder));
    EXPECT_EQ(sndxtest::Utf8(expected), sndxtest::Utf8(folder));
    EXPECT_TRUE(LFile::IsFolder(folder));
}

TEST_F(File, AHeldFileIsWaitedForNoLongerThanTheTimeOut)
{
    const OpenedFile held(Path("a.txt"), 0);
    const WideString path = Path("a.txt");
    struct Case
    {
        std::uint32_t timeout;
        std::int64_t sleeps; // sum of the doubling waits
    };
    // 300 ms: 3, 6, 12, 24, 48 and 96 ms; 1000 ms: 8 to 256 ms.
    for (const Case& c : {Case{0, 0}, Case{1, 0}, Case{300, 189}, Case{1000, 504}})
    {
        SCOPED_TRACE(c.timeout);
        const Stopwatch open;
        EXPECT_FALSE(LReadFileRef(path.c_str(), c.timeout).IsOpen());
        EXPECT_GE(open.Milliseconds(), AtLeast(c.sleeps));
        EXPECT_LT(open.Milliseconds(), c.sleeps + 1500);
        const Stopwatch removal;
        EXPECT_FALSE(LFile::DeleteWithRetry(path.c_str(), c.timeout));
        EXPECT_GE(removal.Milliseconds(), AtLeast(c.sleeps));
        EXPECT_LT(removal.Milliseconds(), c.sleeps + 1500);
    }
}

TEST_F(File, AFileThatIsLetGoInTimeIsOpenedOrDeleted)
{
    const WideString path = Path("a.txt");
    WriteWholeFile(Name("a.txt"), "content");
    {
        OpenedFile held(path, 0);
        EXPECT_TRUE(WithRelease(held, 100, [&] { return LReadFileRef(path.c_str(), 20000).IsOpen(); }));
    }
    {
        OpenedFile held(path, FILE_SHARE_READ);
        EXPECT_TRUE(WithRelease(held, 100, [&] { return LWriteFileRef(path.c_str(), 20000).IsOpen(); }));
    }
    OpenedFile held(path, FILE_SHARE_READ);
    EXPECT_TRUE(WithRelease(held, 100, [&] { return LFile::DeleteWithRetry(path.c_str(), 20000); }));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(path.c_str()));
}

TEST_F(File, OtherFailuresAreNotWaitedFor)
{
    const Stopwatch stopwatch;
    EXPECT_FALSE(LReadFileRef(Path("missing").c_str(), 60000).IsOpen());
    EXPECT_FALSE(LWriteFileRef(Path("missing\\a.txt").c_str(), 60000).IsOpen());
    EXPECT_FALSE(LFile::DeleteWithRetry(Path("missing").c_str(), 60000));
    EXPECT_FALSE(LFile::DeleteWithRetry(Wide(folder_).c_str(), 60000));
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
}

TEST_F(File, AppendingCreatesTheFileAndContinuesAtItsEnd)
{
    const WideString path = Path("a.txt");
    EXPECT_EQ(3u, LWriteFileRef(path.c_str(), 0).Write("abc", 3));
    {
        LWriteFileRef file(path.c_str(), 0);
        EXPECT_EQ(2u, file.Write("de", 2));
        EXPECT_EQ(1u, file.Write("f", 1));
    }
    EXPECT_EQ("abcdef", ReadWholeFile(Name("a.txt")));
}

TEST_F(File, AWriterExcludesWritersAndReadersShare)
{
    const WideString path = Path("a.txt");
    {
        LWriteFileRef writer(path.c_str(), 0);
        ASSERT_TRUE(writer.IsOpen());
        writer.Write("abc", 3);
        EXPECT_FALSE(LWriteFileRef(path.c_str(), 0).IsOpen());
        // A reader that does not put up with a writer.
        EXPECT_FALSE(LReadFileRef(path.c_str(), 0).IsOpen());
        EXPECT_EQ("abc", ReadWholeFile(Name("a.txt"))) << "a reader that shares writing";
    }
    LReadFileRef reader(path.c_str(), 0);
    LReadFileRef second(path.c_str(), 0);
    EXPECT_TRUE(reader.IsOpen() && second.IsOpen());
    EXPECT_FALSE(LWriteFileRef(path.c_str(), 0).IsOpen());
    char buffer[8] = {};
    EXPECT_EQ(2u, reader.Read(buffer, 2));
    EXPECT_EQ(3u, second.Read(buffer, sizeof(buffer))) << "what is left, less than asked for";
    EXPECT_EQ(0u, second.Read(buffer, sizeof(buffer))) << "end of file";
    EXPECT_STREQ("abc", buffer);
}

TEST_F(File, AFileHeldByAnotherProcessIsWaitedFor)
{
    const WideString path = Path("a.txt");
    sndxtest::ClearPoints();
    sndxtest::ChildProcess child("HoldFile", {Name("a.txt")});
    ASSERT_TRUE(sndxtest::WaitFor("held"));
    const Stopwatch stopwatch;
    EXPECT_FALSE(LWriteFileRef(path.c_str(), 300).IsOpen());
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(189));
    EXPECT_FALSE(LFile::Move(path.c_str(), Path("b.txt").c_str()));

    std::thread release(
        []
        {
            Sleep(100);
            sndxtest::Announce("release");
        });
    EXPECT_TRUE(LWriteFileRef(path.c_str(), 20000).IsOpen());
    release.join();
    EXPECT_EQ(0, child.Wait());
}

TEST_F(File, ProcessesThatAppendToOneFileLoseNoLine)
{
    sndxtest::ChildProcess one("AppendLines", {Name("a.txt"), "one"});
    sndxtest::ChildProcess two("AppendLines", {Name("a.txt"), "two"});
    EXPECT_EQ(0, one.Wait(60000));
    EXPECT_EQ(0, two.Wait(60000));
    LBufferedReadFileRef file(Path("a.txt").c_str(), 3000);
    std::map<std::string, int> seen; // lines of each process, which must come in order
    char line[1000];
    while (file.ReadLine(line, sizeof(line)))
    {
        const std::string writer(line, 3);
        EXPECT_EQ(writer + std::to_string(seen[writer]) + std::string(500, '.'), line);
        ++seen[writer];
    }
    EXPECT_THAT(seen, ElementsAre(std::pair<const std::string, int>("one", 50),
                                  std::pair<const std::string, int>("two", 50)));
}

TEST_F(File, MovingReplacesNothing)
{
    WriteWholeFile(Name("a.txt"), "a");
    EXPECT_TRUE(LFile::Move(Path("a.txt").c_str(), Path("b.txt").c_str()));
    EXPECT_EQ("", ReadWholeFile(Name("a.txt")));
    WriteWholeFile(Name("a.txt"), "new");
    EXPECT_FALSE(LFile::Move(Path("a.txt").c_str(), Path("b.txt").c_str()));
    EXPECT_EQ("new", ReadWholeFile(Name("a.txt")));
    EXPECT_EQ("a", ReadWholeFile(Name("b.txt")));
    EXPECT_FALSE(LFile::Move(Path("missing").c_str(), Path("c.txt").c_str()));
}

TEST_F(File, AnObjectOwnsItsHandle)
{
    const WideString path = Path("a.txt");
    EXPECT_FALSE(LFileRef().IsOpen());
    EXPECT_TRUE(LFileRef(nullptr).IsOpen()) << "only INVALID_HANDLE_VALUE means none";
    LFileRef file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    EXPECT_TRUE(file.IsOpen());
    EXPECT_FALSE(LReadFileRef(path.c_str(), 0).IsOpen());
    file.Close();
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(LReadFileRef(path.c_str(), 0).IsOpen());
    EXPECT_EQ(0, sndxtest::HandlesLeft(
                     [&]
                     {
                         LWriteFileRef(path.c_str(), 0).Write("x", 1);
                         LReadFileRef reader(path.c_str(), 0);
                         LReadFileRef failing(Path("missing").c_str(), 0);
                     }));
}

TEST_F(File, AFileThatIsNotOpenGivesNothing)
{
    char buffer[4] = {'x', 'y', 'z', 0};
    LReadFileRef reader(Path("missing").c_str(), 0);
    EXPECT_EQ(0u, reader.Read(buffer, sizeof(buffer)));
    EXPECT_STREQ("xyz", buffer);
    LWriteFileRef writer(Path("missing\\a.txt").c_str(), 0);
    EXPECT_EQ(0u, writer.Write(buffer, sizeof(buffer)));
    LBufferedReadFileRef lines(Path("missing").c_str(), 0);
    EXPECT_FALSE(lines.ReadLine(buffer, sizeof(buffer)));
    EXPECT_STREQ("", buffer);
}

TEST_F(File, SizesBeyond32BitsAreReported)
{
    constexpr std::size_t tooLarge = std::size_t{UINT32_MAX} + 1;
    char buffer[4] = {};
    LReadFileRef reader(Path("missing").c_str(), 0);
    LWriteFileRef writer(Path("missing\\a.txt").c_str(), 0);
    reader.Read(buffer, UINT32_MAX);
    EXPECT_THAT(trace_.Texts(), IsEmpty());
    reader.Read(buffer, tooLarge);
    writer.Write(buffer, tooLarge);
    EXPECT_THAT(
        sndxtest::WithoutLineNumbers(trace_.Texts()),
        ElementsAre("**LFileRef::_Read ASSERTION FAILED BufferSize <= UINT32_MAX:\r\n   win32/file.cpp(N)",
                    "**LFileRef::_Write ASSERTION FAILED BufferSize <= UINT32_MAX:\r\n   win32/file.cpp(N)"));
    trace_.Restart();
}

struct Reading
{
    const char* name;
    std::string content;
    std::size_t size; // of the line buffer
    std::vector<std::string> lines;
};

class LineReader : public File, public ::testing::WithParamInterface<Reading>
{
};

TEST_P(LineReader, SplitsTheFile)
{
    WriteWholeFile(Name("a.txt"), GetParam().content);
    LBufferedReadFileRef file(Path("a.txt").c_str(), 0);
    std::vector<std::string> lines;
    std::vector<char> buffer(GetParam().size, '#');
    while (file.ReadLine(buffer.data(), buffer.size()) && lines.size() < 20)
    {
        lines.emplace_back(buffer.data());
    }
    EXPECT_EQ(GetParam().lines, lines);
    EXPECT_STREQ("", buffer.data());
    EXPECT_FALSE(file.ReadLine(buffer.data(), buffer.size())) << "the end stays the end";
}

std::string Many(std::size_t count)
{
    return std::string(count, 'x');
}

INSTANTIATE_TEST_SUITE_P(
    Contents, LineReader,
    ::testing::Values(
        Reading{"Empty", "", 100, {}}, Reading{"AllEnds", "a\r\n\rb\nc", 100, {"a", "", "b", "c"}},
        Reading{"OneEnd", "\n", 100, {""}}, Reading{"EndsInCr", "a\r", 100, {"a"}},
        Reading{"EndsInCrLf", "a\r\n", 100, {"a"}}, Reading{"LfCr", "a\n\rb", 100, {"a", "", "b"}},
        Reading{"Cut", "abcdef\ngh\nijk", 4, {"abc", "gh", "ijk"}},
        Reading{"RoomForNothing", "ab\nc\n", 1, {"", ""}},
        Reading{"BytesAsTheyAre", "\xC3\xB6 \xFF\t\x01\n", 100, {"\xC3\xB6 \xFF\t\x01"}},
        // The reader fills a buffer of 8192 bytes: ends on, across and behind its border, and a longer line.
        Reading{"CrLfAcrossBlocks", Many(8191) + "\r\nb", 9000, {Many(8191), "b"}},
        Reading{"CrAtBlockEnd", Many(8191) + "\rb", 9000, {Many(8191), "b"}},
        Reading{"CrAtFileEnd", Many(8191) + "\r", 9000, {Many(8191)}},
        Reading{"BlockWithoutEnd", Many(8192), 9000, {Many(8192)}},
        Reading{"LongLine", Many(20000) + "\n\nc\n", 8192, {Many(8191), "", "c"}}),
    [](const auto& test) { return test.param.name; });
} // namespace
