// The archive attribute, and paths as arguments.

#include "posix/files/attributes.h"

#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>
#include <sys/xattr.h>

#include "posix/base/call.h"
#include "posix/files/paths.h"
#include "sndx/files.h"

namespace sndxposix
{
namespace
{
// Text of a hexadecimal number, "0x20"; the name and form that Samba and Wine read, too. Without one a file
// has the archive attribute and a folder has not.
constexpr const char* storedName = "user.DOSATTRIB";

bool IsArchive(const std::string& path, const struct stat& status)
{
    char text[32] = {};
    const ssize_t length = getxattr(path.c_str(), storedName, text, sizeof text - 1);
    if (length < 2 || text[0] != '0' || text[1] != 'x')
    {
        return !S_ISDIR(status.st_mode);
    }
    return (std::strtoul(text, nullptr, 16) & FILE_ATTRIBUTE_ARCHIVE) != 0;
}

// DIRECTORY and ARCHIVE of the entry with this status.
DWORD AttributesOf(const std::string& path, const struct stat& status)
{
    const DWORD attributes = (S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0) |
                             (IsArchive(path, status) ? FILE_ATTRIBUTE_ARCHIVE : 0);
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

// Describes what the path names. False with the last error set.
bool Look(const WCHAR* path, WIN32_FILE_ATTRIBUTE_DATA& data)
{
    const std::string resolved = ResolveArgument(path);
    struct stat status;
    if (resolved.empty() || (stat(resolved.c_str(), &status) != 0 && !FailOnPath(resolved)))
    {
        return false;
    }
    // Sockets, devices and the like are no files to Windows programs.
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    {
        return FailWith(ERROR_FILE_NOT_FOUND);
    }
    Describe(resolved, status, data);
    return true;
}
} // namespace

bool ChangeAttributes(const std::string& path, DWORD attributes)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
    {
        return false;
    }
    const bool archive = (attributes & FILE_ATTRIBUTE_ARCHIVE) != 0;
    const std::string_view text = archive ? "0x20" : "0x0";
    return archive == IsArchive(path, status) ||
           setxattr(path.c_str(), storedName, text.data(), text.size(), 0) == 0;
}

std::string ResolveArgument(const WCHAR* path)
{
    const std::u16string_view text = path == nullptr ? std::u16string_view() : path;
    const bool hasPrefix = text.starts_with(u"\\\\?\\");
    if (text.substr(hasPrefix ? 4 : 0).find_first_of(u"*?") != text.npos)
    {
        return FailWith(ERROR_INVALID_NAME, std::string());
    }
    std::string resolved = ToUnixPath(path);
    return resolved.empty() ? FailWith(ERROR_PATH_NOT_FOUND, resolved) : resolved;
}

bool FailOnPath(const std::string& path)
{
    const DWORD code = ErrorFromErrno(errno);
    std::error_code error;
    const bool isAlone = code == ERROR_FILE_NOT_FOUND &&
                         !std::filesystem::is_directory(std::filesystem::path(path).parent_path(), error);
    return FailWith(isAlone ? ERROR_PATH_NOT_FOUND : code);
}

void Describe(const std::string& path, const struct stat& status, WIN32_FILE_ATTRIBUTE_DATA& data)
{
    const auto time = [](const timespec& at)
    {
        constexpr std::uint64_t from1601To1970 = 11'644'473'600; // seconds
        const std::uint64_t count = (static_cast<std::uint64_t>(at.tv_sec) + from1601To1970) * 10'000'000 +
                                    static_cast<std::uint64_t>(at.tv_nsec) / 100;
        return FILETIME{static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)};
    };
    const auto size = S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size);
    data = {AttributesOf(path, status), time(status.st_ctim),           time(status.st_atim),
            time(status.st_mtim),       static_cast<DWORD>(size >> 32), static_cast<DWORD>(size)};
}

extern "C" BOOL WINAPI GetFileAttributesExW(LPCWSTR path, GET_FILEEX_INFO_LEVELS /*level*/,
                                            LPVOID information)
{
    auto* const data = static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(information);
    return Call("GetFileAttributesExW", FALSE, [&]() -> BOOL { return Look(path, *data); }, {data});
}

extern "C" DWORD WINAPI GetFileAttributesW(LPCWSTR path)
{
    const auto body = [&]() -> DWORD
    {
        WIN32_FILE_ATTRIBUTE_DATA data;
        return Look(path, data) ? data.dwFileAttributes : INVALID_FILE_ATTRIBUTES;
    };
    return Call("GetFileAttributesW", INVALID_FILE_ATTRIBUTES, body);
}

extern "C" BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes)
{
    const auto body = [&]() -> BOOL
    {
        const std::string resolved = ResolveArgument(path);
        return !resolved.empty() && (ChangeAttributes(resolved, attributes) || FailOnPath(resolved));
    };
    return Guarded(FALSE, body);
}
} // namespace sndxposix
