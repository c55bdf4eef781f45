// errno values as Windows error codes.

#include "posix/internal.h"
#include "sndx/files.h"

#include <cerrno>

namespace sndxposix
{
DWORD ErrorFromErrno(int error)
{
    switch (error)
    {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
    case ELOOP:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    // A file system without extended attributes, or a program text that is running: refused for good.
    case ENOTSUP:
    case ETXTBSY:
        return ERROR_ACCESS_DENIED;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EAGAIN:
    case EBUSY:
        return ERROR_SHARING_VIOLATION;
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case EFAULT:
        return ERROR_NOACCESS;
    case ENAMETOOLONG:
        return ERROR_INVALID_NAME;
    case ENOTEMPTY:
        return ERROR_DIR_NOT_EMPTY;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ERROR_DISK_FULL;
    case EPIPE:
        return ERROR_NO_DATA;
    case ECONNRESET:
        return ERROR_BROKEN_PIPE;
    case ENOEXEC:
        return ERROR_BAD_EXE_FORMAT;
    case EILSEQ:
        return ERROR_NO_UNICODE_TRANSLATION;
    default:
        return ERROR_GEN_FAILURE;
    }
}
} // namespace sndxposix
