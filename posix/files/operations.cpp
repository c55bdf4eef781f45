// Files by name: delete and move.

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/descriptor.h"
#include "posix/files/attributes.h"
#include "posix/files/sharemodes.h"
#include "sndx/files.h"

namespace sndxposix
{
namespace
{
// Runs an operation that takes the name from a file: refused while somebody has the file open without
// sharing that, and nobody can open it meanwhile. operation() returns 0, or -1 with errno set.
template <class Operation>
bool WithNameFree(const std::string& path, const struct stat& status, Operation operation)
{
    const auto run = [&] { return operation() == 0 || FailOnPath(path); };
    if (!S_ISREG(status.st_mode))
    {
        return run(); // folders and symbolic links are not opened
    }
    // Only its locks are looked at.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen())
    {
        // One that this user cannot read is locked by nobody of his.
        return errno == ENOENT ? FailOnPath(path) : run();
    }
    const FileGuard guard(file.Get());
    if (!guard.IsHeld() || ConflictsWithOthers(file.Get(), FILE_SHARE_DELETE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
    {
        return FailWith(ERROR_SHARING_VIOLATION);
    }
    // A new file that has got the name meanwhile may be open; the name was free in between.
    return StillNames(path, file.Get()) ? run() : FailWith(ERROR_FILE_NOT_FOUND);
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
} // namespace

extern "C" BOOL WINAPI DeleteFileW(LPCWSTR path)
{
    const auto body = [&]() -> BOOL
    {
        const std::string resolved = ResolveArgument(path);
        struct stat status;
        if (resolved.empty() || (lstat(resolved.c_str(), &status) != 0 && !FailOnPath(resolved)))
        {
            return FALSE;
        }
        return S_ISDIR(status.st_mode)
                   ? FailWith(ERROR_ACCESS_DENIED)
                   : WithNameFree(resolved, status, [&] { return unlink(resolved.c_str()); });
    };
    return Call("DeleteFileW", FALSE, body);
}

extern "C" BOOL WINAPI MoveFileW(LPCWSTR from, LPCWSTR to)
{
    const auto body = [&]() -> BOOL
    {
        const std::string source = ResolveArgument(from);
        const std::string target = source.empty() ? source : ResolveArgument(to);
        struct stat status;
        if (target.empty() || (lstat(source.c_str(), &status) != 0 && !FailOnPath(source)))
        {
            return FALSE;
        }
        const bool moved =
            WithNameFree(source, status, [&] { return RenameWithoutReplacing(source, target); });
        // Of the two names it is the target's folder that may be missing.
        return moved ||
               FailWith(GetLastError() == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND : GetLastError());
    };
    return Call("MoveFileW", FALSE, body);
}
} // namespace sndxposix
