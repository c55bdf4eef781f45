// Plays Windows Explorer towards the shell extension.

#include <iostream>

#include "tools/entry.h"
#include "tools/shellhost/shellhost.h"

namespace sndxtools
{
int RunTool(const Arguments& arguments)
{
    return RunShellHost(arguments, std::cin, std::cout, std::cerr);
}
} // namespace sndxtools
