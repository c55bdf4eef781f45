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

// For example "0x80070057 (E_INVALIDARG)".
std::string ResultText(HRESULT result);
} // namespace sndxtools
