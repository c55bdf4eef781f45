#pragma once
// Overlapped transfers. Nothing runs in the background: whoever waits, or asks for a result, looks after
// all pending transfers of the process.

#include <memory>

#include "sndx/base.h"

namespace sndxposix
{
// NT status codes in OVERLAPPED::Internal.
inline constexpr ULONG_PTR statusSuccess = 0;
inline constexpr ULONG_PTR statusPending = 0x103;
inline constexpr ULONG_PTR statusPipeDisconnected = 0xC00000B0;
inline constexpr ULONG_PTR statusCancelled = 0xC0000120;
inline constexpr ULONG_PTR statusPipeBroken = 0xC000014B;

DWORD ErrorFromStatus(ULONG_PTR status);

class PipeEnd;
// From now on the end's pending transfers are looked after. Under PipeMutex.
void WatchTransfers(const std::shared_ptr<PipeEnd>& end);
// Looks after all pending transfers of this process. True while some are still pending.
bool PumpOverlapped();
} // namespace sndxposix
