#pragma once
// What the sources of the layer share: the table of handles, waiting, injected failures, text and paths.
// Nothing of this is visible to the product.

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sndx/base.h"
#include "sndx/types.h"

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

// Sets the last error; the result is what the failed function returns.
template <class Result = bool>
Result FailWith(DWORD code, Result failure = Result{})
{
    SetLastError(code);
    return failure;
}

// control.cpp ---------------------------------------------------------------------------------------
// True when a test has asked that the next call of the named function fail; the last error is set then.
// Every function of the layer that the product calls asks this first, under its Windows name.
bool FailNextCall(const char* function);

// Runs the body of a call. An exception (want of memory, in practice) becomes the given result with
// ERROR_NOT_ENOUGH_MEMORY as last error: the callers of the layer's functions cannot take any.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const std::exception&)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY, failure);
    }
}

// The same with FailNextCall in front.
template <class Result, class Body>
Result Call(const char* function, Result failure, Body&& body) noexcept
{
    return Guarded(failure, [&]() -> Result { return FailNextCall(function) ? failure : body(); });
}

// handles.cpp ---------------------------------------------------------------------------------------
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
std::shared_ptr<T> LookupHandleFor(const char* function, HANDLE handle)
{
    return FailNextCall(function) ? nullptr : LookupHandleAs<T>(handle);
}
// Removes the entry; the object dies when the last user lets go. False for an unknown handle.
bool RemoveHandle(HANDLE handle);

// sync.cpp ------------------------------------------------------------------------------------------
// Wakes every waiting thread of this process so that it tries its objects again.
void NotifyWaiters();

// pipes.cpp -----------------------------------------------------------------------------------------
// CreateFileW of a path in the name space of pipes. access and flags are those of CreateFileW;
// INVALID_HANDLE_VALUE with the last error set on failure.
HANDLE OpenPipeClient(const WCHAR* path, DWORD access, DWORD flags);

// paths.cpp -----------------------------------------------------------------------------------------
// The folder below which everything of this layer lives, without a trailing slash: $SENDORA_ROOT, or a
// folder below the user's data folder. Read at first use, created when missing (with drive_c, objects
// and pipe below it).
const std::string& RootFolder();
// The POSIX path of a Windows path: drive C: is <root>/drive_c, drive Z: is /. Both separators count; an
// element that does not exist as spelled is looked up without regard to case. Relative paths and paths
// without a drive are taken from the current folder. An unknown drive gives an empty string.
std::string ToUnixPath(const WCHAR* path);
// The Windows path of an absolute POSIX path: C:\… below <root>/drive_c, otherwise Z:\….
std::u16string ToWindowsPath(std::string_view path);

// text.cpp ------------------------------------------------------------------------------------------
std::string Utf8(std::u16string_view text);
std::u16string Utf16(std::string_view text);
// ASCII-only case folding is not enough for names: folds by simple Unicode rules for Latin letters.
std::u16string FoldCase(std::u16string_view text);

// errors.cpp ----------------------------------------------------------------------------------------
// The Windows error code for an errno value.
DWORD ErrorFromErrno(int error);
} // namespace sndxposix
