#pragma once
// The diagnostic header of a trace: build, run, host, system.

void LDebugWriteHeader();
