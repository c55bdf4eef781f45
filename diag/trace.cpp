// The family of trace operations above the line writer: values, function lines, formatted lines.

#include <cstdarg>

#include <stdio.h>

#include "gen/charsets.h"
#include "gen/debug.h"
#include "diag/tracefile.h"
#include "gen/stringtools.h"

namespace
{
constexpr std::size_t g_uLineSize = LTRACELINESIZE;
constexpr std::size_t g_uFormattedSize = 512; // characters of the printf-style forms, terminator included
const char g_szNull[] = "!!! NULL !!!";

// The runtime's formatter, cut and terminated; unlike the bounded formatters of the library it reports
// nothing.
void FormatCut(char* sz, std::size_t uSize, const char* szFormat, va_list args)
{
    const int nWritten = _vsnprintf(sz, uSize, szFormat, args);
    if (nWritten < 0 || static_cast<std::size_t>(nWritten) >= uSize)
    {
        sz[uSize - 1] = 0;
    }
}
} // namespace

void LDebugWriteLineW(const WCHAR* szText, bool bError)
{
    char szUTF8[g_uLineSize];
    LCopyUTF8FromUnicode(szUTF8, szText, g_uLineSize);
    LDebugWriteLine(szUTF8, bError);
}

void LDebugTrace(const char* szText)
{
    LDebugWriteLine(szText, false);
}

void LDebugTraceError(const char* szText)
{
    LDebugWriteLine(szText, true);
}

void LDebugTrace(const char* szPrefix, const char* szValue)
{
    LDebugTraceValue(szPrefix, szValue, false);
}

void LDebugTraceError(const char* szPrefix, const char* szValue)
{
    LDebugTraceValue(szPrefix, szValue, true);
}

void LDebugTrace(const char* szPrefix, const WCHAR* szValue)
{
    LDebugTraceValue(szPrefix, szValue, false);
}

void LDebugTraceError(const char* szPrefix, const WCHAR* szValue)
{
    LDebugTraceValue(szPrefix, szValue, true);
}

void LDebugTrace(const char* szPrefix, std::int64_t nValue)
{
    LDebugTraceValue(szPrefix, nValue, false);
}

void LDebugTraceError(const char* szPrefix, std::int64_t nValue)
{
    LDebugTraceValue(szPrefix, nValue, true);
}

void LDebugTraceValue(const char* szPrefix, const char* szValue, bool bError)
{
    char szLine[g_uLineSize];
    tsnprintf(szLine, g_uLineSize, "%s%s", szPrefix, szValue == nullptr ? g_szNull : szValue);
    LDebugWriteLine(szLine, bError);
}

void LDebugTraceValue(const char* szPrefix, std::int32_t nValue, bool bError)
{
    char szLine[g_uLineSize];
    tsnprintf(szLine, g_uLineSize, "%s%d", szPrefix, static_cast<int>(nValue));
    LDebugWriteLine(szLine, bError);
}

void LDebugTraceValue(const char* szPrefix, std::int64_t nValue, bool bError)
{
    char szLine[g_uLineSize];
    tsnprintf(szLine, g_uLineSize, "%s%lld", szPrefix, static_cast<long long>(nValue));
    LDebugWriteLine(szLine, bError);
}

void LDebugTraceValue(const char* szPrefix, const WCHAR* szValue, bool bError)
{
    if (szValue == nullptr)
    {
        LDebugTraceValue(szPrefix, g_szNull, bError);
        return;
    }
    char szUTF8[LSTR];
    LCopyUTF8FromUnicode(szUTF8, szValue, LSTR);
    LDebugTraceValue(szPrefix, szUTF8, bError);
}

void LDebugTraceValue(const WCHAR* szPrefix, const WCHAR* szValue, bool bError)
{
    WCHAR szLine[g_uLineSize];
    tsnprintf(szLine, g_uLineSize, TEXT("%s%s"), szPrefix,
              szValue == nullptr ? TEXT("!!! NULL !!!") : szValue);
    LDebugWriteLineW(szLine, bError);
}

void LDebugTraceFunction(const char* szFunction, bool bError, const char* szText)
{
    LDebugTraceFunctionF(szFunction, bError, "%s", szText);
}

void LDebugTraceFunctionF(const char* szFunction, bool bError, const char* szFormat, ...)
{
    char szLine[g_uLineSize];
    std::size_t uLength = tstrlcpy(szLine, szFunction, g_uLineSize - 1);
    szLine[uLength] = ' ';
    ++uLength;
    va_list args;
    va_start(args, szFormat);
    FormatCut(szLine + uLength, g_uLineSize - uLength, szFormat, args);
    va_end(args);
    LDebugWriteLine(szLine, bError);
}

void LDebugTraceFunctionF(const char* szFunction, bool bError, const WCHAR* szFormat, ...)
{
    WCHAR szLine[g_uLineSize];
    LCopyUnicodeFromUTF8(szLine, szFunction, LSTR);
    std::size_t uLength = tstrlen(szLine);
    szLine[uLength] = TEXT(' ');
    ++uLength;
    va_list args;
    va_start(args, szFormat);
    lwvsnprintf(szLine + uLength, g_uLineSize - uLength, szFormat, args);
    va_end(args);
    LDebugWriteLineW(szLine, bError);
}

void LDebugTraceF(const char* szFormat, ...)
{
    char szLine[g_uFormattedSize];
    va_list args;
    va_start(args, szFormat);
    FormatCut(szLine, g_uFormattedSize, szFormat, args);
    va_end(args);
    LDebugWriteLine(szLine, false);
}

void LDebugTraceErrorF(const char* szFormat, ...)
{
    char szLine[g_uFormattedSize];
    va_list args;
    va_start(args, szFormat);
    FormatCut(szLine, g_uFormattedSize, szFormat, args);
    va_end(args);
    LDebugWriteLine(szLine, true);
}

void LDebugTraceSystemError(const char* szPrefix, DWORD uError)
{
    WCHAR* szText = nullptr;
    FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
        uError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<WCHAR*>(&szText), 0, nullptr);
    if (szText != nullptr)
    {
        LDebugTrace(szPrefix, szText);
        LocalFree(szText);
    }
}
