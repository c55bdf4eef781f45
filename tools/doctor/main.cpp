// Examines a machine for support.

#include <iostream>

#include "tools/doctor/doctor.h"
#include "tools/entry.h"

namespace sndxtools
{
int RunTool(const Arguments& arguments)
{
    return RunDoctor(arguments, std::cout, std::cerr);
}
} // namespace sndxtools
