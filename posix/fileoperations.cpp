// Files and folders by name: delete, move, copy, make and remove folders, the temporary folder.

#include "posix/fileattributes.h"
#include "posix/guarded.h"
#include "posix/filelocks.h"
#include "posix/fileobject.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace sndxposix;

namespace
{
// A descriptor with a life time, for looking at a file's locks.
class Descriptor
{
  public:
    explicit Descriptor(const std::string& path)
        : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
    {
    }
    ~Descriptor()
    {
        if (file_ >= 0)
        {
            close(file_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return file_; }

  private:
    int file_;
};

// Runs an operation that takes the name from a file: refused while somebody has the file open without
// sharing that, and nobody can open it meanwhile. operation() returns 0, or -1 with errno set.
template <class Operation>
bool WithNameFree(const std::string& path, const struct stat& status, Operation operation)
{
    const auto run = [&] { return operation() == 0 || FailWithErrno(errno, path); };
    if (!S_ISREG(status.st_mode))
    {
        return run(); // folders and symbolic links are not opened
    }
    const Descriptor file(path);
    if (file.Get() < 0)
    {
        return run(); // one that this user cannot read is locked by nobody of his
    }
    const FileGuard guard(file.Get());
    if (!guard.IsHeld() || ConflictsWithOthers(file.Get(), FILE_SHARE_DELETE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
    {
        return FailWith(ERROR_SHARING_VIOLATION);
    }
    return run();
}

int RenameWithoutReplacing(const std::string& from, const std::string& to)
{
    const int result = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (result == 0 || errno != EINVAL)
    {
        return result;
    }
    // A file system that does not know the flag; the check may be overtaken by somebody who creates `to`.
    struct stat status;
    if (lstat(to.c_str(), &status) == 0)
    {
        errno = EEXIST;
        return -1;
    }
    return rename(from.c_str(), to.c_str());
}

bool Copy(const std::string& from, const std::string& to, DWORD disposition)
{
    const auto source =
        FileObject::Open(from, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0);
    struct stat status;
    if (!source || stat(from.c_str(), &status) != 0)
    {
        return false;
    }
    const auto target = FileObject::Open(to, GENERIC_WRITE, 0, disposition, 0);
    if (!target)
    {
        return false;
    }
    std::vector<char> block(65536);
    for (;;)
    {
        DWORD bytes = 0;
        DWORD written = 0;
        if (!source->Read(block.data(), static_cast<DWORD>(block.size()), &bytes, nullptr))
        {
            return false;
        }
        if (bytes == 0)
        {
            // What the target's file system cannot keep is lost.
            ChangeAttributes(to, AttributesOf(from, status));
            return true;
        }
        if (!target->Write(block.data(), bytes, &written, nullptr) || written != bytes)
        {
            return false;
        }
    }
}
} // namespace

extern "C" BOOL WINAPI DeleteFileW(LPCWSTR path)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("DeleteFileW"))
        {
            return FALSE;
        }
        const std::string resolved = ResolveArgument(path);
        struct stat status;
        if (resolved.empty())
        {
            return FALSE;
        }
        if (lstat(resolved.c_str(), &status) != 0)
        {
            return FailWithErrno(errno, resolved);
        }
        if (S_ISDIR(status.st_mode) || (S_ISREG(status.st_mode) && IsReadOnly(status)))
        {
            return FailWith(ERROR_ACCESS_DENIED);
        }
        return WithNameFree(resolved, status, [&] { return unlink(resolved.c_str()); });
    };
    return Guarded(BOOL{}, body);
}

extern "C" BOOL WINAPI MoveFileW(LPCWSTR from, LPCWSTR to)
{
    return Guarded(
        BOOL{},
        [&]() -> BOOL
        {
            if (FailNextCall("MoveFileW"))
            {
                return FALSE;
            }
            const std::string source = ResolveArgument(from);
            const std::string target = source.empty() ? source : ResolveArgument(to);
            struct stat status;
            if (target.empty())
            {
                return FALSE;
            }
            if (lstat(source.c_str(), &status) != 0)
            {
                return FailWithErrno(errno, source);
            }
            bool copies = false;
            const bool moved = WithNameFree(source, status,
                                            [&]
                                            {
                                                const int result = RenameWithoutReplacing(source, target);
                                                copies =
                                                    result != 0 && errno == EXDEV && S_ISREG(status.st_mode);
                                                return result;
                                            });
            if (moved || !copies)
            {
                // Of the two names it is the target's folder that may be missing.
                return moved ||
                       (GetLastError() == ERROR_FILE_NOT_FOUND ? FailWith(ERROR_PATH_NOT_FOUND) : false);
            }
            if (!Copy(source, target, CREATE_NEW))
            {
                return FailWith(GetLastError() == ERROR_FILE_EXISTS ? ERROR_ALREADY_EXISTS : GetLastError());
            }
            return WithNameFree(source, status, [&] { return unlink(source.c_str()); });
        });
}

extern "C" BOOL WINAPI CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("CopyFileW"))
        {
            return FALSE;
        }
        const std::string source = ResolveArgument(from);
        const std::string target = source.empty() ? source : ResolveArgument(to);
        return !target.empty() && Copy(source, target, failIfExists ? CREATE_NEW : CREATE_ALWAYS);
    };
    return Guarded(BOOL{}, body);
}

extern "C" BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES /*security*/)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("CreateDirectoryW"))
        {
            return FALSE;
        }
        const std::string resolved = ResolveArgument(path);
        return !resolved.empty() && (mkdir(resolved.c_str(), 0777) == 0 || FailWithErrno(errno, resolved));
    };
    return Guarded(BOOL{}, body);
}

extern "C" BOOL WINAPI RemoveDirectoryW(LPCWSTR path)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("RemoveDirectoryW"))
        {
            return FALSE;
        }
        const std::string resolved = ResolveArgument(path);
        if (resolved.empty() || rmdir(resolved.c_str()) == 0)
        {
            return !resolved.empty();
        }
        struct stat status;
        if (errno == ENOTDIR && stat(resolved.c_str(), &status) == 0)
        {
            return FailWith(ERROR_DIRECTORY); // it is a file
        }
        return FailWithErrno(errno, resolved);
    };
    return Guarded(BOOL{}, body);
}

extern "C" DWORD WINAPI GetTempPathW(DWORD size, LPWSTR buffer)
{
    const auto body = [&]() -> DWORD
    {
        if (FailNextCall("GetTempPathW"))
        {
            return 0;
        }
        // On drive C:, so that temporary files of one root folder are apart from those of
        // another.
        const std::string folder = RootFolder() + "/drive_c/Temp";
        if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        {
            FailWith(ErrorFromErrno(errno));
            return 0;
        }
        const std::u16string text = ToWindowsPath(folder) + u"\\";
        if (size <= text.size())
        {
            return static_cast<DWORD>(text.size() + 1);
        }
        text.copy(buffer, text.size());
        buffer[text.size()] = 0;
        return static_cast<DWORD>(text.size());
    };
    return Guarded(DWORD{}, body);
}
