#pragma once
// Handles and errors in the tests of the Windows interfaces.

#include <windows.h>

#include "tests/support/timing.h"

namespace sndxtest
{
// Owns a handle.
class Handle
{
  public:
    explicit Handle(HANDLE value) : value_(value) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator HANDLE() const { return value_; }
    bool IsOpen() const { return value_ != nullptr && value_ != INVALID_HANDLE_VALUE; }
    void Close()
    {
        if (IsOpen())
        {
            CloseHandle(value_);
        }
        value_ = nullptr;
    }

  private:
    HANDLE value_;
};

// The last error of a call that has failed, 0 when it has not. A handle that it gave is closed.
inline DWORD ErrorOf(BOOL succeeded)
{
    return succeeded ? DWORD{ERROR_SUCCESS} : GetLastError();
}

inline DWORD ErrorOf(HANDLE value)
{
    const DWORD error = GetLastError();
    return Handle(value).IsOpen() ? DWORD{ERROR_SUCCESS} : error;
}
} // namespace sndxtest
