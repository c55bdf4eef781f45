#include "diag/lifetime.h"

#include <atomic>

namespace
{
constinit std::atomic<bool> g_bProcessEnds{false};
}

LDebugProcessEnd::~LDebugProcessEnd()
{
    g_bProcessEnds.store(m_bAnnounced, std::memory_order_relaxed);
}

bool LDebugProcessEnd::HasBegun()
{
    return g_bProcessEnds.load(std::memory_order_relaxed);
}
