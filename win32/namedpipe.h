#pragma once
// Client end of a named pipe on this machine. One thread and one write at a time; construct, use and destroy
// it on the same thread (a pending write can be cancelled only by the thread that issued it).

#include "gen/types.h"
#include "win32/handle.h"
#include "win32/signalwaiter.h"

class LNamedPipe
{
  public:
    // Tries to open the pipe at once; IsOpen tells whether it did.
    explicit LNamedPipe(const WCHAR* szName);
    ~LNamedPipe();
    LNamedPipe(const LNamedPipe&) = delete;
    LNamedPipe& operator=(const LNamedPipe&) = delete;

    // Closes what is open and opens again. While all instances of the pipe are busy it waits the server's own
    // time-out for one and tries again, without a limit on the number of tries.
    bool Open(const WCHAR* szName);
    // True while the server's end is connected.
    bool IsOpen() const;
    // Waits without bound until the server has read everything, or has closed its end.
    void Close();

    // Writes the whole buffer as one write. TimedOut also when the write fails at once, or without the event
    // that a pending write needs. A write that does not finish within the time is cancelled, and its end is
    // waited for: when this returns, the system uses neither the pipe's OVERLAPPED record nor the buffer any
    // more.
    static LWaitResult ProcessSendBytes(LSignalWaiter& waiter, LNamedPipe& pipe, const void* Buffer,
                                        std::uint32_t uBytes, std::uint32_t uTimeoutMs);

  private:
    void _Open(const WCHAR* szName);

    HANDLE m_hPipe;
    LHandle m_Event; // manual reset, part of the record below
    OVERLAPPED m_Overlapped;
};
static_assert(sizeof(LNamedPipe) == 48); // contract.md M16
