// Open files: CreateFileW, the calls on handles of files, and the calls on streams of any kind.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/base/descriptor.h"
#include "posix/files/attributes.h"
#include "posix/files/sharemodes.h"
#include "posix/pipes/pipeend.h"
#include "posix/text/charsets.h"
#include "sndx/files.h"

namespace sndxposix
{
namespace
{
// Between finding a file and guarding it others may delete or create it; each such change costs a try.
constexpr int maximumTries = 16;

DWORD KindsOf(DWORD access)
{
    return ((access & GENERIC_READ) != 0 ? FILE_SHARE_READ : 0) |
           ((access & GENERIC_WRITE) != 0 ? FILE_SHARE_WRITE : 0);
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
        if (file >= 0 || errno != ENOENT || disposition == OPEN_EXISTING)
        {
            existed = true;
            return file;
        }
    }
    existed = false;
    const int file = open(path.c_str(), flags | O_CREAT | O_EXCL, 0666);
    if (file < 0 && errno == EEXIST && disposition != CREATE_NEW)
    {
        struct stat status;
        if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
        {
            return open(path.c_str(), flags | O_CREAT, 0666); // made where the link leads
        }
        errno = EAGAIN;
    }
    return file;
}

class FileObject final : public StreamObject
{
  public:
    // kinds are the kinds of access as FILE_SHARE_ bits.
    FileObject(Descriptor file, DWORD kinds) : file_(std::move(file)), kinds_(kinds) {}
    ~FileObject() override { UnlockAllBytes(file_.Get()); }
    int Number() const { return file_.Get(); }

    // There are no overlapped transfers of files.
    BOOL Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* /*overlapped*/) override
    {
        const auto transfer = [&](std::size_t done)
        { return read(file_.Get(), static_cast<char*>(buffer) + done, size - done); };
        if ((kinds_ & FILE_SHARE_READ) == 0)
        {
            return FailWith(ERROR_ACCESS_DENIED);
        }
        *bytes = static_cast<DWORD>(MoveAll(size, transfer));
        return *bytes != 0 || errno == 0 || FailWithErrno();
    }
    BOOL Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* /*overlapped*/) override
    {
        const auto transfer = [&](std::size_t done)
        { return write(file_.Get(), static_cast<const char*>(buffer) + done, size - done); };
        if ((kinds_ & FILE_SHARE_WRITE) == 0)
        {
            return FailWith(ERROR_ACCESS_DENIED);
        }
        *bytes = static_cast<DWORD>(MoveAll(size, transfer));
        return *bytes != 0 || errno == 0 || FailWithErrno();
    }
    BOOL Flush() override { return fsync(file_.Get()) == 0 || FailWithErrno(); }

  private:
    const Descriptor file_;
    const DWORD kinds_;
};

// Opens as CreateFileW does; path is a POSIX path. attributes are those for a new file. Null with the last
// error set on failure; after success the last error tells whether the file had existed.
std::shared_ptr<FileObject> Open(const std::string& path, DWORD access, DWORD share, DWORD disposition,
                                 DWORD attributes)
{
    if (disposition < CREATE_NEW || disposition > OPEN_ALWAYS)
    {
        return FailWith(ERROR_INVALID_PARAMETER, nullptr);
    }
    const DWORD kinds = KindsOf(access);
    const bool empties = disposition == CREATE_ALWAYS;
    const bool writes = empties || (kinds & FILE_SHARE_WRITE) != 0;
    for (int tries = 0; tries < maximumTries; ++tries)
    {
        bool existed = false;
        Descriptor opened(OpenDescriptor(path, writes, disposition, existed));
        const int descriptor = opened.Get();
        if (descriptor < 0)
        {
            if (errno == EAGAIN)
            {
                continue;
            }
            FailOnPath(path);
            if (disposition == CREATE_NEW && GetLastError() == ERROR_ALREADY_EXISTS)
            {
                SetLastError(ERROR_FILE_EXISTS);
            }
            return nullptr;
        }
        const auto file = std::make_shared<FileObject>(std::move(opened), kinds);
        struct stat status;
        if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        {
            return FailWith(ERROR_ACCESS_DENIED, nullptr);
        }
        const FileGuard guard(descriptor);
        // Emptying a file counts as writing, whatever else the open is for. An open that does neither
        // disturbs nobody and is not disturbed.
        const DWORD checked = kinds | (empties ? FILE_SHARE_WRITE : 0);
        if (!guard.IsHeld() || (checked != 0 && ConflictsWithOthers(descriptor, checked, share)))
        {
            return FailWith(ERROR_SHARING_VIOLATION, nullptr);
        }
        if (!StillNames(path, descriptor))
        {
            continue;
        }
        if ((kinds != 0 && !StateAccess(descriptor, kinds, share)) ||
            (empties && existed && ftruncate(descriptor, 0) != 0))
        {
            FailOnPath(path);
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
    return FailWith(ERROR_SHARING_VIOLATION, nullptr);
}
} // namespace

extern "C" HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                                     LPSECURITY_ATTRIBUTES /*security*/, DWORD disposition, DWORD flags,
                                     HANDLE /*templateFile*/)
{
    const auto body = [&]() -> HANDLE
    {
        constexpr std::u16string_view pipes = u"\\\\.\\pipe\\";
        if (path != nullptr && FoldCase(std::u16string_view(path).substr(0, pipes.size())) == pipes)
        {
            return OpenPipeClient(path, access, flags);
        }
        const std::string resolved = ResolveArgument(path);
        const auto file = resolved.empty() ? nullptr : Open(resolved, access, share, disposition, flags);
        return file ? InsertHandle(file) : INVALID_HANDLE_VALUE;
    };
    return Call("CreateFileW", INVALID_HANDLE_VALUE, body);
}

extern "C" BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytes,
                                LPOVERLAPPED overlapped)
{
    DWORD count = 0;
    DWORD& result = bytes == nullptr ? count : *bytes;
    result = 0;
    const auto stream = LookupHandleFor<StreamObject>("ReadFile", file, {{buffer, size}, bytes});
    return stream && stream->Read(buffer, size, &result, overlapped);
}

extern "C" BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytes,
                                 LPOVERLAPPED overlapped)
{
    DWORD count = 0;
    DWORD& result = bytes == nullptr ? count : *bytes;
    result = 0;
    const auto stream = LookupHandleFor<StreamObject>("WriteFile", file, {bytes});
    return stream && stream->Write(buffer, size, &result, overlapped);
}

extern "C" BOOL WINAPI FlushFileBuffers(HANDLE file)
{
    const auto stream = LookupHandleFor<StreamObject>("FlushFileBuffers", file);
    return stream && stream->Flush();
}

extern "C" DWORD WINAPI GetFileType(HANDLE file)
{
    return LookupHandleFor<FileObject>("GetFileType", file) ? FILE_TYPE_DISK : FILE_TYPE_UNKNOWN;
}

extern "C" BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information)
{
    const auto object = LookupHandleFor<FileObject>("GetFileInformationByHandle", file, {information});
    struct stat status;
    if (!object || (fstat(object->Number(), &status) != 0 && !FailWithErrno()))
    {
        return FALSE;
    }
    Describe("/proc/self/fd/" + std::to_string(object->Number()), status, *information);
    return TRUE;
}

extern "C" BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                                        DWORD method)
{
    static constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    const auto object = LookupHandleFor<FileObject>("SetFilePointerEx", file, {position});
    if (!object || method > FILE_END)
    {
        return object && FailWith(ERROR_INVALID_PARAMETER);
    }
    const off_t reached = lseek(object->Number(), distance.QuadPart, origins[method]);
    if (position != nullptr && reached >= 0)
    {
        position->QuadPart = reached;
    }
    return reached >= 0 || FailWithErrno();
}
} // namespace sndxposix
