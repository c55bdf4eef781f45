// Compiled by the link itself (cmake/buildstamp.cmake), never as one of the sources.
#include "diag/buildstamp.h"

const char g_szBuildStamp[] = __DATE__ " " __TIME__;
