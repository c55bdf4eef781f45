// The process's environment.

#include "posix/processes/environment.h"

#include <cstdlib>

#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "posix/text/charsets.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
// Stands for the C library's environment, whose readers it does not lock out.
struct Environment
{
};
} // namespace

std::vector<std::string> CopyEnvironment()
{
    std::vector<std::string> variables;
    const Locked<Environment> environment;
    for (char** variable = environ; *variable != nullptr; ++variable)
    {
        variables.emplace_back(*variable);
    }
    return variables;
}

extern "C" BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    const std::string variable = Utf8(name);
    const Locked<Environment> environment;
    const int result =
        value == nullptr ? unsetenv(variable.c_str()) : setenv(variable.c_str(), Utf8(value).c_str(), 1);
    return result == 0 || FailWith(ERROR_INVALID_PARAMETER);
}
} // namespace sndxposix
