#pragma once
// When the module was linked, in the form of the compiler's __DATE__ and __TIME__: "Dec  3 2018 14:01:41",
// local time.

extern const char g_szBuildStamp[];
