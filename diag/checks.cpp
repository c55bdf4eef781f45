// Assertion reports and run-time checks: they only write to the trace.

#include "gen/debug.h"
#include "gen/stringtools.h"

void LDebugAssertFailed(const char* szFunction, const char* szExpression, const char* szFile,
                        std::int32_t nLine)
{
    char szReport[8192]; // contract.md T19
    tsnprintf(szReport, sizeof(szReport), "%s ASSERTION FAILED %s:\r\n   %s(%d)", szFunction, szExpression,
              szFile, static_cast<int>(nLine));
    LDebugWriteLine(szReport, true);
}

void LDebugCheckFailed(const char* szExpression, const char* szMessage, const char* szFile,
                       std::int32_t nLine)
{
    char szText[LSTR]; // contract.md T20, L9
    tsnprintf(szText, sizeof(szText), "(%s) \"%s\"", szExpression, szMessage);
    char szReport[360];
    tsnprintf(szReport, sizeof(szReport), "ASSERTION FAILED %s file: %s line: %d", szText, szFile,
              static_cast<int>(nLine));
    LDebugWriteLine(szReport, true);
}

void LDebugValidPtrRead(const void* p)
{
    if (p == nullptr)
    {
        LDebugTraceError("LDEBUGVALIDPTRREAD attempting to read from a null ptr");
    }
}

void LDebugValidPtrWrite(const void* p)
{
    if (p == nullptr)
    {
        LDebugTraceError("LDEBUGVALIDPTRWRITE attempting to read from a null ptr"); // contract.md O15
    }
}

void LDebugValidWin32String(const WCHAR* sz)
{
    if ((reinterpret_cast<std::uintptr_t>(sz) & 1) != 0)
    {
        LDebugTraceFunctionF(
            "LDEBUGVALIDWIN32STRINGF", true,
            TEXT("The string %s is not word-aligned (address: %p). This might result in failure of "
                 "some WinAPI functions."),
            sz, static_cast<const void*>(sz));
    }
}

void LDebugCheckMemoryWriteable(void* p)
{
    MEMORY_BASIC_INFORMATION region = {};
    if (VirtualQuery(p, &region, sizeof(region)) == 0 || region.Protect != PAGE_READWRITE)
    {
        LDebugTraceError("LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!");
        LDebugTraceErrorF("LCHECKMEMORYWRITEABLE 0x%p", p);
    }
}
