#pragma once
// A context-menu handler, asked as the shell asks it.

#include <optional>
#include <string>

#include <windows.h>
#include <shlobj.h>

#include "tools/comref.h"

namespace sndxtools
{
// The menu side of a new handler, after it was given the selection. kind is the key of the items' class, or
// null. Throws CallError when the handler refuses.
ComRef<IContextMenu> MenuForSelection(ComRef<IShellExtInit> handler, IDataObject* selection, HKEY kind);

// The help text of the command at that offset; none when the handler has none.
std::optional<std::string> MenuHelpText(IContextMenu& handler, UINT_PTR offset);
} // namespace sndxtools
