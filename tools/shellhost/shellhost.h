#pragma once
#include <istream>
#include <ostream>

#include "tools/commandline.h"

namespace sndxtools
{
// The whole program, apart from the process's own streams. Returns the exit code.
int RunShellHost(const Arguments& arguments, std::istream& in, std::ostream& out, std::ostream& err);
} // namespace sndxtools
