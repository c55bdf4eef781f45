// Open files: CreateFileW, the calls on handles of files, and the calls on streams of any kind.

#include "posix/fileattributes.h"
#include "posix/guarded.h"
#include "posix/fileobject.h"
#include "posix/filelocks.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sndxposix
{
namespace
{
// Between finding a file and guarding it others may delete or create it; each such change costs a try.
constexpr int maximumTries = 16;

DWORD KindsOf(DWORD access)
{
    return ((access & GENERIC_READ) != 0 ? FILE_SHARE_READ : 0) |
           ((access & GENERIC_WRITE) != 0 ? FILE_SHARE_WRITE : 0) |
           ((access & DELETE) != 0 ? FILE_SHARE_DELETE : 0);
}

// A descriptor, and whether the file had been there. -1 with errno set on failure; EAGAIN when another
// process got in between.
int OpenDescriptor(const std::string& path, bool writes, DWORD disposition, bool& existed)
{
    // Locks need a descriptor that may read. Without O_NONBLOCK the open of a FIFO would wait for its
    // other end.
    const int flags = (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (disposition != CREATE_NEW)
    {
        const int file = open(path.c_str(), flags);
        if (file >= 0 || errno != ENOENT || disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING)
        {
            existed = true;
            return file;
        }
    }
    existed = false;
    const int file = open(path.c_str(), flags | O_CREAT | O_EXCL, 0666);
    if (file < 0 && errno == EEXIST && disposition != CREATE_NEW)
    {
        errno = EAGAIN;
    }
    return file;
}

BOOL CompleteOverlapped(OVERLAPPED* overlapped, DWORD bytes)
{
    overlapped->Internal = 0; // STATUS_SUCCESS: transfers of files end within the call
    overlapped->InternalHigh = bytes;
    return overlapped->hEvent == nullptr || SetEvent(overlapped->hEvent);
}

off_t OffsetOf(const OVERLAPPED& overlapped)
{
    return static_cast<off_t>(std::uint64_t{overlapped.OffsetHigh} << 32 | overlapped.Offset);
}

// Moves all of size bytes unless the end of the file or an error comes first. transfer(done) moves the
// rest from there on, as read() and write() do. False with errno set when nothing at all was moved.
template <class Transfer>
bool TransferAll(DWORD size, DWORD& done, Transfer transfer)
{
    for (done = 0; done < size;)
    {
        const ssize_t count = transfer(done);
        if (count == 0)
        {
            return true;
        }
        if (count > 0)
        {
            done += static_cast<DWORD>(count);
        }
        else if (errno != EINTR)
        {
            return done != 0;
        }
    }
    return true;
}
} // namespace

FileObject::~FileObject()
{
    WithdrawAccess(file_);
    close(file_);
}

BOOL FileObject::Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped)
{
    if ((kinds_ & FILE_SHARE_READ) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    const bool good = TransferAll(size, *bytes,
                                  [&](DWORD done)
                                  {
                                      char* const rest = static_cast<char*>(buffer) + done;
                                      return overlapped == nullptr ? read(file_, rest, size - done)
                                                                   : pread(file_, rest, size - done,
                                                                           OffsetOf(*overlapped) + done);
                                  });
    if (!good)
    {
        return FailWith(ErrorFromErrno(errno));
    }
    if (overlapped == nullptr)
    {
        return TRUE;
    }
    // Only transfers at a given place report the end of the file as an error.
    return *bytes == 0 && size != 0 ? FailWith(ERROR_HANDLE_EOF) : CompleteOverlapped(overlapped, *bytes);
}

BOOL FileObject::Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped)
{
    if ((kinds_ & FILE_SHARE_WRITE) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    const bool good = TransferAll(size, *bytes,
                                  [&](DWORD done)
                                  {
                                      const char* const rest = static_cast<const char*>(buffer) + done;
                                      return overlapped == nullptr ? write(file_, rest, size - done)
                                                                   : pwrite(file_, rest, size - done,
                                                                            OffsetOf(*overlapped) + done);
                                  });
    if (!good)
    {
        return FailWith(ErrorFromErrno(errno));
    }
    return overlapped == nullptr || CompleteOverlapped(overlapped, *bytes);
}

BOOL FileObject::Flush()
{
    return fsync(file_) == 0 || FailWith(ErrorFromErrno(errno));
}

bool FileObject::Seek(std::int64_t distance, DWORD method, std::int64_t& position)
{
    static constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (method > FILE_END)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    position = lseek(file_, distance, origins[method]);
    return position >= 0 || FailWith(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorFromErrno(errno));
}

bool FileObject::Size(std::int64_t& size) const
{
    struct stat status;
    if (fstat(file_, &status) != 0)
    {
        return FailWith(ErrorFromErrno(errno));
    }
    size = status.st_size;
    return true;
}

std::shared_ptr<FileObject> FileObject::Open(const std::string& path, DWORD access, DWORD share,
                                             DWORD disposition, DWORD attributes)
{
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING ||
        (disposition == TRUNCATE_EXISTING && (access & GENERIC_WRITE) == 0))
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const DWORD kinds = KindsOf(access);
    const bool empties = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
    const bool writes = empties || (kinds & FILE_SHARE_WRITE) != 0;
    for (int tries = 0; tries < maximumTries; ++tries)
    {
        bool existed = false;
        const int descriptor = OpenDescriptor(path, writes, disposition, existed);
        if (descriptor < 0)
        {
            if (errno == EAGAIN)
            {
                continue;
            }
            FailWithErrno(errno, path);
            if (disposition == CREATE_NEW && GetLastError() == ERROR_ALREADY_EXISTS)
            {
                SetLastError(ERROR_FILE_EXISTS);
            }
            return nullptr;
        }
        const auto file = std::make_shared<FileObject>(descriptor, kinds);
        struct stat status;
        if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || (writes && IsReadOnly(status)))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }
        const FileGuard guard(descriptor);
        // Emptying a file counts as writing, whatever else the open is for. An open that does none of the
        // three neither disturbs others nor is disturbed.
        const DWORD checked = kinds | (empties ? FILE_SHARE_WRITE : 0);
        if (!guard.IsHeld() || (checked != 0 && ConflictsWithOthers(descriptor, checked, share)))
        {
            SetLastError(ERROR_SHARING_VIOLATION);
            return nullptr;
        }
        if (!StillNames(path, descriptor))
        {
            continue;
        }
        if ((kinds != 0 && !StateAccess(descriptor, kinds, share)) ||
            (empties && existed && ftruncate(descriptor, 0) != 0))
        {
            FailWithErrno(errno, path);
            return nullptr;
        }
        if (!existed || disposition == CREATE_ALWAYS)
        {
            // Not being able to keep them is no reason to refuse the file.
            ChangeAttributes(path, attributes | FILE_ATTRIBUTE_ARCHIVE);
        }
        const bool tells = disposition == OPEN_ALWAYS || disposition == CREATE_ALWAYS;
        SetLastError(existed && tells ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return file;
    }
    SetLastError(ERROR_SHARING_VIOLATION);
    return nullptr;
}
} // namespace sndxposix

using namespace sndxposix;

extern "C" HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                                     LPSECURITY_ATTRIBUTES /*security*/, DWORD disposition, DWORD flags,
                                     HANDLE /*templateFile*/)
{
    const auto body = [&]() -> HANDLE
    {
        if (FailNextCall("CreateFileW"))
        {
            return INVALID_HANDLE_VALUE;
        }
        constexpr std::u16string_view pipes = u"\\\\.\\pipe\\";
        if (path != nullptr && FoldCase(std::u16string_view(path).substr(0, pipes.size())) == pipes)
        {
            return OpenPipeClient(path, access, flags);
        }
        const std::string resolved = ResolveArgument(path);
        if (resolved.empty())
        {
            return INVALID_HANDLE_VALUE;
        }
        const auto file = FileObject::Open(resolved, access, share, disposition, flags);
        return file ? InsertHandle(file) : INVALID_HANDLE_VALUE;
    };
    return Guarded(INVALID_HANDLE_VALUE, body);
}

extern "C" BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytes,
                                LPOVERLAPPED overlapped)
{
    DWORD count = 0;
    DWORD& result = bytes == nullptr ? count : *bytes;
    result = 0;
    if (FailNextCall("ReadFile"))
    {
        return FALSE;
    }
    const auto stream = LookupHandleAs<StreamObject>(file);
    return stream && stream->Read(buffer, size, &result, overlapped);
}

extern "C" BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytes,
                                 LPOVERLAPPED overlapped)
{
    DWORD count = 0;
    DWORD& result = bytes == nullptr ? count : *bytes;
    result = 0;
    if (FailNextCall("WriteFile"))
    {
        return FALSE;
    }
    const auto stream = LookupHandleAs<StreamObject>(file);
    return stream && stream->Write(buffer, size, &result, overlapped);
}

extern "C" BOOL WINAPI FlushFileBuffers(HANDLE file)
{
    if (FailNextCall("FlushFileBuffers"))
    {
        return FALSE;
    }
    const auto stream = LookupHandleAs<StreamObject>(file);
    return stream && stream->Flush();
}

extern "C" BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                                        DWORD method)
{
    if (FailNextCall("SetFilePointerEx"))
    {
        return FALSE;
    }
    const auto object = LookupHandleAs<FileObject>(file);
    std::int64_t reached = 0;
    if (!object || !object->Seek(distance.QuadPart, method, reached))
    {
        return FALSE;
    }
    if (position != nullptr)
    {
        position->QuadPart = reached;
    }
    return TRUE;
}

extern "C" DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD method)
{
    if (FailNextCall("SetFilePointer"))
    {
        return INVALID_SET_FILE_POINTER;
    }
    const auto object = LookupHandleAs<FileObject>(file);
    // With a high part the low one has no sign of its own.
    LARGE_INTEGER offset;
    offset.QuadPart = distance;
    if (distanceHigh != nullptr)
    {
        offset.u.HighPart = *distanceHigh;
    }
    std::int64_t reached = 0;
    if (!object || !object->Seek(offset.QuadPart, method, reached))
    {
        return INVALID_SET_FILE_POINTER;
    }
    offset.QuadPart = reached;
    if (distanceHigh != nullptr)
    {
        *distanceHigh = offset.u.HighPart;
    }
    // The largest low part is a valid position, too: the last error tells it from a failure.
    SetLastError(ERROR_SUCCESS);
    return offset.u.LowPart;
}

extern "C" BOOL WINAPI GetFileSizeEx(HANDLE file, LARGE_INTEGER* size)
{
    if (FailNextCall("GetFileSizeEx"))
    {
        return FALSE;
    }
    const auto object = LookupHandleAs<FileObject>(file);
    std::int64_t bytes = 0;
    if (!object || !object->Size(bytes))
    {
        return FALSE;
    }
    size->QuadPart = bytes;
    return TRUE;
}
