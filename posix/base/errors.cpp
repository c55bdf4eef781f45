// The last error of each thread, and errno values as Windows error codes.

#include "posix/base/call.h"

#include <algorithm>
#include <iterator>

namespace sndxposix
{
namespace
{
thread_local DWORD lastError = ERROR_SUCCESS;

constexpr struct
{
    int posix;
    DWORD windows;
} codes[] = {
    {0, ERROR_SUCCESS},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {ELOOP, ERROR_PATH_NOT_FOUND},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EROFS, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},
    {ENOTSUP, ERROR_ACCESS_DENIED}, // a file system without extended attributes
    {ETXTBSY, ERROR_ACCESS_DENIED}, // a program text that is running
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EMFILE, ERROR_NOT_ENOUGH_MEMORY},
    {ENFILE, ERROR_NOT_ENOUGH_MEMORY},
    {EAGAIN, ERROR_SHARING_VIOLATION},
    {EBUSY, ERROR_SHARING_VIOLATION},
    {EEXIST, ERROR_ALREADY_EXISTS},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {EFAULT, ERROR_NOACCESS},
    {ENAMETOOLONG, ERROR_INVALID_NAME},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {EFBIG, ERROR_DISK_FULL},
    {ENOEXEC, ERROR_BAD_EXE_FORMAT},
};
} // namespace

DWORD ErrorFromErrno(int error)
{
    const auto* const found = std::find_if(std::begin(codes), std::end(codes),
                                           [&](const auto& code) { return code.posix == error; });
    return found == std::end(codes) ? DWORD{ERROR_GEN_FAILURE} : found->windows;
}

void SetLastError(DWORD code)
{
    lastError = code;
}
extern "C" DWORD WINAPI GetLastError()
{
    return lastError;
}
} // namespace sndxposix
