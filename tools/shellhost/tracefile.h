#pragma once
#include <string>
#include <vector>

#include "tools/text.h"

namespace sndxtools
{
// Where the module writes its trace in a program of that name, without a name in this one, found as the
// product's support does: <application data>\tracedll_Sendora<program name>.txt. Throws CallError when the
// system has no such folder.
WideString TraceFilePath(const std::string& program = {});

// Empty when the file cannot be read.
std::string TraceContent(const WideString& path);

// The lines of the file, without line ends; none when it cannot be read.
std::vector<std::string> TraceLines(const WideString& path);
} // namespace sndxtools
