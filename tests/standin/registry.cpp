// The registry of COM objects for programs that link the COM framework without the module's rooms.

#include "gen/com.h"

LComDiagnostic g_ComDiagnostic;
