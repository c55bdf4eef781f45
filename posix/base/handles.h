#pragma once
// The process's table of handles and the objects in it.

#include <chrono>
#include <memory>
#include <optional>

#include "posix/base/call.h"
#include "sndx/base.h"

namespace sndxposix
{
// One entry of the handle table. Objects are shared: a handle that is closed while a call on it runs in
// another thread keeps its object until that call returns.
class KernelObject
{
  public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject() = default;

    // Waiting. A waitable object tries to satisfy the calling thread's wait without blocking and returns
    // WAIT_OBJECT_0 or WAIT_ABANDONED, or nothing while it is not signalled.
    virtual bool IsWaitable() const { return false; }
    virtual std::optional<DWORD> TryWait() { return std::nullopt; }

    // How long a waiter may sleep before it has to look again by itself. Objects whose state changes in
    // this process only are announced through NotifyWaiters and need no polling; objects shared with
    // other processes name a short interval.
    virtual std::chrono::milliseconds PollInterval() const { return std::chrono::hours(1); }
};

// An object that ReadFile, WriteFile and FlushFileBuffers work on: files and pipe ends. The calls behave as
// the Windows calls of the same names: FALSE with the last error set, ERROR_IO_PENDING while a transfer
// goes on. bytes is never null (the callers of the Windows calls may pass null); overlapped may be.
class StreamObject : public KernelObject
{
  public:
    virtual BOOL Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) = 0;
    virtual BOOL Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) = 0;
    virtual BOOL Flush() = 0;
};

HANDLE InsertHandle(std::shared_ptr<KernelObject> object);
// Null, with ERROR_INVALID_HANDLE as last error, when the handle names no object (of that kind).
std::shared_ptr<KernelObject> LookupHandle(HANDLE handle);
template <class T>
std::shared_ptr<T> LookupHandleAs(HANDLE handle)
{
    auto object = std::dynamic_pointer_cast<T>(LookupHandle(handle));
    return object ? object : FailWith(ERROR_INVALID_HANDLE, object);
}
// The same for a call of the named function: null also when a test lets the call fail.
template <class T>
std::shared_ptr<T> LookupHandleFor(const char* function, HANDLE handle, Outputs outputs = {})
{
    return FailNextCall(function, outputs) ? nullptr : LookupHandleAs<T>(handle);
}
// Removes the entry; the object dies when the last user lets go. False for an unknown handle.
bool RemoveHandle(HANDLE handle);
} // namespace sndxposix
