#pragma once
// Text inside the tools is UTF-8 std::string; the Windows interfaces take UTF-16.

#include <string>
#include <string_view>

#include <windows.h>

namespace sndxtools
{
using WideString = std::basic_string<WCHAR>;
using WideView = std::basic_string_view<WCHAR>;

std::string Encoded(WideView text, UINT codePage);

// Lone surrogates and invalid bytes become U+FFFD.
inline std::string Utf8(WideView text)
{
    return Encoded(text, CP_UTF8);
}
WideString Wide(std::string_view utf8);

// "0x" and as many upper-case digits as asked for.
std::string Hex(unsigned long value, int digits);

// Quotes text for one line of output: control characters are written as <U+000A>.
std::string Quoted(std::string_view utf8);
} // namespace sndxtools
