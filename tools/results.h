#pragma once
#include <stdexcept>
#include <string>

#include <windows.h>

namespace sndxtools
{
// A call of the module or the system failed.
class CallError : public std::runtime_error
{
  public:
    CallError(const std::string& call, HRESULT result);
};

// Throws CallError when the call failed, or succeeded without delivering what it should have.
inline void Check(const char* call, HRESULT result, bool delivered = true)
{
    if (FAILED(result) || !delivered)
    {
        throw CallError(call, result);
    }
}

// The result that stands for an error code of the system.
inline HRESULT ErrorResult(DWORD error)
{
    return error == 0 ? S_OK : static_cast<HRESULT>(0x80070000u | error);
}

// For example "0x80070057 (E_INVALIDARG)".
std::string ResultText(HRESULT result);
} // namespace sndxtools
