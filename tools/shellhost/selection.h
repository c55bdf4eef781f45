#pragma once
#include <shlobj.h>

#include "tools/shellhost/host.h"

namespace sndxtools
{
// A context-menu handler that has been given a selection, as the shell does it: created as IShellExtInit,
// initialised with the data object, then asked for its menu side. Throws CallError.
ComRef<IContextMenu> MenuHandlerForSelection(Host& host, const std::vector<WideString>& paths);
} // namespace sndxtools
