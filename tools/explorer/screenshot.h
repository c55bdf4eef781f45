#pragma once
#include "tools/text.h"

namespace sndxtools
{
// Writes the screen as a bitmap file. Taken through the system's own drawing: tools of the display below Wine
// see open menus black. Throws CallError.
void TakeScreenshot(const WideString& file);
} // namespace sndxtools
