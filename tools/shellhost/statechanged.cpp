#include "tools/shellhost/commands.h"

namespace sndxtools
{
int StateChangedCommand(Host& host, const Arguments& arguments, std::ostream& out)
{
    if (!arguments.empty())
    {
        throw UsageError("state-changed takes no arguments");
    }
    host.LoadedModule().StateChanged();
    out << "announced\n";
    return exitAnswered;
}
} // namespace sndxtools
