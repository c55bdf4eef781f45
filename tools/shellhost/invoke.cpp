#include <chrono>

#include <windows.h>
#include <shlobj.h>

#include "tools/shellhost/commands.h"
#include "tools/shellhost/selection.h"

namespace sndxtools
{
namespace
{
// The offset of a command in the menu; a number stands for itself, so that unknown ones can be tried.
WORD CommandOffset(const std::string& command)
{
    static constexpr const char* names[] = {"upload", "download", "delete"};
    for (std::size_t offset = 0; offset < std::size(names); ++offset)
    {
        if (command == names[offset])
        {
            return static_cast<WORD>(offset);
        }
    }
    unsigned long number = 0;
    if (!ParseNumber(command, 0xFFFF, number))
    {
        throw UsageError("unknown menu command '" + command + "'");
    }
    return static_cast<WORD>(number);
}
} // namespace

int InvokeCommand(Host& host, const Arguments& arguments, std::ostream& out)
{
    if (arguments.empty())
    {
        throw UsageError("a menu command is missing");
    }
    const WORD offset = CommandOffset(arguments[0]);
    const auto handler = MenuHandlerForSelection(host, ItemPaths(arguments, 1));

    CMINVOKECOMMANDINFO info = {};
    info.cbSize = sizeof info;
    info.lpVerb = MAKEINTRESOURCEA(offset);
    info.nShow = SW_SHOWNORMAL;
    const auto start = std::chrono::steady_clock::now();
    // Blocks as the module does: while the main program starts and reads.
    const HRESULT result = handler->InvokeCommand(&info);
    const auto taken = std::chrono::steady_clock::now() - start;
    out << "result: " << ResultText(result) << ", "
        << std::chrono::duration_cast<std::chrono::milliseconds>(taken).count() << " ms\n";
    return FAILED(result) ? exitRefused : exitAnswered;
}
} // namespace sndxtools
