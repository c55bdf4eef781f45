#pragma once
#include <stdexcept>

#include "tools/commandline.h"
#include "tools/results.h"

namespace sndxtools
{
// Exit codes of the program and of each command.
enum ExitCode
{
    exitAnswered = 0,
    exitRefused = 1, // the module refused or a call failed
    exitUsage = 2,
    exitNoModule = 3 // the module cannot be loaded or lacks an export
};

// The module cannot be loaded or is not a shell extension of this kind.
class ModuleError : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};
} // namespace sndxtools
