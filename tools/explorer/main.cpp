// Shows a folder with the overlays and the context menu of the shell extensions that are registered.

#include <iostream>

#include "tools/entry.h"
#include "tools/explorer/explorer.h"

namespace sndxtools
{
int RunTool(const Arguments& arguments)
{
    return RunExplorer(arguments, std::cout, std::cerr);
}
} // namespace sndxtools
