#include "diag/tracefile.h"

#include <atomic>

#include <string.h>
#include <time.h>

#include "diag/header.h"
#include "diag/heap.h"
#include "diag/leftopen.h"
#include "diag/lifetime.h"
#include "diag/traceturn.h"
#include "gen/debug.h"
#include "gen/stringtools.h"
#include "win32/file.h"

namespace
{
const WCHAR g_szNoPath[] = {0};

// State of the trace, one instance per process. All of it is constant-initialised: lines may be written
// before and after any other static object lives.
constinit std::atomic<const WCHAR*> g_szPath{nullptr};
constinit std::atomic<std::uint32_t> g_uClockBase{0}; // tick count of local midnight of the day of the start
constinit std::atomic<std::uint32_t> g_uLines{0};
constinit std::atomic<bool> g_bTerminated{false};

// One attempt at one line: an open, a write and a close, without a lock: the file's share mode is the one
// exclusion that holds for threads and processes alike (contract.md T10, O3). False when the file cannot be
// opened; the last error tells why.
bool AppendOnce(const WCHAR* szPath, const char* szLine, std::size_t uLength)
{
    constexpr std::uint32_t uTryOnce = 0;
    LWriteFileRef file(szPath, uTryOnce);
    if (!file.IsOpen())
    {
        return false;
    }
    file.Write(szLine, uLength);
    return true;
}

// Other writers are waited for: those of this process before each attempt, those of others between them, up
// to the time-out.
void AppendWithin(const WCHAR* szPath, const char* szLine, std::size_t uLength, std::uint32_t uTimeoutMs)
{
    const auto appendInTurn = [&]
    {
        const LTraceTurn turn;
        return AppendOnce(szPath, szLine, uLength);
    };
    for (LSharingRetry retry(uTimeoutMs); !appendInTurn() && retry.Wait();)
    {
    }
}

// As long as a dead thread's handle is open, nobody else can write; so the last lines go through it, and the
// system closes it with the process. (Not closed and opened again: under Wine the thread may have died while
// the file's descriptor was handed over, and then the process ends at once when another handle is used.)
// Otherwise another process is writing, or the dead thread's handle was not found; all lines together wait
// for that a quarter of a second, because the user waits for the end of the process (contract.md D12, O32).
void AppendAtProcessEnd(const WCHAR* szPath, const char* szLine, std::size_t uLength)
{
    static constinit HANDLE hLeftOpen = nullptr;
    static constinit bool bLooked = false;
    static constinit std::uint32_t uWaitLeftMs = 250;
    if (hLeftOpen == nullptr)
    {
        if (AppendOnce(szPath, szLine, uLength))
        {
            return;
        }
        hLeftOpen = bLooked ? nullptr : LFindLeftOpen(szPath); // no thread is left that could leave one later
        bLooked = true;
    }
    if (hLeftOpen != nullptr)
    {
        const LARGE_INTEGER nNowhere = {};
        DWORD uWritten = 0;
        if (SetFilePointerEx(hLeftOpen, nNowhere, nullptr, FILE_END))
        {
            WriteFile(hLeftOpen, szLine, static_cast<DWORD>(uLength), &uWritten, nullptr);
        }
        return;
    }
    const std::uint32_t uBefore = GetTickCount();
    for (LSharingRetry retry(uWaitLeftMs); !AppendOnce(szPath, szLine, uLength) && retry.Wait();)
    {
    }
    const std::uint32_t uWaited = GetTickCount() - uBefore;
    uWaitLeftMs -= uWaited < uWaitLeftMs ? uWaited : uWaitLeftMs;
}

// A line that cannot be written is lost, which nothing could report.
void AppendToFile(const char* szLine, std::size_t uLength)
{
    const WCHAR* szPath = LDebugGetFilePath();
    if (szPath[0] == 0)
    {
        return;
    }
    if (LDebugProcessEnd::HasBegun())
    {
        AppendAtProcessEnd(szPath, szLine, uLength);
    }
    else
    {
        AppendWithin(szPath, szLine, uLength, 3000); // contract.md D6
    }
}

// A line's places: contract.md T3 to T7.
constexpr std::size_t g_uStampSize = 20;

char* PutNumber(char* sz, std::uint32_t uNumber, std::uint32_t uDigits)
{
    for (std::uint32_t i = uDigits; i-- > 0; uNumber /= 10)
    {
        sz[i] = static_cast<char>('0' + uNumber % 10);
    }
    return sz + uDigits;
}

char* PutTwo(char* sz, char c)
{
    sz[0] = c;
    sz[1] = c;
    return sz + 2;
}

// Time, thread and the marks of an ordinary or an error line.
void PutStamp(char* sz, bool bError)
{
    const char cMark = bError ? '*' : ' ';
    const std::uint32_t t = GetTickCount() - g_uClockBase.load(std::memory_order_relaxed);
    sz = PutNumber(sz, t / 3600000 % 24, 2);
    *sz = ':';
    sz = PutNumber(sz + 1, t / 60000 % 60, 2);
    *sz = ':';
    sz = PutNumber(sz + 1, t / 1000 % 60, 2);
    *sz = '.';
    sz = PutTwo(PutNumber(sz + 1, t % 1000, 3), cMark);
    PutTwo(PutNumber(sz, GetCurrentThreadId() % 10000, 4), cMark);
}

// szLine is a whole line with its CR LF.
void WriteWhole(const char* szLine, std::size_t uLength)
{
    AppendToFile(szLine, uLength);
    OutputDebugStringA(szLine);
    g_uLines.fetch_add(1, std::memory_order_relaxed);
}

// A line that was cut still ends in CR LF, in front of the character that the cut or the line end splits, so
// that the next line starts on its own.
std::size_t EndLine(char* szLine)
{
    std::size_t uLength = strlen(szLine);
    if (uLength < 2 || strcmp(szLine + uLength - 2, "\r\n") != 0)
    {
        uLength = LCutPosition(szLine, uLength > LTRACELINESIZE - 3 ? LTRACELINESIZE - 3 : uLength);
        memcpy(szLine + uLength, "\r\n", 3);
        uLength += 2;
    }
    return uLength;
}
} // namespace

bool LDebugWriteJoined(std::initializer_list<const char*> parts, bool bError)
{
    if (g_bTerminated.load(std::memory_order_acquire))
    {
        return true;
    }
    char szLine[LTRACELINESIZE];
    std::size_t uLength = g_uStampSize;
    for (const char* szPart : parts)
    {
        const std::size_t uPart = szPart == nullptr ? LTRACELINESIZE : strlen(szPart);
        if (uPart > LTRACELINESIZE - 3 - uLength) // CR LF and the terminator
        {
            return false;
        }
        memcpy(szLine + uLength, szPart, uPart + 1);
        uLength += uPart;
    }
    PutStamp(szLine, bError);
    memcpy(szLine + uLength, "\r\n", 3);
    WriteWhole(szLine, uLength + 2);
    return true;
}

void LDebugWriteLine(const char* szText, bool bError)
{
    szText = szText == nullptr ? "!!! NULL !!!" : szText;
    if (LDebugWriteJoined({szText}, bError))
    {
        return;
    }
    // Too long: the formatter cuts it and says so, in lines in front of it.
    char szStamp[g_uStampSize + 1] = {};
    PutStamp(szStamp, bError);
    char szLine[LTRACELINESIZE];
    tsnprintf(szLine, LTRACELINESIZE, "%s%s\r\n", szStamp, szText);
    WriteWhole(szLine, EndLine(szLine));
}

std::uint32_t LDebugGetTraceLineNumber()
{
    return g_uLines.load(std::memory_order_relaxed);
}

const WCHAR* LDebugGetFilePath()
{
    const WCHAR* szKnown = nullptr;
    // The first caller computes the path. Lines that come meanwhile, from it or from another thread, find
    // the empty path and go to the debugger output only.
    if (!g_szPath.compare_exchange_strong(szKnown, g_szNoPath, std::memory_order_acq_rel,
                                          std::memory_order_acquire))
    {
        return szKnown;
    }
    WCHAR* szPath = LNEW("LDebugGetFilePath") WCHAR[LSTR];
    if (szPath == nullptr)
    {
        return g_szNoPath; // for good: the debugger output is all that is left
    }
    WCHAR szFolder[LSTR];
    LFile::GetAppDataFolder(szFolder); // empty: the host's current folder (contract.md O27)
    WCHAR szProgram[LSTR];
    const DWORD uLength = GetModuleFileNameW(nullptr, szProgram, LSTR);
    szProgram[uLength < LSTR ? uLength : LSTR - 1] = 0;
    WCHAR szTitle[LSTR];
    LFile::GetFileTitleFromPath(szTitle, szProgram);
    WCHAR szName[LSTR];
    tsnprintf(szName, LSTR, TEXT("tracedll_Sendora%s.txt"), szTitle); // contract.md T1
    LFile::MakeFilePath(szPath, szFolder, szName);
    g_szPath.store(szPath, std::memory_order_release);
    LDebugHeapIgnoreLeak(szPath, LSTR * sizeof(WCHAR));
    return szPath;
}

void LDebugRotateFiles(const WCHAR* szPath)
{
    if (szPath[0] != 0)
    {
        WCHAR szFolder[LSTR];
        WCHAR szTitle[LSTR];
        LFile::GetFolderFromPath(szFolder, szPath);
        LFile::GetFileTitleFromPath(szTitle, szPath);
        const auto makeName = [&](WCHAR* szName, int i)
        {
            WCHAR szExtension[LSTR];
            tsnprintf(szExtension, LSTR, TEXT(".%d.txt"), i);
            return LFile::MakeFilePath(szName, szFolder, szTitle, szExtension);
        };
        constexpr int nGenerations = 9; // contract.md T2, D8
        constexpr std::uint32_t uTryOnce = 0;
        WCHAR szFrom[LSTR];
        WCHAR szTo[LSTR];
        LFile::DeleteWithRetry(makeName(szFrom, nGenerations), uTryOnce);
        for (int i = nGenerations - 1; i >= 1; --i)
        {
            LFile::Move(makeName(szFrom, i), makeName(szTo, i + 1));
        }
        LFile::Move(szPath, makeName(szTo, 1));
        LFile::DeleteWithRetry(szPath, uTryOnce);
    }
    g_uLines.store(0, std::memory_order_relaxed);
}

LDebugTraceLifetime::LDebugTraceLifetime()
{
    LDebugRotateFiles(LDebugGetFilePath());
    const std::uint32_t uNow = GetTickCount();
    const time_t now = time(nullptr);
    const tm* pLocal = localtime(&now);
    if (pLocal != nullptr)
    {
        const auto uSeconds =
            static_cast<std::uint32_t>(pLocal->tm_hour * 3600 + pLocal->tm_min * 60 + pLocal->tm_sec);
        g_uClockBase.store(uNow - 1000 * uSeconds, std::memory_order_relaxed);
    }
    LDebugWriteHeader();
}

LDebugTraceLifetime::~LDebugTraceLifetime()
{
    // contract.md T16
    LDebugHeapLeakReport();
    LDebugTrace("Execution terminated gracefully.");
    LDebugTrace("--------------------------------------------------------------------");
    if (!LDebugProcessEnd::HasBegun()) // otherwise the system takes the memory back at once
    {
        const WCHAR* szPath = g_szPath.exchange(g_szNoPath, std::memory_order_acq_rel);
        if (szPath != g_szNoPath)
        {
            delete[] szPath;
        }
    }
    g_bTerminated.store(true, std::memory_order_release);
}
