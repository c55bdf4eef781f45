#include "posix/fileattributes.h"

#include "posix/guarded.h"
#include "posix/internal.h"
#include "sndx/files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <sys/xattr.h>

namespace sndxposix
{
namespace
{
// Text of a hexadecimal number, "0x20"; the name and form that Samba and Wine read, too. A file system
// without extended attributes cannot keep anything but READONLY: setting others there is refused.
constexpr const char* storedName = "user.DOSATTRIB";
constexpr DWORD storedBits = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;

DWORD StoredBits(const std::string& path, const struct stat& status)
{
    char text[32] = {};
    const ssize_t length = getxattr(path.c_str(), storedName, text, sizeof text - 1);
    if (length < 2 || text[0] != '0' || text[1] != 'x')
    {
        return S_ISDIR(status.st_mode) ? 0 : FILE_ATTRIBUTE_ARCHIVE;
    }
    return static_cast<DWORD>(std::strtoul(text, nullptr, 16)) & storedBits;
}
} // namespace

bool IsReadOnly(const struct stat& status)
{
    return (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

DWORD AttributesOf(const std::string& path, const struct stat& status)
{
    DWORD attributes = StoredBits(path, status);
    attributes |= S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0;
    attributes |= IsReadOnly(status) ? FILE_ATTRIBUTE_READONLY : 0;
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

bool ChangeAttributes(const std::string& path, DWORD attributes)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
    {
        return false;
    }
    const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    const mode_t mode = status.st_mode & 07777;
    const bool changesMode = readOnly != IsReadOnly(status);
    // Extended attributes can be written only while the file is writeable.
    if (changesMode && !readOnly && chmod(path.c_str(), mode | S_IWUSR) != 0)
    {
        return false;
    }
    const DWORD stored = attributes & storedBits;
    if (stored != StoredBits(path, status))
    {
        char text[16];
        const int length = std::snprintf(text, sizeof text, "0x%x", stored);
        if (setxattr(path.c_str(), storedName, text, static_cast<std::size_t>(length), 0) != 0)
        {
            return false;
        }
    }
    return !changesMode || !readOnly ||
           chmod(path.c_str(), mode & ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

std::string ResolveArgument(const WCHAR* path)
{
    const std::u16string_view text = path == nullptr ? std::u16string_view() : path;
    const bool hasPrefix = text.starts_with(u"\\\\?\\");
    if (text.substr(hasPrefix ? 4 : 0).find_first_of(u"*?") != text.npos)
    {
        SetLastError(ERROR_INVALID_NAME);
        return {};
    }
    std::string resolved = ToUnixPath(path);
    if (resolved.empty())
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
    }
    return resolved;
}

bool FailWithErrno(int error, const std::string& path)
{
    DWORD code = ErrorFromErrno(error);
    if (code == ERROR_FILE_NOT_FOUND)
    {
        struct stat folder;
        const std::string parent = path.substr(0, path.rfind('/') + 1);
        if (stat(parent.c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode))
        {
            code = ERROR_PATH_NOT_FOUND;
        }
    }
    return FailWith(code);
}

bool FailWith(DWORD code)
{
    SetLastError(code);
    return false;
}
} // namespace sndxposix

using namespace sndxposix;

extern "C" DWORD WINAPI GetFileAttributesW(LPCWSTR path)
{
    const auto body = [&]() -> DWORD
    {
        if (FailNextCall("GetFileAttributesW"))
        {
            return INVALID_FILE_ATTRIBUTES;
        }
        const std::string resolved = ResolveArgument(path);
        struct stat status;
        if (resolved.empty())
        {
            return INVALID_FILE_ATTRIBUTES;
        }
        if (stat(resolved.c_str(), &status) != 0)
        {
            FailWithErrno(errno, resolved);
            return INVALID_FILE_ATTRIBUTES;
        }
        // Sockets, devices and the like are no files to Windows programs.
        if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
        {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_FILE_ATTRIBUTES;
        }
        return AttributesOf(resolved, status);
    };
    return Guarded(INVALID_FILE_ATTRIBUTES, body);
}

extern "C" BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("SetFileAttributesW"))
        {
            return FALSE;
        }
        const std::string resolved = ResolveArgument(path);
        if (resolved.empty())
        {
            return FALSE;
        }
        return ChangeAttributes(resolved, attributes) || FailWithErrno(errno, resolved);
    };
    return Guarded(BOOL{}, body);
}
