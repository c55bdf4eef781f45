#include <chrono>

#include "tools/shellhost/commands.h"

namespace sndxtools
{
int InvokeCommand(Host& host, WORD offset, const Paths& paths, std::ostream& out)
{
    const auto handler = MenuHandlerForSelection(host, paths);
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
