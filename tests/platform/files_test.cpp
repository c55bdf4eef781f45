// Files: creation dispositions, positions, share modes, names and attributes.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/platform/temporaryfolder.h"
#include "tests/support/child.h"

namespace
{
using namespace sndxtest;

constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// An open file with the error that opening has left, which means something in success, too.
class File : public Handle
{
  public:
    File(const WideString& path, DWORD access, DWORD share, DWORD disposition)
        : Handle(
              CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr)),
          error_(GetLastError())
    {
    }
    DWORD Error() const { return error_; }
    void Write(const std::string& text)
    {
        DWORD bytes = 0;
        EXPECT_TRUE(WriteFile(*this, text.data(), static_cast<DWORD>(text.size()), &bytes, nullptr));
        EXPECT_EQ(bytes, text.size());
    }
    std::string Read(DWORD size = 100)
    {
        std::string text(size, '\0');
        DWORD bytes = 0;
        EXPECT_TRUE(ReadFile(*this, text.data(), size, &bytes, nullptr));
        text.resize(bytes);
        return text;
    }

  private:
    DWORD error_;
};

void Make(const WideString& path, const std::string& text = "text")
{
    File(path, GENERIC_WRITE, 0, CREATE_ALWAYS).Write(text);
}

std::string Contents(const WideString& path)
{
    File file(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    return file.IsOpen() ? file.Read() : "error " + std::to_string(file.Error());
}

// The error of opening; 0 when that succeeds.
DWORD TryOpen(const WideString& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
{
    const File file(path, access, share, disposition);
    return file.IsOpen() ? 0 : file.Error();
}

class Files : public testing::Test
{
  protected:
    Files() { ClearPoints(); }
    TemporaryFolder folder;
    const WideString path = folder / "file.txt";
};

TEST_F(Files, DispositionsMakeOpenEmptyOrRefuse)
{
    EXPECT_EQ(TryOpen(path, GENERIC_READ, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(TryOpen(folder / "no\\file", readWrite, 0, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(TryOpen(folder / "wild*", readWrite, 0, CREATE_ALWAYS), ERROR_INVALID_NAME);
    EXPECT_EQ(TryOpen(folder / "", GENERIC_READ, shareAll), ERROR_ACCESS_DENIED) << "a folder";
    for (const DWORD disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS})
    {
        SetLastError(12345);
        const File file(folder / std::to_string(disposition), readWrite, 0, disposition);
        EXPECT_TRUE(file.IsOpen());
        EXPECT_EQ(file.Error(), ERROR_SUCCESS);
    }
    const struct
    {
        DWORD disposition;
        DWORD error;
        std::string content;
    } cases[] = {{OPEN_ALWAYS, ERROR_ALREADY_EXISTS, "text"},
                 {OPEN_EXISTING, ERROR_SUCCESS, "text"},
                 {CREATE_ALWAYS, ERROR_ALREADY_EXISTS, ""}};
    Make(path);
    EXPECT_EQ(TryOpen(path, readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
    for (const auto& each : cases)
    {
        SetLastError(12345);
        File file(path, readWrite, 0, each.disposition);
        EXPECT_EQ(file.Error(), each.error);
        EXPECT_EQ(file.Read(), each.content);
    }
}

TEST_F(Files, TransfersMoveThePositionAndNeedTheirAccess)
{
    File file(path, readWrite, shareAll, CREATE_NEW);
    file.Write("0123456789");
    EXPECT_EQ(file.Read(), "") << "the end of the file is no error";
    LARGE_INTEGER distance;
    LARGE_INTEGER position;
    distance.QuadPart = -3;
    ASSERT_TRUE(SetFilePointerEx(file, distance, &position, FILE_END));
    EXPECT_EQ(position.QuadPart, 7);
    EXPECT_EQ(file.Read(2), "78");
    EXPECT_EQ(SetFilePointer(file, -8, nullptr, FILE_CURRENT), 1u);
    EXPECT_EQ(file.Read(), "123456789");
    distance.QuadPart = -1;
    EXPECT_EQ(ErrorOf(SetFilePointerEx(file, distance, nullptr, FILE_BEGIN)), 131u); // ERROR_NEGATIVE_SEEK
    EXPECT_TRUE(FlushFileBuffers(file));

    char byte = 0;
    DWORD bytes = 7;
    const File reader(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    EXPECT_EQ(ErrorOf(WriteFile(reader, "x", 1, &bytes, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(bytes, 0u);
    File writer(path, GENERIC_WRITE, shareAll, OPEN_EXISTING);
    EXPECT_EQ(ErrorOf(ReadFile(writer, &byte, 1, &bytes, nullptr)), ERROR_ACCESS_DENIED);

    const HANDLE closed = writer;
    writer.Close();
    EXPECT_EQ(ErrorOf(WriteFile(closed, "x", 1, &bytes, nullptr)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ErrorOf(CloseHandle(closed)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ErrorOf(CloseHandle(nullptr)), ERROR_INVALID_HANDLE);
}

// All combinations of two opens: the second is refused exactly when one does what the other denies.
TEST_F(Files, ShareModesOfTwoOpens)
{
    Make(path);
    const auto kinds = [](DWORD access)
    {
        return (access & GENERIC_READ ? FILE_SHARE_READ : 0) |
               (access & GENERIC_WRITE ? FILE_SHARE_WRITE : 0) | (access & DELETE ? FILE_SHARE_DELETE : 0);
    };
    const DWORD accesses[] = {GENERIC_READ, GENERIC_WRITE, readWrite, DELETE};
    constexpr DWORD modes = shareAll + 1;
    for (DWORD i = 0; i < 4 * modes; ++i)
    {
        const DWORD access1 = accesses[i / modes];
        const DWORD share1 = i % modes;
        const File first(path, access1, share1, OPEN_EXISTING);
        ASSERT_TRUE(first.IsOpen());
        for (DWORD j = 0; j < 4 * modes; ++j)
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
    Make(path);
    const WideString other = folder / "other.txt";
    {
        const File open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
        EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(ErrorOf(MoveFileW(path.c_str(), other.c_str())), ERROR_SHARING_VIOLATION);
    }
    {
        const File open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
        EXPECT_EQ(TryOpen(path, GENERIC_WRITE, shareAll, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(Contents(path), "text") << "refused before it happens";
    }
    File open(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    EXPECT_TRUE(MoveFileW(path.c_str(), other.c_str()));
    EXPECT_EQ(open.Read(), "text");
    EXPECT_TRUE(DeleteFileW(other.c_str()));
    open.Close();
    EXPECT_EQ(GetFileAttributesW(other.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

SNDX_CHILD(KeepOpen)
{
    const File file(Wide(arguments.at(0)), readWrite, FILE_SHARE_READ, OPEN_EXISTING);
    Announce(file.IsOpen() ? "open" : "failed");
    return WaitFor("never", 60000);
}

TEST_F(Files, ShareModesReachOtherProcessesAndEndWithThem)
{
    Make(path);
    ChildProcess child("KeepOpen", {Utf8(path)});
    ASSERT_TRUE(WaitFor("open"));
    EXPECT_EQ(TryOpen(path, readWrite, FILE_SHARE_READ), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(TryOpen(path, GENERIC_READ, FILE_SHARE_READ), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(TryOpen(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE), 0u);
    EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), ERROR_SHARING_VIOLATION);
    child.Kill();
    child.Wait();
    EXPECT_EQ(TryOpen(path, readWrite, FILE_SHARE_READ), 0u);
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

// Appends lines, waiting for the others as the trace does.
SNDX_CHILD(AppendLines)
{
    for (int i = 0; i < 50; ++i)
    {
        for (;;)
        {
            File file(Wide(arguments.at(0)), readWrite, FILE_SHARE_READ, OPEN_ALWAYS);
            if (file.IsOpen())
            {
                SetFilePointerEx(file, {}, nullptr, FILE_END);
                file.Write(std::string(10, arguments.at(1)[0]));
                file.Write(std::string(10, arguments.at(1)[0]) + "\n");
                break;
            }
            if (file.Error() != ERROR_SHARING_VIOLATION)
            {
                return 1;
            }
            Sleep(1);
        }
    }
    return 0;
}

TEST_F(Files, AppendingProcessesLoseNothing)
{
    {
        ChildProcess a("AppendLines", {Utf8(path), "a"});
        ChildProcess b("AppendLines", {Utf8(path), "b"});
        ChildProcess c("AppendLines", {Utf8(path), "c"});
        for (ChildProcess* child : {&a, &b, &c})
        {
            EXPECT_EQ(child->Wait(), 0);
        }
    }
    const std::string text = File(path, GENERIC_READ, 0, OPEN_EXISTING).Read(10000);
    EXPECT_EQ(text.size(), 3u * 50u * 21u);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'a'), 50 * 20);
    EXPECT_EQ(std::count(text.begin(), text.end(), 'c'), 50 * 20);
}

TEST_F(Files, MovingReplacesNothing)
{
    Make(path);
    const WideString other = folder / "other.txt";
    Make(other, "other");
    EXPECT_EQ(ErrorOf(MoveFileW(path.c_str(), other.c_str())), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(Contents(other), "other");
    EXPECT_EQ(ErrorOf(MoveFileW((folder / "none").c_str(), (folder / "x").c_str())), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(MoveFileW(path.c_str(), (folder / "no\\x").c_str())), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(MoveFileW(path.c_str(), (folder / "moved").c_str()));
    EXPECT_EQ(Contents(folder / "moved"), "text");
}

TEST_F(Files, AttributesOfWhatIsAndIsNot)
{
    Make(path);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW((folder / "").c_str()), FILE_ATTRIBUTE_DIRECTORY);
    const std::pair<WideString, DWORD> missing[] = {{folder / "none", ERROR_FILE_NOT_FOUND},
                                                    {folder / "none\\none", ERROR_PATH_NOT_FOUND},
                                                    {Wide(""), ERROR_PATH_NOT_FOUND},
                                                    {folder / "*", ERROR_INVALID_NAME}};
    for (const auto& [name, error] : missing)
    {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetFileAttributesW(name.c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(GetLastError(), error) << Utf8(name);
    }
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), ERROR_ACCESS_DENIED);
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(TryOpen(path, GENERIC_WRITE, 0), 0u);
}

TEST_F(Files, NamesMatchInEitherCaseAndWithEitherSeparator)
{
    const std::string name = "Mixed \xC3\x84.txt";
    Make(folder / name);
    WideString slashes = folder / ("sub/../" + name);
    std::replace(slashes.begin(), slashes.end(), WCHAR{'\\'}, WCHAR{'/'});
    for (const WideString& same : {folder / "mIXED \xC3\xA4.TXT", slashes, Wide("\\\\?\\") + (folder / name)})
    {
        EXPECT_EQ(Contents(same), "text") << Utf8(same);
    }
    EXPECT_EQ(TryOpen(folder / "MIXED \xC3\xA4.txt", readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
}
} // namespace
