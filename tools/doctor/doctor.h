#pragma once
#include <ostream>

#include "tools/commandline.h"

namespace sndxtools
{
// The whole program, apart from the process's own streams. Returns the exit code.
int RunDoctor(const Arguments& arguments, std::ostream& out, std::ostream& err);
} // namespace sndxtools
