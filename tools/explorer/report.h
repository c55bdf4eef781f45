#pragma once
// What the window shows, as text that a person and a program can read.

#include <ostream>

#include "tools/explorer/window.h"

namespace sndxtools
{
// Handlers, items with the overlay that the list has for them.
void ReportFolder(std::ostream& out, const Window& window);

// Handlers, the entries of each menu that is open on the screen. Entries have the numbers of AllEntries.
void ReportMenu(std::ostream& out, const Window& window);

void ReportStatus(std::ostream& out, const Window& window);

void ReportCommand(std::ostream& out, const ContextMenu& menu, UINT id, HRESULT result);
} // namespace sndxtools
