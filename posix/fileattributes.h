#pragma once
// The archive attribute of files and folders, and the error codes of failed path operations.

#include <string>

#include <sys/stat.h>

#include "sndx/types.h"

namespace sndxposix
{
// DIRECTORY and ARCHIVE of the entry with this status. ARCHIVE is kept in an extended attribute, without
// which a file has it and a folder has not.
DWORD AttributesOf(const std::string& path, const struct stat& status);
// Sets or clears ARCHIVE; the rest is ignored. False with errno set on failure: ENOTSUP when the file system
// cannot keep the attribute.
bool ChangeAttributes(const std::string& path, DWORD attributes);

// The POSIX path of a path argument. Empty, with the last error set: ERROR_PATH_NOT_FOUND for an empty
// path or an unknown drive, ERROR_INVALID_NAME when it has wildcards.
std::string ResolveArgument(const WCHAR* path);

// Sets the last error for the failed operation on the path: "not found" tells a missing folder from a
// missing file. Always false.
bool FailWithErrno(int error, const std::string& path);
} // namespace sndxposix
