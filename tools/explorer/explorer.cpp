#include "tools/explorer/explorer.h"

#include <filesystem>
#include <fstream>
#include <optional>

#include <windows.h>
#include <commctrl.h>
#include <ole2.h>

#include "tools/explorer/script.h"
#include "tools/explorer/watchdog.h"
#include "tools/paths.h"
#include "tools/results.h"

namespace sndxtools
{
namespace
{
enum ExitCode
{
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitTooLong = 3
};
constexpr DWORD longestRun = 30000; // milliseconds, --wait comes on top

// The thread as an apartment of the component object model.
class Apartment
{
  public:
    Apartment() { Check("OleInitialize", OleInitialize(nullptr)); }
    ~Apartment() { OleUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

int Show(const ExplorerOptions& options, std::ostream& out, std::ostream& err)
{
    std::optional<Watchdog> watchdog;
    if (options.IsScripted())
    {
        watchdog.emplace(longestRun + options.wait, exitTooLong);
    }
    const INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES};
    InitCommonControlsEx(&controls);
    const Apartment apartment;
    Window window(options, err);
    Script script(window, options, out);
    if (!options.ready.empty())
    {
        const std::ofstream created{std::filesystem::path(FilePath(options.ready))};
    }
    return window.Run(options.IsScripted() ? &script : nullptr);
}
} // namespace

int RunExplorer(const Arguments& arguments, std::ostream& out, std::ostream& err)
{
    try
    {
        const auto options = ParseExplorerOptions(arguments, out);
        return options ? Show(*options, out, err) : int{exitDone};
    }
    catch (const UsageError& error)
    {
        err << "explorer: " << error.what() << " (see --help)" << std::endl;
        return exitUsage;
    }
    catch (const std::exception& error)
    {
        err << "explorer: " << error.what() << std::endl;
        return exitFailed;
    }
}
} // namespace sndxtools
