#pragma once
// Owner of a system handle whose "none" is null (processes, threads, events, mutexes, mappings). Files and
// pipes, whose "none" is INVALID_HANDLE_VALUE, have owners of their own.

#include "gen/types.h"

class LHandle
{
  public:
    explicit LHandle(HANDLE handle = nullptr) : m_hHandle(handle) {}
    ~LHandle() { Close(); }
    LHandle(const LHandle&) = delete;
    LHandle& operator=(const LHandle&) = delete;

    bool IsOpen() const { return m_hHandle != nullptr; }
    HANDLE Get() const { return m_hHandle; }

    // Takes over a handle, closing the one it had.
    void Set(HANDLE handle)
    {
        Close();
        m_hHandle = handle;
    }

    void Close()
    {
        if (m_hHandle != nullptr)
        {
            CloseHandle(m_hHandle);
            m_hHandle = nullptr;
        }
    }

  private:
    HANDLE m_hHandle;
};
static_assert(sizeof(LHandle) == 8); // contract.md M13 to M16
