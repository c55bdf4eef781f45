#pragma once
// Windows paths and POSIX paths.

#include <string>
#include <string_view>

#include "sndx/types.h"

namespace sndxposix
{
// The folder below which everything of this layer lives, without a trailing slash: $SENDORA_ROOT, or a
// folder below the user's data folder. Read at first use, created when missing (with drive_c, objects
// and pipe below it).
const std::string& RootFolder();
// The POSIX path of a Windows path: drive C: is <root>/drive_c, drive Z: is /. Both separators count; an
// element that does not exist as spelled is looked up without regard to case. Relative paths and paths
// without a drive are taken from the current folder. An unknown drive gives an empty string.
std::string ToUnixPath(const WCHAR* path);
// The Windows path of an absolute POSIX path: C:\… below <root>/drive_c, otherwise Z:\….
std::u16string ToWindowsPath(std::string_view path);
} // namespace sndxposix
