// The family of trace operations above the line writer: values, function lines, formatted lines.

#include <cstdarg>

#include "diag/tracefile.h"
#include "gen/charsets.h"
#include "gen/debug.h"
#include "gen/stringtools.h"

namespace
{
constexpr std::size_t g_uLineSize = LTRACELINESIZE;
constexpr std::size_t g_uFormattedSize = 512; // characters of the printf-style forms, contract.md L7
const char g_szNull[] = "!!! NULL !!!";       // in place of a text that does not exist, contract.md T21
const WCHAR g_szNullW[] = TEXT("!!! NULL !!!");

const char* OrNull(const char* sz)
{
    return sz == nullptr ? g_szNull : sz;
}

const WCHAR* OrNull(const WCHAR* sz)
{
    return sz == nullptr ? g_szNullW : sz;
}
} // namespace

void LDebugWriteLineW(const WCHAR* szText, bool bError)
{
    char szUTF8[g_uLineSize];
    LCopyUTF8FromUnicode(szUTF8, OrNull(szText), g_uLineSize);
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
    szValue = OrNull(szValue);
    if (!LDebugWriteJoined({szPrefix, szValue}, bError))
    {
        char szLine[g_uLineSize];
        tsnprintf(szLine, g_uLineSize, "%s%s", szPrefix, szValue);
        LDebugWriteLine(szLine, bError);
    }
}

void LDebugTraceValue(const char* szPrefix, std::int32_t nValue, bool bError)
{
    LDebugTraceValue(szPrefix, std::int64_t{nValue}, bError);
}

void LDebugTraceValue(const char* szPrefix, std::int64_t nValue, bool bError)
{
    char szValue[24];
    tsnprintf(szValue, sizeof(szValue), "%lld", static_cast<long long>(nValue));
    LDebugTraceValue(szPrefix, szValue, bError);
}

void LDebugTraceValue(const char* szPrefix, const WCHAR* szValue, bool bError)
{
    char szUTF8[LSTR]; // contract.md L8
    LCopyUTF8FromUnicode(szUTF8, OrNull(szValue), LSTR);
    LDebugTraceValue(szPrefix, szUTF8, bError);
}

void LDebugTraceValue(const WCHAR* szPrefix, const WCHAR* szValue, bool bError)
{
    WCHAR szLine[g_uLineSize];
    tsnprintf(szLine, g_uLineSize, TEXT("%s%s"), szPrefix, OrNull(szValue));
    LDebugWriteLineW(szLine, bError);
}

void LDebugTraceFunction(const char* szFunction, bool bError, const char* szText)
{
    szText = OrNull(szText);
    if (!LDebugWriteJoined({szFunction, " ", szText}, bError))
    {
        LDebugTraceFunctionF(szFunction, bError, "%s", szText);
    }
}

void LDebugTraceFunction(const char* szFunction, bool bError, const WCHAR* szText)
{
    LDebugTraceFunctionF(szFunction, bError, TEXT("%s"), OrNull(szText));
}

void LDebugTraceFunctionF(const char* szFunction, bool bError, const char* szFormat, ...)
{
    char szLine[g_uLineSize];
    std::size_t uLength = tstrlcpy(szLine, szFunction, g_uLineSize - 1);
    szLine[uLength] = ' ';
    ++uLength;
    va_list args;
    va_start(args, szFormat);
    LFormatCut(szLine + uLength, g_uLineSize - uLength, OrNull(szFormat), args);
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
    lwvsnprintf(szLine + uLength, g_uLineSize - uLength, OrNull(szFormat), args);
    va_end(args);
    LDebugWriteLineW(szLine, bError);
}

void LDebugTraceF(const char* szFormat, ...)
{
    char szLine[g_uFormattedSize];
    va_list args;
    va_start(args, szFormat);
    LFormatCut(szLine, g_uFormattedSize, OrNull(szFormat), args);
    va_end(args);
    LDebugWriteLine(szLine, false);
}

void LDebugTraceErrorF(const char* szFormat, ...)
{
    char szLine[g_uFormattedSize];
    va_list args;
    va_start(args, szFormat);
    LFormatCut(szLine, g_uFormattedSize, OrNull(szFormat), args);
    va_end(args);
    LDebugWriteLine(szLine, true);
}

void LDebugTraceSystemError(const char* szPrefix, DWORD uError)
{
    WCHAR* szText = nullptr;
    const DWORD uLength = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
        uError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<WCHAR*>(&szText), 0, nullptr);
    if (uLength != 0) // what a failed call leaves in szText is no text
    {
        LDebugTrace(szPrefix, szText);
        LocalFree(szText);
    }
}
