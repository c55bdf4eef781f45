#include <algorithm>

#include "tools/shellhost/commands.h"
#include "tools/shellhost/tracefile.h"

namespace sndxtools
{
int LeakCommand(Host& host, const Paths& paths, std::ostream& out)
{
    const WideString tracePath = TraceFilePath();
    const Module& module = host.LoadedModule();
    // The reference that nobody gives back.
    MenuHandlerForSelection(host, paths)->AddRef();
    out << "A context-menu handler was given " << paths.size() << " path" << (paths.size() == 1 ? "" : "s")
        << "; one reference to it is never released.\n"
        << "DllCanUnloadNow answers " << ResultText(module.CanUnloadNow())
        << "; the module is freed all the same, as no host should.\n";
    if (!host.UnloadModule())
    {
        out << "The module is still loaded: its trace has not ended.\n";
        return exitRefused;
    }
    out << Utf8(tracePath) << " ends:\n\n";
    const std::vector<std::string> lines = TraceLines(tracePath);
    const auto start = std::find_if(lines.begin(), lines.end(),
                                    [](const std::string& line)
                                    { return line.find(" --- Leak Segments Start") != std::string::npos; });
    for (auto line = start; line != lines.end(); ++line)
    {
        out << *line << "\n";
    }
    if (start == lines.end())
    {
        out << "No leak report was found.\n";
        return exitRefused;
    }
    return exitAnswered;
}
} // namespace sndxtools
