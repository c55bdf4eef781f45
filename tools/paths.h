#pragma once
#include <string>

#include "tools/text.h"

namespace sndxtools
{
// True for C:\… and \\server\share\…, with either separator.
bool IsFullTargetPath(const std::string& path);

// The path of an item as the shell would name it. Natively a path that begins with '/' is spelled below
// drive Z:. Throws UsageError when the path is not a full one: the shell never passes relative paths.
WideString ItemPath(const std::string& path);

// The full path of a file that the user names on the command line, relative ones from the current folder.
WideString FilePath(const std::string& path);

// The running program's file.
WideString ProgramPath();

// The folder of the running program, with a separator at its end.
WideString ProgramFolder();
} // namespace sndxtools
