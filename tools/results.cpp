#include "tools/results.h"

#include "tools/text.h"

namespace sndxtools
{
CallError::CallError(const std::string& call, HRESULT result)
    : std::runtime_error(call + " answered " + ResultText(result))
{
}

std::string ResultText(HRESULT result)
{
    static constexpr struct
    {
        HRESULT result;
        const char* name;
    } names[] = {
        {S_OK, "S_OK"},
        {S_FALSE, "S_FALSE"},
        {E_FAIL, "E_FAIL"},
        {E_INVALIDARG, "E_INVALIDARG"},
        {E_NOINTERFACE, "E_NOINTERFACE"},
        {E_NOTIMPL, "E_NOTIMPL"},
        {E_POINTER, "E_POINTER"},
        {E_OUTOFMEMORY, "E_OUTOFMEMORY"},
        {CLASS_E_NOAGGREGATION, "CLASS_E_NOAGGREGATION"},
        {CLASS_E_CLASSNOTAVAILABLE, "CLASS_E_CLASSNOTAVAILABLE"},
        {static_cast<HRESULT>(0x80040154u), "REGDB_E_CLASSNOTREG"},
    };
    std::string hex = Hex(static_cast<DWORD>(result), 8);
    for (const auto& entry : names)
    {
        if (entry.result == result)
        {
            return hex + " (" + entry.name + ")";
        }
    }
    return hex;
}
} // namespace sndxtools
