#pragma once
#include "tools/simulator/plan.h"
#include "tools/text.h"

namespace sndxtools::simulator
{
// Makes the machine's settings and the user's what is said, the present main program being the named one.
// Throws CallError.
void WriteSettings(const Settings& settings, const WideString& mainProgram);

// Takes away what was written.
void ClearSettings();

// Enters the module's classes, so that hosts can get their objects from the system, or without a module takes
// them off. (The native layer has no such service; the entries are in nobody's way there.)
void RegisterClasses(const WideString& module);
} // namespace sndxtools::simulator
