#pragma once
// The archive attribute of files and folders, paths as arguments, and the error codes of failed operations on
// them.

#include <string>

#include <sys/stat.h>

#include "sndx/files.h"

namespace sndxposix
{
// Sets or clears FILE_ATTRIBUTE_ARCHIVE, which is kept in an extended attribute; the rest is ignored. False
// with errno set on failure: ENOTSUP when the file system cannot keep the attribute.
bool ChangeAttributes(const std::string& path, DWORD attributes);

// Attributes, times and size of the entry with this status; path leads to its extended attributes.
void Describe(const std::string& path, const struct stat& status, WIN32_FILE_ATTRIBUTE_DATA& data);

// The POSIX path of a path argument. Empty, with the last error set: ERROR_PATH_NOT_FOUND for an empty
// path or an unknown drive, ERROR_INVALID_NAME when it has wildcards.
std::string ResolveArgument(const WCHAR* path);

// Sets the last error for the operation on the path that has failed with errno: "not found" tells a missing
// folder from a missing file. Always false.
bool FailOnPath(const std::string& path);
} // namespace sndxposix
