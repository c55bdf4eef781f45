#pragma once
#include <ostream>
#include <vector>

#include <windows.h>
#include <shlobj.h>

#include "tools/shellhost/host.h"

namespace sndxtools
{
using Paths = std::vector<WideString>;

struct MenuOptions
{
    UINT cmdFirst = 1;
    UINT cmdLast = 0x7FFF; // the range that the shell hands to its handlers
    UINT flags = CMF_NORMAL;
};

// The commands. Each writes its answer to out and returns exitAnswered or exitRefused; ModuleError and
// CallError say why there is no answer.
int OverlayCommand(Host& host, const Paths& paths, std::ostream& out);
int MenuCommand(Host& host, const MenuOptions& options, const Paths& paths, std::ostream& out);
// offset: of the command in the menu.
int InvokeCommand(Host& host, WORD offset, const Paths& paths, std::ostream& out);
int UnloadTestCommand(Host& host, std::ostream& out);
int LeakCommand(Host& host, const Paths& paths, std::ostream& out);

// A context-menu handler that has been given a selection. Throws CallError.
ComRef<IContextMenu> MenuHandlerForSelection(Host& host, const Paths& paths);
} // namespace sndxtools
