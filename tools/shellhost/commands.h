#pragma once
#include <ostream>

#include "tools/commandline.h"
#include "tools/shellhost/host.h"

namespace sndxtools
{
// The commands. Each checks its arguments before it touches the module, writes its answer to out and
// returns exitAnswered or exitRefused; UsageError, ModuleError and CallError say why there is no answer.

int OverlayCommand(Host& host, const Arguments& arguments, std::ostream& out);
int MenuCommand(Host& host, const Arguments& arguments, std::ostream& out);
int InvokeCommand(Host& host, const Arguments& arguments, std::ostream& out);
int StateChangedCommand(Host& host, const Arguments& arguments, std::ostream& out);
int UnloadTestCommand(Host& host, const Arguments& arguments, std::ostream& out);
int LeakCommand(Host& host, const Arguments& arguments, std::ostream& out);
int MisuseCommand(Host& host, const Arguments& arguments, std::ostream& out);

// All paths from arguments[first] on; at least one.
std::vector<WideString> ItemPaths(const Arguments& arguments, std::size_t first);
} // namespace sndxtools
