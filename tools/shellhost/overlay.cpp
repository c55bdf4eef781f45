#include <iterator>

#include <windows.h>
#include <shlobj.h>

#include "tools/shellhost/commands.h"

namespace sndxtools
{
int OverlayCommand(Host& host, const Arguments& arguments, std::ostream& out)
{
    const std::vector<WideString> paths = ItemPaths(arguments, 0);
    const auto overlay =
        host.CreateHandler<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);

    int exitCode = exitAnswered;
    for (const WideString& path : paths)
    {
        const HRESULT member = overlay->IsMemberOf(path.c_str(), GetFileAttributesW(path.c_str()));
        out << Utf8(path) << ": ";
        if (member == S_OK)
        {
            out << "overlay\n";
        }
        else if (member == S_FALSE)
        {
            out << "no overlay\n";
        }
        else
        {
            out << "IsMemberOf answered " << ResultText(member) << "\n";
            exitCode = exitRefused;
        }
    }

    WCHAR file[MAX_PATH] = {};
    int index = -1;
    DWORD flags = 0;
    const HRESULT info = overlay->GetOverlayInfo(file, static_cast<int>(std::size(file)), &index, &flags);
    if (FAILED(info))
    {
        throw CallError("GetOverlayInfo", info);
    }
    int priority = -1;
    const HRESULT ranked = overlay->GetPriority(&priority);
    if (FAILED(ranked))
    {
        throw CallError("GetPriority", ranked);
    }
    out << "icon file: " << ((flags & ISIOI_ICONFILE) != 0 ? Utf8(file) : "none") << "\n"
        << "icon index: " << ((flags & ISIOI_ICONINDEX) != 0 ? std::to_string(index) : "none") << "\n"
        << "priority: " << priority << "\n";
    return exitCode;
}
} // namespace sndxtools
