// Files: creation dispositions, positions, share modes, names and attributes.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform/temporaryfolder.h"
#include "tests/support/child.h"

namespace
{
using namespace sndxtest;

constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// An open file, closed at the end.
class File
{
  public:
    File(const WideString& path, DWORD access, DWORD share, DWORD disposition)
    {
        SetLastError(12345);
        handle_ =
            CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
        error_ = GetLastError();
    }
    ~File() { Close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
    DWORD Error() const { return error_; }
    HANDLE Get() const { return handle_; }
    void Close()
    {
        if (IsOpen())
        {
            EXPECT_TRUE(CloseHandle(handle_));
        }
        handle_ = INVALID_HANDLE_VALUE;
    }
    void Write(const std::string& text)
    {
        DWORD bytes = 0;
        EXPECT_TRUE(WriteFile(handle_, text.data(), static_cast<DWORD>(text.size()), &bytes, nullptr));
        EXPECT_EQ(bytes, text.size());
    }
    std::string Read(DWORD size = 100)
    {
        std::string text(size, '\0');
        DWORD bytes = 0;
        EXPECT_TRUE(ReadFile(handle_, text.data(), size, &bytes, nullptr));
        text.resize(bytes);
        return text;
    }

  private:
    HANDLE handle_;
    DWORD error_;
};

void Make(const WideString& path, const std::string& text = "text")
{
    File file(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_TRUE(file.IsOpen()) << file.Error();
    file.Write(text);
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
    TemporaryFolder folder;
    const WideString path = folder / "file.txt";
};

// The last error of a call that has to fail.
DWORD ErrorOf(BOOL succeeded)
{
    return succeeded ? 0 : GetLastError();
}

TEST_F(Files, DispositionsOnAMissingFile)
{
    EXPECT_EQ(TryOpen(path, GENERIC_READ, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(TryOpen(path, readWrite, 0, TRUNCATE_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(TryOpen(folder / "no\\file", readWrite, 0, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(TryOpen(folder / "wild*", readWrite, 0, CREATE_ALWAYS), ERROR_INVALID_NAME);
    for (const DWORD disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS})
    {
        const WideString each = folder / ("new" + std::to_string(disposition));
        File file(each, readWrite, 0, disposition);
        EXPECT_TRUE(file.IsOpen());
        EXPECT_EQ(file.Error(), ERROR_SUCCESS);
    }
}

TEST_F(Files, DispositionsOnAnExistingFile)
{
    Make(path);
    EXPECT_EQ(TryOpen(path, readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
    {
        File file(path, readWrite, 0, OPEN_ALWAYS);
        EXPECT_EQ(file.Error(), ERROR_ALREADY_EXISTS);
        EXPECT_EQ(file.Read(), "text");
    }
    {
        File file(path, readWrite, 0, OPEN_EXISTING);
        EXPECT_EQ(file.Error(), ERROR_SUCCESS);
    }
    {
        File file(path, readWrite, 0, CREATE_ALWAYS);
        EXPECT_EQ(file.Error(), ERROR_ALREADY_EXISTS);
        EXPECT_EQ(file.Read(), "");
        file.Write("more");
    }
    EXPECT_EQ(TryOpen(path, GENERIC_WRITE, 0, TRUNCATE_EXISTING), 0u);
    EXPECT_EQ(Contents(path), "");
}

TEST_F(Files, TransfersNeedTheirAccess)
{
    Make(path);
    char buffer[4];
    DWORD bytes = 7;
    const File reader(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    EXPECT_EQ(ErrorOf(WriteFile(reader.Get(), "x", 1, &bytes, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(bytes, 0u);
    const File writer(path, GENERIC_WRITE, shareAll, OPEN_EXISTING);
    EXPECT_EQ(ErrorOf(ReadFile(writer.Get(), buffer, 4, &bytes, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(TryOpen(folder / "", GENERIC_READ, shareAll), ERROR_ACCESS_DENIED) << "a folder";
}

TEST_F(Files, PositionsAndSizes)
{
    File file(path, readWrite, 0, CREATE_NEW);
    file.Write("0123456789");
    EXPECT_EQ(file.Read(), "") << "the end of the file is no error";
    LARGE_INTEGER distance;
    LARGE_INTEGER position;
    distance.QuadPart = -3;
    ASSERT_TRUE(SetFilePointerEx(file.Get(), distance, &position, FILE_END));
    EXPECT_EQ(position.QuadPart, 7);
    EXPECT_EQ(file.Read(2), "78");
    EXPECT_EQ(SetFilePointer(file.Get(), -8, nullptr, FILE_CURRENT), 1u);
    EXPECT_EQ(file.Read(), "123456789");
    distance.QuadPart = -1;
    EXPECT_EQ(ErrorOf(SetFilePointerEx(file.Get(), distance, nullptr, FILE_BEGIN)),
              131u); // ERROR_NEGATIVE_SEEK

    LONG high = 2;
    EXPECT_EQ(SetFilePointer(file.Get(), 16, &high, FILE_BEGIN), 16u);
    EXPECT_EQ(high, 2);
    LARGE_INTEGER size;
    ASSERT_TRUE(GetFileSizeEx(file.Get(), &size));
    EXPECT_EQ(size.QuadPart, 10) << "moving behind the end does not write";
    EXPECT_TRUE(FlushFileBuffers(file.Get()));
}

TEST_F(Files, TransfersAtAGivenPlace)
{
    Make(path, "0123456789");
    const File file(path, readWrite, 0, OPEN_EXISTING);
    OVERLAPPED place = {};
    place.Offset = 4;
    char buffer[3] = {};
    DWORD bytes = 0;
    ASSERT_TRUE(ReadFile(file.Get(), buffer, 2, &bytes, &place));
    EXPECT_STREQ(buffer, "45");
    EXPECT_EQ(bytes, 2u);
    EXPECT_EQ(place.InternalHigh, 2u);
    place.Offset = 10;
    EXPECT_EQ(ErrorOf(ReadFile(file.Get(), buffer, 2, &bytes, &place)), ERROR_HANDLE_EOF);
}

TEST_F(Files, HandlesEndWithTheirClosing)
{
    Make(path);
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(file) % 4, 0u);
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ErrorOf(CloseHandle(file)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ErrorOf(CloseHandle(nullptr)), ERROR_INVALID_HANDLE);
    DWORD bytes = 0;
    EXPECT_EQ(ErrorOf(WriteFile(file, "x", 1, &bytes, nullptr)), ERROR_INVALID_HANDLE);
    LARGE_INTEGER size;
    EXPECT_EQ(ErrorOf(GetFileSizeEx(INVALID_HANDLE_VALUE, &size)), ERROR_INVALID_HANDLE);
}

// All combinations of two opens: the second is refused exactly when one does what the other denies.
TEST_F(Files, ShareModesOfTwoOpens)
{
    Make(path);
    const DWORD accesses[] = {GENERIC_READ, GENERIC_WRITE, readWrite, DELETE};
    const auto kinds = [](DWORD access)
    {
        return (access & GENERIC_READ ? FILE_SHARE_READ : 0) |
               (access & GENERIC_WRITE ? FILE_SHARE_WRITE : 0) | (access & DELETE ? FILE_SHARE_DELETE : 0);
    };
    for (const DWORD access1 : accesses)
    {
        for (DWORD share1 = 0; share1 <= shareAll; ++share1)
        {
            const File first(path, access1, share1, OPEN_EXISTING);
            ASSERT_TRUE(first.IsOpen());
            for (const DWORD access2 : accesses)
            {
                for (DWORD share2 = 0; share2 <= shareAll; ++share2)
                {
                    const bool allowed = (kinds(access2) & ~share1) == 0 && (kinds(access1) & ~share2) == 0;
                    ASSERT_EQ(TryOpen(path, access2, share2), allowed ? 0 : ERROR_SHARING_VIOLATION)
                        << std::hex << access1 << " " << share1 << " then " << access2 << " " << share2;
                }
            }
        }
    }
    EXPECT_EQ(TryOpen(path, readWrite, 0), 0u) << "closing must end what an open denies";
}

TEST_F(Files, EmptyingAnOpenFileIsRefusedBeforeItHappens)
{
    Make(path);
    const File reader(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    EXPECT_EQ(TryOpen(path, GENERIC_WRITE, shareAll, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(TryOpen(path, GENERIC_WRITE, shareAll, TRUNCATE_EXISTING), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(Contents(path), "text");
}

TEST_F(Files, OpenFilesAreMovedAndDeletedOnlyWhenShared)
{
    Make(path);
    const WideString other = folder / "other.txt";
    {
        const File open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
        EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(ErrorOf(MoveFileW(path.c_str(), other.c_str())), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(Contents(path), "text");
    }
    {
        File open(path, GENERIC_READ, shareAll, OPEN_EXISTING);
        EXPECT_TRUE(MoveFileW(path.c_str(), other.c_str()));
        EXPECT_EQ(open.Read(), "text");
        EXPECT_TRUE(DeleteFileW(other.c_str()));
    }
    EXPECT_EQ(GetFileAttributesW(other.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

SNDX_CHILD(KeepOpen)
{
    const File file(Wide(arguments.at(0)), readWrite, FILE_SHARE_READ, OPEN_EXISTING);
    Announce(file.IsOpen() ? "open" : "failed");
    return WaitFor("never", 60000) ? 0 : 1;
}

TEST_F(Files, ShareModesReachOtherProcessesAndEndWithThem)
{
    Make(path);
    ClearPoints();
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
    ClearPoints();
}

// Appends numbered lines, waiting for the others as the trace does.
SNDX_CHILD(AppendLines)
{
    for (int line = 0; line < 50;)
    {
        const File file(Wide(arguments.at(0)), readWrite, FILE_SHARE_READ, OPEN_ALWAYS);
        if (!file.IsOpen())
        {
            if (file.Error() != ERROR_SHARING_VIOLATION)
            {
                return 100;
            }
            Sleep(1);
            continue;
        }
        // Three steps that only the share mode keeps together.
        const std::string text = arguments.at(1) + "\n";
        LARGE_INTEGER size;
        DWORD bytes = 0;
        if (!GetFileSizeEx(file.Get(), &size) || !SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN) ||
            !WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &bytes, nullptr))
        {
            return 101;
        }
        ++line;
    }
    return 0;
}

TEST_F(Files, WritersOfSeveralProcessesDoNotLoseLines)
{
    std::vector<ChildProcess> children;
    for (int i = 0; i < 3; ++i)
    {
        children.emplace_back("AppendLines",
                              std::vector<std::string>{Utf8(path), std::string(20, char('a' + i))});
    }
    for (const ChildProcess& child : children)
    {
        EXPECT_EQ(const_cast<ChildProcess&>(child).Wait(), 0);
    }
    File file(path, GENERIC_READ, 0, OPEN_EXISTING);
    const std::string text = file.Read(10000);
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
    ASSERT_TRUE(CreateDirectoryW((folder / "sub").c_str(), nullptr));
    EXPECT_TRUE(MoveFileW((folder / "sub").c_str(), (folder / "sub2").c_str()));
    EXPECT_TRUE(MoveFileW(path.c_str(), (folder / "sub2\\file.txt").c_str()));
    EXPECT_EQ(Contents(folder / "sub2\\file.txt"), "text");
}

TEST_F(Files, CopyingKeepsOrReplaces)
{
    Make(path, std::string(200000, 'x'));
    const WideString copy = folder / "copy.txt";
    Make(copy, "old");
    EXPECT_EQ(ErrorOf(CopyFileW(path.c_str(), copy.c_str(), TRUE)), ERROR_FILE_EXISTS);
    EXPECT_EQ(Contents(copy), "old");
    EXPECT_TRUE(CopyFileW(path.c_str(), copy.c_str(), FALSE));
    const File file(copy, GENERIC_READ, 0, OPEN_EXISTING);
    LARGE_INTEGER size;
    ASSERT_TRUE(GetFileSizeEx(file.Get(), &size));
    EXPECT_EQ(size.QuadPart, 200000);
    EXPECT_EQ(ErrorOf(CopyFileW((folder / "none").c_str(), copy.c_str(), FALSE)), ERROR_FILE_NOT_FOUND);
}

TEST_F(Files, AttributesOfWhatIsAndIsNot)
{
    Make(path);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW((folder / "").c_str()), FILE_ATTRIBUTE_DIRECTORY);
    const auto error = [](const WideString& missing)
    {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetFileAttributesW(missing.c_str()), INVALID_FILE_ATTRIBUTES);
        return GetLastError();
    };
    EXPECT_EQ(error(folder / "none"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(error(folder / "none\\none"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(error(Wide("")), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(error(folder / "*"), ERROR_INVALID_NAME);

    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), ERROR_ACCESS_DENIED);
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(TryOpen(path, GENERIC_WRITE, 0), 0u);
    EXPECT_EQ(ErrorOf(SetFileAttributesW((folder / "none").c_str(), FILE_ATTRIBUTE_ARCHIVE)),
              ERROR_FILE_NOT_FOUND);
}

TEST_F(Files, NamesMatchInEitherCaseAndWithEitherSeparator)
{
    Make(folder / "Mixed \xC3\x84.txt");
    EXPECT_EQ(Contents(folder / "mIXED \xC3\xA4.TXT"), "text");
    WideString slashes = folder / "sub/../Mixed \xC3\x84.txt";
    std::replace(slashes.begin(), slashes.end(), WCHAR{'\\'}, WCHAR{'/'});
    EXPECT_EQ(Contents(slashes), "text");
    EXPECT_EQ(Contents(Wide("\\\\?\\") + (folder / "Mixed \xC3\x84.txt")), "text");
    EXPECT_EQ(TryOpen(folder / "MIXED \xC3\xA4.txt", readWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);
}

TEST_F(Files, FoldersAreMadeAndRemoved)
{
    const WideString sub = folder / "sub";
    EXPECT_TRUE(CreateDirectoryW(sub.c_str(), nullptr));
    EXPECT_EQ(ErrorOf(CreateDirectoryW(sub.c_str(), nullptr)), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(ErrorOf(CreateDirectoryW((folder / "no\\sub").c_str(), nullptr)), ERROR_PATH_NOT_FOUND);
    Make(folder / "sub\\file");
    EXPECT_EQ(ErrorOf(RemoveDirectoryW(sub.c_str())), ERROR_DIR_NOT_EMPTY);
    EXPECT_EQ(ErrorOf(RemoveDirectoryW((folder / "sub\\file").c_str())), 267u); // ERROR_DIRECTORY
    EXPECT_EQ(ErrorOf(DeleteFileW(sub.c_str())), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(DeleteFileW((folder / "sub\\file").c_str()));
    EXPECT_TRUE(RemoveDirectoryW(sub.c_str()));
    EXPECT_EQ(ErrorOf(RemoveDirectoryW(sub.c_str())), ERROR_FILE_NOT_FOUND);
}

// The names found, joined by blanks.
std::string Find(const WideString& pattern)
{
    WIN32_FIND_DATAW data;
    const HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
    {
        return "error " + std::to_string(GetLastError());
    }
    std::string names;
    do
    {
        names += (names.empty() ? "" : " ") + Utf8(data.cFileName);
    } while (FindNextFileW(find, &data));
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(find));
    return names;
}

TEST_F(Files, Enumeration)
{
    for (const char* name : {"b.txt", "a.txt", "ab.text", "noext", "A2.txt"})
    {
        Make(folder / name);
    }
    ASSERT_TRUE(CreateDirectoryW((folder / "sub").c_str(), nullptr));
    EXPECT_EQ(Find(folder / "*"), ". .. a.txt A2.txt ab.text b.txt noext sub");
    EXPECT_EQ(Find(folder / "*.*"), ". .. a.txt A2.txt ab.text b.txt noext sub");
    EXPECT_EQ(Find(folder / "a*.tx?"), "a.txt A2.txt");
    EXPECT_EQ(Find(folder / "?.txt"), "a.txt b.txt");
    EXPECT_EQ(Find(folder / "*b*t"), "ab.text b.txt");
    EXPECT_EQ(Find(folder / "B.TXT"), "b.txt");
    EXPECT_EQ(Find(folder / "q*"), "error 2");
    EXPECT_EQ(Find(folder / "no\\*"), "error 3");

    WIN32_FIND_DATAW data;
    const HANDLE find = FindFirstFileW((folder / "b.txt").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 4u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_GT(data.ftLastWriteTime.dwHighDateTime, 30000000u); // this century
    EXPECT_TRUE(FindClose(find));
    EXPECT_EQ(ErrorOf(FindClose(INVALID_HANDLE_VALUE)), ERROR_INVALID_HANDLE);
}
} // namespace
