#pragma once
// How a call of the layer begins and fails: the failure that a test has asked for, the last error, and no
// exception to the caller.

#include <cerrno>
#include <cstddef>
#include <exception>
#include <initializer_list>

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

// Memory that a call fills for its caller; null is none.
struct Output
{
    template <class T>
    Output(T* object) // NOLINTNEXTLINE(bugprone-sizeof-expression): also of handles, which are pointers
        : at(object), size(object == nullptr ? 0 : sizeof(T))
    {
    }
    Output(void* memory, std::size_t bytes) : at(memory), size(memory == nullptr ? 0 : bytes) {}
    void* at;
    std::size_t size; // bytes
};
using Outputs = std::initializer_list<Output>;

// True when a test has asked that this call of the named function fail; the last error is set then, and the
// outputs are filled with garbage, so that a caller who looks at them is found out. Every call of the product
// that can fail asks this, under its Windows name (control.cpp): first of all, or last when it gives
// something back. What a caller gives back is gone even if that fails: he could do no more about it.
bool FailNextCall(const char* function, Outputs outputs = {});

// What callers have to give back: see LiveObjects of sndxposix.h.
void CountLive(int difference);

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
Result Call(const char* function, Result failure, Body&& body, Outputs outputs = {}) noexcept
{
    return Guarded(failure, [&]() -> Result { return FailNextCall(function, outputs) ? failure : body(); });
}
} // namespace sndxposix
