#pragma once
// DOS attributes of files and folders, and the error codes of failed path operations.

#include <string>

#include <sys/stat.h>

#include "sndx/types.h"

namespace sndxposix
{
// Attributes of the entry with this status; READONLY follows the write permission, the others are kept in
// an extended attribute, without which a file has ARCHIVE and a folder nothing but DIRECTORY.
DWORD AttributesOf(const std::string& path, const struct stat& status);
// Changes READONLY, HIDDEN, SYSTEM and ARCHIVE; the rest is ignored. False with errno set on failure:
// ENOTSUP when the file system cannot keep the attributes asked for.
bool ChangeAttributes(const std::string& path, DWORD attributes);

// No write permission for anybody. Windows refuses to write or delete such a file; the superuser, whom
// POSIX would let, is refused as well.
bool IsReadOnly(const struct stat& status);

// The POSIX path of a path argument. Empty, with the last error set: ERROR_PATH_NOT_FOUND for an empty
// path or an unknown drive, ERROR_INVALID_NAME when it has wildcards.
std::string ResolveArgument(const WCHAR* path);

// Sets the last error for the failed operation on the path: "not found" tells a missing folder from a
// missing file. Always false.
bool FailWithErrno(int error, const std::string& path);
bool FailWith(DWORD code);
} // namespace sndxposix
