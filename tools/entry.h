#pragma once
// What every tool program has in common: arguments and environment as UTF-8, untranslated UTF-8 output.

#include <string>

#include "tools/commandline.h"

namespace sndxtools
{
// Implemented by each tool program; its result is the exit code. The arguments are those after the
// program's name.
int RunTool(const Arguments& arguments);

// Empty when the variable does not exist.
std::string EnvironmentVariable(const char* name);
} // namespace sndxtools
