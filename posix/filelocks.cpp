#include "posix/filelocks.h"

#include "sndx/files.h"

#include <chrono>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sndxposix
{
namespace
{
constexpr std::chrono::milliseconds maximumWait(200);

// One byte for each kind of access, then one for each kind of denial.
constexpr off_t accessBytes = 0x7FFFFFFFFFFFFF00;
constexpr off_t denialBytes = accessBytes + 8;
constexpr DWORD allKinds = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct flock ByteLock(short type, off_t byte)
{
    struct flock lock
    {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// Whether another description has locked the byte of one of the kinds.
bool AnyLocked(int file, off_t bytes, DWORD kinds)
{
    for (int kind = 0; kind < 3; ++kind)
    {
        struct flock lock = ByteLock(F_WRLCK, bytes + kind);
        if ((kinds >> kind & 1) != 0 && fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK)
        {
            return true;
        }
    }
    return false;
}

bool LockAll(int file, off_t bytes, DWORD kinds)
{
    for (int kind = 0; kind < 3; ++kind)
    {
        struct flock lock = ByteLock(F_RDLCK, bytes + kind);
        if ((kinds >> kind & 1) != 0 && fcntl(file, F_OFD_SETLK, &lock) != 0)
        {
            return false;
        }
    }
    return true;
}
} // namespace

FileGuard::FileGuard(int file) : file_(file)
{
    const auto end = std::chrono::steady_clock::now() + maximumWait;
    // A holder needs microseconds: to give way to it is enough, sleeping would only lose time.
    while (!(isHeld_ = ::flock(file_, LOCK_EX | LOCK_NB) == 0) && std::chrono::steady_clock::now() < end)
    {
        sched_yield();
    }
}

FileGuard::~FileGuard()
{
    if (isHeld_)
    {
        ::flock(file_, LOCK_UN);
    }
}

bool ConflictsWithOthers(int file, DWORD access, DWORD share)
{
    return AnyLocked(file, denialBytes, access) || AnyLocked(file, accessBytes, allKinds & ~share);
}

bool StateAccess(int file, DWORD access, DWORD share)
{
    return LockAll(file, accessBytes, access) && LockAll(file, denialBytes, allKinds & ~share);
}

void WithdrawAccess(int file)
{
    struct flock lock = ByteLock(F_UNLCK, accessBytes);
    lock.l_len = denialBytes + 3 - accessBytes;
    fcntl(file, F_OFD_SETLK, &lock);
}

bool StillNames(const std::string& path, int file)
{
    struct stat named;
    struct stat opened;
    return stat(path.c_str(), &named) == 0 && fstat(file, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}
} // namespace sndxposix
