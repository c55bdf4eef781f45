#pragma once
// How a call of the layer begins and fails: the failure that a test has asked for, the last error, and no
// exception to the caller.

#include <cerrno>
#include <exception>

#include "sndx/types.h"

namespace sndxposix
{
// The Windows error code for an errno value.
DWORD ErrorFromErrno(int error);

void SetLastError(DWORD code);
// Sets the last error; the result is what the failed function returns.
template <class Result = bool>
Result FailWith(DWORD code, Result failure = Result{})
{
    SetLastError(code);
    return failure;
}
template <class Result = bool>
Result FailWithErrno(Result failure = Result{})
{
    return FailWith(ErrorFromErrno(errno), failure);
}

// True when a test has asked that this call of the named function fail; the last error is set then. Every
// call of the product that can fail asks this first, under its Windows name (control.cpp).
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
} // namespace sndxposix
