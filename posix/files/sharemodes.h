#pragma once
// Share modes of open files, faithful within the process and across processes.
//
// Every open that may read, write or delete states that, and which of the three it denies to others. Each
// statement is a shared lock (descriptor.h) on one byte far beyond any data of the file. An open looks at the
// bytes that stand against it before it takes its own; meanwhile it holds a short exclusive flock() on the
// same file, so that two opens cannot miss each other.

#include "sndx/types.h"

namespace sndxposix
{
// Access and sharing are sets of the FILE_SHARE_… bits: what an open does, and what it lets others do.

// The exclusive guard of the file, for the life of this object. Waits for at most maximumWait for a holder
// that is just changing its locks; only a stopped process keeps it longer.
class FileGuard
{
  public:
    explicit FileGuard(int file);
    ~FileGuard();
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;
    // False: somebody else keeps the file; a sharing violation to the caller.
    bool IsHeld() const { return isHeld_; }

  private:
    int file_;
    bool isHeld_ = false;
};

// The following two want the guard held.

// Whether an open with this access and sharing is refused because of others.
bool ConflictsWithOthers(int file, DWORD access, DWORD share);
// States access and sharing for this description. False, with errno set, when the file system has no locks.
bool StateAccess(int file, DWORD access, DWORD share);
} // namespace sndxposix
