#include "posix/filelocks.h"

#include "posix/descriptor.h"
#include "sndx/files.h"

#include <chrono>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>

namespace sndxposix
{
namespace
{
constexpr std::chrono::milliseconds maximumWait(200);

// One byte for each kind of access, then one for each kind of denial.
constexpr off_t accessBytes = 0x7FFFFFFFFFFFFF00;
constexpr off_t denialBytes = accessBytes + 8;
constexpr DWORD allKinds = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Whether another description has locked the byte of one of the kinds.
bool AnyLocked(int file, off_t bytes, DWORD kinds)
{
    for (int kind = 0; kind < 3; ++kind)
    {
        if ((kinds >> kind & 1) != 0 && IsByteLockedByOther(file, bytes + kind))
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
        if ((kinds >> kind & 1) != 0 && !SetByteLock(file, bytes + kind, F_RDLCK))
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
} // namespace sndxposix
