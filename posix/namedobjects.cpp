// The life of objects that processes share by name (see namedobjects.h).

#include "posix/namedobjects.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sndx/sync.h"

namespace sndxposix
{
namespace
{
// Where the kind is kept: behind the bytes that are locked.
constexpr off_t kindOffset = 60;

int LockCall(int file, int command, off_t byte, short lockType, struct flock& lock)
{
    lock = {};
    lock.l_type = lockType;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    int result;
    do
    {
        result = fcntl(file, command, &lock);
    } while (result < 0 && errno == EINTR);
    return result;
}

bool IsSameFile(int file, const std::string& path)
{
    struct stat opened
    {
    };
    struct stat named
    {
    };
    return fstat(file, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

bool IsEmpty(int file)
{
    struct stat status
    {
    };
    return fstat(file, &status) == 0 && status.st_size == 0;
}

bool Initialise(int file, NamedKind kind, const void* data, std::size_t dataSize)
{
    return WriteAt(file, &kind, sizeof kind, kindOffset) &&
           (dataSize == 0 || WriteAt(file, data, dataSize, objectDataOffset));
}
} // namespace

bool SetByteLock(int file, off_t byte, short lockType)
{
    struct flock lock;
    return LockCall(file, F_OFD_SETLK, byte, lockType, lock) == 0;
}

bool IsByteLockedByOther(int file, off_t byte)
{
    struct flock lock;
    return LockCall(file, F_OFD_GETLK, byte, F_WRLCK, lock) == 0 && lock.l_type != F_UNLCK;
}

bool ReadAt(int file, void* buffer, std::size_t size, off_t offset)
{
    auto* to = static_cast<char*>(buffer);
    while (size > 0)
    {
        const ssize_t done = pread(file, to, size, offset);
        if (done < 0 && errno == EINTR)
        {
            continue;
        }
        if (done <= 0)
        {
            return false;
        }
        to += done;
        size -= static_cast<std::size_t>(done);
        offset += done;
    }
    return true;
}

bool WriteAt(int file, const void* buffer, std::size_t size, off_t offset)
{
    const auto* from = static_cast<const char*>(buffer);
    while (size > 0)
    {
        const ssize_t done = pwrite(file, from, size, offset);
        if (done < 0 && errno == EINTR)
        {
            continue;
        }
        if (done <= 0)
        {
            return false;
        }
        from += done;
        size -= static_cast<std::size_t>(done);
        offset += done;
    }
    return true;
}

Gate::Gate(int file) : file_(file)
{
    struct flock lock;
    LockCall(file, F_OFD_SETLKW, gateByte, F_WRLCK, lock);
}

Gate::~Gate()
{
    SetByteLock(file_, gateByte, F_UNLCK);
}

std::unique_ptr<NamedFile> NamedFile::Enter(const std::string& path, NamedKind kind, Access access,
                                            bool* existed, const void* data, std::size_t dataSize)
{
    const bool create = access == Access::Create;
    // Each round ends unless another process removed the file in between, or left one behind.
    for (;;)
    {
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0600);
        if (file < 0)
        {
            SetLastError(ErrorFromErrno(errno));
            return nullptr;
        }
        // Closes the file on the way out, after the gate.
        std::unique_ptr<NamedFile> self(new NamedFile(path, file, access != Access::Attach));
        const Gate gate(file);
        if (!IsSameFile(file, path))
        {
            continue;
        }
        const bool alive = IsByteLockedByOther(file, lifeByte);
        if (!alive && !create)
        {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return nullptr;
        }
        if (!alive && !IsEmpty(file))
        {
            // A leftover. It is not cleared for use: somebody may still have a view of its memory.
            unlink(path.c_str());
            continue;
        }
        if (self->holds_ && !SetByteLock(file, lifeByte, F_RDLCK))
        {
            SetLastError(ErrorFromErrno(errno));
            return nullptr;
        }
        if (!alive && !Initialise(file, kind, data, dataSize))
        {
            SetLastError(ErrorFromErrno(errno));
            return nullptr;
        }
        NamedKind found{};
        if (!ReadAt(file, &found, sizeof found, kindOffset) || found != kind)
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        if (existed != nullptr)
        {
            *existed = alive;
        }
        return self;
    }
}

NamedFile::~NamedFile()
{
    // Locks are dropped by hand, not by closing alone: a child process that has not reached its exec yet
    // has a copy of the descriptor.
    if (holds_)
    {
        const Gate gate(file_);
        if (SetByteLock(file_, lifeByte, F_WRLCK) && IsSameFile(file_, path_))
        {
            unlink(path_.c_str());
        }
    }
    struct flock everything = {};
    everything.l_type = F_UNLCK;
    everything.l_whence = SEEK_SET;
    fcntl(file_, F_OFD_SETLK, &everything);
    close(file_);
}

std::optional<std::string> NamedObjectPath(const WCHAR* name)
{
    constexpr std::u16string_view global = u"Global\\";
    constexpr std::u16string_view local = u"Local\\";
    std::u16string_view rest(name);
    if (rest.size() >= MAX_PATH)
    {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return std::nullopt;
    }
    const bool isGlobal = rest.starts_with(global);
    if (isGlobal || rest.starts_with(local))
    {
        rest.remove_prefix(isGlobal ? global.size() : local.size());
    }
    if (rest.find(u'\\') != std::u16string_view::npos)
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return std::nullopt;
    }
    return RootFolder() + "/objects/" + (isGlobal ? "global." : "local.") + EscapeFileName(Utf8(rest));
}

std::string EscapeFileName(std::string_view text)
{
    // File names have 255 bytes; callers add a few of their own.
    constexpr std::size_t maximumLength = 200;
    std::string result;
    std::uint64_t hash = 14695981039346656037u; // FNV-1a
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        hash = (hash ^ byte) * 1099511628211u;
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
            c == '_')
        {
            result += c;
            continue;
        }
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
        result += escaped;
    }
    if (result.size() > maximumLength)
    {
        // Two long names meet only when they begin alike and have the same 64-bit hash.
        char suffix[20];
        std::snprintf(suffix, sizeof suffix, "~%016llX", static_cast<unsigned long long>(hash));
        result.replace(maximumLength - 17, std::string::npos, suffix);
    }
    return result;
}
} // namespace sndxposix
