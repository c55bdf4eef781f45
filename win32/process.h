#pragma once
// Starting another program.

#include "gen/types.h"

// Starts the command line (modified by the system while it works on it) with nothing inherited and waits
// until the program waits for input, or ends. The wait has no time-out: a program that neither gets ready nor
// ends holds the caller. Returns at once when the program cannot be started.
void StartAndWaitForInputIdle(WCHAR* szCommandLine);
