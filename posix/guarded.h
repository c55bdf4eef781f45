#pragma once
// Keeps exceptions inside the layer: the callers of its C functions cannot take any.

#include <exception>

#include "sndx/types.h"

namespace sndxposix
{
// Runs the body; an exception (want of memory, in practice) becomes the given result with
// ERROR_NOT_ENOUGH_MEMORY as last error.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const std::exception&)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return failure;
    }
}
} // namespace sndxposix
