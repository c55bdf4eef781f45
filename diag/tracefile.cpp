#include "diag/tracefile.h"

#include <atomic>

#include <string.h>
#include <time.h>

#include "gen/debug.h"
#include "diag/header.h"
#include "diag/heap.h"
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

constexpr std::size_t g_uFileLineSize = LTRACELINESIZE;

// Appends to the trace file. Other writers, threads or processes, are waited for, up to the time-out; a line
// that cannot be written is lost, which nothing could report.
void AppendToFile(const char* szLine)
{
    constexpr std::uint32_t uTimeoutMs = 3000;
    const WCHAR* szPath = LDebugGetFilePath();
    if (szPath[0] == 0)
    {
        return;
    }
    LWriteFileRef file(szPath, uTimeoutMs);
    if (file.IsOpen())
    {
        file.Write(szLine, strlen(szLine));
    }
}

// A line that was cut still ends in CR LF, in front of the character that the cut or the line end splits, so
// that the next line starts on its own.
void EndLine(char* szLine)
{
    std::size_t uLength = strlen(szLine);
    if (uLength < 2 || strcmp(szLine + uLength - 2, "\r\n") != 0)
    {
        uLength = uLength > g_uFileLineSize - 3 ? g_uFileLineSize - 3 : uLength;
        while (uLength > 0 && (static_cast<unsigned char>(szLine[uLength]) & 0xC0) == 0x80)
        {
            --uLength;
        }
        memcpy(szLine + uLength, "\r\n", 3);
    }
}
} // namespace

void LDebugWriteLine(const char* szText, bool bError)
{
    if (g_bTerminated.load(std::memory_order_acquire))
    {
        return;
    }
    const std::uint32_t t = GetTickCount() - g_uClockBase.load(std::memory_order_relaxed);
    char szThread[16];
    tsnprintf(szThread, sizeof(szThread), "%.4d", static_cast<int>(GetCurrentThreadId() % 10000));
    char szLine[g_uFileLineSize];
    tsnprintf(szLine, g_uFileLineSize,
              bError ? "%.2d:%.2d:%.2d.%.3d**%s%s**%s\r\n" : "%.2d:%.2d:%.2d.%.3d  %s%s  %s\r\n",
              static_cast<int>(t / 3600000 % 24), static_cast<int>(t / 60000 % 60),
              static_cast<int>(t / 1000 % 60), static_cast<int>(t % 1000), "", szThread, szText);
    EndLine(szLine);
    AppendToFile(szLine);
    OutputDebugStringA(szLine);
    g_uLines.fetch_add(1, std::memory_order_relaxed);
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
    LFile::GetAppDataFolder(szFolder);
    WCHAR szProgram[LSTR];
    const DWORD uLength = GetModuleFileNameW(nullptr, szProgram, LSTR);
    szProgram[uLength < LSTR ? uLength : LSTR - 1] = 0;
    WCHAR szTitle[LSTR];
    LFile::GetFileTitleFromPath(szTitle, szProgram);
    WCHAR szName[LSTR];
    tsnprintf(szName, LSTR, TEXT("tracedll_Sendora%s.txt"), szTitle);
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
        constexpr int nGenerations = 9;
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
    LDebugHeapLeakReport();
    LDebugTrace("Execution terminated gracefully.");
    LDebugTrace("--------------------------------------------------------------------");
    const WCHAR* szPath = g_szPath.exchange(g_szNoPath, std::memory_order_acq_rel);
    if (szPath != g_szNoPath)
    {
        delete[] szPath;
    }
    g_bTerminated.store(true, std::memory_order_release);
}
