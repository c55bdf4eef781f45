#include <iterator>

#include "tools/shellhost/commands.h"

namespace sndxtools
{
int OverlayCommand(Host& host, const Paths& paths, std::ostream& out)
{
    const auto overlay = host.CreateHandler<IShellIconOverlayIdentifier>(contract::overlayClass,
                                                                         IID_IShellIconOverlayIdentifier);
    int exitCode = exitAnswered;
    for (const WideString& path : paths)
    {
        const HRESULT member = overlay->IsMemberOf(path.c_str(), GetFileAttributesW(path.c_str()));
        const bool known = member == S_OK || member == S_FALSE;
        out << Utf8(path) << ": "
            << (!known           ? "IsMemberOf answered " + ResultText(member)
                : member == S_OK ? "overlay"
                                 : "no overlay")
            << "\n";
        exitCode = known ? exitCode : int{exitRefused};
    }

    WCHAR file[MAX_PATH] = {};
    int index = -1;
    DWORD flags = 0;
    int priority = -1;
    Check("GetOverlayInfo", overlay->GetOverlayInfo(file, static_cast<int>(std::size(file)), &index, &flags));
    Check("GetPriority", overlay->GetPriority(&priority));
    out << "icon file: " << ((flags & ISIOI_ICONFILE) != 0 ? Utf8(file) : "none") << "\n"
        << "icon index: " << ((flags & ISIOI_ICONINDEX) != 0 ? std::to_string(index) : "none") << "\n"
        << "priority: " << priority << "\n";
    return exitCode;
}
} // namespace sndxtools
