// Whole transfers, and locks on single bytes.

#include "posix/base/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace sndxposix
{
namespace
{
// length 0 means up to the end of all files. lock tells the outcome of F_OFD_GETLK.
bool LockCall(int file, int command, off_t byte, off_t length, struct flock& lock, short lockType)
{
    lock = {};
    lock.l_type = lockType;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = length;
    return TEMP_FAILURE_RETRY(fcntl(file, command, &lock)) == 0;
}
} // namespace

bool ReadAt(int file, void* buffer, std::size_t size, off_t offset)
{
    const auto transfer = [&](std::size_t done) {
        return pread(file, static_cast<char*>(buffer) + done, size - done, offset + static_cast<off_t>(done));
    };
    return MoveAll(size, transfer) == size;
}

bool WriteAt(int file, const void* buffer, std::size_t size, off_t offset)
{
    const auto transfer = [&](std::size_t done)
    {
        return pwrite(file, static_cast<const char*>(buffer) + done, size - done,
                      offset + static_cast<off_t>(done));
    };
    return MoveAll(size, transfer) == size;
}

bool StillNames(const std::string& path, int file)
{
    struct stat named;
    struct stat opened;
    return stat(path.c_str(), &named) == 0 && fstat(file, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

bool SetByteLock(int file, off_t byte, short lockType)
{
    struct flock lock;
    return LockCall(file, F_OFD_SETLK, byte, 1, lock, lockType);
}

void WaitForByteLock(int file, off_t byte)
{
    struct flock lock;
    LockCall(file, F_OFD_SETLKW, byte, 1, lock, F_WRLCK);
}

bool IsByteLockedByOther(int file, off_t byte)
{
    struct flock lock;
    return LockCall(file, F_OFD_GETLK, byte, 1, lock, F_WRLCK) && lock.l_type != F_UNLCK;
}

void UnlockAllBytes(int file)
{
    struct flock lock;
    LockCall(file, F_OFD_SETLK, 0, 0, lock, F_UNLCK);
}
} // namespace sndxposix
