#pragma once
// Handles, errors and times in the tests of the Windows interfaces.

#include <chrono>

#include <windows.h>

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

class Stopwatch
{
  public:
    long long Milliseconds() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_).count();
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};
} // namespace sndxtest
