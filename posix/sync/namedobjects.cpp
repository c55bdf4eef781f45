// The life of objects that processes share by name (see namedobjects.h).

#include "posix/sync/namedobjects.h"

#include <cstdio>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/files/paths.h"
#include "posix/text/charsets.h"
#include "sndx/sync.h"

namespace sndxposix
{
namespace
{
// Where the kind is kept: behind the bytes that are locked.
constexpr off_t kindOffset = 60;

bool Initialise(int file, NamedKind kind, const void* data, std::size_t dataSize)
{
    return WriteAt(file, &kind, sizeof kind, kindOffset) &&
           (dataSize == 0 || WriteAt(file, data, dataSize, objectDataOffset));
}
} // namespace

std::unique_ptr<NamedFile> NamedFile::Enter(const std::string& path, NamedKind kind, Access access,
                                            bool* existed, const void* data, std::size_t dataSize)
{
    const bool create = access == Access::Create;
    // Each round ends unless another process removed the file in between, or left one behind.
    for (;;)
    {
        Descriptor opened(open(path.c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0600));
        const int file = opened.Get();
        if (file < 0)
        {
            return FailWithErrno(nullptr);
        }
        // Closes the file on the way out, after the gate.
        std::unique_ptr<NamedFile> self(new NamedFile(path, std::move(opened), access != Access::Attach));
        const Gate gate(file);
        if (!StillNames(path, file))
        {
            continue;
        }
        const bool alive = IsByteLockedByOther(file, lifeByte);
        if (!alive && !create)
        {
            return FailWith(ERROR_FILE_NOT_FOUND, nullptr);
        }
        if (!alive && lseek(file, 0, SEEK_END) != 0)
        {
            // A leftover. It is not cleared for use: somebody may still have a view of its memory.
            unlink(path.c_str());
            continue;
        }
        if ((self->holds_ && !SetByteLock(file, lifeByte, F_RDLCK)) ||
            (!alive && !Initialise(file, kind, data, dataSize)))
        {
            return FailWithErrno(nullptr);
        }
        NamedKind found{};
        if (!ReadAt(file, &found, sizeof found, kindOffset) || found != kind)
        {
            return FailWith(ERROR_INVALID_HANDLE, nullptr);
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
    const int file = file_.Get();
    if (holds_)
    {
        const Gate gate(file);
        if (SetByteLock(file, lifeByte, F_WRLCK) && StillNames(path_, file))
        {
            unlink(path_.c_str());
        }
    }
    UnlockAllBytes(file);
}

std::optional<std::string> NamedObjectPath(const WCHAR* name)
{
    constexpr std::u16string_view global = u"Global\\";
    constexpr std::u16string_view local = u"Local\\";
    if (name == nullptr || *name == 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER, std::nullopt);
    }
    std::u16string_view rest(name);
    if (rest.size() >= MAX_PATH)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE, std::nullopt);
    }
    const bool isGlobal = rest.starts_with(global);
    if (isGlobal || rest.starts_with(local))
    {
        rest.remove_prefix(isGlobal ? global.size() : local.size());
    }
    if (rest.find(u'\\') != std::u16string_view::npos)
    {
        return FailWith(ERROR_PATH_NOT_FOUND, std::nullopt);
    }
    return RootFolder() + "/objects/" + (isGlobal ? "global." : "local.") + EscapeFileName(Utf8(rest));
}

std::string EscapeFileName(std::string_view text)
{
    // File names have 255 bytes; callers add a few of their own.
    constexpr std::size_t maximumLength = 200;
    std::string result;
    for (const char c : text)
    {
        const bool standsForItself =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (standsForItself || c == '-' || c == '_')
        {
            result += c;
            continue;
        }
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(c));
        result += escaped;
    }
    if (result.size() > maximumLength)
    {
        // Two long names meet only when they begin alike and have the same 64-bit hash.
        char suffix[20];
        std::snprintf(suffix, sizeof suffix, "~%016zX", std::hash<std::string_view>()(text));
        result.replace(maximumLength - 17, std::string::npos, suffix);
    }
    return result;
}
} // namespace sndxposix
