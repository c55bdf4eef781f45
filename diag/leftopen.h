#pragma once
// Part of the end of the trace in an ending process.

#include "gen/types.h"

// The handle of the trace file that a thread left open which died, with the process, between opening and
// closing it; null when there is none. To be called when no other thread is left. The handle stays nobody's:
// the system closes it.
HANDLE LFindLeftOpen(const WCHAR* szPath);
