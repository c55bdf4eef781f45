#include "diag/traceturn.h"

#include <atomic>

namespace
{
constinit std::atomic<std::uint32_t> g_uWriter{0}; // the thread that is in the middle of a line; 0 for none
}

LTraceTurn::LTraceTurn() : m_uThread(GetCurrentThreadId())
{
    // Bounded in time (contract.md D13), and in number in case that the clock stands. A line takes a tenth of
    // a millisecond, a few where a scanner looks at each open. So it is enough to give way, and nobody
    // sleeps: the shortest sleep may last 16 ms, a hundred lines. A line that takes longer than that stands
    // still, and so may the processor.
    constexpr std::uint32_t uMostMs = 250;
    constexpr std::uint32_t uYieldMs = 50;
    constexpr std::uint32_t uMostTries = 1000000;
    std::uint32_t uStart = 0;
    for (std::uint32_t i = 0; i < uMostTries; ++i)
    {
        std::uint32_t uWriter = g_uWriter.load(std::memory_order_relaxed);
        if (uWriter == 0 && g_uWriter.compare_exchange_strong(uWriter, m_uThread, std::memory_order_acquire))
        {
            return;
        }
        if (uWriter == m_uThread)
        {
            m_uThread = 0;
            return;
        }
        const std::uint32_t uNow = GetTickCount();
        uStart = i == 0 ? uNow : uStart;
        if (uNow - uStart >= uMostMs)
        {
            break;
        }
        Sleep(uNow - uStart < uYieldMs ? 0 : 1);
    }
    // From now on the others wait for this thread: nobody waits twice for one that has died.
    g_uWriter.store(m_uThread, std::memory_order_relaxed);
}

LTraceTurn::~LTraceTurn()
{
    std::uint32_t uWriter = m_uThread;
    if (uWriter != 0) // and nobody has taken its place meanwhile
    {
        g_uWriter.compare_exchange_strong(uWriter, 0, std::memory_order_release, std::memory_order_relaxed);
    }
}
