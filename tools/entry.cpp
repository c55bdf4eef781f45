#include "tools/entry.h"

#include <cstdlib>

#include "tools/text.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <stdio.h>

namespace sndxtools
{
std::string EnvironmentVariable(const char* name)
{
    const wchar_t* value = _wgetenv(Wide(name).c_str());
    return value == nullptr ? std::string() : Utf8(value);
}
} // namespace sndxtools

// Also the entry point of the GUI-subsystem program: the runtime of MinGW calls wmain for both subsystems.
int wmain(int argc, wchar_t** argv)
{
    // Line ends as written, so that output compares equal on every target.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    sndxtools::Arguments arguments;
    for (int i = 1; i < argc; ++i)
    {
        arguments.push_back(sndxtools::Utf8(argv[i]));
    }
    return sndxtools::RunTool(arguments);
}
#else
namespace sndxtools
{
std::string EnvironmentVariable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}
} // namespace sndxtools

int main(int argc, char** argv)
{
    return sndxtools::RunTool(sndxtools::Arguments(argv + 1, argv + argc));
}
#endif
