#pragma once
// The trace file: its path, the lines in it, its older generations. Included in diag/ and by tests; everybody
// else reports through gen/debug.h.

#include <initializer_list>

#include "gen/types.h"

// Capacity of a line buffer: bytes (or characters of a wide line), CR LF and terminator included.
constexpr std::size_t LTRACELINESIZE = 8192;

// Writes the parts behind each other as one line, as LDebugWriteLine does. False, with nothing written, when
// they do not fit or one is null: they are then to be formatted, which cuts and reports.
bool LDebugWriteJoined(std::initializer_list<const char*> parts, bool bError);

// Full path of this process's trace file, computed at first use. Empty while another thread is computing it
// and when there is no memory for it: lines then reach the debugger output only. Owned by the trace.
const WCHAR* LDebugGetFilePath();

// Lines written since the last rotation, whether or not they reached the file.
std::uint32_t LDebugGetTraceLineNumber();

// Moves <title>.txt to <title>.1.txt and so on up to <title>.9.txt; the oldest is deleted. Each move and
// delete is tried once, without waiting: this runs while the host loads the module. Resets the line counter.
void LDebugRotateFiles(const WCHAR* szPath);
