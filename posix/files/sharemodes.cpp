// Share modes of open files.

#include "posix/files/sharemodes.h"

#include <chrono>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>

#include "posix/base/descriptor.h"
#include "sndx/files.h"

namespace sndxposix
{
namespace
{
constexpr std::chrono::milliseconds maximumWait(200);

// One byte for each kind of access, then one for each kind of denial.
constexpr off_t accessBytes = 0x7FFFFFFFFFFFFF00;
constexpr off_t denialBytes = accessBytes + 8;
constexpr DWORD allKinds = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// test(byte) on the byte of each of the kinds, until one says true.
template <class Test>
bool AnyOf(off_t bytes, DWORD kinds, Test test)
{
    for (int kind = 0; kind < 3; ++kind)
    {
        if ((kinds >> kind & 1) != 0 && test(bytes + kind))
        {
            return true;
        }
    }
    return false;
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
    const auto isLocked = [&](off_t byte) { return IsByteLockedByOther(file, byte); };
    return AnyOf(denialBytes, access, isLocked) || AnyOf(accessBytes, allKinds & ~share, isLocked);
}

bool StateAccess(int file, DWORD access, DWORD share)
{
    const auto cannotLock = [&](off_t byte) { return !SetByteLock(file, byte, F_RDLCK); };
    return !AnyOf(accessBytes, access, cannotLock) && !AnyOf(denialBytes, allKinds & ~share, cannotLock);
}
} // namespace sndxposix
