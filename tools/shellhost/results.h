#pragma once
#include <stdexcept>
#include <string>

#include <windows.h>

#include "tools/commandline.h"

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

// A call of the module or the system failed.
class CallError : public std::runtime_error
{
  public:
    CallError(const std::string& call, HRESULT result);
};

// The module cannot be loaded or is not a shell extension of this kind.
class ModuleError : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// For example "0x80070057 (E_INVALIDARG)".
std::string ResultText(HRESULT result);
} // namespace sndxtools
